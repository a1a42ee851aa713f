#pragma once

#include <arpa/inet.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// DNS messages for tests (RFC 1035 4.1), good ones and broken ones:
//
//   Query(7).Question("aa.bb", kA).Wire()
//   Response(7).Question("aa.bb", kA).Answer("aa.bb", A("192.0.2.1")).Additional(Opt()).Wire()
//
// The parts stand in the message in the order of the calls, and each call counts itself in the header, whatever the
// order. Counts(), Count...(), RdLength(), Bytes() and Pointer() make messages that lie.
namespace test {

// Record types and classes, by their IANA numbers.
inline constexpr uint16_t kA = 1;
inline constexpr uint16_t kNs = 2;
inline constexpr uint16_t kCname = 5;
inline constexpr uint16_t kSoa = 6;
inline constexpr uint16_t kPtr = 12;
inline constexpr uint16_t kHinfo = 13;
inline constexpr uint16_t kMx = 15;
inline constexpr uint16_t kTxt = 16;
inline constexpr uint16_t kAaaa = 28;
inline constexpr uint16_t kSrv = 33;
inline constexpr uint16_t kOpt = 41;
inline constexpr uint16_t kDs = 43;
inline constexpr uint16_t kRrsig = 46;
inline constexpr uint16_t kHttps = 65;
inline constexpr uint16_t kIxfr = 251;
inline constexpr uint16_t kAxfr = 252;
inline constexpr uint16_t kAny = 255;

inline constexpr uint16_t kIn = 1;
inline constexpr uint16_t kChaos = 3;

inline std::string U8(unsigned value) { return {static_cast<char>(value & 0xff)}; }
inline std::string U16(unsigned value) { return U8(value >> 8) + U8(value); }
inline std::string U32(uint32_t value) { return U16(value >> 16) + U16(value); }

// A domain name: labels, then an ending, which is the root's zero byte unless the test wants another one.
struct Name {
  std::vector<std::string> labels;
  std::string ending = std::string(1, '\0');

  Name() = default;
  // Presentation form (RFC 1035 5.1): "aa.bb" or "aa.bb.", "" or "." for the root, "\." for a dot inside a label,
  // "\\" for a backslash, "\DDD" for any byte. Longer than 255 bytes is allowed, a label above 63 is not.
  Name(const char* text) : Name(std::string_view(text)) {}         // NOLINT(google-explicit-constructor)
  Name(const std::string& text) : Name(std::string_view(text)) {}  // NOLINT(google-explicit-constructor)
  Name(std::string_view text) {                                    // NOLINT(google-explicit-constructor)
    if (text == ".") return;
    std::string label;
    for (size_t i = 0; i < text.size(); ++i) {
      if (text[i] == '.') {
        AddLabel(std::exchange(label, {}));
      } else if (text[i] != '\\') {
        label += text[i];
      } else if (i + 3 < text.size() && text[i + 1] >= '0' && text[i + 1] <= '9') {
        label += static_cast<char>(std::stoi(std::string(text.substr(i + 1, 3))));
        i += 3;
      } else if (++i < text.size()) {
        label += text[i];
      }
    }
    if (!label.empty()) AddLabel(label);
  }

  // Uncompressed.
  std::string Wire() const {
    std::string bytes;
    for (const std::string& label : labels) bytes += U8(static_cast<unsigned>(label.size())) + label;
    return bytes + ending;
  }

 private:
  void AddLabel(const std::string& label) {
    if (label.empty() || label.size() > 63) throw std::invalid_argument("a label has 1 to 63 bytes");
    labels.push_back(label);
  }
};

// The bytes as they are, in place of a name.
inline Name RawName(const std::string& bytes) {
  Name name;
  name.ending = bytes;
  return name;
}

// A compression pointer (RFC 1035 4.1.4) to `offset` in the message, behind the labels if there are any.
inline Name Pointer(unsigned offset, const Name& labels = {}) {
  Name name = labels;
  name.ending = U16(0xc000U | offset);
  return name;
}

// What a record carries: its type, and its data in pieces, bytes or names, so that the names can be compressed.
struct Data {
  struct Piece {
    std::string bytes;
    std::optional<Name> name;
  };

  uint16_t type = 0;
  std::vector<Piece> pieces;
  std::optional<uint16_t> length;  // RDLENGTH that is not the truth

