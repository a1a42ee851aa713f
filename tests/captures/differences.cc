#include "tests/captures/differences.h"

namespace test {
namespace {

constexpr std::string_view kRandom = "orb-community_pktvisor/dns_udp_tcp_random.pcap";

}  // namespace

const std::vector<Difference>& ExplainedDifferences() {
  static const std::vector<Difference> kDifferences = {
      // NOTIFY (RFC 1996) and UPDATE (RFC 2136).
      {"OISF_suricata-verify/dns-opcode__dns-notify.pcap", 2, 38504, Reason::kNotRecorded},
      {"OISF_suricata-verify/dns__dns-answer-emptydata__input.pcap", 6, 20434, Reason::kNotRecorded},
      {"arkime_arkime/dns-update.pcap", 2, 26905, Reason::kNotRecorded},
      {"cisco_mercury/emix.pcap", 1556, 23579, Reason::kNotRecorded},
      {"cisco_mercury/emix.pcap", 1584, 47334, Reason::kNotRecorded},
      {"cisco_mercury/emix.pcap", 1741, 7887, Reason::kNotRecorded},
      {"cisco_mercury/emix.pcap", 1743, 9494, Reason::kNotRecorded},
      {"cisco_mercury/emix.pcap", 1758, 26262, Reason::kNotRecorded},
      {"cisco_mercury/emix.pcap", 1852, 39582, Reason::kNotRecorded},
      {"cisco_mercury/emix.pcap", 1854, 47886, Reason::kNotRecorded},
      {"cisco_mercury/emix.pcap", 1894, 17398, Reason::kNotRecorded},
      // A query without a question, and an inverse query (RFC 1035 6.4), which has none either.
      {"dns-stats_compactor/template.pcap", 8, 27364, Reason::kNotRecorded},
      {"zeek_zeek/dns-inverse-query.pcap", 7, 34798, Reason::kNotRecorded},
      // A query that ends before its question does, and one with a label that runs over the end.
      {"ntop_nDPI/fuzz-2006-06-26-2594.pcap", 312, 11254, Reason::kNotRecorded},
      {"ntop_nDPI/fuzz-2006-06-26-2594.pcap", 601, 40963, Reason::kNotRecorded},
      // Responses after five to twelve seconds.
      {"OISF_suricata-verify/flow-drop-iponly-02__input.pcap", 4, 50597, Reason::kTooLate},
      {"ntop_nDPI/bad-dns-traffic.pcap", 77, 14553, Reason::kTooLate},
      {"ntop_nDPI/bad-dns-traffic.pcap", 88, 32084, Reason::kTooLate},
      {"ntop_nDPI/bad-dns-traffic.pcap", 102, 54052, Reason::kTooLate},
      {"zeek_zeek/erspan.pcap", 145, 1, Reason::kTooLate},
      {"zeek_zeek/erspan.pcap", 151, 4, Reason::kTooLate},
      {"zeek_zeek/erspan.pcap", 152, 5, Reason::kTooLate},
      // Queries repeated a little more than five seconds after the first.
      {"OISF_suricata-verify/sip-method__sip.pcap", 504, 23790, Reason::kStillOpen},
      {"wireshark_wireshark/dns+icmp.pcapng.gz", 3, 21134, Reason::kStillOpen},
      {"zeek_zeek/ipv6-fragmented-dns.pcap", 8, 40849, Reason::kStillOpen},
      // Two responses on one connection: the first one's packet was lost and sent again.
      {kRandom, 6338, 5058, Reason::kOwnPacket},
      {kRandom, 6339, 60906, Reason::kOwnPacket},
      {kRandom, 6342, 4049, Reason::kOwnPacket},
      {kRandom, 6343, 45591, Reason::kOwnPacket},
      {kRandom, 6346, 47694, Reason::kOwnPacket},
      {kRandom, 6348, 18951, Reason::kOwnPacket},
      {kRandom, 6349, 46144, Reason::kOwnPacket},
      {kRandom, 6354, 62537, Reason::kOwnPacket},
      {kRandom, 6355, 11448, Reason::kOwnPacket},
      {kRandom, 6358, 38290, Reason::kOwnPacket},
      {kRandom, 6433, 25752, Reason::kOwnPacket},
      {kRandom, 12731, 31283, Reason::kOwnPacket},
      {kRandom, 12732, 34359, Reason::kOwnPacket},
      {kRandom, 12733, 17866, Reason::kOwnPacket},
      {kRandom, 12772, 16613, Reason::kOwnPacket},
      {kRandom, 12774, 16021, Reason::kOwnPacket},
      {kRandom, 12776, 45644, Reason::kOwnPacket},
      {kRandom, 12778, 23472, Reason::kOwnPacket},
      {kRandom, 12780, 23636, Reason::kOwnPacket},
      {kRandom, 12784, 60906, Reason::kOwnPacket},
      {kRandom, 12786, 18951, Reason::kOwnPacket},
      {kRandom, 12788, 60404, Reason::kOwnPacket},
      {kRandom, 12792, 11448, Reason::kOwnPacket},
      {kRandom, 12798, 43335, Reason::kOwnPacket},
      {kRandom, 12800, 62305, Reason::kOwnPacket},
      {kRandom, 12802, 48234, Reason::kOwnPacket},
      {kRandom, 12804, 20145, Reason::kOwnPacket},
  };
  return kDifferences;
}

}  // namespace test
