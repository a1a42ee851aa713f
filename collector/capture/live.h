#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "collector/capture/source.h"

namespace capture {

struct LiveSettings {
  std::vector<std::string> interfaces;  // "any" is all of them, as libpcap understands it
  int snap_length = 262144;             // bytes kept of a frame
  bool promiscuous = true;
  int buffer_bytes = 16 << 20;  // of the kernel, for each interface
  std::string filter;           // libpcap's language, runs in the kernel; "" for none
};

// What the kernel says of one interface since it was opened.
struct LiveCounts {
  std::string interface;
  uint64_t received = 0;              // passed the filter
  uint64_t dropped = 0;               // no room in the buffer: this program was too slow
  uint64_t dropped_by_interface = 0;  // by the interface or its driver, where it tells
};

// Frames as they arrive on interfaces. Frames of one interface keep their order; those of several that are at hand
// together are ordered by time.
class LiveSource : public Source {
 public:
  // Opens all interfaces. Throws std::runtime_error "eth7: why, and what to do" when one cannot be opened or the
  // filter expression is wrong.
  explicit LiveSource(const LiveSettings& settings);
  ~LiveSource() override;

  // kIdle when nothing arrived for a tenth of a second. An interface that goes away is a problem; the others go on.
  ReadState Read(std::span<const Frame>* frames) override;

  const std::vector<std::string>& Problems() const override;
  uint64_t BytesRead() const override;
  uint64_t BytesTotal() const override { return 0; }

  std::vector<LiveCounts> Counts();

  // What became of interfaces since the last call, for whoever watches the run: a line for each that is gone (a
  // problem as well), went down or came up again. To be called often; it looks once a second.
  std::vector<std::string> TakeNews();

 private:
  struct State;
  std::unique_ptr<State> state;
};

}  // namespace capture
