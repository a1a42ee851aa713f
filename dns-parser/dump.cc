// A whole message, traced line by line. What is decoded here is decoded again for the records; the dump only
// helps people who look over the parser's shoulder.

#include <string>

#include "dns-parser/dns_parser.h"
#include "dns-parser/trace.h"
#include "dns-parser/types.h"
#include "util/ipv6.h"

namespace {

uint64_t At(int offset) { return static_cast<uint64_t>(offset); }

// Read a field and move past it. The caller tests the view's ok flag.
int Read16(const IOVec& msg, int* offset) {
  const int value = msg.GetBE16(At(*offset));
  if (msg.ok) *offset += 2;
  return value;
}

uint32_t Read32(const IOVec& msg, int* offset) {
  const uint32_t value = msg.GetBE32(At(*offset));
  if (msg.ok) *offset += 4;
  return value;
}

}  // namespace

struct DNSParser::RecordDump {
  const IOVec& msg;
  int type;
  int data;  // offset of the record's data
};

struct DNSParser::DataDumper {
  int type;
  bool (DNSParser::*dump)(const RecordDump&) const;
};

void DNSParser::DebugDump(const DnsHeader& header, const IOVec& msg) const {
  DNS_TRACE(kDumpHeader,
            "qid=%u recursion=%u truncated=%u authoritative=%u opcode=%u response=%u rcode=%u rec.avail=%u "
            "#questions=%u #answers=%u #authorities=%u #resources=%u",
            header.qid, header.recursion_desired, header.truncated, header.authoritative, header.opcode,
            header.response, header.rcode, header.recursion_available, header.num_questions, header.num_answers,
            header.num_authorities, header.num_resources);
  int offset = kHeaderSize;
  if (!DumpQuestions(msg, &offset, header.num_questions)) return;
  // A section that fails does not stop the next one from being tried where the offset stands.
  DumpRR(msg, &offset, "answer", header.num_answers);
  DumpRR(msg, &offset, "authority", header.num_authorities);
  DumpRR(msg, &offset, "resource", header.num_resources);
}

bool DNSParser::DumpQuestions(const IOVec& msg, int* offset, int count) const {
  std::string name;
  for (int i = 0; i < count; ++i) {
    const int start = *offset;
    if (GetName(msg, offset, &name, 0) != kDecoded) return false;
    const int type = Read16(msg, offset);
    const int question_class = Read16(msg, offset);
    if (!msg.ok) return false;
    // Copied: the second look-up may overwrite the first one's text.
    const std::string type_text = dns_lookup_name(dns_types, type);
    const std::string class_text = dns_lookup_name(dns_classes, question_class);
    DNS_TRACE(kDumpQuestion, "question[%d]@%d = { name='%s' qtype=%s(%d) qclass=%s(%d) }", i, start, name.c_str(),
              type_text.c_str(), type, class_text.c_str(), question_class);
  }
  return true;
}

void DNSParser::DumpRR(const IOVec& msg, int* offset, const char* section, int count) const {
  for (int i = 0; i < count; ++i) {
    if (!DumpRecord(msg, offset, section, i)) return;
  }
}

// One record and its data. False when something could not be read: the section ends there.
bool DNSParser::DumpRecord(const IOVec& msg, int* offset, const char* section, int index) const {
  const int start = *offset;
  std::string name;
  if (GetName(msg, offset, &name, 0) != kDecoded) return false;
  const int type = Read16(msg, offset);
  const int record_class = Read16(msg, offset);
  const uint32_t ttl = Read32(msg, offset);
  const int data_length = Read16(msg, offset);
  if (!msg.ok) return false;

  if (type == kTypeOpt) {  // RFC 6891 6.1.2: class and TTL have other meanings here
    DNS_TRACE(kDumpOpt,
              "%s[%d]@%d = { name='%s', type=%s(%d) udpsize=%d, rcode_high_bits=%02x, edns_version=%d, z=%04x, "
              "rdlength=%d }",
              section, index, start, name.c_str(), dns_lookup_name(dns_types, kTypeOpt), kTypeOpt, record_class,
              ttl >> 24, static_cast<int>(ttl >> 16 & 0xFF), ttl & 0xFFFF, data_length);
  } else {
    // Class first, then type, uncopied on purpose: where both are unknown both fields show the type's text, as
    // readers of these lines have always seen it.
    const char* class_text = dns_lookup_name(dns_classes, record_class);
    const char* type_text = dns_lookup_name(dns_types, type);
    DNS_TRACE(kDumpRecord, "%s[%d]@%d = { name='%s', type=%s(%d) class=%s(%d), ttl=%u, rdlength=%d }", section,
              index, start, name.c_str(), type_text, type, class_text, record_class, ttl, data_length);
  }

  static constexpr DataDumper kDumpers[] = {
      {kTypeA, &DNSParser::DumpA},        {kTypeNs, &DNSParser::DumpName},
      {kTypeCname, &DNSParser::DumpName}, {kTypeSoa, &DNSParser::DumpSoa},
      {kTypePtr, &DNSParser::DumpName},   {kTypeHinfoAsTabled, &DNSParser::DumpHinfo},
      {kTypeMx, &DNSParser::DumpMx},      {kTypeTxt, &DNSParser::DumpTxt},
      {kTypeAaaa, &DNSParser::DumpAaaa},  {kTypeSrv, &DNSParser::DumpSrv},
  };
  for (const DataDumper& dumper : kDumpers) {
    if (dumper.type == type && !(this->*dumper.dump)({msg, type, *offset})) return false;
  }
  *offset += data_length;
  return true;
}

