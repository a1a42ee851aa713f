// The answer section of a response: a summary for people, signatures counted, addresses learned.

#include <arpa/inet.h>

#include <charconv>
#include <cstring>
#include <string>
#include <string_view>

#include "dns-parser/dns_parser.h"
#include "dns-parser/incoming.h"
#include "dns-parser/trace.h"
#include "dns-parser/types.h"
#include "host/collector_exports.h"
#include "util/ipv6.h"

namespace {

constexpr int kFixedFields = 10;  // TYPE, CLASS, TTL and RDLENGTH behind the owner name (RFC 1035 4.1.3)
constexpr int kHighestTypeRead = kTypeRrsig;
constexpr std::string_view kReverseSuffix = ".in-addr.arpa";

uint64_t At(int offset) { return static_cast<uint64_t>(offset); }

void AppendSeparator(std::string* summary) {
  if (!summary->empty()) summary->append(", ");
}

void AppendEntry(std::string* summary, const std::string& owner, std::string_view data) {
  constexpr std::string_view kArrow = " => ";
  const size_t end = summary->size();
  summary->append(owner.size() + data.size() + kArrow.size() + 2, '[');
  char* out = summary->data() + end + 1;
  out += owner.copy(out, owner.size());
  out += kArrow.copy(out, kArrow.size());
  out += data.copy(out, data.size());
  *out = ']';
}

// "192.0.2.1"
struct Dotted {
  explicit Dotted(uint32_t address) {
    for (int i = 0; i < 4; ++i) {
      if (i != 0) *end++ = '.';
      end = std::to_chars(end, text + sizeof text, Octet(address, i)).ptr;
    }
  }
  std::string_view view() const { return {text, static_cast<size_t>(end - text)}; }

  char text[16];
  char* end = text;
};

}  // namespace

struct DNSParser::Answer {
  const IOVec& packet;
  std::string* summary;  // null when none is wanted
  int* rrsig_count;      // null when none is wanted
  bool inject;
  const std::string& query_name;

  std::string& owner;
  std::string& target;  // of the readers that need a text
  int type = 0;
  int record_class = 0;
  int data = 0;  // offset of the record's data
};

struct DNSParser::AnswerReader {
  int type;
  int (DNSParser::*read)(Answer*) const;
};

int DNSParser::ParseResponse(std::string* summary, int* rrsig_count, const IOVec& packet, int offset, int count,
                             bool inject, const std::string& query_name) const {
  Answer answer{packet, summary, rrsig_count, inject, query_name, texts.owner, texts.target};
  Recycle(&answer.owner);
  Recycle(&answer.target);
  for (int i = 0; i < count; ++i) {
    if (const int failure = GetName(packet, &offset, &answer.owner, 0)) return failure;
    answer.type = packet.GetBE16(At(offset));
    answer.record_class = packet.GetBE16(At(offset + 2));
    const int data_length = packet.GetBE16(At(offset + 8));
    if (!packet.ok) return kRanOut;
    answer.data = offset + kFixedFields;
    if (const int failure = ReadAnswer(&answer)) return failure;
    // By its stated length, whatever its reader took: a record that lies about itself never shifts the walk.
    offset = answer.data + data_length;
  }
  return packet.ok ? kDecoded : kRanOut;
}

int DNSParser::ReadAnswer(Answer* answer) const {
  static constexpr AnswerReader kReaders[] = {
      {kTypeA, &DNSParser::ReadA},         {kTypeCname, &DNSParser::ReadAlias}, {kTypePtr, &DNSParser::ReadPtr},
      {kTypeMx, &DNSParser::ReadMx},       {kTypeTxt, &DNSParser::ReadTxt},     {kTypeAaaa, &DNSParser::ReadAaaa},
      {kTypeRrsig, &DNSParser::ReadRrsig},
  };
  if (answer->record_class != kClassIn || answer->type > kHighestTypeRead) return kDecoded;
  for (const AnswerReader& reader : kReaders) {
    if (reader.type == answer->type) return (this->*reader.read)(answer);
  }
  return kDecoded;
}

