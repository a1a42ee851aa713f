#include <doctest/doctest.h>

#include <array>
#include <string>
#include <utility>

#include "collector/plugin/pairing.h"
#include "collector/plugin/testdata/parser_bench.h"

// How exchanges end.
namespace plugin {
namespace {

using test::A;
using test::kA;
using test::Opt;
using test::Pointer;

}  // namespace

TEST_CASE("a cut query whose question is there begins an exchange that says so") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  const std::string query = Ask(7).Additional(Opt()).Wire();
  bench.Feed(flow, true, query, kStart, query.size() - 5);
  bench.Response(flow, Reply(7).Wire());
  REQUIRE(bench.exchanges().size() == 1);
  CHECK(bench.exchanges()[0]->cut);
  CHECK(bench.exchanges()[0]->bytes_query == static_cast<int64_t>(query.size()));
  CHECK(bench.counts().cut == 1);
}

TEST_CASE("a response whose answers cannot be decoded is malformed, with the response code on the wire") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  bench.Query(flow, Ask(7).Wire());
  bench.Response(flow, Reply(7).Answer(Pointer(2), A("192.0.2.1")).Additional(Opt({.extended_rcode = 1})).Wire());
  REQUIRE(bench.exchanges().size() == 1);
  CHECK(bench.exchanges()[0]->status == Status::kMalformed);
  CHECK(bench.exchanges()[0]->has_response);
  CHECK(bench.exchanges()[0]->result_code == -2);
  CHECK(bench.exchanges()[0]->rcode == 16);
  CHECK(bench.exchanges()[0].pattern == "A - IPv4 address lookup");
  CHECK(bench.counts().answered == 1);
  CHECK(bench.counts().malformed == 1);
}

TEST_CASE("a cut response with undecodable answers is malformed all the same") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  bench.Query(flow, Ask(7).Wire());
  const std::string response = Reply(7).Answer(Pointer(2), A("192.0.2.1")).Bytes("more").Wire();
  bench.Feed(flow, false, response, kStart, response.size() - 2);
  REQUIRE(bench.exchanges().size() == 1);
  CHECK(bench.exchanges()[0]->status == Status::kMalformed);
  CHECK(bench.exchanges()[0]->cut);
}

TEST_CASE("a whole response that ends too early is malformed, one that the capture cut is answered") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  const std::string response = Reply(7).Answer("aa.bb", A("192.0.2.1")).Wire();
  bench.Query(flow, Ask(7).Wire());
  bench.Response(flow, response.substr(0, response.size() - 2));
  bench.Query(flow, Ask(7).Wire());
  bench.Feed(flow, false, response, kStart, response.size() - 2);
  REQUIRE(bench.exchanges().size() == 2);
  CHECK(bench.exchanges()[0]->status == Status::kMalformed);
  CHECK(bench.exchanges()[0]->result_code == 0);
  CHECK_FALSE(bench.exchanges()[0]->cut);
  CHECK(bench.exchanges()[1]->status == Status::kAnswered);
  CHECK(bench.exchanges()[1]->cut);
  CHECK(bench.exchanges()[1]->bytes_response == static_cast<int64_t>(response.size()));
  CHECK(bench.counts().malformed == 1);
  CHECK(bench.counts().answered == 2);
}

TEST_CASE("queries that are too old at a heartbeat are time-outs, in the parser's order") {
  ParserBench bench;
  flow::Flow* two = bench.NewFlow();
  flow::Flow* one = bench.NewFlow();
  std::swap(one->descriptor.local_port, two->descriptor.local_port);
  bench.session.AdvanceTime(kStart);
  bench.Query(two, Ask(7, "two").Wire(), kStart);
  bench.Query(one, Ask(7, "one").Wire(), kStart);
  bench.Query(one, Ask(8, "late").Wire(), kStart + kSecond);
  bench.session.AdvanceTime(kStart + 5 * kSecond);
  CHECK(bench.exchanges().empty());  // five seconds are not yet too old
  bench.session.AdvanceTime(kStart + 6 * kSecond);
  REQUIRE(bench.exchanges().size() == 2);
  CHECK(bench.exchanges()[0].question == QuestionWire("one", kA));
  CHECK(bench.exchanges()[1].question == QuestionWire("two", kA));
  const SeenExchange& seen = bench.exchanges()[0];
  CHECK(seen->status == Status::kTimeout);
  CHECK_FALSE(seen->has_response);
  CHECK(seen->query_time_ns == kStart);
  CHECK(seen->response_time_ns == 0);
  CHECK(seen->result_code == -1);
  CHECK(seen->bytes_response == 0);
  CHECK(seen->bytes_query == static_cast<int64_t>(Ask(7, "one").Wire().size()));
  CHECK(seen->response_flags == 0);
  CHECK(seen.pattern == "A - IPv4 address lookup");
  CHECK(bench.counts().timed_out == 2);
  CHECK(two->open_queries == 0);
  CHECK(one->open_queries == 1);
}

TEST_CASE("an answer after the time-out is unsolicited, and the identifier begins anew") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  bench.session.AdvanceTime(kStart);
  bench.Query(flow, Ask(7).Wire(), kStart);
  bench.session.AdvanceTime(kStart + 6 * kSecond);
  bench.Response(flow, Reply(7).Wire(), kStart + 6 * kSecond);
  bench.Query(flow, Ask(7).Wire(), kStart + 6 * kSecond);
  CHECK(bench.counts().unsolicited == 1);
  CHECK(bench.counts().duplicates == 0);
  CHECK(bench.counts().begun == 2);
}

TEST_CASE("the end of the input tells time-outs from queries whose time had not run out") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  const auto query = [&](unsigned id, int64_t time_ns) {
    bench.session.AdvanceTime(time_ns);
    bench.Query(flow, Ask(id).Wire(), time_ns);
  };
  query(1, kStart);
  query(2, kStart + 900 * kMillisecond);
  query(3, kStart + kSecond);
  query(4, kStart + 5 * kSecond + 900 * kMillisecond + 1000);
  bench.session.Finish();
  REQUIRE(bench.exchanges().size() == 4);
  const std::array<Status, 4> expected{Status::kTimeout, Status::kTimeout, Status::kOpen, Status::kOpen};
  for (size_t i = 0; i < 4; ++i) {
    CHECK(bench.exchanges()[i]->dns_id == i + 1);
    CHECK(bench.exchanges()[i]->status == expected[i]);
    CHECK_FALSE(bench.exchanges()[i]->has_response);
    CHECK(bench.exchanges()[i].pattern == "A - IPv4 address lookup");
  }
  CHECK(bench.counts().timed_out == 2);
  CHECK(bench.counts().open_at_end == 2);
  CHECK(bench.counts().begun == 4);
  CHECK(flow->open_queries == 0);
}

TEST_CASE("the health line at the end knows nothing of the queries that were reported as open") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  CHECK(bench.session.Health() == "parser:dns uop:0 zqd:0 mqd:0 ur:0 inj:0 mor:0 or:0 rt:0");
  bench.session.AdvanceTime(kStart);
  bench.Query(flow, Ask(1).Wire(), kStart);
  bench.session.AdvanceTime(kStart + 5 * kSecond + 1000);
  bench.Query(flow, Ask(2).Wire(), kStart + 5 * kSecond + 1000);
  bench.session.Finish();
  CHECK(bench.session.Health() == "parser:dns uop:0 zqd:0 mqd:0 ur:0 inj:0 mor:2 or:1 rt:1");
  CHECK(bench.session.Health() == "parser:dns uop:0 zqd:0 mqd:0 ur:0 inj:0 mor:2 or:1 rt:1");
}

}  // namespace plugin
