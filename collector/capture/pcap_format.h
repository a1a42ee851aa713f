#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "collector/capture/record_format.h"

namespace capture {

// pcap files (draft-ietf-opsawg-pcap) with micro- or nanoseconds, and the "modified" ones of old Linux systems,
// whose records have longer headers; in either byte order.
class PcapFormat final : public RecordFormat {
 public:
  // Whether a file that begins with these four bytes is one.
  static bool Recognises(const uint8_t* first_four);

  Record Next(std::span<const uint8_t> bytes, uint64_t offset, Frame* frame) override;

 private:
  Record FileHeader(std::span<const uint8_t> bytes);

  size_t header_length = 0;  // of a record; 0 until the file's header was seen
  bool swapped = false;
  int64_t fraction_ns = 0;  // what the lower half of a time stamp counts
  uint32_t longest = 0;     // bytes of a frame; more is corrupt
  uint16_t link_type = 0;
};

}  // namespace capture
