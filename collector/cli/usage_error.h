#pragma once

#include <stdexcept>

namespace cli {

// The command line makes no sense. The message is one line without the program's name.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace cli
