#pragma once

#include <string>

#include "collector/output/histogram.h"
#include "collector/report/timeline.h"

// The plots of the page. Each is empty text, or a sentence that says so, where there is nothing to see.
namespace report {

std::string HistogramPlot(const output::Histogram& times_us);
std::string HistogramTable(const output::Histogram& times_us);  // its bars in numbers

// What the plots of counts count per: "second", or "50 ms" where the steps are shorter.
std::string RateUnitText(const Timeline& timeline);

std::string TimesPlot(const Timeline& timeline);
std::string QueriesPlot(const Timeline& timeline);
std::string TimeoutsPlot(const Timeline& timeline);

}  // namespace report
