#include "collector/plugin/session.h"

#include <doctest/doctest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "collector/plugin/testdata/allocations.h"
#include "collector/plugin/testdata/session_bench.h"
#include "tests/support/dns_builder.h"

namespace plugin {
namespace {

using test::A;
using test::kA;

using Lines = std::vector<std::string>;

std::string Ask(unsigned id) { return test::Query(id).Question("aa.bb", kA).Wire(); }
std::string Reply(unsigned id) {
  return test::Response(id).Question("aa.bb", kA).Answer("aa.bb", A("192.0.2.1")).Wire();
}

struct DeafListener : ExchangeListener {
  void OnExchange(const Exchange& /*exchange*/) override { ++exchanges; }
  int exchanges = 0;
};

}  // namespace

TEST_CASE("the parser is called in order: stream, data, end of stream") {
  {
    SessionBench bench(FAKE_PARSER, {{"tell", "1"}});
    flow::Flow* flow = bench.NewFlow();
    bench.session.AdvanceTime(kStart);
    bench.Query(flow, Ask(1), kStart + 1999);
    bench.Response(flow, Reply(1), kStart + 2000);
    bench.session.OnEndOfFlow(flow);
  }
  CHECK(SessionBench::Lines() == Lines{"create", "new stream", "query 1700000000000001",
                                       "response 1700000000000002", "end of stream", "destroy"});
}

TEST_CASE("a heartbeat comes at each grid second that is crossed, then the flow table's tick") {
  SessionBench bench(FAKE_PARSER, {{"tell", "1"}});
  SessionBench::Lines().clear();
  bench.session.AdvanceTime(kStart + kMillisecond);
  bench.session.AdvanceTime(kStart + 999 * kMillisecond);
  CHECK(SessionBench::Lines().empty());
  bench.session.AdvanceTime(kStart + kSecond);
  CHECK(SessionBench::Lines() == Lines{"heartbeat 1700000001000000"});
  CHECK(Ticks() == std::vector<int64_t>{kStart + kSecond});
}

TEST_CASE("however many seconds are crossed at once, there is one heartbeat at the last of them") {
  SessionBench bench(FAKE_PARSER, {{"tell", "1"}});
  SessionBench::Lines().clear();
  bench.session.AdvanceTime(kStart);
  bench.session.AdvanceTime(kStart + 3600 * kSecond + 5);
  CHECK(SessionBench::Lines() == Lines{"heartbeat 1700003600000000"});
  CHECK(Ticks() == std::vector<int64_t>{kStart + 3600 * kSecond});
}

TEST_CASE("what waited in a stream is delivered before the heartbeat could expire its query") {
  SessionBench bench(DNS_PARSER);
  flow::Flow* flow = bench.NewFlow(kTransportTcp);
  const auto framed = [](const std::string& wire) { return test::U16(static_cast<unsigned>(wire.size())) + wire; };
  bench.session.AdvanceTime(kStart);
  bench.Query(flow, framed(Ask(1)), kStart);
  OnGiveUpGaps() = [&](int64_t now_ns) {
    CHECK(now_ns == kStart + 60 * kSecond);
    CHECK(Ticks().empty());
    bench.Response(flow, framed(Reply(1)), kStart + 2 * kMillisecond);
  };
  bench.session.AdvanceTime(kStart + 60 * kSecond);
  REQUIRE(bench.exchanges().size() == 1);
  CHECK(bench.exchanges()[0]->status == Status::kAnswered);
  CHECK(bench.exchanges()[0]->rtt_us == 2000);
  CHECK(Ticks().size() == 1);
}

TEST_CASE("old packets cause no heartbeat; a clock that was set back is counted and starts a new grid") {
  SessionBench bench(FAKE_PARSER, {{"tell", "1"}});
  SessionBench::Lines().clear();
  bench.session.AdvanceTime(kStart);
  bench.session.AdvanceTime(kStart - 60 * kSecond);
  CHECK(bench.session.ClockStepsBack() == 0);
  bench.session.AdvanceTime(kStart - 60 * kSecond - 1);
  CHECK(bench.session.ClockStepsBack() == 1);
  CHECK(SessionBench::Lines().empty());
  bench.session.AdvanceTime(kStart - 60 * kSecond);
  CHECK(SessionBench::Lines() == Lines{"heartbeat 1699999940000000"});
}

TEST_CASE("the end comes with a heartbeat at the newest packet's time and one that nothing survives") {
  SessionBench bench(FAKE_PARSER, {{"tell", "1"}});
  SessionBench::Lines().clear();
  bench.session.AdvanceTime(kStart + 999);
  bench.session.AdvanceTime(kStart - 5 * kSecond);
  bench.session.Finish();
  CHECK(SessionBench::Lines() == Lines{"heartbeat 1700000000000000", "heartbeat 4611686018427387903"});
  bench.session.Finish();
  CHECK(SessionBench::Lines().size() == 2);
}

TEST_CASE("an input without packets ends without a time of its own") {
  SessionBench bench(FAKE_PARSER, {{"tell", "1"}});
  SessionBench::Lines().clear();
  bench.session.Finish();
  CHECK(SessionBench::Lines() == Lines{"heartbeat 4611686018427387903"});
  CHECK(bench.exchanges().empty());
}

TEST_CASE("without a flow table everything else works") {
  SessionBench bench(DNS_PARSER);
  bench.session.Attach(nullptr);
  bench.session.AdvanceTime(kStart);
  flow::Flow* flow = bench.NewFlow();
  bench.Query(flow, Ask(1));
  bench.Response(flow, Reply(1));
  bench.session.AdvanceTime(kStart + kSecond);
  CHECK(bench.exchanges().size() == 1);
  CHECK(Ticks().empty());
  CHECK(ReleasedFlows().empty());
}

TEST_CASE("the flow table is told of each query that ends, when the flow's number is already right") {
  SessionBench bench(DNS_PARSER);
  flow::Flow* answered = bench.NewFlow();
  flow::Flow* expired = bench.NewFlow();
  flow::Flow* open = bench.NewFlow();
  bench.session.AdvanceTime(kStart);
  bench.Query(answered, Ask(1), kStart);
  bench.Query(expired, Ask(1), kStart);
  bench.Query(open, Ask(1), kStart + 6 * kSecond);
  CHECK(ReleasedFlows().empty());
  bench.Response(answered, Reply(1), kStart);
  CHECK(ReleasedFlows() == std::vector<const flow::Flow*>{answered});
  bench.session.AdvanceTime(kStart + 6 * kSecond);
  CHECK(ReleasedFlows() == std::vector<const flow::Flow*>{answered, expired});
  bench.session.Finish();
  CHECK(ReleasedFlows() == std::vector<const flow::Flow*>{answered, expired, open});
}

TEST_CASE("once it is warm, a message costs the host no allocation, with a long question either") {
  const Library library(FAKE_PARSER);
  DeafListener listener;
  Session session(library, {{{"begin", "1"}, {"end", "last"}}}, &listener);
  flow::Flow flow;
  session.OnNewFlow(&flow);
  const auto feed = [&](bool from_client, const std::string& wire) {
    const int length = static_cast<int>(wire.size());
    session.OnMessage({&flow, from_client, kStart, reinterpret_cast<const uint8_t*>(wire.data()), length, length});
  };
  const std::string name = std::string(63, 'x') + "." + std::string(63, 'y') + "." + std::string(63, 'z');
  const std::string short_query = Ask(1);
  const std::string long_query = test::Query(2).Question(name, kA).Question("aa", kA).Wire();
  const std::string response = Reply(1);
  size_t before = 0;
  for (int round = 0; round < 4000; ++round) {
    if (round == 2000) before = Allocations();
    feed(true, short_query);
    feed(false, response);
    feed(true, long_query);
    feed(false, response);
  }
  CHECK(Allocations() == before);
  CHECK(listener.exchanges == 8000);
}

TEST_CASE("a second session at the same time is refused, and the first goes on") {
  SessionBench bench(DNS_PARSER);
  CHECK_THROWS_AS(Session(bench.library, {}, &bench.seen), std::logic_error);
  flow::Flow* flow = bench.NewFlow();
  bench.Query(flow, Ask(1));
  bench.Response(flow, Reply(1));
  CHECK(bench.exchanges().size() == 1);
  CHECK(bench.seen.mappings.size() == 1);
}

TEST_CASE("sessions follow one another, after a failed one too") {
  const Library library(FAKE_PARSER);
  SeenByListener seen;
  CHECK_THROWS_WITH_AS(Session(library, {{{"throw", "create"}}}, &seen), "fake create", std::runtime_error);
  { const Session first(library, {}, &seen); }
  CHECK_NOTHROW(Session(library, {}, &seen));
}

TEST_CASE("the parser is given its configuration and the log its lines") {
  SessionBench bench(DNS_PARSER, {{"max_open_requests", "12"}}, 3);
  REQUIRE(SessionBench::Lines().size() == 1);
  CHECK(SessionBench::Lines()[0] ==
        "[dns]-parser initialized max_open_requests:12 handle_dnssec:false handle_axfr:false dns_timeout:5000000");
}

TEST_CASE("queries that the end of the input cuts off are not logged as too old") {
  SessionBench bench(DNS_PARSER, {}, 4);
  flow::Flow* flow = bench.NewFlow();
  bench.session.AdvanceTime(kStart);
  bench.Query(flow, Ask(1), kStart);
  bench.session.AdvanceTime(kStart + 5500 * kMillisecond);
  bench.Query(flow, Ask(2), kStart + 5500 * kMillisecond);
  SessionBench::Lines().clear();
  bench.session.Finish();
  CHECK(bench.exchanges().size() == 2);
  CHECK(SessionBench::Lines() == Lines{"[dns]-Dropping A - IPv4 address lookup aa.bb that is too old"});
}

TEST_CASE("after the end the log says as much as before") {
  SessionBench bench(DNS_PARSER, {}, 4);
  bench.session.Finish();
  SessionBench::Lines().clear();
  bench.Query(bench.NewFlow(), "short");
  CHECK(SessionBench::Lines() == Lines{"[dns]-Packet too small"});
}

TEST_CASE("a parser without a health line has an empty one") {
  CHECK(SessionBench(FAKE_PARSER).session.Health().empty());
  SessionBench bench(FAKE_PARSER, {{"health", "well"}});
  CHECK(bench.session.Health() == "well");
  bench.session.Finish();
  CHECK(bench.session.Health() == "well");
}

TEST_CASE("what the listener throws at an answer comes through; the exchange is done with") {
  SessionBench bench(DNS_PARSER);
  flow::Flow* flow = bench.NewFlow();
  bench.Query(flow, Ask(1));
  bench.seen.throw_on_exchange = true;
  CHECK_THROWS_WITH_AS(bench.Response(flow, Reply(1)), "listener", std::runtime_error);
  bench.seen.throw_on_exchange = false;
  CHECK(bench.counts().answered == 1);
  CHECK(flow->open_queries == 0);
  bench.Response(flow, Reply(1));
  CHECK(bench.counts().unsolicited == 1);
  bench.Query(flow, Ask(1));
  bench.Response(flow, Reply(1));
  CHECK(bench.exchanges().size() == 1);
  bench.session.Finish();
  CHECK(bench.counts().begun == bench.counts().answered);
}

TEST_CASE("what the listener throws at a mapping passes through the parser; the query stays open") {
  SessionBench bench(DNS_PARSER);
  flow::Flow* flow = bench.NewFlow();
  bench.Query(flow, Ask(1));
  bench.seen.throw_on_mapping = true;
  CHECK_THROWS_WITH_AS(bench.Response(flow, Reply(1)), "listener", std::runtime_error);
  bench.seen.throw_on_mapping = false;
  CHECK(bench.counts().responses == 0);
  CHECK(flow->open_queries == 1);
  bench.Response(flow, Reply(1));
  CHECK(bench.exchanges().size() == 1);
  CHECK(bench.counts().responses == 1);
}

TEST_CASE("what the listener throws at a time-out passes through the parser; it is reported again") {
  SessionBench bench(DNS_PARSER);
  flow::Flow* flow = bench.NewFlow();
  bench.session.AdvanceTime(kStart);
  bench.Query(flow, Ask(1), kStart);
  bench.Query(flow, Ask(2), kStart);
  bench.seen.throw_on_exchange = true;
  CHECK_THROWS_WITH_AS(bench.session.AdvanceTime(kStart + 6 * kSecond), "listener", std::runtime_error);
  bench.seen.throw_on_exchange = false;
  CHECK(bench.counts().timed_out == 0);
  bench.session.AdvanceTime(kStart + 7 * kSecond);
  CHECK(bench.counts().timed_out == 2);
  CHECK(bench.exchanges().size() == 2);
}

TEST_CASE("a session that an exception ended can be destroyed, with its library on the way out") {
  std::string what;
  try {
    SessionBench bench(DNS_PARSER);
    flow::Flow* flow = bench.NewFlow();
    bench.Query(flow, Ask(1));
    bench.seen.throw_on_mapping = true;
    bench.Response(flow, Reply(1));
  } catch (const std::exception& error) {
    what = error.what();
  }
  CHECK(what == "listener");
}

TEST_CASE("an exception of the parser's own type outlives session and library") {
  std::string what;
  try {
    SessionBench bench(FAKE_PARSER, {{"throw", "query"}});
    bench.Query(bench.NewFlow(), Ask(1));
  } catch (const std::exception& error) {
    what = error.what();
  }
  CHECK(what == "fake query");
}

TEST_CASE("what the parser throws comes through, and its message has no outcome") {
  for (const char* call : {"query", "response", "heartbeat"}) {
    SessionBench bench(FAKE_PARSER, {{"throw", call}});
    flow::Flow* flow = bench.NewFlow();
    bench.session.AdvanceTime(kStart);
    const auto run = [&] {
      bench.Query(flow, Ask(1));
      bench.Response(flow, Reply(1));
      bench.session.AdvanceTime(kStart + kSecond);
    };
    CHECK_THROWS_WITH_AS(run(), (std::string("fake ") + call).c_str(), std::runtime_error);
    CHECK(bench.counts().queries == (std::string(call) == "query" ? 0 : 1));
    CHECK(bench.counts().responses == (std::string(call) == "heartbeat" ? 1 : 0));
  }
}

TEST_CASE("a message of which the parser consumes nothing is ignored") {
  SessionBench bench(FAKE_PARSER, {{"result", "0"}});
  flow::Flow* flow = bench.NewFlow(kTransportTcp);
  bench.Query(flow, Ask(1));
  bench.Response(flow, Reply(1));
  CHECK(bench.counts().query_ignored == 1);
  CHECK(bench.counts().response_ignored == 1);
}

TEST_CASE("a record of a refused message is malformed only when the message was wholly captured") {
  SessionBench bench(FAKE_PARSER, {{"begin", "1"}, {"end", "1"}, {"result", "-1"}});
  flow::Flow* flow = bench.NewFlow();
  bench.Query(flow, Ask(1));
  bench.Feed(flow, false, Reply(1), kStart, 30);
  REQUIRE(bench.exchanges().size() == 1);
  CHECK(bench.exchanges()[0]->status == Status::kAnswered);
  CHECK(bench.counts().begun == 1);
}

TEST_CASE("a record without a pattern or of an unknown request does no harm") {
  SessionBench bench(FAKE_PARSER, {{"begin", "1"}, {"end", "2"}, {"expire", "77"}});
  flow::Flow* flow = bench.NewFlow();
  bench.session.AdvanceTime(kStart);
  bench.Response(flow, Reply(1));
  CHECK(bench.counts().unsolicited == 1);
  bench.Query(flow, Ask(1));
  bench.Query(flow, Ask(2));
  bench.session.AdvanceTime(kStart + kSecond);
  CHECK(bench.exchanges().empty());
  CHECK(bench.seen.records.empty());
  bench.Response(flow, Reply(2));
  REQUIRE(bench.exchanges().size() == 1);
  CHECK(bench.exchanges()[0]->dns_id == 2);
  CHECK(bench.exchanges()[0].pattern.empty());
  REQUIRE(bench.seen.records.size() == 1);
  CHECK(bench.seen.records[0].request_id == 2);
}

TEST_CASE("a query that the parser never speaks of again is reported from what the host knows") {
  SessionBench bench(FAKE_PARSER, {{"begin", "1"}});
  flow::Flow* flow = bench.NewFlow();
  bench.session.AdvanceTime(kStart);
  bench.Query(flow, Ask(8), kStart);
  bench.Query(flow, Ask(7), kStart + 1);
  bench.session.Finish();
  REQUIRE(bench.exchanges().size() == 2);
  CHECK(bench.exchanges()[0]->dns_id == 8);
  CHECK(bench.exchanges()[1]->dns_id == 7);
  CHECK(bench.exchanges()[1]->status == Status::kOpen);
  CHECK_FALSE(bench.exchanges()[1]->has_response);
  CHECK(bench.exchanges()[1]->query_time_ns == kStart + 1);
  CHECK(bench.exchanges()[1]->bytes_query == static_cast<int64_t>(Ask(7).size()));
  CHECK(bench.exchanges()[1]->result_code == -1);
  CHECK(bench.exchanges()[1]->question_count == 1);
  CHECK(bench.counts().open_at_end == 2);
}

}  // namespace plugin
