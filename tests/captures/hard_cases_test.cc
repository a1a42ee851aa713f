// What users meet: identifiers, ports and answers over UDP that are not as one would wish. docs/pairing.md explains
// each case.
#include <doctest/doctest.h>

#include "tests/captures/cases.h"

using namespace test;
using test::kA;
using test::kAaaa;

TEST_CASE("a query and its response are one record, with the times of the capture") {
  Capture capture;
  capture.Udp(5, kClient, kServer, Ask(7));
  capture.Udp(20 * kMs + 1004, kServer, kClient, Say(7).Answer("a.example", test::A("192.0.2.80")).Rcode(0));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered 20001");
  CHECK(result.records.at(0)["query_ns"] == kStart + 5);
  CHECK(result.records.at(0)["response_ns"] == kStart + 20 * kMs + 1004);
  CHECK(result.records.at(0)["answers"] == "[a.example => 192.0.2.80]");
}

TEST_CASE("one identifier on other addresses, ports or transports is another exchange") {
  const Endpoint other_client{"192.0.2.2", 40000};
  const Endpoint other_port{"192.0.2.1", 40001};
  const Endpoint other_server{"192.0.2.54", 53};
  Capture capture;
  capture.Udp(0, kClient, kServer, Ask(7)).Udp(0, other_client, kServer, Ask(7));
  capture.Udp(0, other_port, kServer, Ask(7)).Udp(0, kClient, other_server, Ask(7));
  capture.Packet(0, Connection(kClient, kServer).Client(Ask(7).TcpWire()));
  capture.Udp(kMs, kServer, other_port, Say(7)).Udp(2 * kMs, other_server, kClient, Say(7));
  capture.Udp(3 * kMs, kServer, other_client, Say(7)).Udp(4 * kMs, kServer, kClient, Say(7));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered 1000, 7 answered 2000, 7 answered 3000, 7 answered 4000, 7 open");
  CHECK(result.records.at(0)["client_port"] == 40001);
  CHECK(result.records.at(1)["server_ip"] == "192.0.2.54");
  CHECK(result.records.at(2)["client_ip"] == "192.0.2.2");
  CHECK(result.records.at(4)["proto"] == "tcp");
}

TEST_CASE("a query that is sent again is one exchange, timed from the first") {
  Capture capture;
  capture.Udp(0, kClient, kServer, Ask(7))
      .Udp(kSec, kClient, kServer, Ask(7))
      .Udp(3 * kSec, kClient, kServer, Ask(7));
  capture.Udp(3 * kSec + kMs, kServer, kClient, Say(7));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered 3001000");
  CHECK(result.records.at(0)["retransmits"] == 2);
  CHECK(result.account["queries"]["duplicates"] == 2);
  CHECK(result.account["details"]["retransmits"] == 2);
  CHECK(result.account["lost"].empty());
}

TEST_CASE("another question under an open identifier is counted, and the older query stands") {
  Capture capture;
  capture.Udp(0, kClient, kServer, Ask(7, "first.example")).Udp(kMs, kClient, kServer, Ask(7, "second.example"));
  capture.Udp(2 * kMs, kServer, kClient, Say(7, "second.example"));
  capture.Udp(3 * kMs, kServer, kClient, Say(7, "first.example"));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered 2000");
  CHECK(result.records.at(0)["qname"] == "first.example");
  CHECK(result.records.at(0)["question_mismatch"] == true);
  CHECK(result.records.at(0)["retransmits"] == 0);
  CHECK(result.account["queries"]["duplicates"] == 1);
  CHECK(result.account["responses"]["unsolicited"] == 1);
  CHECK(result.account["lost"]["superseded_queries"] == 1);
}

TEST_CASE("two queries from one port are answered in any order") {
  Capture capture;
  capture.Udp(0, kClient, kServer, Ask(7)).Udp(kMs, kClient, kServer, Ask(8, "a.example", kAaaa));
  capture.Udp(10 * kMs, kServer, kClient, Say(8, "a.example", kAaaa)).Udp(20 * kMs, kServer, kClient, Say(7));
  const Result result = Read(capture);
  CHECK(result.Brief() == "8 answered 9000, 7 answered 20000");
  CHECK(result.records.at(0)["qtype"] == "AAAA");
}

