#pragma once

#include <arpa/inet.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Builds frames the way one reads them, outermost layer first:
//
//   Ethernet().Vlan(5).Ipv4("192.0.2.1", "192.0.2.53").Udp(40000, 53).Payload(message).Frame()
//   RawIp().Ipv6("2001:db8::1", "2001:db8::53").Tcp(40000, 53, {.sequence = 7, .flags = kSyn}).Frame()
//   Ethernet().Ipv4(a, b).Udp(53, 40000).Payload(message).Fragments(576, 4711)   // one frame each
//
// Each layer writes its number into the type field of the one before it, and every length field covers what
// follows. Set8, Set16 and Set32 then change bytes of the layer named last, lengths included, so that a broken
// frame is a good one with one named lie. IPv4 headers carry their checksum; UDP and TCP ones are zero.

namespace test {

using Bytes = std::vector<uint8_t>;

inline constexpr uint8_t kFin = 0x01, kSyn = 0x02, kRst = 0x04, kPush = 0x08, kAck = 0x10;

inline Bytes ToBytes(std::string_view text) { return Bytes(text.begin(), text.end()); }

struct TcpFields {
  uint32_t sequence = 0;
  uint8_t flags = kAck;
  Bytes options = {};  // padded with zeros to a multiple of four
};

struct GreFields {
  bool checksum = false;
  bool has_key = false;
  uint32_t key = 0;
  bool has_sequence = false;
};

struct WifiFields {
  bool to_ds = true;
  bool from_ds = false;  // with to_ds: four addresses
  bool qos = false;
  bool order = false;  // with qos: an HT control field
};

class Packet {
 public:
  // ---- link layers -------------------------------------------------------------------------------------

  Packet& Ethernet() {
    Begin(0x6558, 143, 0x31);
    Append({0x02, 0, 0, 0, 0, 2, 0x02, 0, 0, 0, 0, 1});
    return EtherTypeSlot();
  }

  Packet& Null() {  // LINKTYPE_NULL as a little-endian machine writes it
    Begin();
    slot = {bytes.size(), Field::kFamily};
    return Append({0, 0, 0, 0});
  }

  Packet& LinuxCooked() {  // LINKTYPE_LINUX_SLL
    Begin();
    Append({0, 0, 0, 1, 0, 6, 2, 0, 0, 0, 0, 1, 0, 0});
    return EtherTypeSlot();
  }

  Packet& LinuxCooked2() {  // LINKTYPE_LINUX_SLL2
    Begin();
    EtherTypeSlot();
    return Append({0, 0, 0, 0, 0, 3, 0, 1, 0, 6, 2, 0, 0, 0, 0, 1, 0, 0});
  }

  Packet& Ppp(bool address_and_control = false) {
    Begin(0x880b);
    if (address_and_control) Append({0xff, 0x03});
    return PppSlot();
  }

  Packet& CiscoHdlc() {
    Begin();
    Append({0x0f, 0x00});
    return EtherTypeSlot();
  }

  Packet& Nflog(uint8_t family) {  // as a little-endian machine writes it, with one attribute in front
    Begin();
    Append({family, 0, 0, 0, 5, 0, 10, 0, 'x', 0, 0, 0});
    CountFrom(bytes.size(), bytes.size(), true);
    return Append({0, 0, 9, 0});
  }

  Packet& Wifi(const WifiFields& fields = {}) {
    Begin();
    const bool four = fields.to_ds && fields.from_ds;
    Append({static_cast<uint8_t>(fields.qos ? 0x88 : 0x08),
            static_cast<uint8_t>((fields.to_ds ? 1 : 0) | (fields.from_ds ? 2 : 0) | (fields.order ? 0x80 : 0))});
    Zeros(four ? 28 : 22);
    if (fields.qos) Zeros(2);
    if (fields.qos && fields.order) Zeros(4);
    return *this;
  }

