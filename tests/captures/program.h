#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace test {

// What a run of "dnspair read" came to.
struct ReadRun {
  int exit_code = 0;  // -1: a signal ended it
  std::string output;
  std::string errors;
  nlohmann::json account;

  // The records of a run in JSON.
  std::vector<nlohmann::json> Records() const;
};

// Runs "dnspair read" with these arguments. What stands in `input` is its standard input, a pipe that never holds
// more than `piece` bytes. The format is JSON where the arguments name none.
ReadRun RunRead(const std::vector<std::string>& arguments, const std::string& input = {}, size_t piece = 65536);

// What is wrong with the sums of an account, "" for nothing. Does not take the account's own word for it.
std::string WrongSums(const nlohmann::json& account);

}  // namespace test
