#include "collector/output/columns.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "collector/output/iana.h"
#include "collector/output/question.h"

namespace output {
namespace {

using plugin::Exchange;

constexpr uint8_t kUdp = 17;

char* Quote(char* out, Style style) {
  if (style == Style::kJson) *out++ = '"';
  return out;
}

char* PutWord(char* out, const Word& word, Style style) { return Quote(word.Put(Quote(out, style)), style); }

char* PutBoolean(char* out, bool value) {
  static constexpr Word kFalse("false");
  static constexpr Word kTrue("true");
  return (value ? kTrue : kFalse).Put(out);
}

// Microseconds of an instant, rounded down as the captures' own clocks are.
int64_t Microseconds(int64_t time_ns) {
  const int64_t whole = time_ns / 1000;
  return time_ns % 1000 < 0 ? whole - 1 : whole;
}

char* PutTsUs(char* out, const Exchange& e, Style) { return PutInteger(out, Microseconds(e.query_time_ns)); }

char* PutEndpoint(char* out, const packet::Address* address, Style style) {
  if (address == nullptr || address->version == 0) return out;
  return Quote(PutAddress(Quote(out, style), *address), style);
}
char* PutClientIp(char* out, const Exchange& e, Style style) { return PutEndpoint(out, e.client, style); }
char* PutClientPort(char* out, const Exchange& e, Style) { return PutInteger(out, e.client_port); }
char* PutServerIp(char* out, const Exchange& e, Style style) { return PutEndpoint(out, e.server, style); }
char* PutServerPort(char* out, const Exchange& e, Style) { return PutInteger(out, e.server_port); }

char* PutProto(char* out, const Exchange& e, Style style) {
  static constexpr Word kNames[] = {Word("tcp"), Word("udp")};
  return PutWord(out, kNames[e.transport == kUdp ? 1 : 0], style);
}

char* PutQname(char* out, const Exchange& e, Style style) {
  return Quote(PutNames(Quote(out, style), e, style), style);
}
char* PutQtype(char* out, const Exchange& e, Style style) { return Quote(PutTypes(Quote(out, style), e), style); }
char* PutQclass(char* out, const Exchange& e, Style style) {
  return Quote(PutClasses(Quote(out, style), e), style);
}
char* PutPattern(char* out, const Exchange& e, Style style) {
  return Quote(PutBytes(Quote(out, style), e.pattern, style), style);
}
char* PutStatus(char* out, const Exchange& e, Style style) {
  static const std::array<Word, plugin::kStatusCount> kNames = [] {
    std::array<Word, plugin::kStatusCount> names;
    for (size_t i = 0; i < names.size(); ++i) names[i] = Word(StatusName(static_cast<plugin::Status>(i)));
    return names;
  }();
  return PutWord(out, kNames[static_cast<size_t>(e.status)], style);
}

char* PutRcodeName(char* out, const Exchange& e, Style style) {
  return e.has_response ? Quote(PutRcode(Quote(out, style), e.rcode), style) : out;
}
char* PutResultCode(char* out, const Exchange& e, Style) { return PutInteger(out, e.result_code); }
char* PutRttUs(char* out, const Exchange& e, Style) { return e.has_response ? PutInteger(out, e.rtt_us) : out; }
char* PutBytesQuery(char* out, const Exchange& e, Style) { return PutInteger(out, e.bytes_query); }
char* PutBytesResponse(char* out, const Exchange& e, Style) {
  return e.has_response ? PutInteger(out, e.bytes_response) : out;
}
char* PutAnswers(char* out, const Exchange& e, Style style) {
  return Quote(PutBytes(Quote(out, style), e.answers, style), style);
}
char* PutRrsigs(char* out, const Exchange& e, Style) { return PutInteger(out, e.rrsigs); }
char* PutDnsId(char* out, const Exchange& e, Style) { return PutInteger(out, e.dns_id); }

// The bits of the second header word with a name of their own (RFC 1035 4.1.1, RFC 4035 3.1.6), highest first.
struct Flag {
  uint16_t bit;
  std::string_view name;
};
constexpr Flag kFlags[] = {{0x8000, "qr"}, {0x0400, "aa"}, {0x0200, "tc"}, {0x0100, "rd"},
                           {0x0080, "ra"}, {0x0040, "z"},  {0x0020, "ad"}, {0x0010, "cd"}};

// The texts of all combinations, by the bits with a name: the seven in the middle, and above them the first.
constexpr size_t FlagIndex(uint16_t flags) { return static_cast<size_t>((flags >> 4 & 0x7f) | (flags >> 15 << 7)); }
constexpr std::array<Word, 256> MakeFlagTexts() {
  std::array<Word, 256> texts;
  for (unsigned index = 0; index < 256; ++index) {
    const unsigned flags = (index & 0x7f) << 4 | index >> 7 << 15;
    std::array<char, Word::kLongest> text{};
    size_t length = 0;
    for (const Flag& flag : kFlags) {
      if ((flags & flag.bit) == 0) continue;
      if (length > 0) text[length++] = ' ';
      for (const char letter : flag.name) text[length++] = letter;
    }
    texts[index] = Word({text.data(), length});
  }
  return texts;
}
constexpr std::array<Word, 256> kFlagTexts = MakeFlagTexts();

char* PutFlagNames(char* out, uint16_t flags, Style style) {
  return PutWord(out, kFlagTexts[FlagIndex(flags)], style);
}
char* PutFlags(char* out, const Exchange& e, Style style) { return PutFlagNames(out, e.query_flags, style); }
char* PutResponseFlags(char* out, const Exchange& e, Style style) {
  return e.has_response ? PutFlagNames(out, e.response_flags, style) : out;
}

char* PutQueryNs(char* out, const Exchange& e, Style) { return PutInteger(out, e.query_time_ns); }
char* PutResponseNs(char* out, const Exchange& e, Style) {
  return e.has_response ? PutInteger(out, e.response_time_ns) : out;
}
char* PutRetransmits(char* out, const Exchange& e, Style) { return PutInteger(out, e.retransmits); }
char* PutMismatch(char* out, const Exchange& e, Style) { return PutBoolean(out, e.question_mismatch); }
char* PutCut(char* out, const Exchange& e, Style) { return PutBoolean(out, e.cut); }

char* PutVlan(char* out, const Exchange& e, Style style) {
  if (e.encapsulation == nullptr || e.encapsulation->vlan_count == 0) return out;
  out = Quote(out, style);
  for (size_t i = 0; i < e.encapsulation->vlan_count; ++i) {
    if (i > 0) *out++ = ',';
    out = PutInteger(out, e.encapsulation->vlan[i]);
  }
  return Quote(out, style);
}

bool Tunnelled(const Exchange& e) {
  return e.encapsulation != nullptr && e.encapsulation->tunnel != packet::Tunnel::kNone;
}
char* PutTunnel(char* out, const Exchange& e, Style style) {
  return Tunnelled(e) ? PutWord(out, Word(packet::TunnelName(e.encapsulation->tunnel)), style) : out;
}

char* PutIpVersion(char* out, const Exchange& e, Style) {
  return e.client == nullptr || e.client->version == 0 ? out : PutInteger(out, e.client->version);
}

char* PutTunnelId(char* out, const Exchange& e, Style) {
  return Tunnelled(e) ? PutInteger(out, e.encapsulation->tunnel_id) : out;
}

constexpr auto kInteger = ColumnType::kInteger;
constexpr auto kText = ColumnType::kText;
constexpr auto kBoolean = ColumnType::kBoolean;
constexpr bool kDetails = true;

constexpr Column kColumns[] = {
    {"ts_us", PutTsUs, kInteger, true},
    {"client_ip", PutClientIp, kText, true},
    {"client_port", PutClientPort, kInteger, true},
    {"server_ip", PutServerIp, kText, true},
    {"server_port", PutServerPort, kInteger, true},
    {"proto", PutProto, kText, true},
    {"qname", PutQname, kText, true},
    {"qtype", PutQtype, kText, true},
    {"qclass", PutQclass, kText, true},
    {"pattern", PutPattern, kText, true},
    {"status", PutStatus, kText, true},
    {"rcode", PutRcodeName, kText, false},
    {"result_code", PutResultCode, kInteger, true},
    {"rtt_us", PutRttUs, kInteger, false},
    {"bytes_query", PutBytesQuery, kInteger, true},
    {"bytes_response", PutBytesResponse, kInteger, false},
    {"answers", PutAnswers, kText, true, kDetails},
    {"rrsigs", PutRrsigs, kInteger, true, kDetails},
    {"dns_id", PutDnsId, kInteger, true},
    {"flags", PutFlags, kText, true},
    {"response_flags", PutResponseFlags, kText, false},
    {"query_ns", PutQueryNs, kInteger, true},
    {"response_ns", PutResponseNs, kInteger, false},
    {"retransmits", PutRetransmits, kInteger, true},
    {"question_mismatch", PutMismatch, kBoolean, true},
    {"cut", PutCut, kBoolean, true},
    {"vlan", PutVlan, kText, false},
    {"tunnel", PutTunnel, kText, false},
    {"ip_version", PutIpVersion, kInteger, true},
    {"tunnel_id", PutTunnelId, kInteger, false},
};

// What numbers, addresses, flags and the names of all columns need at the very most.
constexpr size_t kRoomForFixedFields = 2048;

}  // namespace

std::span<const Column> AllColumns() { return kColumns; }

const Column* FindColumn(std::string_view name) {
  const auto* found =
      std::find_if(std::begin(kColumns), std::end(kColumns), [&](const Column& c) { return c.name == name; });
  return found == std::end(kColumns) ? nullptr : found;
}

std::string UnknownColumn(std::string_view name) {
  std::string problem = "there is no column '" + std::string(name) + "' (only";
  const char* separator = " ";
  for (const Column& column : kColumns) {
    problem.append(separator).append(column.name);
    separator = ", ";
  }
  return problem + ")";
}

ColumnList ParseColumns(std::string_view list) {
  ColumnList columns;
  while (true) {
    const size_t comma = list.find(',');
    const std::string_view name = list.substr(0, comma);
    const Column* column = FindColumn(name);
    if (column == nullptr) throw std::runtime_error(UnknownColumn(name));
    if (std::find(columns.begin(), columns.end(), column) != columns.end()) {
      throw std::runtime_error("column '" + std::string(name) + "' is named twice");
    }
    columns.push_back(column);
    if (comma == std::string_view::npos) return columns;
    list.remove_prefix(comma + 1);
  }
}

ColumnList EveryColumn() {
  ColumnList columns;
  for (const Column& column : kColumns) columns.push_back(&column);
  return columns;
}

bool LookAtDetails(const ColumnList& columns) {
  return std::ranges::any_of(columns, [](const Column* column) { return column->details; });
}

size_t RoomFor(const Exchange& exchange) {
  return kRoomForFixedFields + exchange.question.size() * kQuestionGrowth +
         (exchange.pattern.size() + exchange.answers.size()) * kLongestEscape;
}

std::string FieldText(const Column& column, const Exchange& exchange) {
  std::string text(RoomFor(exchange), '\0');
  text.resize(static_cast<size_t>(column.write(text.data(), exchange, Style::kPlain) - text.data()));
  return text;
}

}  // namespace output
