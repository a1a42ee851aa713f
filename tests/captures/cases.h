#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tests/captures/capture_builder.h"
#include "tests/captures/program.h"
#include "tests/support/temporary_file.h"

// What the tests of single cases share: they run the program on a capture and look at records in short form.
namespace test {

// What became of the capture.
struct Result {
  std::vector<nlohmann::json> records;
  nlohmann::json account;

  // For each record, in their order: the identifier, the status, and the response time in microseconds if there is
  // one. "7 answered 20000, 8 timeout".
  std::string Brief() const {
    std::string brief;
    for (const nlohmann::json& record : records) {
      if (!brief.empty()) brief += ", ";
      brief += std::to_string(record["dns_id"].get<int>()) + " " + record["status"].get<std::string>();
      if (record.contains("rtt_us")) brief += " " + std::to_string(record["rtt_us"].get<int64_t>());
    }
    return brief;
  }
};

// Reads the capture. A run that fails, complains or does not add up throws.
inline Result Read(const Capture& capture, std::vector<std::string> arguments = {}) {
  const TemporaryFile file(capture.Pcap());
  arguments.push_back(file.path);
  const ReadRun run = RunRead(arguments);
  if (run.exit_code != 0) throw std::runtime_error("exit " + std::to_string(run.exit_code) + ": " + run.errors);
  if (!run.errors.empty()) throw std::runtime_error("complaint: " + run.errors);
  if (const std::string wrong = WrongSums(run.account); !wrong.empty()) throw std::runtime_error(wrong);
  return {run.Records(), run.account};
}

// A query and a response for an A record.
inline test::Message Ask(unsigned id, const test::Name& name = "a.example", uint16_t type = test::kA) {
  return test::Query(id).Question(name, type);
}
inline test::Message Say(unsigned id, const test::Name& name = "a.example", uint16_t type = test::kA) {
  return test::Response(id).Question(name, type);
}

}  // namespace test
