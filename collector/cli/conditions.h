#pragma once

#include <stdexcept>
#include <string>

#include "collector/cli/options.h"
#include "collector/cli/usage_error.h"
#include "collector/output/where.h"

namespace cli {

// What the user wrote behind an option is wrong usage where it makes no sense.
template <typename Parse>
auto Understand(const char* option, Parse parse) {
  try {
    return parse();
  } catch (const std::runtime_error& error) {
    throw UsageError(std::string(option) + ": " + error.what());
  }
}

// --where. Throws UsageError.
inline output::Where ParseConditions(const Options& options) {
  return Understand("--where", [&] { return output::Where(options.where); });
}

}  // namespace cli
