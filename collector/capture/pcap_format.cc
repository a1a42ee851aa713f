#include "collector/capture/pcap_format.h"

#include <algorithm>
#include <optional>
#include <string>

#include "collector/capture/byte_order.h"
#include "collector/capture/link_type.h"

namespace capture {
namespace {

constexpr size_t kFileHeader = 24;

// What tools take at most, whatever a file says about itself; and what we take from a file that says so.
constexpr uint32_t kUsualLongest = 262144;
constexpr uint32_t kLongest = 16 << 20;

struct Variant {
  uint32_t magic;
  int64_t fraction_ns;
  size_t header_length;
};

constexpr Variant kVariants[] = {
    {0xa1b2c3d4, 1000, 16},
    {0xa1b23c4d, 1, 16},
    {0xa1b2cd34, 1000, 24},  // behind the lengths: interface, protocol and packet type
};

struct Recognised {
  Variant variant;
  bool swapped;
};

std::optional<Recognised> Recognise(const uint8_t* first_four) {
  for (const bool swapped : {false, true}) {
    const uint32_t magic = Load32(first_four, swapped);
    for (const Variant& variant : kVariants) {
      if (variant.magic == magic) return Recognised{variant, swapped};
    }
  }
  return {};
}

}  // namespace

bool PcapFormat::Recognises(const uint8_t* first_four) { return Recognise(first_four).has_value(); }

Record PcapFormat::FileHeader(std::span<const uint8_t> bytes) {
  if (bytes.size() < kFileHeader) return Incomplete(kFileHeader);
  const std::optional<Recognised> recognised = Recognise(bytes.data());
  if (!recognised) return Corrupt("not a pcap file");
  swapped = recognised->swapped;
  const uint16_t major = Load16(bytes.data() + 4, swapped);
  const uint16_t minor = Load16(bytes.data() + 6, swapped);
  if (major != 2) {
    return Corrupt("pcap version " + std::to_string(major) + "." + std::to_string(minor) + " is not known");
  }
  const uint32_t snaplen = Load32(bytes.data() + 16, swapped);
  longest = snaplen <= kLongest ? std::max(snaplen, kUsualLongest) : kUsualLongest;
  // The upper half tells of frame check sequences; frames are cut by their inner lengths anyway.
  link_type = LinkTypeOfFile(static_cast<uint16_t>(Load32(bytes.data() + 20, swapped)));
  fraction_ns = recognised->variant.fraction_ns;
  header_length = recognised->variant.header_length;
  return Other(kFileHeader);
}

Record PcapFormat::Next(std::span<const uint8_t> bytes, uint64_t offset, Frame* frame) {
  begin = offset;
  if (header_length == 0) return FileHeader(bytes);
  if (bytes.size() < header_length) return Incomplete(header_length);
  const uint8_t* at = bytes.data();
  const uint32_t captured = Load32(at + 8, swapped);
  if (captured > longest) {
    return Corrupt("a packet of " + std::to_string(captured) + " bytes, more than the " + std::to_string(longest) +
                   " that are possible");
  }
  const size_t length = header_length + captured;
  if (bytes.size() < length) return Incomplete(length);

  constexpr int64_t kNanosecondsPerSecond = 1'000'000'000;
  frame->time_ns = Load32(at, swapped) * kNanosecondsPerSecond + Load32(at + 4, swapped) * fraction_ns;
  frame->data = at + header_length;
  frame->captured = captured;
  // Some tools write a length on the wire of 0.
  frame->wire = std::max(Load32(at + 12, swapped), captured);
  frame->offset = offset;
  frame->link_type = link_type;
  return {Record::Kind::kFrame, length};
}

}  // namespace capture
