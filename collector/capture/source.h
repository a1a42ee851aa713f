#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace capture {

// One captured frame. The bytes stay valid until the next Read of the source that delivered them.
struct Frame {
  int64_t time_ns = 0;            // since the Unix epoch
  const uint8_t* data = nullptr;  // at least one readable byte lies behind the captured ones
  uint32_t captured = 0;          // bytes at data
  uint32_t wire = 0;              // bytes on the wire, never less than captured
  uint64_t offset = 0;            // where the frame's record begins in its (uncompressed) file
  uint32_t source = 0;            // which input it came from, as numbered by its opener
  uint16_t link_type = 0;         // LINKTYPE_ value, https://www.tcpdump.org/linktypes.html
};

enum class ReadState {
  kFrames,  // at least one frame
  kIdle,    // a live source: nothing arrived in the last moment
  kEnd,     // no more frames, ever
};

// Something that delivers frames in its own order: a file, a merge of several, an interface.
class Source {
 public:
  virtual ~Source() = default;

  // The next frames, as many as are at hand. Blocks on a pipe; on a live source for a moment only.
  virtual ReadState Read(std::span<const Frame>* frames) = 0;

  // What went wrong so far, one line each, "file:offset: what is wrong". A source with problems still
  // delivers all that came before them.
  virtual const std::vector<std::string>& Problems() const = 0;

  // How far the reading is, for a progress display. Total is 0 where it is unknown (a pipe).
  virtual uint64_t BytesRead() const = 0;
  virtual uint64_t BytesTotal() const = 0;
};

}  // namespace capture
