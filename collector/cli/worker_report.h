#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "collector/output/account.h"

namespace cli {

// How a worker's run went, on its way to the process that began it: the same program, so that numbers travel as
// they are.
struct WorkerReport {
  output::Account account;
  std::vector<std::string> problems;  // of the input
};

std::string Pack(const WorkerReport& report);
WorkerReport Unpack(std::string_view packed);

}  // namespace cli