  // A radiotap header with a time stamp, `flags`, and `more` further words of presence bits.
  Packet& Radiotap(uint8_t flags = 0, int more = 0) {
    Begin();
    const auto header_size = static_cast<uint8_t>((8 + 4 * more + 7) / 8 * 8 + 9);
    const size_t end = bytes.size() + header_size;
    Append({0, 0, header_size, 0, 3, 0, 0, static_cast<uint8_t>(more > 0 ? 0x80 : 0)});
    for (int i = 1; i <= more; ++i) Append({0, 0, 0, static_cast<uint8_t>(i < more ? 0x80 : 0)});
    Zeros(end - 1 - bytes.size());
    return Append({flags});
  }

  // ---- between link and network layer ------------------------------------------------------------------

  Packet& Vlan(uint16_t identifier, uint16_t type = 0x8100) {
    Begin(type);
    Append16(identifier);
    return EtherTypeSlot();
  }

  Packet& Mpls(uint32_t label) {  // the bottom of the stack until another label follows
    if (slot.field == Field::kMpls) bytes[slot.at + 2] &= 0xfe;
    Begin(0x8847, 137, 0x281);
    slot = {bytes.size(), Field::kMpls};
    return Append32(label << 12 | 0x100 | 64);
  }

  Packet& ControlWord() {  // of an Ethernet pseudowire (RFC 4448)
    Begin();
    return Append32(0);
  }

  Packet& Pppoe(uint16_t session) {
    Begin(0x8864);
    Append({0x11, 0});
    Append16(session);
    CountFrom(bytes.size(), bytes.size() + 2);
    Append16(0);
    return PppSlot();
  }

  // An LLC header with SNAP. Behind Ethernet it turns the type field into a length.
  Packet& Snap() {
    if (slot.field == Field::kEtherType) CountFrom(slot.at, slot.at + 2);
    Begin();
    Append({0xaa, 0xaa, 0x03, 0, 0, 0});
    return EtherTypeSlot();
  }

  // ---- network layer -----------------------------------------------------------------------------------

  Packet& Ipv4(std::string_view source, std::string_view destination, const Bytes& options = {}) {
    Begin(0x0800, 4, 0x21, 2);
    const size_t start = bytes.size();
    ip = {start, 20 + options.size(), 4};
    checksums.push_back(start);
    Append({static_cast<uint8_t>(0x45 + options.size() / 4), 0});
    CountFrom(bytes.size(), start);
    Append({0, 0, 0, 0, 0, 0, 64, 0, 0, 0});
    slot = {start + 9, Field::kIpProtocol};
    return AppendAddress(AF_INET, source).AppendAddress(AF_INET, destination).Append(options);
  }

  // Turns the IPv4 header named last into a fragment's. The offset is in bytes.
  Packet& FragmentOf(uint16_t id, size_t offset, bool more) {
    const auto word = static_cast<uint16_t>(offset / 8 | (more ? 0x2000U : 0U));
    return Set16(4, id).Set16(6, word);
  }

  Packet& Ipv6(std::string_view source, std::string_view destination) {
    Begin(0x86dd, 41, 0x57, 30);
    const size_t start = bytes.size();
    ip = {start, 40, 6};
    Append({0x60, 0, 0, 0});
    CountFrom(bytes.size(), start + 40);
    Append({0, 0, 0, 64});
    slot = {start + 6, Field::kIpProtocol};
    return AppendAddress(AF_INET6, source).AppendAddress(AF_INET6, destination);
  }

  Packet& HopByHop(size_t size = 8) { return Extension(0, size); }
  Packet& Routing(size_t size = 8) { return Extension(43, size); }
  Packet& DestinationOptions(size_t size = 8) { return Extension(60, size); }
  Packet& Mobility(size_t size = 8) { return Extension(135, size); }

