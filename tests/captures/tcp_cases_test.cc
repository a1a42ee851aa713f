// DNS over TCP: messages and segments that do not go together, and connections seen in part.
#include <doctest/doctest.h>

#include "tests/captures/cases.h"

using namespace test;
using test::kAck;
using test::kFin;
using test::kRst;

namespace {

// A connection with its handshake at the beginning of the capture.
Connection Opened(Capture* capture) {
  Connection connection(kClient, kServer);
  capture->Packet(0, connection.ClientSyn()).Packet(1, connection.ServerSyn());
  return connection;
}

}  // namespace

TEST_CASE("pipelined queries are answered in any order") {
  Capture capture;
  Connection connection = Opened(&capture);
  capture.Packet(kMs, connection.Client(Ask(1).TcpWire() + Ask(2).TcpWire()));
  capture.Packet(2 * kMs, connection.Client(Ask(3).TcpWire()));
  capture.Packet(10 * kMs, connection.Server(Say(3).TcpWire() + Say(1).TcpWire()));
  capture.Packet(20 * kMs, connection.Server(Say(2).TcpWire()));
  const Result result = Read(capture);
  CHECK(result.Brief() == "3 answered 8000, 1 answered 9000, 2 answered 19000");
  CHECK(result.records.at(0)["proto"] == "tcp");
  CHECK(result.records.at(0)["bytes_query"] == Ask(3).Wire().size());
}

TEST_CASE("a message in segments of a byte each is one message, at the time of its last byte") {
  Capture capture;
  Connection connection = Opened(&capture);
  int64_t now = kMs;
  for (const char byte : Ask(7).TcpWire()) capture.Packet(now += kMs, connection.Client(std::string(1, byte)));
  const int64_t asked = now;
  for (const char byte : Say(7).TcpWire()) capture.Packet(now += kMs, connection.Server(std::string(1, byte)));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered " + std::to_string((now - asked) / 1000));
  CHECK(result.account["messages"]["tcp"] == 2);
}

TEST_CASE("segments out of order, repeated and overlapping change no message") {
  Capture capture;
  Connection connection = Opened(&capture);
  const std::string queries = Ask(1).TcpWire() + Ask(2).TcpWire();
  const test::Packet head = connection.Client(queries.substr(0, 20));
  const test::Packet tail = connection.Client(queries.substr(20));
  capture.Packet(kMs, tail).Packet(2 * kMs, head).Packet(3 * kMs, head).Packet(4 * kMs, tail);
  capture.Packet(5 * kMs, connection.Server(Say(2).TcpWire() + Say(1).TcpWire()));
  const Result result = Read(capture);
  CHECK(result.Brief() == "2 answered 4000, 1 answered 3000");
  CHECK(result.account["details"]["tcp_retransmitted_bytes"] == queries.size());
}

TEST_CASE("an answer that waits for a lost one before it has the time of its own packet") {
  Capture capture;
  Connection connection = Opened(&capture);
  capture.Packet(kMs, connection.Client(Ask(1).TcpWire() + Ask(2).TcpWire()));
  const test::Packet lost = connection.Server(Say(1).TcpWire());
  capture.Packet(10 * kMs, connection.Server(Say(2).TcpWire())).Packet(90 * kMs, lost);
  CHECK(Read(capture).Brief() == "1 answered 89000, 2 answered 9000");
}

TEST_CASE("empty messages and keep-alive probes cost no other message") {
  Capture capture;
  Connection connection = Opened(&capture);
  capture.Packet(kMs, connection.Client(std::string(2, '\0') + Ask(7).TcpWire()));
  capture.Packet(2 * kMs, connection.KeepAlive(true)).Packet(2 * kMs, connection.KeepAlive(false));
  capture.Packet(3 * kMs, connection.Server(std::string(2, '\0') + Say(7).TcpWire() + std::string(2, '\0')));
  capture.Packet(4 * kMs, connection.Client(Ask(8).TcpWire())).Packet(5 * kMs, connection.Server(Say(8).TcpWire()));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered 2000, 8 answered 1000");
  CHECK(result.account["queries"]["refused"] == 1);
  CHECK(result.account["responses"]["refused"] == 2);
}

