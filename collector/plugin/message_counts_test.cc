#include "collector/plugin/message_counts.h"

#include <doctest/doctest.h>

#include <map>
#include <random>
#include <string>

#include "collector/plugin/testdata/parser_bench.h"

namespace plugin {
namespace {

using test::A;
using test::kA;
using test::kAaaa;
using test::Opt;
using test::Pointer;
using test::U16;

}  // namespace

TEST_CASE("a query that finds the parser's table full is counted as such, cut or not") {
  ParserBench bench("max_open_requests", "1");
  flow::Flow* flow = bench.NewFlow();
  bench.Query(flow, Ask(1).Wire());
  bench.Query(flow, Ask(2).Wire());
  const std::string cut = Ask(3).Additional(Opt()).Wire();
  bench.Feed(flow, true, cut, kStart, cut.size() - 4);
  bench.Query(flow, Ask(1).Wire());  // not even a duplicate is announced now
  CHECK(bench.counts().begun == 1);
  CHECK(bench.counts().table_full == 3);
  CHECK(bench.counts().duplicates == 0);
  CHECK(bench.counts().cut == 1);
  CheckSums(bench.counts());
}

TEST_CASE("a query with more questions than are kept finds a full table like any other") {
  ParserBench bench("max_open_requests", "0");
  test::Message query = Ask(1);
  for (int i = 0; i < 64; ++i) query.Question("aa", kA);
  bench.Query(bench.NewFlow(), query.Wire());
  CHECK(bench.counts().table_full == 1);
}

TEST_CASE("queries that the parser passes over are ignored") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  for (unsigned opcode = 2; opcode <= 5; ++opcode) bench.Query(flow, Ask(opcode).Opcode(opcode).Wire());
  CHECK(bench.counts().query_ignored == 4);
  bench.Query(flow, test::Query(7).Wire());
  CHECK(bench.counts().query_ignored == 5);
  bench.Feed(flow, true, Ask(8).Wire(), kStart, 11);
  CHECK(bench.counts().query_ignored == 6);
  bench.Feed(flow, true, Ask(9).Wire(), kStart, 20);
  CHECK(bench.counts().query_ignored == 7);
  CHECK(bench.counts().begun == 0);
  CHECK(bench.counts().cut == 2);
  CheckSums(bench.counts());
}

TEST_CASE("queries that the parser cannot use are refused") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  bench.Query(flow, Ask(1).Opcode(6).Wire());
  bench.Query(flow, Ask(2).Qr().Wire());
  bench.Query(flow, Ask(3).Wire().substr(0, 11));
  bench.Query(flow, Ask(4).Wire().substr(0, 20));
  bench.Query(flow, Ask(5, Pointer(2)).Wire());
  bench.Query(flow, "");
  bench.Query(bench.NewFlow(kTransportTcp), U16(0));
  bench.Query(bench.NewFlow(1), Ask(6).Wire());
  CHECK(bench.counts().query_refused == 8);
  CHECK(bench.counts().queries == 8);
  CheckSums(bench.counts());
}

TEST_CASE("a response that nobody waits for is unsolicited") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  bench.Response(flow, Reply(7).Wire());
  bench.Query(flow, Ask(7).Wire());
  bench.Response(flow, Reply(8).Wire());
  bench.Response(flow, Reply(7).Wire());
  bench.Response(flow, Reply(7).Wire());
  CHECK(bench.counts().unsolicited == 3);
  CHECK(bench.counts().answered == 1);
  CHECK(bench.exchanges().size() == 1);
  CheckSums(bench.counts());
}

TEST_CASE("responses that the parser passes over are ignored, and the query stays open") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  bench.Query(flow, Ask(7).Wire());
  for (unsigned opcode = 2; opcode <= 5; ++opcode) bench.Response(flow, Reply(7).Opcode(opcode).Wire());
  bench.Feed(flow, false, Reply(7).Wire(), kStart, 11);
  CHECK(bench.counts().response_ignored == 5);
  CHECK(flow->open_queries == 1);
  CheckSums(bench.counts());
}

TEST_CASE("responses that the parser cannot use are refused, and the query stays open") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  bench.Query(flow, Ask(7).Wire());
  bench.Response(flow, Reply(7).Opcode(6).Wire());
  bench.Response(flow, Reply(7).Qr(false).Wire());
  bench.Response(flow, Reply(7).Wire().substr(0, 11));
  CHECK(bench.counts().response_refused == 3);
  CHECK(flow->open_queries == 1);
  CheckSums(bench.counts());
}