  Packet& Authentication(size_t size = 24) {  // counted in words of four octets, less two (RFC 4302 2.2)
    Begin(0, 51);
    slot = {bytes.size(), Field::kIpProtocol};
    return Append({0, static_cast<uint8_t>(size / 4 - 2)}).Zeros(size - 2);
  }

  Packet& FragmentHeader(uint32_t id, size_t offset, bool more) {  // IPv6; the offset is in bytes
    Begin(0, 44);
    slot = {bytes.size(), Field::kIpProtocol};
    Append({0, 0});
    return Append16(static_cast<uint16_t>(offset | (more ? 1U : 0U))).Append32(id);
  }

  // ---- transport and payload ---------------------------------------------------------------------------

  Packet& Udp(uint16_t source, uint16_t destination) {
    Begin(0, 17);
    const size_t start = bytes.size();
    Append16(source).Append16(destination);
    CountFrom(bytes.size(), start);
    return Append32(0);
  }

  Packet& Tcp(uint16_t source, uint16_t destination, const TcpFields& fields = {}) {
    Begin(0, 6);
    const size_t words = (fields.options.size() + 3) / 4;
    Append16(source).Append16(destination).Append32(fields.sequence).Append32(0);
    Append({static_cast<uint8_t>((5 + words) << 4), fields.flags, 0xff, 0xff, 0, 0, 0, 0});
    return Append(fields.options).Zeros(words * 4 - fields.options.size());
  }

  Packet& Payload(const Bytes& payload) {
    Begin();
    return Append(payload);
  }
  Packet& Text(std::string_view text) { return Payload(ToBytes(text)); }

  // Bytes behind the packet that no length field covers, as Ethernet pads short frames.
  Packet& Padding(size_t size) {
    padding = size;
    return *this;
  }

  // ---- tunnels -----------------------------------------------------------------------------------------

  Packet& Gre(const GreFields& fields = {}) {
    Begin(0, 47);
    Append({static_cast<uint8_t>((fields.checksum ? 0x80 : 0) | (fields.has_key ? 0x20 : 0) |
                                 (fields.has_sequence ? 0x10 : 0)),
            0});
    EtherTypeSlot();
    if (fields.checksum) Append32(0);
    if (fields.has_key) Append32(fields.key);
    return fields.has_sequence ? Append32(9) : *this;
  }

  Packet& GreWithPpp(uint16_t call) {  // version 1 (RFC 2637 4.1) with sequence and acknowledgement
    Begin(0, 47);
    Append({0x30, 0x81});
    EtherTypeSlot();
    CountFrom(bytes.size(), bytes.size() + 12);
    return Append16(0).Append16(call).Append32(1).Append32(2);
  }

  Packet& Erspan2() {
    Begin(0x88be);
    return Append({0x10, 0, 0, 1, 0, 0, 0, 0});
  }

  Packet& Erspan3(bool platform = false) {
    Begin(0x22eb);
    Append({0x20, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, static_cast<uint8_t>(platform ? 1 : 0)});
    return platform ? Zeros(8) : *this;
  }

  Packet& Vxlan(uint32_t vni) {
    Begin();
    return Append({0x08, 0, 0, 0}).Append32(vni << 8);
  }

  Packet& Geneve(uint32_t vni, size_t options = 0) {  // the options' size in bytes, a multiple of four
    Begin();
    Append({static_cast<uint8_t>(options / 4), 0});
    EtherTypeSlot();
    return Append32(vni << 8).Zeros(options);
  }

  Packet& Gtp(uint32_t teid) {
    Begin();
    Append({0x30, 0xff});
    CountFrom(bytes.size(), bytes.size() + 6);
    return Append16(0).Append32(teid);
  }

  // ---- changes to the layer named last -----------------------------------------------------------------

  Packet& Set8(size_t at, uint8_t value) {
    changes.push_back({layer + at, value});
    return *this;
  }
  Packet& Set16(size_t at, uint16_t value) { return Set8(at, High(value)).Set8(at + 1, Low(value)); }
  Packet& Set32(size_t at, uint32_t value) {
    return Set16(at, static_cast<uint16_t>(value >> 16)).Set16(at + 2, static_cast<uint16_t>(value));
  }