TEST_CASE("a refused message costs no other message of its segment") {
  Capture capture;
  Connection connection = Opened(&capture);
  const std::string rubbish = test::U16(5) + "hello";
  capture.Packet(kMs, connection.Client(Ask(1).TcpWire() + rubbish + Ask(2).TcpWire()));
  capture.Packet(2 * kMs, connection.Server(Say(1).TcpWire() + Say(2).TcpWire()));
  const Result result = Read(capture);
  CHECK(result.Brief() == "1 answered 1000, 2 answered 1000");
  CHECK(result.account["queries"]["refused"] == 1);
}

TEST_CASE("a connection joined in the middle of a message is followed from the next one") {
  Capture capture;
  Connection connection(kClient, kServer);
  const std::string torn = Ask(1, "torn.in.the.middle.example").TcpWire().substr(20);
  capture.Packet(0, connection.Client(torn)).Packet(kMs, connection.Client(Ask(2).TcpWire()));
  capture.Packet(2 * kMs, connection.Server(Say(2).TcpWire()));
  const Result result = Read(capture);
  CHECK(result.Brief() == "2 answered 1000");
  CHECK(result.account["details"]["tcp_skipped_bytes"] == torn.size());
}

TEST_CASE("a connection whose handshake was missed, answer first, has the right client") {
  Capture capture;
  Connection connection(kClient, kServer);
  capture.Packet(0, connection.Server(Say(1).TcpWire())).Packet(kMs, connection.Client(Ask(2).TcpWire()));
  capture.Packet(2 * kMs, connection.Server(Say(2).TcpWire()));
  const Result result = Read(capture);
  CHECK(result.Brief() == "2 answered 1000");
  CHECK(result.records.at(0)["client_ip"] == kClient.address);
  CHECK(result.account["responses"]["unsolicited"] == 1);
}

TEST_CASE("on port 53 at both ends the handshake tells who asks, whatever is said first") {
  const Endpoint resolver{"192.0.2.10", 53};
  Capture capture;
  Connection connection(resolver, kServer);
  capture.Packet(0, connection.ClientSyn()).Packet(1, connection.ServerSyn());
  capture.Packet(2, connection.Server(Ask(6).TcpWire()));
  capture.Packet(kMs, connection.Client(Ask(7).TcpWire())).Packet(2 * kMs, connection.Server(Say(7).TcpWire()));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered 1000");
  CHECK(result.records.at(0)["client_ip"] == resolver.address);
  CHECK(result.account["responses"]["refused"] == 1);
}

TEST_CASE("bytes lost inside an answer cut it, and the next answer is found") {
  Capture capture;
  Connection connection = Opened(&capture);
  const std::string answer = Say(1).Answer("a.example", test::Txt(std::string(200, 'x'))).TcpWire();
  capture.Packet(kMs, connection.Client(Ask(1).TcpWire() + Ask(2).TcpWire()));
  capture.Packet(2 * kMs, connection.Server(answer.substr(0, 100)));
  connection.Lose(false, 60);
  capture.Packet(3 * kMs, connection.Server(answer.substr(160) + Say(2).TcpWire()));
  capture.Nothing(4 * kSec);
  const Result result = Read(capture);
  CHECK(result.Brief() == "1 answered 1000, 2 answered 2000");
  CHECK(result.records.at(0)["cut"] == true);
  CHECK(result.records.at(0)["bytes_response"] == answer.size() - 2);
  CHECK(result.records.at(1)["cut"] == false);
  CHECK(result.account["details"]["tcp_gaps"] == 1);
  CHECK(result.account["lost"]["cut_messages"] == 1);
}

