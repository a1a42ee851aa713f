// Writes where the fuzzers begin: what the tests' own builders make, and the sample captures.
//   fuzz_seeds SAMPLES FOLDER    one folder for each fuzzer below FOLDER

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/draw.h"
#include "fuzz/message_format.h"
#include "tests/support/compress.h"
#include "tests/support/dns_builder.h"
#include "tests/support/packet_builder.h"
#include "tests/support/pcap_writer.h"

namespace fuzz {
namespace {

namespace fs = std::filesystem;
using test::A;
using test::Message;
using test::Query;
using test::Response;

class Folder {
 public:
  explicit Folder(fs::path place) : path(std::move(place)) { fs::create_directories(path); }

  void Add(const std::string& bytes) {
    std::ofstream file(path / std::to_string(count++), std::ios::binary);
    file << bytes;
    if (!file) throw std::runtime_error(path.string() + " cannot be written");
  }

 private:
  fs::path path;
  int count = 0;
};

// ---- messages ------------------------------------------------------------------------------------------------

std::vector<std::string> Queries() {
  return {
      Query(7).Question("www.example.com", test::kA).Wire(),
      Query(7).Question("example.com", test::kAaaa).Additional(test::Opt({.dnssec_ok = true})).Wire(),
      Query(8).Question("a.b", test::kMx).Question("c.b", test::kTxt, test::kChaos).Compressed().Wire(),
      Query(9).Question("zone.example", test::kAxfr).Wire(),
      Query(10).Question(".", test::kNs).Wire(),
      Query(11).Opcode(1).Question("in.verse", test::kPtr).Wire(),
      Query(12).Opcode(5).Question("up.date", test::kSoa).Wire(),
      Query(13).QuestionCount(0).Wire(),
      Query(14).Opcode(9).Wire(),
  };
}

Message Answers() {
  return Response(7)
      .Question("www.example.com", test::kA)
      .Compressed()
      .Answer("www.example.com", test::Cname("w.example.com"))
      .Answer("w.example.com", A("192.0.2.80"))
      .Answer("w.example.com", test::Rrsig(test::kA, "example.com"))
      .Authority("example.com", test::Ns("ns.example.com"))
      .Additional("ns.example.com", test::Aaaa("2001:db8::1"))
      .Additional(test::Opt({.extended_rcode = 1}));
}

std::vector<std::string> Responses() {
  return {
      Answers().Wire(),
      Response(7)
          .Question("www.example.com", test::kAny)
          .Answer("www.example.com", test::Mx(10, "mail.example.com"))
          .Answer("www.example.com", test::Txt("a text", "and \xff another"))
          .Answer("www.example.com", test::Srv(1, 2, 53, "server.example.com"))
          .Answer("www.example.com", test::Soa("ns.example.com", "root.example.com"))
          .Answer("www.example.com", test::Rdata(test::kHinfo, test::CharacterString("x") + "\x01y"))
          .Answer("www.example.com", test::Aaaa("::ffff:192.0.2.1"))
          .Wire(),
      Response(7)
          .Question("1.2.0.192.in-addr.arpa", test::kPtr)
          .Answer("1.2.0.192.in-addr.arpa", test::Ptr("host.example"))
          .Wire(),
      Response(7).Question("no.example", test::kA).Rcode(3).Wire(),
      Response(9)
          .Question("zone.example", test::kAxfr)
          .Answer("zone.example", test::Soa("ns.zone.example", "root.zone.example"))
          .Answer("a.zone.example", A("192.0.2.9"))
          .Wire(),
      Response(8).Question("a.b", test::kMx).Answer("a.b", A("192.0.2.1").RdLength(3)).Wire(),
      Response(10).Question(test::Pointer(12), test::kA).Wire(),
      Response(7)
          .Question("long.example", test::kA)
          .Answer(test::Pointer(12), test::Rdata(test::kHttps, std::string(300, '\x07')))
          .Wire(),
  };
}

std::string Framed(const std::string& message) {
  return test::U16(static_cast<unsigned>(message.size())) + message;
}

std::string Step(MessageStep step, unsigned flow, const std::string& message) {
  return Write().U8(static_cast<unsigned>(step)).U16(20).U8(flow).U8(0).LongText(message).bytes;
}

std::string Settings(unsigned bits, unsigned host_bits) { return Write().U8(bits).U8(host_bits).U8(0).U8(5).bytes; }

void WriteMessages(Folder folder) {
  constexpr unsigned kUdp = 7;
  constexpr unsigned kTcp = 23;
  std::string everything = Settings(3, 5);
  for (const std::string& query : Queries()) {
    const std::string step = Step(MessageStep::kRequest, kUdp, query);
    folder.Add(Settings(1, 5) + step + Step(MessageStep::kHeartbeat, 0, ""));
    folder.Add(Settings(0, 0) + Step(MessageStep::kBoth, kTcp, Framed(query)));
    everything += step;
    for (const std::string& response : Responses()) {
      folder.Add(Settings(3, 5) + step + Step(MessageStep::kResponse, kUdp, response));
    }
  }
  for (const std::string& response : Responses()) {
    everything += Step(MessageStep::kResponse, kUdp, response);
    std::string asked = response;
    asked[2] = '\x01';
    folder.Add(Settings(1, 12) + Step(MessageStep::kBoth, kUdp, asked));
    folder.Add(Settings(2, 5) + Step(MessageStep::kRequest, kTcp, Framed(asked)) +
               Step(MessageStep::kResponse, kTcp, Framed(response)));
  }
  folder.Add(everything);
}

void WriteStreams(Folder folder) {
  std::string queries;
  std::string responses;
  for (const std::string& query : Queries()) queries += Framed(query);
  for (const std::string& response : Responses()) responses += Framed(response);
  for (const std::string& cuts : {std::string(), std::string("\x01\x02\x0d\x40"), std::string(60, '\x05')}) {
    folder.Add(Write().U8(7).Text(cuts).LongText(queries).Bytes(responses).bytes);
    folder.Add(Write().U8(0).Text(cuts).LongText(Framed(Queries()[0])).Bytes(Framed(Responses()[0])).bytes);
  }
}

void WriteNames(Folder folder) {
  for (const std::string& response : Responses()) {
    for (const unsigned at : {12U, 29U, 33U, 45U}) folder.Add(Write().U16(at).U8(0).Bytes(response).bytes);
  }
  std::string chain = std::string(12, '\0') + test::Name("aa.bb").Wire();
  for (unsigned at = 12; at < 52; at += 2) chain += test::Pointer(chain.size() == 19 ? 12 : at + 5).Wire();
  for (const unsigned at : {19U, 49U, 51U, 53U}) folder.Add(Write().U16(at).U8(1).Bytes(chain).bytes);
}

// ---- packets -------------------------------------------------------------------------------------------------

struct LinkedFrame {
  unsigned link_type;
  std::string bytes;
};

std::string Text(const test::Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

test::Packet Udp4(test::Packet packet, const std::string& message = Queries()[0]) {
  return packet.Ipv4("192.0.2.1", "192.0.2.53").Udp(40000, 53).Text(message);
}
test::Packet Udp6(test::Packet packet, const std::string& message = Queries()[0]) {
  return packet.Ipv6("2001:db8::1", "2001:db8::53").Udp(40000, 53).Text(message);
}
test::Packet Outer4(test::Packet packet) { return packet.Ipv4("198.51.100.1", "198.51.100.2"); }

std::vector<LinkedFrame> LinkTypes() {
  using namespace test;
  std::vector<LinkedFrame> frames;
  const auto add = [&frames](unsigned link_type, Packet packet) {
    frames.push_back({link_type, Text(Udp4(packet).Frame())});
    frames.push_back({link_type, Text(Udp6(std::move(packet)).Frame())});
  };
  add(1, Ethernet());
  add(0, Null());
  add(108, Null());
  add(9, Ppp());
  add(50, Ppp(true));
  add(166, Ppp());
  add(204, Ppp());
  add(104, CiscoHdlc());
  add(101, RawIp());
  add(228, RawIp());
  add(113, LinuxCooked());
  add(276, LinuxCooked2());
  add(239, Nflog(2));
  add(105, Wifi().Snap());
  add(105, Wifi({.to_ds = true, .from_ds = true, .qos = true, .order = true}).Snap());
  add(127, Radiotap(0x10, 2).Wifi().Snap());
  add(219, RawIp().Mpls(5));
  for (const unsigned other : {10U, 51U, 129U, 149U, 192U, 258U, 4711U}) add(other, Ethernet());
  return frames;
}

std::vector<LinkedFrame> Tunnels() {
  using namespace test;
  std::vector<LinkedFrame> frames;
  const auto add = [&frames](const Packet& packet) { frames.push_back({1, Text(packet.Frame())}); };
  add(Udp4(Ethernet().Vlan(5).Vlan(6, 0x88a8)));
  add(Udp4(Ethernet().Mpls(1).Mpls(2)));
  add(Udp4(Ethernet().Mpls(1).ControlWord().Ethernet()));
  add(Udp4(Ethernet().Pppoe(7)));
  add(Udp4(Ethernet().Snap()));
  add(Udp4(Outer4(Ethernet())));
  add(Udp6(Outer4(Ethernet())));
  add(Udp4(Outer4(Ethernet()).Gre({.checksum = true, .has_key = true, .key = 9, .has_sequence = true})));
  add(Udp4(Outer4(Ethernet()).GreWithPpp(3).Ppp()));
  add(Udp4(Outer4(Ethernet()).Gre({.has_sequence = true}).Erspan2().Ethernet()));
  add(Udp4(Outer4(Ethernet()).Gre().Erspan3(true).Ethernet()));
  add(Udp4(Outer4(Ethernet()).Udp(4000, 4789).Vxlan(77).Ethernet()));
  add(Udp4(Outer4(Ethernet()).Udp(4000, 6081).Geneve(77, 8).Ethernet()));
  add(Udp4(Outer4(Ethernet()).Udp(2152, 2152).Gtp(99)));
  add(Udp6(Outer4(Ethernet()).Udp(3544, 4000)));
  add(Udp6(Ethernet().Ipv6("2001:db8::a", "2001:db8::b").HopByHop().Routing().DestinationOptions().Mobility()));
  add(Ethernet().Ipv6("2001:db8::1", "2001:db8::53").Authentication().Udp(40000, 53).Text(Queries()[1]));
  add(Ethernet().Ipv4("192.0.2.1", "192.0.2.53", {1, 1, 1, 1}).Tcp(40000, 53, {.flags = kSyn}));
  return frames;
}

std::vector<LinkedFrame> Fragmented() {
  std::vector<LinkedFrame> frames;
  for (const test::Packet& packet : {Udp4(test::Ethernet(), Responses()[1]), Udp6(test::Ethernet())}) {
    for (const test::Bytes& frame : packet.Fragments(24, 99)) frames.push_back({1, Text(frame)});
  }
  return frames;
}

// Queries and responses over UDP and TCP, so that a whole run has something to pair.
std::vector<LinkedFrame> Conversation() {
  using namespace test;
  std::vector<LinkedFrame> frames;
  const auto add = [&frames](const Packet& packet) { frames.push_back({1, Text(packet.Frame())}); };
  add(Udp4(Ethernet()));
  add(Ethernet().Ipv4("192.0.2.53", "192.0.2.1").Udp(53, 40000).Text(Responses()[0]));
  add(Udp6(Ethernet(), Queries()[2]));
  const Packet client = Ethernet().Ipv4("192.0.2.1", "192.0.2.53");
  const Packet server = Ethernet().Ipv4("192.0.2.53", "192.0.2.1");
  const std::string asked = Framed(Queries()[3]);
  const std::string answered = Framed(Responses()[4]);
  add(Packet(client).Tcp(40001, 53, {.sequence = 9, .flags = kSyn}));
  add(Packet(server).Tcp(53, 40001, {.sequence = 99, .flags = kSyn | kAck}));
  add(Packet(client).Tcp(40001, 53, {.sequence = 10}).Text(asked));
  add(Packet(server).Tcp(53, 40001, {.sequence = 120}).Text(answered.substr(20)));
  add(Packet(server).Tcp(53, 40001, {.sequence = 100}).Text(answered.substr(0, 20)));
  add(Packet(client).Tcp(40001, 53, {.sequence = 10 + static_cast<uint32_t>(asked.size()), .flags = kFin | kAck}));
  add(Packet(server).Tcp(53, 40001, {.flags = kRst}));
  return frames;
}

std::string PacketInput(const std::vector<LinkedFrame>& frames) {
  Write input;
  for (const LinkedFrame& frame : frames) input.U16(frame.link_type).U8(0).U16(5).LongText(frame.bytes);
  return input.bytes;
}

void WritePackets(Folder folder) {
  for (const LinkedFrame& frame : LinkTypes()) folder.Add(PacketInput({frame}));
  for (const LinkedFrame& frame : Tunnels()) folder.Add(PacketInput({frame}));
  folder.Add(PacketInput(Fragmented()));
  folder.Add(PacketInput(Conversation()));
}

void WriteFragments(Folder folder) {
  for (const unsigned version : {0U, 1U}) {
    Write input;
    input.U8(3).U8(7).U16(4096).U8(1);
    for (const unsigned at : {2U, 0U, 4U, 0U, 6U}) input.U8(version | (at < 6 ? 8U : 0U)).U8(1).U8(at).U8(16);
    folder.Add(input.bytes);
    // A gap, and a last fragment too late to fill it.
    input.U8(version | 10U).U8(1).U8(0).U8(16).U8(version | 10U).U8(1).U8(3).U8(8);
    folder.Add(input.U8(version | 2U).U8(200).U8(9).U8(8).bytes);
  }
}

void WriteSegments(Folder folder) {
  Write true_stream;
  true_stream.U8(1).U8(3).Text(Queries()[0]).Text("").Text(Responses()[2]).U32(0xfffffff0U);
  for (const unsigned at : {40U, 10U, 0U, 90U}) true_stream.U16(at).U8(30);
  folder.Add(true_stream.bytes);

  constexpr unsigned kToServer = 0;
  constexpr unsigned kToClient = 64 | 128;
  const auto segment = [](unsigned who, unsigned flags, unsigned at, const std::string& payload) {
    return Write().U8(who).U8(flags << 1U).U8(2).U16(at).Text(payload).bytes;
  };
  const std::string settings = Write().U8(0).U8(0x1f).U16(9999).bytes;
  const std::string asked = Framed(Queries()[0]);
  const std::string answered = Framed(Responses()[3]);
  folder.Add(settings + segment(kToServer, test::kSyn, 9, "") + segment(kToServer, test::kAck, 10, asked) +
             segment(kToClient, test::kAck, 10, answered.substr(10)) +
             segment(kToClient, test::kAck, 0, answered.substr(0, 10)) +
             segment(kToServer, test::kFin, 10 + static_cast<unsigned>(asked.size()), ""));
  std::string datagrams = settings;
  for (const unsigned version : {0U, 1U}) {
    datagrams += Write().U8(version).U8(1).U8(2).U16(0).Text(Queries()[0]).bytes;
    datagrams += Write().U8(version | kToClient).U8(1).U8(2).U16(0).Text(Responses()[3]).bytes;
  }
  folder.Add(datagrams);
}

// ---- captures ------------------------------------------------------------------------------------------------

std::string Pcap(const std::vector<LinkedFrame>& frames, const test::PcapSettings& settings) {
  test::PcapWriter writer(settings);
  int64_t time_ns = 1'700'000'000'000'000'000;
  for (const LinkedFrame& frame : frames) writer.Frame(time_ns += 5'000'000, frame.bytes);
  return writer.Bytes();
}

std::string Pcapng(const std::vector<LinkedFrame>& frames, test::ByteOrder order) {
  test::PcapngWriter writer;
  writer.Section(order).Interface({.resolution = 9, .offset = 3, .name = "eth0"}).Interface({.link_type = 101});
  uint64_t ticks = 1'700'000'000'000'000;
  for (const LinkedFrame& frame : frames) writer.Enhanced(0, ticks += 5000, frame.bytes);
  writer.Simple(frames.front().bytes).Packet(0, ticks, frames.back().bytes).Block(5, "statistics");
  return writer.Section().Interface().Enhanced(0, ticks, frames.front().bytes, 9999).Bytes();
}

std::string Sample(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(file), {}};
  if (!file) throw std::runtime_error(path.string() + " cannot be read");
  return bytes.substr(0, 3000);  // its first packets
}

void WriteCaptures(Folder folder, const fs::path& samples) {
  const std::vector<LinkedFrame> conversation = Conversation();
  for (const test::ByteOrder order : {test::ByteOrder::kLittle, test::ByteOrder::kBig}) {
    for (const uint32_t magic : {test::kPcapMicroseconds, test::kPcapNanoseconds, test::kPcapModified}) {
      folder.Add(Pcap(conversation, {.order = order, .magic = magic}));
    }
    folder.Add(Pcapng(conversation, order));
  }
  for (const LinkedFrame& frame : LinkTypes()) folder.Add(Pcap({frame}, {.link_type = frame.link_type}));
  folder.Add(Pcap(Tunnels(), {}));
  folder.Add(Pcap(Fragmented(), {}));
  folder.Add(test::Gzip(Pcap(conversation, {})));
  folder.Add(test::Zstd(Pcapng(conversation, test::ByteOrder::kLittle)));
  folder.Add(Sample(samples / "dns.pcap"));
  folder.Add(Sample(samples / "dns6.pcap"));
}

// ---- texts ---------------------------------------------------------------------------------------------------

void WriteOptions(Folder folder) {
  const std::vector<std::string> lines = {
      "f.pcap\n--where\nrcode=NXDOMAIN\n--where\nrtt>100ms\n--where\nrtt_us<=2.5s",
      "f.pcap\n--where\nqname~(^|[.])example$\n--where\nstatus!=timeout\n--where\ncut==true",
      "f.pcap\n--where\nbytes_query>=512\n--where\nresult_code<0\n--where\nvlan!~[0-9]+",
      "f\n--mask-clients\n24,48\n-C\n64M\n-o\nx-%Y%m%d.json\n--sandbox\non",
      "-i\neth0\n-G\n3600\n-C\n10\n--output\nx\n--mask-clients\n0,128",
      "f.pcap\n--columns\nts_us,client_ip,qname,rtt_us\n--format\ncsv\n-o\nx",
      "a\nb\n--port\n53,5353\n--port\n853\n--separate-vlans\n-vv\n-q\n--strict\n--account\na.json",
      "f\n--set\nmax_open_requests=12abc\n--set\nenable_dnssec=true\n--set\nrequest_timeout_s=0\n--set\nx=y",
      "-i\neth0\n-i\nany\n--snaplen\n128\n--buffer\n2\n--no-promiscuous\n-Z\nnobody",
      "f\n--top\n25\n--format\njson\n--plugin\n./x.so",
      "--help",
      "f\n--prot\n53",
  };
  for (unsigned command = 0; command < 8; ++command) {
    for (const std::string& text : lines) folder.Add(Write().U8(command).Bytes(text).bytes);
  }
}

Write Exchange(unsigned bits, const std::string& question, const std::string& response,
               const std::string& answers) {
  Write input;
  input.U8(bits);
  if ((bits & 64) != 0) {
    input.U64(UINT64_C(0x7fffffffffffffff)).U64(UINT64_C(0x8000000000000000)).U64(UINT64_C(0x8000000000000000));
  } else {
    input.U32(1700000000).U32(2000).U16(2000);
  }
  input.U16(40000).U16(53).U16(3).U16(0x8580).U16(40).U32(100).U8(1);
  input.U8(0).U32(0xc0000201U).U8(1);
  for (unsigned i = 0; i < 16; ++i) input.U8(i < 4 ? 0x20 + i : 0);
  input.U8(2).U16(5).U16(6).U8(5).U32(77);
  input.LongText(question);
  if ((bits & 3) != 1) input.LongText(response);
  return input.Text("A - IPv4 address lookup").LongText(answers);
}

void WriteExchanges(Folder folder) {
  const std::string odd("\x01\x1b\"\\,\r\n\xff\0 '", 11);
  std::vector<std::string> questions = Queries();
  questions.push_back(Query(1).Question(R"(a\.b\"\027c)", test::kTxt).Wire());
  for (size_t i = 0; i < questions.size(); ++i) {
    for (const unsigned bits : {32U, 1U, 66U}) {
      Write input;
      input.U8(80).Text("parser:dns uop:0 zqd:1").U8(bits == 1 ? 0x80 : 0);
      input.Bytes(
          Exchange(bits, questions[i], Responses()[i % Responses().size()], "[www.example => 192.0.2.80]" + odd)
              .bytes);
      input.Text("www.example").Text("asked.example").U8(0).U32(0xc0000201U).U64(1'700'000'000'000'000'000);
      folder.Add(input.bytes);
    }
  }
}

// Markup in titles, names and answers; then keys on terminals of several sizes.
void WritePages(Folder folder) {
  const std::string markup = R"(</td><script>alert("x")</script>&lt;<img src=x onerror='y'>)";
  std::vector<std::string> questions = Queries();
  questions.push_back(Query(1).Question(R"(<b>&\034\039\027[2J</b>)", test::kTxt).Wire());
  for (const unsigned bits : {0x81U, 0x83U, 1U}) {
    for (size_t i = 0; i < questions.size(); ++i) {
      Write input;
      input.U8(bits).Text(markup).Text("\x1b]2;x.pcap");
      for (size_t each = 0; each <= bits % 8; ++each) {
        const unsigned kind = each == 0 ? 32U : each == 1 ? 1U : 66U;
        input.Bytes(
            Exchange(kind, questions[(i + each) % questions.size()], Responses()[i % Responses().size()], markup)
                .bytes);
        input.U16(20);
      }
      for (const char key : {'x', 'a', 'o', 'w', '\t', 'h'}) {
        input.U8(static_cast<unsigned char>(key)).U8(key == 'o' ? 7 : 80).U8(key == 'w' ? 3 : 24);
        input.Text("eth0 \x1b[2J").U64(1'700'000'000'000'000'000).U64(1000).U64(3);
      }
      folder.Add(input.bytes);
    }
  }
}

void WriteAll(const fs::path& samples, const fs::path& place) {
  WriteMessages(Folder(place / "message"));
  WriteStreams(Folder(place / "stream"));
  WriteNames(Folder(place / "names"));
  WritePackets(Folder(place / "packet"));
  WriteFragments(Folder(place / "fragments"));
  WriteSegments(Folder(place / "tcp"));
  WriteCaptures(Folder(place / "capture"), samples);
  WriteOptions(Folder(place / "options"));
  WriteExchanges(Folder(place / "writers"));
  WritePages(Folder(place / "pages"));
}

}  // namespace
}  // namespace fuzz

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: fuzz_seeds SAMPLES FOLDER\n");
    return 2;
  }
  try {
    fuzz::WriteAll(argv[1], argv[2]);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
  return 0;
}