  // Writes a number of our own choosing where the next layer's would go.
  Packet& Type(uint16_t value) {
    FillSlot(value, static_cast<uint8_t>(value), value, static_cast<uint8_t>(value));
    return *this;
  }

  // ---- results -----------------------------------------------------------------------------------------

  // The frame's bytes, lengths filled in.
  Bytes Frame() const {
    Bytes frame = bytes;
    for (const Length& length : lengths) {
      const auto value = static_cast<uint16_t>(frame.size() - length.from);
      frame[length.at] = length.little_endian ? Low(value) : High(value);
      frame[length.at + 1] = length.little_endian ? High(value) : Low(value);
    }
    for (const Change& change : changes) frame.at(change.at) = change.value;
    for (const size_t at : checksums) WriteChecksum(&frame, at);
    frame.resize(frame.size() + padding);
    return frame;
  }

  // The same packet in frames of IP fragments: the innermost IP header's payload cut every `piece` bytes (a
  // multiple of eight). Layers around that header are repeated.
  std::vector<Bytes> Fragments(size_t piece, uint32_t id) const {
    if (ip.version == 0 || piece == 0 || piece % 8 != 0) throw std::logic_error("cannot fragment this packet");
    const Bytes whole = Frame();
    const size_t begin = ip.start + ip.header;
    std::vector<Bytes> frames;
    for (size_t at = begin; at < bytes.size(); at += piece) {
      const bool more = at + piece < bytes.size();
      Packet fragment = *this;
      fragment.bytes.assign(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(begin));
      fragment.ForgetBehind(begin);
      fragment.MarkFragment(id, at - begin, more);
      const size_t end = more ? at + piece : bytes.size();
      fragment.bytes.insert(fragment.bytes.end(), whole.begin() + static_cast<std::ptrdiff_t>(at),
                            whole.begin() + static_cast<std::ptrdiff_t>(end));
      frames.push_back(fragment.Frame());
    }
    return frames;
  }

 private:
  enum class Field { kNone, kEtherType, kIpProtocol, kPpp, kFamily, kMpls };
  struct Slot {
    size_t at;
    Field field;
  };
  struct Length {  // a 16-bit field that counts everything behind `from`
    size_t at;
    size_t from;
    bool little_endian;
  };
  struct Change {
    size_t at;
    uint8_t value;
  };
  struct IpHeader {
    size_t start;
    size_t header;
    int version;
  };

  static uint8_t High(uint16_t value) { return static_cast<uint8_t>(value >> 8); }
  static uint8_t Low(uint16_t value) { return static_cast<uint8_t>(value); }

  void Begin(uint16_t ether_type = 0, uint8_t protocol = 0, uint16_t ppp = 0, uint8_t family = 0) {
    if (ether_type != 0 || protocol != 0) FillSlot(ether_type, protocol, ppp, family);
    slot = {0, Field::kNone};
    layer = bytes.size();
  }

  void FillSlot(uint16_t ether_type, uint8_t protocol, uint16_t ppp, uint8_t family) {
    const uint16_t wide = slot.field == Field::kPpp ? ppp : ether_type;
    if (slot.field == Field::kEtherType || slot.field == Field::kPpp) {
      bytes[slot.at] = High(wide);
      bytes[slot.at + 1] = Low(wide);
    }
    if (slot.field == Field::kIpProtocol) bytes[slot.at] = protocol;
    if (slot.field == Field::kFamily) bytes[slot.at] = family;
    if (slot.field != Field::kMpls) slot.field = Field::kNone;
  }

  Packet& EtherTypeSlot() {
    slot = {bytes.size(), Field::kEtherType};
    return Append16(0);
  }

