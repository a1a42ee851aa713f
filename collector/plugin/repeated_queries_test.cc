#include <doctest/doctest.h>

#include <string>

#include "collector/plugin/pairing.h"
#include "collector/plugin/testdata/parser_bench.h"

// Identifiers that are used more than once, by one client or by several.
namespace plugin {
namespace {

using test::A;
using test::kA;
using test::kAaaa;
using test::kAxfr;

}  // namespace

TEST_CASE("a query that is repeated while it is open is a retransmission, and the older one stands") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  bench.Query(flow, Ask(7).Wire(), kStart);
  bench.Query(flow, Ask(7, "AA.bb").Wire(), kStart + kSecond);
  bench.Query(flow, Ask(7).Wire(), kStart + 2 * kSecond);
  bench.Response(flow, Reply(7).Wire(), kStart + 3 * kSecond);
  REQUIRE(bench.exchanges().size() == 1);
  CHECK(bench.exchanges()[0]->retransmits == 2);
  CHECK(bench.exchanges()[0]->query_time_ns == kStart);
  CHECK(bench.exchanges()[0]->rtt_us == 3000000);
  CHECK(bench.exchanges()[0]->request_id == 1);
  CHECK(bench.counts().begun == 1);
  CHECK(bench.counts().duplicates == 2);
  CHECK(bench.counts().retransmits == 2);
  bench.session.Finish();
  CHECK(bench.exchanges().size() == 1);
}

TEST_CASE("an identifier that is open already with another question is a duplicate, but no retransmission") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  bench.Query(flow, Ask(7, "aa.bb").Wire());
  bench.Query(flow, Ask(7, "cc.bb").Wire());
  bench.Query(flow, Ask(7, "aa.bb", kAaaa).Wire());
  bench.Response(flow, Reply(7, "cc.bb").Wire());
  REQUIRE(bench.exchanges().size() == 1);
  CHECK(bench.exchanges()[0].question == QuestionWire("aa.bb", kA));
  CHECK(bench.exchanges()[0]->retransmits == 0);
  CHECK(bench.exchanges()[0]->question_mismatch);
  CHECK(bench.counts().duplicates == 2);
  CHECK(bench.counts().retransmits == 0);
  CHECK(bench.counts().question_mismatches == 1);
}

TEST_CASE("an identifier is free again once it is answered") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  for (int i = 0; i < 3; ++i) {
    bench.Query(flow, Ask(7).Wire());
    bench.Response(flow, Reply(7).Wire());
  }
  CHECK(bench.exchanges().size() == 3);
  CHECK(bench.counts().begun == 3);
  CHECK(bench.counts().duplicates == 0);
}

TEST_CASE("the same identifier in two flows is two exchanges") {
  ParserBench bench;
  flow::Flow* one = bench.NewFlow();
  flow::Flow* two = bench.NewFlow();
  bench.Query(one, Ask(7, "one").Wire());
  bench.Query(two, Ask(7, "two").Wire());
  bench.Response(two, Reply(7, "two").Wire());
  bench.Response(one, Reply(7, "one").Wire());
  REQUIRE(bench.exchanges().size() == 2);
  CHECK(bench.exchanges()[0].question == QuestionWire("two", kA));
  CHECK(bench.exchanges()[0]->client_port == 40002);
  CHECK(bench.exchanges()[1].question == QuestionWire("one", kA));
  CHECK(bench.counts().duplicates == 0);
}

TEST_CASE("answers come in any order, and repetitions are recognised among many open queries") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  for (unsigned id = 1; id <= 3; ++id) bench.Query(flow, Ask(id).Wire());
  CHECK(flow->open_queries == 3);
  bench.Query(flow, Ask(1).Wire());
  bench.Query(flow, Ask(3).Wire());
  for (const unsigned id : {3U, 1U, 2U}) bench.Response(flow, Reply(id).Wire());
  REQUIRE(bench.exchanges().size() == 3);
  CHECK(bench.exchanges()[0]->dns_id == 3);
  CHECK(bench.exchanges()[0]->retransmits == 1);
  CHECK(bench.exchanges()[1]->dns_id == 1);
  CHECK(bench.exchanges()[1]->retransmits == 1);
  CHECK(bench.exchanges()[2]->retransmits == 0);
  CHECK(flow->open_queries == 0);
}

TEST_CASE("one flow can hold all identifiers open") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  for (unsigned id = 0; id < 65536; ++id) bench.Query(flow, Ask(id).Wire());
  bench.Query(flow, Ask(4711).Wire());
  CHECK(bench.counts().begun == 65536);
  CHECK(bench.counts().table_full == 1);
  CHECK(flow->open_queries == 65536);
  for (unsigned id = 0; id < 65536; ++id) bench.Response(flow, Reply(id * 7919 % 65536).Wire());
  CHECK(bench.counts().answered == 65536);
  CHECK(bench.exchanges().size() == 65536);
  CHECK(flow->open_queries == 0);
  CheckSums(bench.counts());
}

TEST_CASE("of a zone transfer the first message answers and the others are unsolicited") {
  ParserBench bench("enable_axfr", "true");
  flow::Flow* flow = bench.NewFlow(kTransportTcp);
  bench.Query(flow, Ask(7, "bb", kAxfr).TcpWire());
  const test::Message part = Reply(7, "bb", kAxfr).Answer("aa.bb", A("192.0.2.1")).Answer("cc.bb", A("192.0.2.2"));
  for (int i = 0; i < 3; ++i) bench.Response(flow, part.TcpWire());
  REQUIRE(bench.exchanges().size() == 1);
  CHECK(bench.exchanges()[0].answers == "2 records");
  CHECK(bench.counts().answered == 1);
  CHECK(bench.counts().unsolicited == 2);
  CHECK(bench.counts().mappings == 0);
  CheckSums(bench.counts());
}

}  // namespace plugin
