#include "collector/capture/pcapng_format.h"

#include <algorithm>
#include <string>

#include "collector/capture/byte_order.h"
#include "collector/capture/link_type.h"

namespace capture {
namespace {

enum BlockType : uint32_t {
  kInterfaceDescription = 1,
  kObsoletePacket = 2,
  kSimplePacket = 3,
  kEnhancedPacket = 6,
  kSectionHeader = 0x0a0d0d0a,  // the same in both byte orders
};

constexpr uint32_t kByteOrderMagic = 0x1a2b3c4d;
constexpr uint32_t kSmallestBlock = 12;  // type, length and the length again
constexpr uint32_t kSmallestSection = 28;
constexpr uint32_t kSmallestInterface = 20;
constexpr uint32_t kSmallestSimple = 16;
constexpr uint32_t kSmallestPacket = 32;

// Blocks that have to be in memory as a whole; more is nobody's packet.
constexpr uint32_t kLongestBlock = 16 << 20;

// Bounds the memory that a file made of nothing but interfaces can ask for.
constexpr size_t kMostInterfaces = 65536;

}  // namespace

bool PcapngFormat::Recognises(const uint8_t* first_four) { return Load32(first_four, false) == kSectionHeader; }

Record PcapngFormat::Next(std::span<const uint8_t> bytes, uint64_t offset, Frame* frame) {
  if (length_due != 0) return TrailingLength(bytes);
  begin = offset;
  if (bytes.size() < kSmallestBlock) return Incomplete(kSmallestBlock);
  const uint32_t type = Load32(bytes.data(), swapped);
  if (type == kSectionHeader) return SectionHeader(bytes);
  const uint32_t length = Load32(bytes.data() + 4, swapped);
  if (length < kSmallestBlock || length % 4 != 0) {
    return Corrupt("a block of " + std::to_string(length) + " bytes");
  }
  switch (type) {
    case kInterfaceDescription:
    case kObsoletePacket:
    case kSimplePacket:
    case kEnhancedPacket:
      return WholeBlock(bytes, type, length, frame);
    default:
      return PassOver(length);
  }
}

// A section may be in another byte order than the one before it; its length can only be read after its magic.
Record PcapngFormat::SectionHeader(std::span<const uint8_t> bytes) {
  if (bytes.size() < kSmallestSection) return Incomplete(kSmallestSection);
  const uint8_t* magic = bytes.data() + 8;
  if (Load32(magic, false) != kByteOrderMagic && Load32(magic, true) != kByteOrderMagic) {
    return Corrupt("a section header without byte order");
  }
  swapped = Load32(magic, true) == kByteOrderMagic;
  const uint16_t major = Load16(bytes.data() + 12, swapped);
  const uint16_t minor = Load16(bytes.data() + 14, swapped);
  if (major != 1) {
    return Corrupt("pcapng version " + std::to_string(major) + "." + std::to_string(minor) + " is not known");
  }
  const uint32_t length = Load32(bytes.data() + 4, swapped);
  if (length < kSmallestSection || length % 4 != 0) {
    return Corrupt("a section header of " + std::to_string(length) + " bytes");
  }
  interfaces.clear();
  return PassOver(length);
}

// The block may be longer than any memory; what is left to look at is the length at its end.
Record PcapngFormat::PassOver(uint32_t length) {
  length_due = length;
  return Other(length - 4);
}

Record PcapngFormat::TrailingLength(std::span<const uint8_t> bytes) {
  if (bytes.size() < 4) return Incomplete(4);
  const uint32_t length = Load32(bytes.data(), swapped);
  if (length != length_due) {
    return Corrupt("a block of " + std::to_string(length_due) + " bytes ends as one of " + std::to_string(length));
  }
  length_due = 0;
  return Other(4);
}

Record PcapngFormat::WholeBlock(std::span<const uint8_t> bytes, uint32_t type, uint32_t length, Frame* frame) {
  if (length > kLongestBlock) {
    return Corrupt("a block of " + std::to_string(length) + " bytes, more than the " +
                   std::to_string(kLongestBlock) + " that are possible");
  }
  if (bytes.size() < length) return Incomplete(length);
  const uint8_t* block = bytes.data();
  const uint32_t again = Load32(block + length - 4, swapped);
  if (again != length) {
    return Corrupt("a block of " + std::to_string(length) + " bytes ends as one of " + std::to_string(again));
  }
  if (type == kEnhancedPacket) return EnhancedPacket(block, length, frame);
  if (type == kSimplePacket) return SimplePacket(block, length, frame);
  if (type == kObsoletePacket) return ObsoletePacket(block, length, frame);
  return AddInterface(block, length);
}

Record PcapngFormat::AddInterface(const uint8_t* block, uint32_t length) {
  if (length < kSmallestInterface) return Corrupt("an interface block of " + std::to_string(length) + " bytes");
  if (interfaces.size() == kMostInterfaces) {
    return Corrupt("more than " + std::to_string(kMostInterfaces) + " interfaces in one section");
  }
  constexpr uint8_t kMicroseconds = 6;
  uint8_t resolution = kMicroseconds;
  int64_t offset = 0;
  if (!ReadOptions(block + 16, block + length - 4, &resolution, &offset)) {
    return Corrupt("an interface with damaged options");
  }
  Interface interface;
  interface.clock = TickClock(resolution, offset);
  interface.snaplen = Load32(block + 12, swapped);
  interface.link_type = LinkTypeOfFile(Load16(block + 8, swapped));
  interfaces.push_back(interface);
  return Other(length);
}

bool PcapngFormat::ReadOptions(const uint8_t* at, const uint8_t* end, uint8_t* resolution, int64_t* offset) const {
  constexpr uint16_t kEndOfOptions = 0;
  constexpr uint16_t kTimeResolution = 9;
  constexpr uint16_t kTimeOffset = 14;
  while (end - at >= 4) {
    const uint16_t code = Load16(at, swapped);
    const uint16_t length = Load16(at + 2, swapped);
    if (code == kEndOfOptions) return true;
    at += 4;
    if (end - at < length) return false;
    if (code == kTimeResolution) {
      if (length != 1) return false;
      *resolution = *at;
    }
    if (code == kTimeOffset) {
      if (length != 8) return false;
      *offset = static_cast<int64_t>(Load64(at, swapped));
    }
    at += (length + 3) / 4 * 4;
  }
  return true;
}

Record PcapngFormat::EnhancedPacket(const uint8_t* block, uint32_t length, Frame* frame) {
  if (length < kSmallestPacket) return Corrupt("a packet block of " + std::to_string(length) + " bytes");
  const Packet packet{Load32(block + 8, swapped), Load32(block + 20, swapped), Load32(block + 24, swapped), 28};
  if (packet.interface < interfaces.size()) last_time_ns = Time(block + 12, packet.interface);
  return Deliver(block, length, packet, frame);
}

// As an enhanced packet, but for a narrower interface number that leaves room for a count of drops.
Record PcapngFormat::ObsoletePacket(const uint8_t* block, uint32_t length, Frame* frame) {
  if (length < kSmallestPacket) return Corrupt("a packet block of " + std::to_string(length) + " bytes");
  const Packet packet{Load16(block + 8, swapped), Load32(block + 20, swapped), Load32(block + 24, swapped), 28};
  if (packet.interface < interfaces.size()) last_time_ns = Time(block + 12, packet.interface);
  return Deliver(block, length, packet, frame);
}

Record PcapngFormat::SimplePacket(const uint8_t* block, uint32_t length, Frame* frame) {
  if (length < kSmallestSimple) return Corrupt("a packet block of " + std::to_string(length) + " bytes");
  const uint32_t wire = Load32(block + 8, swapped);
  const uint32_t snaplen = interfaces.empty() ? 0 : interfaces.front().snaplen;
  return Deliver(block, length, {0, snaplen == 0 ? wire : std::min(wire, snaplen), wire, 12}, frame);
}

Record PcapngFormat::Deliver(const uint8_t* block, uint32_t length, const Packet& packet, Frame* frame) {
  if (packet.interface >= interfaces.size()) {
    return Corrupt("a packet of interface " + std::to_string(packet.interface) + ", which does not exist");
  }
  if (packet.captured > length - packet.data - 4) {
    return Corrupt("a packet of " + std::to_string(packet.captured) + " bytes in a block of " +
                   std::to_string(length));
  }
  frame->time_ns = last_time_ns;
  frame->data = block + packet.data;
  frame->captured = packet.captured;
  frame->wire = std::max(packet.wire, packet.captured);
  frame->offset = begin;
  frame->link_type = interfaces[packet.interface].link_type;
  return {Record::Kind::kFrame, length};
}

int64_t PcapngFormat::Time(const uint8_t* high_and_low, uint32_t interface) {
  const uint64_t ticks = uint64_t{Load32(high_and_low, swapped)} << 32 | Load32(high_and_low + 4, swapped);
  return interfaces[interface].clock.Nanoseconds(ticks);
}

}  // namespace capture