  explicit Data(uint16_t record_type) : type(record_type) {}
  Data& Add(std::string bytes) {
    pieces.push_back({std::move(bytes), std::nullopt});
    return *this;
  }
  Data& Add(const Name& name) {
    pieces.push_back({"", name});
    return *this;
  }
  Data& RdLength(uint16_t lie) {
    length = lie;
    return *this;
  }
};

inline Data Rdata(uint16_t type, const std::string& bytes = {}) { return Data(type).Add(bytes); }

inline std::string AddressBytes(int family, const std::string& text) {
  std::string bytes(family == AF_INET ? 4 : 16, '\0');
  if (inet_pton(family, text.c_str(), bytes.data()) != 1) throw std::invalid_argument("not an address: " + text);
  return bytes;
}
inline Data A(const std::string& address) { return Rdata(kA, AddressBytes(AF_INET, address)); }
inline Data Aaaa(const std::string& address) { return Rdata(kAaaa, AddressBytes(AF_INET6, address)); }

inline Data Ns(const Name& server) { return Data(kNs).Add(server); }
inline Data Cname(const Name& target) { return Data(kCname).Add(target); }
inline Data Ptr(const Name& target) { return Data(kPtr).Add(target); }
inline Data Mx(unsigned preference, const Name& exchange) { return Data(kMx).Add(U16(preference)).Add(exchange); }
inline Data Srv(unsigned priority, unsigned weight, unsigned port, const Name& target) {
  return Data(kSrv).Add(U16(priority) + U16(weight) + U16(port)).Add(target);
}
inline Data Soa(const Name& server, const Name& mailbox, uint32_t serial = 1) {
  return Data(kSoa).Add(server).Add(mailbox).Add(U32(serial) + U32(7200) + U32(3600) + U32(86400) + U32(300));
}

// A character string (RFC 1035 3.3): one length byte, then up to 255 bytes.
inline std::string CharacterString(const std::string& text) {
  if (text.size() > 255) throw std::invalid_argument("a character string has up to 255 bytes");
  return U8(static_cast<unsigned>(text.size())) + text;
}
template <typename... More>
Data Txt(const std::string& text, const More&... more) {
  return Rdata(kTxt, (CharacterString(text) + ... + CharacterString(more)));
}

// RFC 4034 3.1; the signature is 64 bytes of nothing.
inline Data Rrsig(uint16_t covered, const Name& signer) {
  return Data(kRrsig)
      .Add(U16(covered) + U8(13) + U8(2) + U32(300) + U32(1700000000) + U32(1690000000) + U16(4711))
      .Add(signer.Wire() + std::string(64, '\x5a'));
}

struct Record {
  Name owner;
  Data data;
  uint32_t ttl = 300;
  uint16_t klass = kIn;
};

// The OPT pseudo-record (RFC 6891 6.1): size in the class, the rest in the TTL.
struct OptFields {
  uint16_t udp_size = 1232;
  uint8_t extended_rcode = 0;  // the upper eight bits of the twelve
  uint8_t version = 0;
  bool dnssec_ok = false;
  std::string options = {};
};
inline Record Opt(const OptFields& fields = {}) {
  const uint32_t ttl =
      uint32_t{fields.extended_rcode} << 24U | uint32_t{fields.version} << 16U | (fields.dnssec_ok ? 0x8000U : 0U);
  return {".", Rdata(kOpt, fields.options), ttl, fields.udp_size};
}

class Message {
 public:
  explicit Message(unsigned id, unsigned flags) : id_bits(id), flag_bits(flags) {}

  // All sixteen flag bits, then single ones (RFC 1035 4.1.1, RFC 4035 3.2).
  Message& Flags(unsigned flags) {
    flag_bits = flags;
    return *this;
  }
  Message& Qr(bool on = true) { return Bit(0x8000, on); }
  Message& Opcode(unsigned opcode) {
    flag_bits = (flag_bits & ~0x7800U) | (opcode & 0xfU) << 11U;
    return *this;
  }
  Message& Aa(bool on = true) { return Bit(0x0400, on); }
  Message& Tc(bool on = true) { return Bit(0x0200, on); }
  Message& Rd(bool on = true) { return Bit(0x0100, on); }
  Message& Ra(bool on = true) { return Bit(0x0080, on); }
  Message& Ad(bool on = true) { return Bit(0x0020, on); }
  Message& Cd(bool on = true) { return Bit(0x0010, on); }
  Message& Rcode(unsigned rcode) {
    flag_bits = (flag_bits & ~0xfU) | (rcode & 0xfU);
    return *this;
  }