// A (RFC 1035 3.4.1): four octets.
int DNSParser::ReadA(Answer* answer) const {
  uint32_t address;
  answer->packet.GetBytes(&address, At(answer->data), sizeof address);
  if (!answer->packet.ok) return kRanOut;
  if (answer->summary != nullptr) {
    AppendSeparator(answer->summary);
    AppendEntry(answer->summary, answer->owner, Dotted(address).view());
  }
  if (!answer->inject) return kDecoded;
  exports->inject_dns_mapping(answer->query_name.c_str(), answer->owner.c_str(), address);
  ++injected_mappings;
  DNS_TRACE(kMapping, "Injected dns mapping: q:%s name:%s ip:%d.%d.%d.%d", answer->query_name.c_str(),
            answer->owner.c_str(), Octet(address, 0), Octet(address, 1), Octet(address, 2), Octet(address, 3));
  return kDecoded;
}

// The name at `at`, and its entry under the type's name.
int DNSParser::ReadTargetName(Answer* answer, int at) const {
  if (const int failure = GetName(answer->packet, &at, &answer->target, 0)) return failure;
  if (answer->summary != nullptr) {
    AppendSeparator(answer->summary);
    answer->summary->append(dns_lookup_name(dns_types, answer->type));
    AppendEntry(answer->summary, answer->owner, answer->target);
  }
  return kDecoded;
}

// CNAME (RFC 1035 3.3.1): the canonical name.
int DNSParser::ReadAlias(Answer* answer) const { return ReadTargetName(answer, answer->data); }

// PTR (RFC 1035 3.3.12): a name, and below in-addr.arpa an address for it.
int DNSParser::ReadPtr(Answer* answer) const {
  if (const int failure = ReadTargetName(answer, answer->data)) return failure;
  if (answer->inject) InjectReverse(*answer);
  return kDecoded;
}

// MX (RFC 1035 3.3.9): a 16-bit preference, not shown, then the exchange.
int DNSParser::ReadMx(Answer* answer) const { return ReadTargetName(answer, answer->data + 2); }

// TXT (RFC 1035 3.3.14): the first of its strings. No separator before its entry, on purpose.
int DNSParser::ReadTxt(Answer* answer) const {
  int at = answer->data;
  if (const int failure = GetString(answer->packet, &at, &answer->target)) return failure;
  if (answer->summary != nullptr) {
    answer->summary->append(dns_lookup_name(dns_types, answer->type));
    AppendEntry(answer->summary, answer->owner, answer->target);
  }
  return kDecoded;
}

// AAAA (RFC 3596 2.2): sixteen octets. No separator before its entry, on purpose, and never a mapping: the host's
// labels are for IPv4 addresses.
int DNSParser::ReadAaaa(Answer* answer) const {
  char address[16];
  answer->packet.GetBytes(address, At(answer->data), sizeof address);
  if (!answer->packet.ok) return kRanOut;
  if (answer->summary != nullptr) AppendEntry(answer->summary, answer->owner, format_ipv6(address));
  DNS_TRACE(kAaaaAnswer, "Received AAAA response for: %s", answer->owner.c_str());
  return kDecoded;
}

// RRSIG (RFC 4034 3): counted only.
int DNSParser::ReadRrsig(Answer* answer) const {
  if (answer->rrsig_count != nullptr) ++*answer->rrsig_count;
  return kDecoded;
}

// "4.3.2.1.in-addr.arpa" names 1.2.3.4. Other owners, the suffix in capitals among them, name no address here.
void DNSParser::InjectReverse(const Answer& answer) const {
  if (answer.owner.size() < kReverseSuffix.size()) {
    DNS_LOG(kLogAnomaly, "DNS unexpected name '%s', str '%s'", answer.owner.c_str(), answer.target.c_str());
    return;
  }
  if (!answer.owner.ends_with(kReverseSuffix)) return;
  const std::string reversed = answer.owner.substr(0, answer.owner.size() - kReverseSuffix.size());
  uint32_t address;
  if (inet_pton(AF_INET, reversed.c_str(), &address) != 1) return;
  address = __builtin_bswap32(address);
  exports->inject_dns_mapping(nullptr, answer.target.c_str(), address);
  ++injected_mappings;
  DNS_TRACE(kReverseMapping, "Injected dns mapping: q:%s name:%s ip:%d.%d.%d.%d", answer.query_name.c_str(),
            answer.target.c_str(), Octet(address, 0), Octet(address, 1), Octet(address, 2), Octet(address, 3));
}
