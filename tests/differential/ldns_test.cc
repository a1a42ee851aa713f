// Messages that libldns builds and reads: names, addresses, types and counts are the same to the parser.

#include <arpa/inet.h>
#include <doctest/doctest.h>
#include <rapidcheck.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dns-parser/types.h"
#include "tests/support/decoding.h"
#include "tests/support/pairing.h"

// Behind all others: it makes bool a macro.
#include <ldns/ldns.h>
#undef bool

using namespace test;

namespace {

size_t Upto(size_t most) { return *rc::gen::inRange<size_t>(0, most + 1); }

// ---- what libldns builds -------------------------------------------------------------------------------------

// In presentation form, which libldns takes up to 255 characters of: one to five labels, few different ones, so
// that there is something to compress. Logs and mappings are C strings, so no byte is 0.
std::string AnyName() {
  static const std::vector<std::string> kCommon = {"example", "net", "www", "a"};
  std::string name = Upto(5) == 0 ? std::string(1 + Upto(62), 'x') + "." : "";
  for (size_t labels = 1 + Upto(3); labels > 0; --labels) {
    if (Upto(2) != 0) {
      name += kCommon[Upto(kCommon.size() - 1)];
    } else {
      for (size_t bytes = 1 + Upto(9); bytes > 0; --bytes) {
        const auto value = std::to_string(1 + Upto(254));
        name += "\\" + std::string(3 - value.size(), '0') + value;
      }
    }
    name += ".";
  }
  return Upto(20) == 0 ? "." : name;
}

std::string AnyV4() {
  std::string text = std::to_string(Upto(255));
  for (int i = 0; i < 3; ++i) text += "." + std::to_string(Upto(255));
  return text;
}

// No group is 0: how runs of zeros are written is not what is looked at here.
std::string AnyV6() {
  char text[INET6_ADDRSTRLEN];
  std::string bytes;
  for (int i = 0; i < 8; ++i) bytes += U16(static_cast<unsigned>(0x1000 + Upto(0xefff)));
  return inet_ntop(AF_INET6, bytes.data(), text, sizeof text);
}

// A record in presentation form.
std::string AnyRecord() {
  static const std::vector<std::string> kData = {"IN A #4",
                                                 "IN AAAA #6",
                                                 "IN CNAME #n",
                                                 "IN PTR #n",
                                                 "IN MX 10 #n",
                                                 "IN NS #n",
                                                 "IN DNAME #n",
                                                 "IN SOA #n #n 3000000000 7200 3600 86400 300",
                                                 "IN SRV 1 2 53 #n",
                                                 "IN TXT \"first\" \"second\"",
                                                 "IN NAPTR 1 2 \"u\" \"E2U\" \"!x!y!\" #n",
                                                 "IN RRSIG A 13 2 300 20301231000000 20251231000000 4711 #n AAAA",
                                                 "IN DS 4711 13 2 00112233",
                                                 "IN CAA 0 issue \"ca.example\"",
                                                 "IN LOC 52 0 0 N 13 0 0 E 30m 1m 10m 10m",
                                                 "IN AFSDB 1 #n",
                                                 "IN SSHFP 1 1 00112233",
                                                 "IN HINFO \"cpu\" \"os\"",
                                                 "IN TYPE4711 \\# 4 00112233",
                                                 "CH TXT \"x\""};
  const std::string& data = kData[Upto(kData.size() - 1)];
  const std::string owner = Upto(15) == 0 ? AnyV4() + ".in-addr.arpa." : AnyName();
  std::string text = owner + " " + std::to_string(Upto(0x7fffffff)) + " ";
  for (size_t i = 0; i < data.size(); ++i) {
    const char kind = data[i] == '#' && i + 1 < data.size() ? data[i + 1] : ' ';
    text += kind == 'n' ? AnyName() : kind == '4' ? AnyV4() : kind == '6' ? AnyV6() : data.substr(i, 1);
    if (kind == 'n' || kind == '4' || kind == '6') ++i;
  }
  return text;
}

using Packet = std::unique_ptr<ldns_pkt, decltype(&ldns_pkt_free)>;

void Push(ldns_pkt* packet, ldns_pkt_section section, const std::string& text, bool question = false) {
  ldns_rr* record = nullptr;
  const ldns_status status = question ? ldns_rr_new_question_frm_str(&record, text.c_str(), nullptr, nullptr)
                                      : ldns_rr_new_frm_str(&record, text.c_str(), 0, nullptr, nullptr);
  if (status != LDNS_STATUS_OK) throw std::logic_error(text + ": " + ldns_get_errorstr_by_id(status));
  ldns_pkt_push_rr(packet, section, record);
}

std::string WireOf(const ldns_pkt* packet) {
  uint8_t* bytes = nullptr;
  size_t size = 0;
  if (ldns_pkt2wire(&bytes, packet, &size) != LDNS_STATUS_OK) throw std::logic_error("ldns_pkt2wire");
  std::string wire(reinterpret_cast<const char*>(bytes), size);
  LDNS_FREE(bytes);
  return wire;
}

struct AnyExchange {
  AnyExchange() {
    const Packet packet(ldns_pkt_new(), ldns_pkt_free);
    ldns_pkt_set_id(packet.get(), static_cast<uint16_t>(Upto(65535)));
    ldns_pkt_set_rd(packet.get(), Upto(1) == 0);
    static const std::vector<std::string> kTypes = {"A",   "AAAA", "MX",  "TXT",     "NS",
                                                    "SRV", "PTR",  "SOA", "TYPE4711"};
    Push(packet.get(), LDNS_SECTION_QUESTION, AnyName() + " IN " + kTypes[Upto(kTypes.size() - 1)], true);
    if (Upto(1) == 0) {
      ldns_pkt_set_edns_udp_size(packet.get(), 1232);
      ldns_pkt_set_edns_do(packet.get(), Upto(1) == 0);
    }
    query = WireOf(packet.get());
    ldns_pkt_set_qr(packet.get(), true);
    ldns_pkt_set_aa(packet.get(), Upto(1) == 0);
    ldns_pkt_set_ra(packet.get(), Upto(1) == 0);
    if (Upto(5) == 0) ldns_pkt_set_rcode(packet.get(), LDNS_RCODE_NXDOMAIN);
    for (size_t i = Upto(8); i > 0; --i) Push(packet.get(), LDNS_SECTION_ANSWER, AnyRecord());
    for (size_t i = Upto(3); i > 0; --i) Push(packet.get(), LDNS_SECTION_AUTHORITY, AnyRecord());
    for (size_t i = Upto(3); i > 0; --i) Push(packet.get(), LDNS_SECTION_ADDITIONAL, AnyRecord());
    response = WireOf(packet.get());
  }
  std::string query;
  std::string response;
};

// ---- what libldns reads --------------------------------------------------------------------------------------

Packet Parsed(const std::string& wire) {
  ldns_pkt* packet = nullptr;
  const auto* bytes = reinterpret_cast<const uint8_t*>(wire.data());
  if (ldns_wire2pkt(&packet, bytes, wire.size()) != LDNS_STATUS_OK) throw std::logic_error("ldns_wire2pkt");
  return {packet, ldns_pkt_free};
}

std::string_view Bytes(const ldns_rdf* field) {
  return {reinterpret_cast<const char*>(ldns_rdf_data(field)), ldns_rdf_size(field)};
}

// A name as records show it: labels joined by dots, without escapes.
std::string NameText(const ldns_rdf* name) {
  std::string text;
  for (std::string_view rest = Bytes(name); rest.front() != '\0';) {
    const auto length = static_cast<uint8_t>(rest.front());
    text.append(text.empty() ? "" : ".").append(rest.substr(1, length));
    rest.remove_prefix(1U + length);
  }
  return text;
}
std::string NameText(const ldns_rr* record, size_t field) { return NameText(ldns_rr_rdf(record, field)); }

std::string AddressText(const ldns_rr* record) {
  char text[INET6_ADDRSTRLEN];
  const std::string_view bytes = Bytes(ldns_rr_rdf(record, 0));
  return inet_ntop(bytes.size() == 4 ? AF_INET : AF_INET6, bytes.data(), text, sizeof text);
}

std::string Number(const ldns_rr* record, size_t field) {
  const ldns_rdf* number = ldns_rr_rdf(record, field);
  return std::to_string(ldns_rdf_size(number) == 2 ? ldns_rdf2native_int16(number)
                                                   : static_cast<int>(ldns_rdf2native_int32(number)));
}

// The data of the types that are shown, as a dump shows it.
std::string DataText(const ldns_rr* record) {
  const auto name = [&](const char* type) {
    return std::string("   ").append(type).append(" = { str='").append(NameText(record, 0)).append("' }\n");
  };
  switch (ldns_rr_get_type(record)) {
    case LDNS_RR_TYPE_A:
      return "   A = { addr=" + AddressText(record) + " }\n";
    case LDNS_RR_TYPE_AAAA:
      return "   AAAA = { addr=" + AddressText(record) + " }\n";
    case LDNS_RR_TYPE_NS:
      return name("NS");
    case LDNS_RR_TYPE_CNAME:
      return name("CNAME");
    case LDNS_RR_TYPE_PTR:
      return name("PTR");
    case LDNS_RR_TYPE_MX:
      return "   MX = { preference=" + Number(record, 0) + ", exchange='" + NameText(record, 1) + "' }\n";
    case LDNS_RR_TYPE_TXT:
      return "   TXT = { str='" + std::string(Bytes(ldns_rr_rdf(record, 0)).substr(1)) + "' }\n";
    case LDNS_RR_TYPE_SRV:
      return "   SRV = { priority=" + Number(record, 0) + ", weight=" + Number(record, 1) +
             ", port=" + Number(record, 2) + ", target='" + NameText(record, 3) + "' }\n";
    case LDNS_RR_TYPE_SOA:
      return "   SOA = { mname='" + NameText(record, 0) + "', rname='" + NameText(record, 1) +
             "', serial=" + Number(record, 2) + ", refresh=" + Number(record, 3) + ", retry=" + Number(record, 4) +
             ", expire=" + Number(record, 5) + ", minimum=" + Number(record, 6) + " }\n";
    default:
      return "";
  }
}

std::string TypeText(int type) {
  return std::string(dns_lookup_name(dns_types, type)) + "(" + std::to_string(type) + ")";
}
std::string ClassText(int klass) {
  return std::string(dns_lookup_name(dns_classes, klass)) + "(" + std::to_string(klass) + ")";
}

std::string SectionText(const char* section, const ldns_rr_list* records) {
  std::string text;
  for (size_t i = 0; i < ldns_rr_list_rr_count(records); ++i) {
    const ldns_rr* record = ldns_rr_list_rr(records, i);
    text += std::string(section) + "[" + std::to_string(i) + "] = { name='" + NameText(ldns_rr_owner(record)) +
            "', type=" + TypeText(ldns_rr_get_type(record)) + " class=" + ClassText(ldns_rr_get_class(record)) +
            ", ttl=" + std::to_string(ldns_rr_ttl(record)) + " }\n" + DataText(record);
  }
  return text;
}

std::string HeaderText(const ldns_pkt* packet) {
  const auto bit = [](const char* name, bool value) { return std::string(name) + (value ? "=1 " : "=0 "); };
  const auto count = [](const char* name, unsigned value) {
    return std::string(name) + "=" + std::to_string(value);
  };
  return count("qid", ldns_pkt_id(packet)) + " " + bit("recursion", ldns_pkt_rd(packet)) +
         bit("truncated", ldns_pkt_tc(packet)) + bit("authoritative", ldns_pkt_aa(packet)) + "opcode=0 " +
         bit("response", ldns_pkt_qr(packet)) + count("rcode", ldns_pkt_get_rcode(packet)) + " " +
         bit("rec.avail", ldns_pkt_ra(packet)) + count("#questions", ldns_pkt_qdcount(packet)) +
         count(" #answers", ldns_pkt_ancount(packet)) + count(" #authorities", ldns_pkt_nscount(packet)) +
         count(" #resources", ldns_pkt_arcount(packet) + (ldns_pkt_edns(packet) ? 1U : 0U)) + "\n";
}

// The whole message as a dump shows it, but for the places and lengths, which libldns does not tell.
std::string PacketText(const ldns_pkt* packet) {
  const ldns_rr* question = ldns_rr_list_rr(ldns_pkt_question(packet), 0);
  std::string text =
      HeaderText(packet) + "question[0] = { name='" + NameText(ldns_rr_owner(question)) +
      "' qtype=" + TypeText(ldns_rr_get_type(question)) + " qclass=" + ClassText(ldns_rr_get_class(question)) +
      " }\n" + SectionText("answer", ldns_pkt_answer(packet)) +
      SectionText("authority", ldns_pkt_authority(packet)) + SectionText("resource", ldns_pkt_additional(packet));
  if (ldns_pkt_edns(packet)) {  // libldns keeps it apart, and writes it last
    const size_t index = ldns_rr_list_rr_count(ldns_pkt_additional(packet));
    text += "resource[" + std::to_string(index) +
            "] = { name='', type=OPT(41) udpsize=" + std::to_string(ldns_pkt_edns_udp_size(packet)) +
            ", rcode_high_bits=00, edns_version=0, z=" + (ldns_pkt_edns_do(packet) ? "8000" : "0000") + " }\n";
  }
  return text;
}

// What a record says of the answers.
struct Findings {
  std::string summary;
  int signatures = 0;
  std::vector<std::pair<std::string, std::string>> addresses;
};

Findings FindingsOf(const ldns_pkt* packet) {
  Findings findings;
  if (ldns_pkt_get_rcode(packet) != LDNS_RCODE_NOERROR) return findings;
  const ldns_rr_list* answers = ldns_pkt_answer(packet);
  for (size_t i = 0; i < ldns_rr_list_rr_count(answers); ++i) {
    const ldns_rr* record = ldns_rr_list_rr(answers, i);
    if (ldns_rr_get_class(record) != LDNS_RR_CLASS_IN) continue;
    const std::string owner = NameText(ldns_rr_owner(record));
    const auto entry = [&](const std::string& type, const std::string& data, bool separated = true) {
      if (separated && !findings.summary.empty()) findings.summary += ", ";
      findings.summary += type + "[" + owner + " => " + data + "]";
    };
    switch (ldns_rr_get_type(record)) {
      case LDNS_RR_TYPE_A:
        entry("", AddressText(record));
        findings.addresses.emplace_back(owner, AddressText(record));
        break;
      case LDNS_RR_TYPE_AAAA:
        entry("", AddressText(record), false);
        break;
      case LDNS_RR_TYPE_CNAME:
        entry("CNAME", NameText(record, 0));
        break;
      case LDNS_RR_TYPE_PTR: {
        entry("PTR", NameText(record, 0));
        in_addr reversed{};
        if (!owner.ends_with(".in-addr.arpa")) break;
        if (inet_pton(AF_INET, owner.substr(0, owner.size() - 13).c_str(), &reversed) != 1) break;
        reversed.s_addr = __builtin_bswap32(reversed.s_addr);
        findings.addresses.emplace_back(NameText(record, 0), inet_ntoa(reversed));
        break;
      }
      case LDNS_RR_TYPE_MX:
        entry("MX", NameText(record, 1));
        break;
      case LDNS_RR_TYPE_TXT:
        entry("TXT", std::string(Bytes(ldns_rr_rdf(record, 0)).substr(1)), false);
        break;
      case LDNS_RR_TYPE_RRSIG:
        ++findings.signatures;
        break;
      default:
        break;
    }
  }
  return findings;
}

// ---- what the parser reads -----------------------------------------------------------------------------------

// The dump of a message without places ("@12") and lengths of data.
std::string DumpText(const std::string& wire) {
  const QuietBench bench(5);
  const IOVec view = View(wire);
  DnsHeader header{};
  RC_ASSERT(ReadHeader(view, &header));
  bench.parser.DebugDump(header, view);
  std::string dump;
  for (const RecordingHost::Line& line : bench.host.lines) {
    std::string text = line.text.substr(line.text.find("]-[dns]-") + 8);
    if (const size_t place = text.find("]@"); place != std::string::npos && !text.starts_with("   ")) {
      text.erase(place + 1, text.find(' ') - place - 1);
    }
    if (const size_t length = text.rfind(", rdlength="); length != std::string::npos) {
      text.erase(length, text.rfind(" }") - length);
    }
    dump += text + "\n";
  }
  return dump;
}

}  // namespace

