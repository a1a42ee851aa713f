#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "collector/report/timeline.h"
#include "collector/report/worst.h"

// The tables of the page. Those of lists take them from the summary's JSON, so that both say the same.
namespace report {

// What one wants to know at a glance.
std::string Figures(const nlohmann::ordered_json& summary);

std::string QuantilesTable(const nlohmann::ordered_json& times_us);
std::string ResultsTable(const Timeline& timeline);
std::string SpansTable(const Timeline& timeline);  // the numbers behind the plots over time

// Titles for what stands in the first column and for what is counted, and the list. Texts of the list are escaped
// here.
std::string TalliesTable(std::string_view about, std::string_view title, const nlohmann::ordered_json& list);
std::string CountsTable(std::string_view about, std::string_view title, std::string_view counted,
                        const nlohmann::ordered_json& list);
std::string SlowestTable(const nlohmann::ordered_json& list);
std::string UnansweredTable(const nlohmann::ordered_json& list);

std::string WorstSentence(const std::vector<BadExchange>& exchanges);
std::string WorstTable(const std::vector<BadExchange>& exchanges);

}  // namespace report
