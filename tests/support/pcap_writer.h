#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Builds capture files as byte strings, for tests. Nothing is checked: a test may build nonsense on purpose.
namespace test {

enum class ByteOrder { kLittle, kBig };

// Appends integers in one byte order.
class ByteWriter {
 public:
  explicit ByteWriter(ByteOrder byte_order = ByteOrder::kLittle) : order(byte_order) {}

  ByteWriter& U8(uint8_t value) { return Put(value, 1); }
  ByteWriter& U16(uint16_t value) { return Put(value, 2); }
  ByteWriter& U32(uint32_t value) { return Put(value, 4); }
  ByteWriter& U64(uint64_t value) { return Put(value, 8); }

  ByteWriter& Raw(std::string_view raw) {
    bytes.append(raw);
    return *this;
  }

  // Raw bytes and zeros up to a multiple of four.
  ByteWriter& Padded(std::string_view raw) {
    bytes.append(raw).append((4 - raw.size() % 4) % 4, '\0');
    return *this;
  }

  ByteOrder order;
  std::string bytes;

 private:
  ByteWriter& Put(uint64_t value, int width) {
    for (int i = 0; i < width; ++i) {
      const int shift = 8 * (order == ByteOrder::kLittle ? i : width - 1 - i);
      bytes.push_back(static_cast<char>(value >> shift & 0xff));
    }
    return *this;
  }
};

inline constexpr uint32_t kPcapMicroseconds = 0xa1b2c3d4;
inline constexpr uint32_t kPcapNanoseconds = 0xa1b23c4d;
inline constexpr uint32_t kPcapModified = 0xa1b2cd34;  // microseconds, records with eight bytes more

struct PcapSettings {
  ByteOrder order = ByteOrder::kLittle;
  uint32_t magic = kPcapMicroseconds;
  uint32_t link_type = 1;  // Ethernet
  uint32_t snaplen = 262144;
  uint16_t major = 2;
  uint16_t minor = 4;
};

// A pcap file: PcapWriter().Frame(1'000'000'000, "abc").Bytes().
class PcapWriter {
 public:
  explicit PcapWriter(const PcapSettings& file_settings = {}) : settings(file_settings), out(settings.order) {
    out.U32(settings.magic).U16(settings.major).U16(settings.minor).U32(0).U32(0);
    out.U32(settings.snaplen).U32(settings.link_type);
  }

  // A record with this time, cut down to the file's resolution. `wire` is the length on the wire where it is not
  // that of `bytes`.
  PcapWriter& Frame(int64_t time_ns, std::string_view bytes, std::optional<uint32_t> wire = {}) {
    const auto captured = static_cast<uint32_t>(bytes.size());
    return RecordHeader(time_ns, captured, wire.value_or(captured)).Raw(bytes);
  }

  // The header alone, with lengths that may be lies.
  PcapWriter& RecordHeader(int64_t time_ns, uint32_t captured, uint32_t wire) {
    const auto fraction = static_cast<uint32_t>(time_ns % 1'000'000'000);
    out.U32(static_cast<uint32_t>(time_ns / 1'000'000'000));
    out.U32(settings.magic == kPcapNanoseconds ? fraction : fraction / 1000);
    out.U32(captured).U32(wire);
    if (settings.magic == kPcapModified) out.U32(7).U16(0x0800).U8(0).U8(0);
    return *this;
  }

  PcapWriter& Raw(std::string_view raw) {
    out.Raw(raw);
    return *this;
  }

  const std::string& Bytes() const { return out.bytes; }

 private:
  PcapSettings settings;
  ByteWriter out;
};

struct InterfaceSettings {
  uint16_t link_type = 1;
  uint32_t snaplen = 0;                    // unlimited
  std::optional<uint8_t> resolution = {};  // if_tsresol: a power of 10, or of 2 with the top bit set
  std::optional<int64_t> offset = {};      // if_tsoffset, in seconds
  std::optional<std::string> name = {};    // if_name
};

// A pcapng file: PcapngWriter().Section().Interface({}).Enhanced(0, 1'000'000, "abc").Bytes(). Times are in ticks
// of the interface's resolution, microseconds by default.
class PcapngWriter {
 public:
  // Begins a section, in a byte order of its own.
  PcapngWriter& Section(ByteOrder order = ByteOrder::kLittle, uint16_t major = 1, uint16_t minor = 0) {
    out.order = order;
    ByteWriter body(order);
    body.U32(0x1a2b3c4d).U16(major).U16(minor).U64(UINT64_MAX);
    return Block(0x0a0d0d0a, body.bytes);
  }

  PcapngWriter& Interface(const InterfaceSettings& settings = {}) {
    ByteWriter body(out.order);
    body.U16(settings.link_type).U16(0).U32(settings.snaplen);
    const size_t without_options = body.bytes.size();
    if (settings.name) {
      body.U16(2).U16(static_cast<uint16_t>(settings.name->size())).Padded(*settings.name);
    }
    if (settings.resolution) body.U16(9).U16(1).U8(*settings.resolution).U8(0).U16(0);
    if (settings.offset) body.U16(14).U16(8).U64(static_cast<uint64_t>(*settings.offset));
    if (body.bytes.size() != without_options) body.U16(0).U16(0);
    return Block(1, body.bytes);
  }

  // Enhanced packet block; `options` stand behind the frame's bytes.
  PcapngWriter& Enhanced(uint32_t interface, uint64_t ticks, std::string_view bytes,
                         std::optional<uint32_t> wire = {}, std::string_view options = {}) {
    ByteWriter body(out.order);
    const auto captured = static_cast<uint32_t>(bytes.size());
    body.U32(interface).U32(static_cast<uint32_t>(ticks >> 32)).U32(static_cast<uint32_t>(ticks));
    body.U32(captured).U32(wire.value_or(captured)).Padded(bytes).Raw(options);
    return Block(6, body.bytes);
  }

  // Simple packet block: interface 0, no time.
  PcapngWriter& Simple(std::string_view bytes, std::optional<uint32_t> wire = {}) {
    ByteWriter body(out.order);
    body.U32(wire.value_or(static_cast<uint32_t>(bytes.size()))).Padded(bytes);
    return Block(3, body.bytes);
  }

  // The obsolete packet block.
  PcapngWriter& Packet(uint16_t interface, uint64_t ticks, std::string_view bytes,
                       std::optional<uint32_t> wire = {}) {
    ByteWriter body(out.order);
    const auto captured = static_cast<uint32_t>(bytes.size());
    body.U16(interface).U16(0).U32(static_cast<uint32_t>(ticks >> 32)).U32(static_cast<uint32_t>(ticks));
    body.U32(captured).U32(wire.value_or(captured)).Padded(bytes);
    return Block(2, body.bytes);
  }

  // Any block: type, length, body (padded), length.
  PcapngWriter& Block(uint32_t type, std::string_view body) {
    const auto length = static_cast<uint32_t>(12 + (body.size() + 3) / 4 * 4);
    out.U32(type).U32(length).Padded(body).U32(length);
    return *this;
  }

  PcapngWriter& Raw(std::string_view raw) {
    out.Raw(raw);
    return *this;
  }

  const std::string& Bytes() const { return out.bytes; }

 private:
  ByteWriter out;
};

}  // namespace test