  Packet& PppSlot() {
    slot = {bytes.size(), Field::kPpp};
    return Append16(0);
  }

  Packet& Extension(uint8_t protocol, size_t size) {  // counted in units of eight octets, less one
    Begin(0, protocol);
    slot = {bytes.size(), Field::kIpProtocol};
    return Append({0, static_cast<uint8_t>(size / 8 - 1)}).Zeros(size - 2);
  }

  void CountFrom(size_t at, size_t from, bool little_endian = false) {
    lengths.push_back({at, from, little_endian});
  }

  void ForgetBehind(size_t end) {
    std::erase_if(lengths, [end](const Length& length) { return length.at >= end; });
    std::erase_if(changes, [end](const Change& change) { return change.at >= end; });
    std::erase_if(checksums, [end](size_t at) { return at >= end; });
  }

  void MarkFragment(uint32_t id, size_t offset, bool more) {
    layer = ip.start;
    if (ip.version == 4) {
      FragmentOf(static_cast<uint16_t>(id), offset, more);
      return;
    }
    const uint8_t next = bytes[ip.start + 6];
    slot = {ip.start + 6, Field::kIpProtocol};
    FragmentHeader(id, offset, more);
    bytes[bytes.size() - 8] = next;
  }

  static void WriteChecksum(Bytes* frame, size_t start) {
    Bytes& bytes = *frame;
    const size_t size = (bytes[start] & 0x0fU) * 4;
    if (start + size > bytes.size() || bytes[start + 10] != 0 || bytes[start + 11] != 0) return;
    uint32_t sum = 0;
    for (size_t i = 0; i < size; i += 2) sum += static_cast<uint32_t>(bytes[start + i] << 8 | bytes[start + i + 1]);
    while (sum > 0xffff) sum = (sum & 0xffff) + (sum >> 16);
    bytes[start + 10] = High(static_cast<uint16_t>(~sum));
    bytes[start + 11] = Low(static_cast<uint16_t>(~sum));
  }

  Packet& AppendAddress(int family, std::string_view text) {
    uint8_t octets[16];
    if (inet_pton(family, std::string(text).c_str(), octets) != 1) throw std::logic_error("not an address");
    bytes.insert(bytes.end(), octets, octets + (family == AF_INET ? 4 : 16));
    return *this;
  }

  Packet& Append(const Bytes& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
    return *this;
  }
  Packet& Zeros(size_t count) {
    bytes.resize(bytes.size() + count);
    return *this;
  }
  Packet& Append16(uint16_t value) { return Append({High(value), Low(value)}); }
  Packet& Append32(uint32_t value) {
    return Append16(static_cast<uint16_t>(value >> 16)).Append16(static_cast<uint16_t>(value));
  }

  Bytes bytes;
  std::vector<Length> lengths;
  std::vector<Change> changes;
  std::vector<size_t> checksums;  // where IPv4 headers start
  IpHeader ip{0, 0, 0};           // the innermost one
  Slot slot{0, Field::kNone};     // where the next layer's number goes
  size_t layer = 0;               // where the layer named last begins
  size_t padding = 0;
};

inline Packet Ethernet() { return Packet().Ethernet(); }
inline Packet RawIp() { return {}; }  // an IP packet without a link layer
inline Packet Null() { return Packet().Null(); }
inline Packet LinuxCooked() { return Packet().LinuxCooked(); }
inline Packet LinuxCooked2() { return Packet().LinuxCooked2(); }
inline Packet Ppp(bool address_and_control = false) { return Packet().Ppp(address_and_control); }
inline Packet CiscoHdlc() { return Packet().CiscoHdlc(); }
inline Packet Nflog(uint8_t family) { return Packet().Nflog(family); }
inline Packet Wifi(const WifiFields& fields = {}) { return Packet().Wifi(fields); }
inline Packet Radiotap(uint8_t flags = 0, int more = 0) { return Packet().Radiotap(flags, more); }

}  // namespace test