TEST_CASE("every name, type, class, address and count of a message is what libldns reads") {
  CHECK(rc::check([] {
    const AnyExchange exchange;
    RC_ASSERT(DumpText(exchange.query) == PacketText(Parsed(exchange.query).get()));
    RC_ASSERT(DumpText(exchange.response) == PacketText(Parsed(exchange.response).get()));
  }));
}

TEST_CASE("an exchange that libldns built is one record that says the same") {
  CHECK(rc::check([] {
    const AnyExchange exchange;
    const Packet packet = Parsed(exchange.response);
    const Findings findings = FindingsOf(packet.get());
    const ldns_rr* question = ldns_rr_list_rr(ldns_pkt_question(packet.get()), 0);
    Pairing bench;
    RC_ASSERT(bench.Request(exchange.query));
    RC_ASSERT(bench.Response(exchange.response) == 1);
    RC_ASSERT(bench.host.records.size() == 2U);
    const RecordingHost::Record& record = bench.host.Last();
    const auto text = [&](const char* key) { return record.strings.contains(key) ? record.strings.at(key) : ""; };
    RC_ASSERT(record.pattern == dns_lookup_description(dns_types, ldns_rr_get_type(question)));
    RC_ASSERT(text("Names") == NameText(ldns_rr_owner(question)));
    RC_ASSERT(record.result_code == static_cast<int>(ldns_pkt_get_rcode(packet.get())));
    RC_ASSERT(text("Response") == findings.summary);
    RC_ASSERT(text("NumRRSIGRecords") == (findings.signatures == 0 ? "" : std::to_string(findings.signatures)));
    std::vector<std::pair<std::string, std::string>> addresses;
    for (const RecordingHost::Mapping& mapping : bench.host.mappings)
      addresses.emplace_back(mapping.name, mapping.address);
    RC_ASSERT(addresses == findings.addresses);
  }));
}
