#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "collector/capture/record_format.h"
#include "collector/capture/tick_clock.h"

namespace capture {

// pcapng files (draft-ietf-opsawg-pcapng): any number of sections, each in its own byte order and with its own
// interfaces. Frames come from enhanced, simple and (obsolete) packet blocks; other blocks are passed over.
class PcapngFormat final : public RecordFormat {
 public:
  // Whether a file that begins with these four bytes is one.
  static bool Recognises(const uint8_t* first_four);

  Record Next(std::span<const uint8_t> bytes, uint64_t offset, Frame* frame) override;

 private:
  struct Interface {
    TickClock clock;
    uint32_t snaplen = 0;  // 0: unlimited
    uint16_t link_type = 0;
  };

  // A packet block's fields, whatever its kind.
  struct Packet {
    uint32_t interface = 0;
    uint32_t captured = 0;
    uint32_t wire = 0;
    uint32_t data = 0;  // where the frame begins in the block
  };

  Record SectionHeader(std::span<const uint8_t> bytes);
  Record PassOver(uint32_t length);
  Record TrailingLength(std::span<const uint8_t> bytes);
  Record WholeBlock(std::span<const uint8_t> bytes, uint32_t type, uint32_t length, Frame* frame);
  Record AddInterface(const uint8_t* block, uint32_t length);
  bool ReadOptions(const uint8_t* at, const uint8_t* end, uint8_t* resolution, int64_t* offset) const;
  Record EnhancedPacket(const uint8_t* block, uint32_t length, Frame* frame);
  Record ObsoletePacket(const uint8_t* block, uint32_t length, Frame* frame);
  Record SimplePacket(const uint8_t* block, uint32_t length, Frame* frame);
  Record Deliver(const uint8_t* block, uint32_t length, const Packet& packet, Frame* frame);
  int64_t Time(const uint8_t* high_and_low, uint32_t interface);

  std::vector<Interface> interfaces;  // of the section
  bool swapped = false;
  uint32_t length_due = 0;   // the length that must stand behind a block that was passed over; 0: none
  int64_t last_time_ns = 0;  // for simple packets, which have no time: they get that of the packet before
};

}  // namespace capture