bool DNSParser::DumpA(const RecordDump& record) const {
  uint8_t address[4];
  record.msg.GetBytes(address, At(record.data), sizeof address);
  if (!record.msg.ok) return false;
  DNS_TRACE(kDumpA, "   A = { addr=%d.%d.%d.%d }", address[0], address[1], address[2], address[3]);
  return true;
}

// NS, CNAME, PTR: one name.
bool DNSParser::DumpName(const RecordDump& record) const {
  int at = record.data;
  std::string name;
  if (GetName(record.msg, &at, &name, 0) != kDecoded) return false;
  DNS_TRACE(kDumpName, "   %s = { str='%s' }", dns_lookup_name(dns_types, record.type), name.c_str());
  return true;
}

bool DNSParser::DumpSoa(const RecordDump& record) const {
  int at = record.data;
  std::string mname;
  std::string rname;
  if (GetName(record.msg, &at, &mname, 0) != kDecoded) return false;
  if (GetName(record.msg, &at, &rname, 0) != kDecoded) return false;
  int values[5];
  for (int& value : values) value = static_cast<int>(Read32(record.msg, &at));
  if (!record.msg.ok) return false;
  // Signed on purpose: a serial of 2^31 or more shows as negative, as it always has.
  DNS_TRACE(kDumpSoa, "   SOA = { mname='%s', rname='%s', serial=%d, refresh=%d, retry=%d, expire=%d, minimum=%d }",
            mname.c_str(), rname.c_str(), values[0], values[1], values[2], values[3], values[4]);
  return true;
}

bool DNSParser::DumpHinfo(const RecordDump& record) const {
  int at = record.data;
  std::string cpus;
  std::string os;
  if (GetString(record.msg, &at, &cpus) != kDecoded) return false;
  if (GetString(record.msg, &at, &os) != kDecoded) return false;
  DNS_TRACE(kDumpHinfo, "   HINFO = { cpus='%s' os='%s' }", cpus.c_str(), os.c_str());
  return true;
}

bool DNSParser::DumpMx(const RecordDump& record) const {
  int at = record.data;
  const int preference = Read16(record.msg, &at);
  if (!record.msg.ok) return false;
  std::string exchange;
  if (GetName(record.msg, &at, &exchange, 0) != kDecoded) return false;
  DNS_TRACE(kDumpMx, "   MX = { preference=%d, exchange='%s' }", preference, exchange.c_str());
  return true;
}

// Only the first of a TXT record's strings.
bool DNSParser::DumpTxt(const RecordDump& record) const {
  int at = record.data;
  std::string text;
  if (GetString(record.msg, &at, &text) != kDecoded) return false;
  DNS_TRACE(kDumpTxt, "   %s = { str='%s' }", dns_lookup_name(dns_types, record.type), text.c_str());
  return true;
}

bool DNSParser::DumpAaaa(const RecordDump& record) const {
  char address[16];
  record.msg.GetBytes(address, At(record.data), sizeof address);
  if (!record.msg.ok) return false;
  DNS_TRACE(kDumpAaaa, "   AAAA = { addr=%s }", format_ipv6(address).c_str());
  return true;
}

bool DNSParser::DumpSrv(const RecordDump& record) const {
  int at = record.data;
  const int priority = Read16(record.msg, &at);
  const int weight = Read16(record.msg, &at);
  const int port = Read16(record.msg, &at);
  if (!record.msg.ok) return false;
  std::string target;
  if (GetName(record.msg, &at, &target, 0) != kDecoded) return false;
  DNS_TRACE(kDumpSrv, "   SRV = { priority=%d, weight=%d, port=%d, target='%s' }", priority, weight, port,
            target.c_str());
  return true;
}
