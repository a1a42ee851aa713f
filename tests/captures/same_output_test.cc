// The same packets give the same bytes of output, however they reach the program.
#include <doctest/doctest.h>

#include <algorithm>
#include <memory>

#include "tests/captures/cases.h"
#include "tests/support/compress.h"

using namespace test;

namespace {

// Traffic with something of everything, in time order: some hundred exchanges, repeated queries, time-outs,
// fragments, a TCP connection, IPv6, tags and packets without DNS.
Capture Mixed() {
  Capture capture;
  Connection connection(kClient6, kServer6);
  capture.Packet(0, connection.ClientSyn()).Packet(0, connection.ServerSyn());
  int64_t now = 0;
  for (unsigned id = 1; id <= 300; ++id) {
    now += 37 * kMs;
    const Endpoint client{id % 3 == 0 ? "2001:db8::1" : "192.0.2.1", static_cast<uint16_t>(1024 + id % 50)};
    const Endpoint& server = id % 3 == 0 ? kServer6 : kServer;
    const std::string name = "n" + std::to_string(id) + ".example";
    capture.Udp(now, client, server, Ask(id, name));
    if (id % 7 == 0) continue;  // never answered
    if (id % 5 == 0) capture.Udp(now + kMs, client, server, Ask(id, name));
    if (id % 11 == 0) capture.Packet(now + 2 * kMs, connection.Client(Ask(id, name).TcpWire()));
    if (id % 11 == 0) capture.Packet(now + 3 * kMs, connection.Server(Say(id, name).TcpWire()));
    const auto answer = Say(id, name).Answer(name, test::Txt(std::string(id % 200, 'x')));
    for (const auto& piece : UdpPacket(test::Ethernet().Vlan(5), server, client, answer).Fragments(80, id)) {
      capture.Frame(now + 5 * kMs, piece);
    }
    capture.Nothing(now + 6 * kMs);
  }
  return capture;
}

std::string OutputOf(const std::vector<std::string>& arguments, const std::string& input = {}) {
  const ReadRun run = RunRead(arguments, input);
  CHECK(run.exit_code == 0);
  CHECK(run.errors == "");
  CHECK(WrongSums(run.account) == "");
  return run.output;
}

// Where two outputs differ, in few words; "" when they are the same bytes.
std::string Difference(const std::string& one, const std::string& other) {
  if (one == other) return "";
  const auto at =
      static_cast<size_t>(std::mismatch(one.begin(), one.end(), other.begin(), other.end()).first - one.begin());
  return "at byte " + std::to_string(at) + ": " + one.substr(at, 40) + " against " +
         (at < other.size() ? other.substr(at, 40) : "the end");
}

// What the program says of the capture as one plain file.
std::string PlainOutput(const Capture& capture) {
  const TemporaryFile file(capture.Pcap());
  return OutputOf({file.path});
}

}  // namespace

TEST_CASE("the mixed capture holds what it is for") {
  const Result result = Read(Mixed());
  CHECK(result.account["exchanges"]["answered"] > 200);
  CHECK(result.account["exchanges"]["timeout"] > 0);
  CHECK(result.account["exchanges"]["open"] > 0);
  CHECK(result.account["messages"]["tcp"] > 0);
  CHECK(result.account["details"]["fragments_reassembled"] > 0);
  CHECK(result.account["details"]["retransmits"] > 0);
}

TEST_CASE("pcap, pcapng, gzip, zstd and pipes give the same bytes") {
  const Capture capture = Mixed();
  const std::string expected = PlainOutput(capture);
  const std::string pcap = capture.Pcap();
  const std::string pcapng = capture.Pcapng();
  for (const std::string& bytes : {pcapng, Gzip(pcap), Zstd(pcap), Gzip(pcapng), Zstd(pcapng)}) {
    const TemporaryFile file(bytes);
    CHECK(Difference(OutputOf({file.path}), expected) == "");
    CHECK(Difference(OutputOf({"-"}, bytes), expected) == "");
  }
  CHECK(Difference(OutputOf({"-"}, pcap), expected) == "");
}

TEST_CASE("a file in pieces gives the same bytes, wherever it was cut and in whatever order the pieces are named") {
  const Capture capture = Mixed();
  const std::string expected = PlainOutput(capture);
  const size_t all = capture.frames.size();
  for (const size_t size : {all / 2, all / 7, size_t{101}}) {
    std::vector<std::unique_ptr<TemporaryFile>> pieces;
    std::vector<std::string> paths;
    for (size_t first = 0; first < all; first += size) {
      const std::string bytes = capture.Pcap(first, std::min(all, first + size));
      pieces.push_back(std::make_unique<TemporaryFile>(pieces.size() % 2 == 0 ? bytes : Gzip(bytes)));
      paths.push_back(pieces.back()->path);
    }
    CHECK(Difference(OutputOf(paths), expected) == "");
  }
}

TEST_CASE("reads of any size give the same bytes") {
  const Capture capture = Mixed();
  const std::string expected = PlainOutput(capture);
  const std::string pcap = capture.Pcap();
  for (const size_t size : {size_t{61}, size_t{1021}, size_t{16384}}) {
    CHECK(Difference(RunRead({"-"}, pcap, size).output, expected) == "");
  }
  const Capture small = [] {
    Capture some;
    some.Udp(0, kClient, kServer, Ask(7)).Udp(kMs, kServer, kClient, Say(7));
    return some;
  }();
  CHECK(Difference(RunRead({"-"}, small.Pcap(), 1).output, PlainOutput(small)) == "");
  CHECK(Difference(RunRead({"-"}, Gzip(small.Pcap()), 1).output, PlainOutput(small)) == "");
  CHECK(Difference(RunRead({"-"}, Zstd(small.Pcap()), 1).output, PlainOutput(small)) == "");
}

TEST_CASE("two runs give the same bytes") {
  const Capture capture = Mixed();
  CHECK(Difference(PlainOutput(capture), PlainOutput(capture)) == "");
}