TEST_CASE("an answer before its query is unsolicited, and the query is never answered by it") {
  Capture capture;
  capture.Udp(0, kServer, kClient, Say(7)).Udp(kMs, kClient, kServer, Ask(7)).Nothing(10 * kSec);
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 timeout");
  CHECK(result.account["responses"]["unsolicited"] == 1);
}

TEST_CASE("of two answers the first counts, and the second is unsolicited") {
  Capture capture;
  capture.Udp(0, kClient, kServer, Ask(7)).Udp(kMs, kServer, kClient, Say(7).Rcode(2));
  capture.Udp(2 * kMs, kServer, kClient, Say(7)).Udp(3 * kMs, kClient, kServer, Ask(7));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered 1000, 7 open");
  CHECK(result.records.at(0)["rcode"] == "SERVFAIL");
  CHECK(result.account["responses"]["unsolicited"] == 1);
}

TEST_CASE("an answer that nobody asked for touches no open query") {
  Capture capture;
  capture.Udp(0, kClient, kServer, Ask(7)).Udp(kMs, kServer, kClient, Say(9));
  capture.Udp(2 * kMs, kServer, kClient, Say(7));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered 2000");
  CHECK(result.account["responses"]["unsolicited"] == 1);
}

TEST_CASE("a query without an answer times out, once, with its own time") {
  Capture capture;
  capture.Udp(300 * kMs, kClient, kServer, Ask(7)).Nothing(7 * kSec).Nothing(20 * kSec);
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 timeout");
  CHECK(result.records.at(0)["query_ns"] == kStart + 300 * kMs);
  CHECK(result.records.at(0)["result_code"] == -1);
  CHECK_FALSE(result.records.at(0).contains("response_ns"));
  CHECK_FALSE(result.records.at(0).contains("rcode"));
}

TEST_CASE("time-outs are noticed on whole seconds, before the packet that crosses one") {
  Capture in_time;
  in_time.Udp(300 * kMs, kClient, kServer, Ask(7)).Udp(6 * kSec - 1, kServer, kClient, Say(7));
  CHECK(Read(in_time).Brief() == "7 answered 5699999");
  Capture late;
  late.Udp(300 * kMs, kClient, kServer, Ask(7)).Udp(6 * kSec, kServer, kClient, Say(7));
  const Result result = Read(late);
  CHECK(result.Brief() == "7 timeout");
  CHECK(result.account["responses"]["unsolicited"] == 1);
}

TEST_CASE("the time-out is the one that was set") {
  Capture capture;
  capture.Udp(0, kClient, kServer, Ask(7)).Nothing(2 * kSec).Nothing(3 * kSec);
  capture.Udp(9 * kSec, kServer, kClient, Say(7));
  CHECK(Read(capture, {"--set", "request_timeout_s=1"}).Brief() == "7 timeout");
  CHECK(Read(capture, {"--set", "request_timeout_s=60"}).Brief() == "7 answered 9000000");
}

TEST_CASE("an identifier used again after a time-out is a new exchange") {
  Capture capture;
  capture.Udp(0, kClient, kServer, Ask(7, "old.example"));
  capture.Udp(8 * kSec, kClient, kServer, Ask(7, "new.example"));
  capture.Udp(8 * kSec + kMs, kServer, kClient, Say(7, "new.example"));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 timeout, 7 answered 1000");
  CHECK(result.records.at(0)["qname"] == "old.example");
  CHECK(result.records.at(1)["qname"] == "new.example");
  CHECK(result.records.at(1)["question_mismatch"] == false);
}

TEST_CASE("a late answer that meets a new query of its identifier is taken, and told apart by its question") {
  Capture capture;
  capture.Udp(0, kClient, kServer, Ask(7, "old.example"));
  capture.Udp(8 * kSec, kClient, kServer, Ask(7, "new.example"));
  capture.Udp(8 * kSec + kMs, kServer, kClient, Say(7, "old.example"));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 timeout, 7 answered 1000");
  CHECK(result.records.at(1)["qname"] == "new.example");
  CHECK(result.records.at(1)["question_mismatch"] == true);
}

