#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "collector/flow/message_cutter.h"

namespace test {

struct Cut {
  std::string bytes;
  uint32_t nominal = 0;
  int64_t time_ns = 0;
  const uint8_t* data = nullptr;  // where it lay; dead by now

  friend bool operator==(const Cut& a, const Cut& b) { return a.bytes == b.bytes && a.nominal == b.nominal; }
};

// Keeps what comes out of one direction of a stream.
class CutterRecorder : public flow::CutterOutput {
 public:
  explicit CutterRecorder(flow::Expected expects = flow::Expected::kEither)
      : CutterOutput(&own), expected(expects) {}

  void OnCutMessage(const flow::CutMessage& message) override {
    [[maybe_unused]] const volatile uint8_t behind = message.data[message.snap];  // is readable
    cuts.push_back({std::string(reinterpret_cast<const char*>(message.data), message.snap), message.nominal,
                    message.time_ns, message.data});
  }

  flow::Expected Expects() const override { return expected; }

  std::vector<std::string> Texts() const {
    std::vector<std::string> texts;
    for (const Cut& cut : cuts) texts.push_back(cut.bytes);
    return texts;
  }

  flow::Counts own;
  flow::Expected expected;
  std::vector<Cut> cuts;
};

}  // namespace test