TEST_CASE("a lost length prefix costs the messages up to the next segment that begins with one") {
  Capture capture;
  Connection connection = Opened(&capture);
  capture.Packet(kMs, connection.Client(Ask(1).TcpWire() + Ask(2).TcpWire()));
  const std::string lost = Say(1).TcpWire();
  connection.Lose(false, 10);
  capture.Packet(2 * kMs, connection.Server(lost.substr(10))).Packet(3 * kMs, connection.Server(Say(2).TcpWire()));
  capture.Nothing(9 * kSec);
  const Result result = Read(capture);
  CHECK(result.Brief() == "2 answered 2000, 1 timeout");
  CHECK(result.account["details"]["tcp_skipped_bytes"] == lost.size() - 10);
}

TEST_CASE("segments that the capture cut cut their message alone") {
  Capture capture;
  Connection connection = Opened(&capture);
  const std::string answer = Say(1).Answer("a.example", test::Txt(std::string(200, 'x'))).TcpWire();
  capture.Packet(kMs, connection.Client(Ask(1).TcpWire() + Ask(2).TcpWire()));
  capture.Frame(2 * kMs, connection.Server(answer).Frame(), 120);
  capture.Packet(3 * kMs, connection.Server(Say(2).TcpWire()));
  const Result result = Read(capture);
  CHECK(result.Brief() == "1 answered 1000, 2 answered 2000");
  CHECK(result.records.at(0)["cut"] == true);
}

TEST_CASE("a message that the end of the capture tears off is counted, not reported") {
  Capture capture;
  Connection connection = Opened(&capture);
  capture.Packet(kMs, connection.Client(Ask(1).TcpWire() + Ask(2).TcpWire().substr(0, 20)));
  const Result result = Read(capture);
  CHECK(result.Brief().starts_with("1 open"));
  CHECK(result.account["details"]["tcp_unfinished_messages"] == 1);
}

TEST_CASE("an answer that crosses a reset is an answer, and what a reset says is no message") {
  Capture capture;
  Connection connection = Opened(&capture);
  capture.Packet(kMs, connection.Client(Ask(7).TcpWire()));
  capture.Packet(2 * kMs, connection.Client("go away", kRst | kAck));
  capture.Packet(3 * kMs, connection.Server(Say(7).TcpWire()));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered 2000");
  CHECK(result.account["details"]["tcp_resets"] == 1);
  CHECK(result.account["messages"]["tcp"] == 2);
}

TEST_CASE("ports used again at once by a new connection are followed anew") {
  Capture capture;
  Connection first = Opened(&capture);
  capture.Packet(kMs, first.Client(Ask(7).TcpWire())).Packet(2 * kMs, first.Server(Say(7).TcpWire(), kFin | kAck));
  capture.Packet(3 * kMs, first.Client("", kFin | kAck));
  Connection second(kClient, kServer);
  second.Lose(true, 100'000);
  second.Lose(false, 200'000);
  capture.Packet(4 * kMs, second.ClientSyn()).Packet(5 * kMs, second.ServerSyn());
  capture.Packet(6 * kMs, second.Client(Ask(7).TcpWire())).Packet(8 * kMs, second.Server(Say(7).TcpWire()));
  CHECK(Read(capture).Brief() == "7 answered 1000, 7 answered 2000");
}

TEST_CASE("the first message of a zone transfer ends its query, the others are unsolicited") {
  Capture capture;
  Connection connection = Opened(&capture);
  const auto part = Say(7, "a.example", test::kAxfr).Answer("a.example", test::Ns("ns.a.example"));
  capture.Packet(kMs, connection.Client(Ask(7, "a.example", test::kAxfr).TcpWire()));
  for (int i = 2; i <= 5; ++i) capture.Packet(i * kMs, connection.Server(part.TcpWire()));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered 1000");
  CHECK(result.account["responses"]["unsolicited"] == 3);
}