  // From here on names are compressed (RFC 1035 4.1.4) against what stands before them.
  Message& Compressed() {
    compress = true;
    return *this;
  }

  Message& Question(const Name& name, uint16_t type, uint16_t klass = kIn) {
    ++counts[0];
    AddName(name);
    body += U16(type) + U16(klass);
    return *this;
  }
  Message& Answer(const Record& record) { return AddRecord(1, record); }
  Message& Answer(const Name& owner, const Data& data, uint32_t ttl = 300, uint16_t klass = kIn) {
    return Answer({owner, data, ttl, klass});
  }
  Message& Authority(const Record& record) { return AddRecord(2, record); }
  Message& Authority(const Name& owner, const Data& data, uint32_t ttl = 300, uint16_t klass = kIn) {
    return Authority({owner, data, ttl, klass});
  }
  Message& Additional(const Record& record) { return AddRecord(3, record); }
  Message& Additional(const Name& owner, const Data& data, uint32_t ttl = 300, uint16_t klass = kIn) {
    return Additional({owner, data, ttl, klass});
  }

  // Bytes as they are, here, counted nowhere.
  Message& Bytes(const std::string& bytes) {
    body += bytes;
    return *this;
  }

  // Counts that the header shows instead of the truth.
  Message& QuestionCount(unsigned count) { return Lie(0, count); }
  Message& AnswerCount(unsigned count) { return Lie(1, count); }
  Message& AuthorityCount(unsigned count) { return Lie(2, count); }
  Message& AdditionalCount(unsigned count) { return Lie(3, count); }
  Message& Counts(unsigned questions, unsigned answers, unsigned authorities, unsigned additionals) {
    return QuestionCount(questions).AnswerCount(answers).AuthorityCount(authorities).AdditionalCount(additionals);
  }

  // The offset of what is added next, for Pointer().
  unsigned Here() const { return static_cast<unsigned>(kHeaderSize + body.size()); }

  std::string Wire() const {
    std::string bytes = U16(id_bits) + U16(flag_bits);
    for (size_t i = 0; i < 4; ++i) bytes += U16(lies[i].value_or(counts[i]));
    return bytes + body;
  }

  // Behind its two-byte length (RFC 1035 4.2.2).
  std::string TcpWire() const {
    const std::string bytes = Wire();
    return U16(static_cast<unsigned>(bytes.size())) + bytes;
  }

 private:
  static constexpr size_t kHeaderSize = 12;

  Message& Bit(unsigned mask, bool on) {
    flag_bits = on ? flag_bits | mask : flag_bits & ~mask;
    return *this;
  }

  Message& Lie(size_t section, unsigned count) {
    lies[section] = count;
    return *this;
  }

  Message& AddRecord(size_t section, const Record& record) {
    ++counts[section];
    AddName(record.owner);
    body += U16(record.data.type) + U16(record.klass) + U32(record.ttl);
    const size_t length_at = body.size();
    body += U16(0);
    for (const Data::Piece& piece : record.data.pieces) {
      body += piece.bytes;
      if (piece.name) AddName(*piece.name);
    }
    const size_t length = record.data.length.value_or(static_cast<uint16_t>(body.size() - length_at - 2));
    body.replace(length_at, 2, U16(static_cast<unsigned>(length)));
    return *this;
  }

  void AddName(const Name& name) {
    Name rest = name;
    while (!rest.labels.empty()) {
      const auto [known, is_new] = names.try_emplace(rest.Wire(), Here());
      if (compress && !is_new) {
        body += U16(0xc000U | known->second);
        return;
      }
      if (is_new && Here() >= 0x4000) names.erase(known);  // out of a pointer's reach
      body += U8(static_cast<unsigned>(rest.labels.front().size())) + rest.labels.front();
      rest.labels.erase(rest.labels.begin());
    }
    body += name.ending;
  }

  unsigned id_bits;
  unsigned flag_bits;
  bool compress = false;
  std::vector<unsigned> counts = std::vector<unsigned>(4);
  std::vector<std::optional<unsigned>> lies = std::vector<std::optional<unsigned>>(4);
  std::map<std::string, unsigned> names;  // uncompressed name -> where it stands
  std::string body;
};

// A query with RD set, and a response with QR, RD and RA set.
inline Message Query(unsigned id) { return Message(id, 0x0100); }
inline Message Response(unsigned id) { return Message(id, 0x8180); }

}  // namespace test