TEST_CASE("a question in other letters is the same question") {
  Capture capture;
  capture.Udp(0, kClient, kServer, Ask(7, "A.ExAmple")).Udp(kMs, kServer, kClient, Say(7, "a.example"));
  const Result result = Read(capture);
  CHECK(result.records.at(0)["question_mismatch"] == false);
  CHECK(result.records.at(0)["qname"] == "A.ExAmple");
}

TEST_CASE("an answer without a question takes the query's, and is no mismatch") {
  Capture capture;
  capture.Udp(0, kClient, kServer, Ask(7));
  capture.Udp(kMs, kServer, kClient, test::Response(7).Additional(test::Opt({.extended_rcode = 1})).Flags(0x8000));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered 1000");
  CHECK(result.records.at(0)["qname"] == "a.example");
  CHECK(result.records.at(0)["rcode"] == "BADVERS");
  CHECK(result.records.at(0)["result_code"] == 0);
  CHECK(result.records.at(0)["question_mismatch"] == false);
}

TEST_CASE("notify and update messages and queries without a question open nothing and are counted") {
  Capture capture;
  capture.Udp(0, kClient, kServer, Ask(1).Opcode(4)).Udp(kMs, kServer, kClient, Say(1).Opcode(4));
  capture.Udp(0, kClient, kServer, Ask(2).Opcode(5)).Udp(kMs, kServer, kClient, Say(2).Opcode(5));
  capture.Udp(0, kClient, kServer, test::Query(3)).Udp(kMs, kServer, kClient, test::Response(3));
  const Result result = Read(capture);
  CHECK(result.records.empty());
  CHECK(result.account["queries"]["ignored"] == 3);
  CHECK(result.account["responses"]["ignored"] == 2);
  CHECK(result.account["responses"]["unsolicited"] == 1);
}

TEST_CASE("bytes that are no DNS are refused and harm nothing") {
  Capture capture;
  capture.Udp(0, kClient, kServer, Ask(7));
  capture.Packet(kMs, WithIp(test::Ethernet(), kClient, kServer).Udp(40000, 53).Text("hello"));
  capture.Packet(kMs, WithIp(test::Ethernet(), kServer, kClient).Udp(53, 40000).Text("hello, this is no DNS"));
  capture.Udp(2 * kMs, kServer, kClient, Say(7));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered 2000");
  CHECK(result.account["queries"]["refused"] == 1);
  CHECK(result.account["responses"]["refused"] == 1);
}

TEST_CASE("a capture of queries alone shows each as never answered") {
  Capture capture;
  for (unsigned id = 1; id <= 3; ++id) capture.Udp(id * 4 * kSec, kClient, kServer, Ask(id));
  const Result result = Read(capture);
  CHECK(result.Brief() == "1 timeout, 2 open, 3 open");
  CHECK(result.account["responses"]["total"] == 0);
}

TEST_CASE("a capture of answers alone has no exchange, and says why") {
  Capture capture;
  for (unsigned id = 1; id <= 3; ++id) capture.Udp(id * kSec, kServer, kClient, Say(id));
  const Result result = Read(capture);
  CHECK(result.records.empty());
  CHECK(result.account["responses"]["unsolicited"] == 3);
}

TEST_CASE("a query left open by the end of the input is open, and not timed out") {
  Capture capture;
  capture.Udp(0, kClient, kServer, Ask(7)).Nothing(4 * kSec);
  const Result open = Read(capture);
  CHECK(open.Brief() == "7 open");
  CHECK(open.records.at(0)["result_code"] == -1);
  CHECK(open.account["exchanges"]["open"] == 1);
  capture.Nothing(5 * kSec + kMs);  // the second 5 has not made it too old, the end does
  CHECK(Read(capture).Brief() == "7 timeout");
}

TEST_CASE("a full table drops queries by name") {
  Capture capture;
  for (unsigned id = 1; id <= 3; ++id) capture.Udp(0, kClient, kServer, Ask(id));
  for (unsigned id = 1; id <= 3; ++id) capture.Udp(kMs, kServer, kClient, Say(id));
  const Result result = Read(capture, {"--set", "max_open_requests=2"});
  CHECK(result.Brief() == "1 answered 1000, 2 answered 1000");
  CHECK(result.account["queries"]["table_full"] == 1);
  CHECK(result.account["lost"]["table_full_queries"] == 1);
}
