#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "collector/capture/source.h"
#include "collector/cli/program_for_tests.h"

namespace cli {

// Frames from memory, one at a time.
class FrameList : public capture::Source {
 public:
  void Add(int64_t after_ns, const test::Packet& packet, uint16_t link_type = 1) {
    bytes.push_back(packet.Frame());
    bytes.back().push_back(0);  // readable behind the frame
    const auto size = static_cast<uint32_t>(bytes.back().size() - 1);
    frames.push_back({.time_ns = kStart + after_ns, .captured = size, .wire = size, .link_type = link_type});
  }

  capture::ReadState Read(std::span<const capture::Frame>* batch) override {
    if (idle_first) {
      idle_first = false;
      return capture::ReadState::kIdle;
    }
    if (at == frames.size()) return capture::ReadState::kEnd;
    for (size_t i = 0; i < frames.size(); ++i) frames[i].data = bytes[i].data();
    *batch = std::span(frames).subspan(at++, 1);
    return capture::ReadState::kFrames;
  }
  const std::vector<std::string>& Problems() const override { return problems; }
  uint64_t BytesRead() const override { return at; }
  uint64_t BytesTotal() const override { return frames.size(); }

  bool idle_first = false;

 private:
  std::vector<test::Bytes> bytes;
  std::vector<capture::Frame> frames;
  std::vector<std::string> problems;
  size_t at = 0;
};

}  // namespace cli