TEST_CASE("every prefix of a message, whole or cut, has exactly one outcome") {
  const std::string query = Ask(7).Question("cc.bb", kAaaa).Additional(Opt()).Wire();
  const std::string response =
      Reply(7).Question("cc.bb", kAaaa).Answer("aa.bb", A("192.0.2.1")).Additional(Opt()).Wire();
  for (const bool tcp : {false, true}) {
    ParserBench bench("enable_dnssec", "true");
    flow::Flow* flow = bench.NewFlow(tcp ? kTransportTcp : kTransportUdp);
    const auto wire = [&](const std::string& bytes) {
      return tcp ? U16(static_cast<unsigned>(bytes.size())) + bytes : bytes;
    };
    uint64_t fed = 0;
    for (size_t length = 0; length <= response.size(); ++length) {
      bench.Query(flow, wire(query.substr(0, length)));
      bench.Feed(flow, true, wire(query), kStart, length);
      bench.Query(flow, wire(query));
      bench.Response(flow, wire(response.substr(0, length)));
      bench.Query(flow, wire(query));
      bench.Feed(flow, false, wire(response), kStart, length);
      fed += 4;
      REQUIRE(bench.counts().queries == fed);
      REQUIRE(bench.counts().responses == fed / 2);
      CheckSums(bench.counts());
    }
    bench.session.Finish();
    CHECK(bench.exchanges().size() == bench.counts().begun);
    CHECK(bench.counts().begun == bench.counts().answered + bench.counts().timed_out + bench.counts().open_at_end);
  }
}

TEST_CASE("any traffic gives each begun query exactly one exchange and each message one outcome") {
  for (unsigned seed = 1; seed <= 8; ++seed) {
    std::mt19937 engine(seed);
    const auto random = [&engine] { return static_cast<unsigned>(engine()); };
    SessionBench bench(DNS_PARSER, {{"max_open_requests", "15"}, {"request_timeout_s", "2"}});
    std::vector<flow::Flow*> flows;
    flows.reserve(4);
    for (int i = 0; i < 4; ++i) flows.push_back(bench.NewFlow(i == 3 ? kTransportTcp : kTransportUdp));
    int64_t now = kStart;
    uint64_t fed = 0;
    for (int step = 0; step < 4000; ++step) {
      now += random() % 60 * kMillisecond;
      bench.session.AdvanceTime(now);
      flow::Flow* flow = flows[random() % flows.size()];
      const bool query = random() % 2 == 0;
      const unsigned id = random() % 25;
      test::Message message = query ? Ask(id, random() % 2 == 0 ? "aa" : "bb") : Reply(id, "aa");
      if (random() % 20 == 0) message.Opcode(random() % 8);
      if (random() % 20 == 0) message.Answer(Pointer(random() % 20), A("192.0.2.1"));
      const bool tcp = flow->descriptor.transport == kTransportTcp;
      const std::string wire = tcp ? message.TcpWire() : message.Wire();
      bench.Feed(flow, query, wire, now, random() % 10 == 0 ? random() % wire.size() : SIZE_MAX);
      ++fed;
    }
    bench.session.Finish();
    const MessageCounts& counts = bench.counts();
    CheckSums(counts);
    CHECK(counts.queries + counts.responses == fed);
    CHECK(counts.begun == counts.answered + counts.timed_out + counts.open_at_end);
    std::map<int32_t, int> reported;
    std::map<Status, uint64_t> by_status;
    for (const SeenExchange& seen : bench.exchanges()) {
      ++reported[seen->request_id];
      ++by_status[seen->status];
    }
    CHECK(reported.size() == counts.begun);
    CHECK(bench.exchanges().size() == counts.begun);
    CHECK(by_status[Status::kTimeout] == counts.timed_out);
    CHECK(by_status[Status::kOpen] == counts.open_at_end);
    CHECK(by_status[Status::kMalformed] == counts.malformed);
    for (const flow::Flow* flow : flows) CHECK(flow->open_queries == 0);
    for (const uint64_t count : {counts.begun, counts.duplicates, counts.table_full, counts.query_ignored,
                                 counts.query_refused, counts.answered, counts.unsolicited, counts.response_ignored,
                                 counts.response_refused, counts.timed_out, counts.malformed, counts.retransmits}) {
      CHECK(count > 0);
    }
  }
}

}  // namespace plugin
