// Answers in IP fragments, and packets that the capture cut.
#include <doctest/doctest.h>

#include <algorithm>

#include "tests/captures/cases.h"

using namespace test;

namespace {

test::Message LongAnswer(unsigned id) {
  return Say(id).Answer("a.example", test::Txt(std::string(250, 'x'), std::string(250, 'y')));
}

// A query, and its answer in fragments, in their own order.
struct Fragmented {
  Fragmented(const Endpoint& from, const Endpoint& to) : client(from), server(to) {
    capture.Udp(0, client, server, Ask(7));
    pieces = UdpPacket(test::Ethernet(), server, client, LongAnswer(7)).Fragments(200, 4711);
  }

  Endpoint client;
  Endpoint server;
  std::vector<test::Bytes> pieces;
  Capture capture;
};

const std::vector<std::pair<Endpoint, Endpoint>>& BothVersions() {
  static const std::vector<std::pair<Endpoint, Endpoint>> kBoth = {{kClient, kServer}, {kClient6, kServer6}};
  return kBoth;
}

}  // namespace

TEST_CASE("an answer in fragments counts when its last piece has come, in whatever order") {
  for (const auto& [client, server] : BothVersions()) {
    for (const bool reversed : {false, true}) {
      Fragmented made(client, server);
      REQUIRE(made.pieces.size() == 3);
      if (reversed) std::reverse(made.pieces.begin(), made.pieces.end());
      for (size_t i = 0; i < 3; ++i) made.capture.Frame(static_cast<int64_t>(i + 1) * kMs, made.pieces[i]);
      const Result result = Read(made.capture);
      CHECK(result.Brief() == "7 answered 3000");
      CHECK(result.records.at(0)["cut"] == false);
      CHECK(result.records.at(0)["bytes_response"] == LongAnswer(7).Wire().size());
      CHECK(result.account["details"]["fragments_reassembled"] == 1);
    }
  }
}

TEST_CASE("an answer of which only the first fragment was captured is a cut answer, at that fragment's time") {
  // At the end of the input; with traffic behind it; after a silence longer than the time-out.
  const std::vector<std::vector<int64_t>> endings = {{}, {3 * kSec, 9 * kSec}, {90 * kSec}};
  for (const auto& [client, server] : BothVersions()) {
    for (const std::vector<int64_t>& ending : endings) {
      Fragmented made(client, server);
      made.capture.Frame(kMs, made.pieces[0]);
      for (const int64_t at_ns : ending) made.capture.Nothing(at_ns);
      const Result result = Read(made.capture);
      CHECK(result.Brief() == "7 answered 1000");
      CHECK(result.records.at(0)["cut"] == true);
      CHECK(result.account["details"]["fragments_cut_datagrams"] == 1);
      CHECK(result.account["lost"]["fragments"] == 1);
      CHECK(result.account["lost"]["cut_messages"] == 1);
    }
  }
}

TEST_CASE("an answer that had to make room for other fragments is a cut answer") {
  Fragmented made(kClient, kServer);
  made.capture.Frame(kMs, made.pieces[0]);
  for (uint16_t id = 0; id < 4096; ++id) {
    made.capture.Frame(
        2 * kMs,
        UdpPacket(test::Ethernet(), kServer, {"192.0.2.2", 4000}, LongAnswer(id)).Fragments(200, id).front());
  }
  made.capture.Udp(3 * kMs, kClient, kServer, Ask(7));
  const Result result = Read(made.capture);
  CHECK(result.Brief() == "7 answered 1000, 7 open");
  CHECK(result.account["lost"]["fragments"] == 4097);
}

TEST_CASE("an answer without its first fragment cannot be told, and its query times out") {
  for (const auto& [client, server] : BothVersions()) {
    Fragmented made(client, server);
    made.capture.Frame(kMs, made.pieces[1]).Frame(2 * kMs, made.pieces[2]).Nothing(9 * kSec);
    const Result result = Read(made.capture);
    CHECK(result.Brief() == "7 timeout");
    CHECK(result.account["lost"]["fragments"] == 2);
  }
}

TEST_CASE("a query in fragments is a query") {
  Capture capture;
  auto query = Ask(7).Additional(test::Opt({.options = std::string(300, '\0')}));
  int64_t now = 0;
  for (const auto& piece : UdpPacket(test::Ethernet(), kClient, kServer, query).Fragments(104, 9)) {
    capture.Frame(now += kMs, piece);
  }
  capture.Udp(now + kMs, kServer, kClient, Say(7));
  CHECK(Read(capture).Brief() == "7 answered 1000");
}

TEST_CASE("an answer that the capture cut is answered, and said to be cut") {
  Capture capture;
  capture.Udp(0, kClient, kServer, Ask(7));
  capture.Frame(kMs, UdpPacket(test::Ethernet(), kServer, kClient, LongAnswer(7)).Frame(), 96);
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered 1000");
  CHECK(result.records.at(0)["cut"] == true);
  CHECK(result.records.at(0)["bytes_response"] == LongAnswer(7).Wire().size());
}

TEST_CASE("a query cut before the end of its question is counted as ignored") {
  Capture capture;
  const test::Bytes query = UdpPacket(test::Ethernet(), kClient, kServer, Ask(7)).Frame();
  capture.Frame(0, query, query.size() - 3).Udp(kMs, kServer, kClient, Say(7));
  const Result result = Read(capture);
  CHECK(result.records.empty());
  CHECK(result.account["queries"]["ignored"] == 1);
  CHECK(result.account["responses"]["unsolicited"] == 1);
}

TEST_CASE("padding behind a datagram is no part of its message") {
  Capture capture;
  capture.Packet(0, UdpPacket(test::Ethernet(), kClient, kServer, Ask(7)).Padding(20));
  capture.Packet(kMs, UdpPacket(test::Ethernet(), kServer, kClient, Say(7)).Padding(6));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered 1000");
  CHECK(result.records.at(0)["bytes_query"] == Ask(7).Wire().size());
}

TEST_CASE("a capture that breaks off in a packet delivers what came before, and says where") {
  Capture capture;
  capture.Udp(0, kClient, kServer, Ask(7))
      .Udp(kMs, kServer, kClient, Say(7))
      .Udp(2 * kMs, kClient, kServer, Ask(8));
  std::string bytes = capture.Pcap();
  const size_t last = capture.Pcap(0, 2).size();
  bytes.resize(bytes.size() - 5);
  const TemporaryFile file(bytes);
  const ReadRun run = RunRead({file.path});
  CHECK(run.exit_code == 1);
  CHECK(run.errors.starts_with("dnspair: " + file.path + ":" + std::to_string(last) + ": "));
  CHECK(Result{run.Records(), run.account}.Brief() == "7 answered 1000");
  CHECK(WrongSums(run.account) == "");
}
