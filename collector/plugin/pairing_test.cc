#include "collector/plugin/pairing.h"

#include <doctest/doctest.h>

#include <array>
#include <cstring>
#include <string>

#include "collector/plugin/testdata/parser_bench.h"

// What exchanges show.
namespace plugin {
namespace {

using test::A;
using test::kA;
using test::kAaaa;
using test::kHttps;
using test::Opt;

}  // namespace

TEST_CASE("an answered query is one exchange with everything in it") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  flow->encapsulation.vlan_count = 1;
  const std::string query = Ask(7).Wire();
  const std::string response = Reply(7).Aa().Answer("aa.bb", A("192.0.2.9")).Wire();
  bench.Query(flow, query, kStart + 1999);
  bench.Response(flow, response, kStart + 5 * kMillisecond + 2001);
  REQUIRE(bench.exchanges().size() == 1);
  const SeenExchange& seen = bench.exchanges()[0];
  CHECK(seen->status == Status::kAnswered);
  CHECK(seen->has_response);
  CHECK(seen->query_time_ns == kStart + 1999);
  CHECK(seen->response_time_ns == kStart + 5 * kMillisecond + 2001);
  CHECK(seen->rtt_us == 5001);  // between the whole microseconds 1 and 5002
  CHECK(seen->client == &flow->client);
  CHECK(seen->server == &flow->server);
  CHECK(seen->client_port == 40001);
  CHECK(seen->server_port == 53);
  CHECK(seen->transport == 17);
  CHECK(seen.question == QuestionWire("aa.bb", kA));
  CHECK(seen->question_count == 1);
  CHECK_FALSE(seen->question_cut);
  CHECK(seen.pattern == "A - IPv4 address lookup");
  CHECK(seen->result_code == 0);
  CHECK(seen->rcode == 0);
  CHECK(seen->dns_id == 7);
  CHECK(seen->query_flags == 0x0100);
  CHECK(seen->response_flags == 0x8580);
  CHECK(seen->bytes_query == static_cast<int64_t>(query.size()));
  CHECK(seen->bytes_response == static_cast<int64_t>(response.size()));
  CHECK(seen.answers == "[aa.bb => 192.0.2.9]");
  CHECK_FALSE(seen->rrsigs_known);
  CHECK(seen->retransmits == 0);
  CHECK_FALSE(seen->question_mismatch);
  CHECK_FALSE(seen->cut);
  CHECK(seen->encapsulation == &flow->encapsulation);
  CHECK(seen->request_id == 1);
  CHECK(bench.counts().queries == 1);
  CHECK(bench.counts().begun == 1);
  CHECK(bench.counts().responses == 1);
  CHECK(bench.counts().answered == 1);
  CHECK(flow->open_queries == 0);
}

TEST_CASE("over TCP the length prefix is no part of the message") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow(kTransportTcp);
  bench.Query(flow, Ask(0x1234).TcpWire());
  bench.Response(flow, Reply(0x1234).Rcode(3).TcpWire());
  REQUIRE(bench.exchanges().size() == 1);
  const SeenExchange& seen = bench.exchanges()[0];
  CHECK(seen->transport == 6);
  CHECK(seen->dns_id == 0x1234);
  CHECK(seen.question == QuestionWire("aa.bb", kA));
  CHECK(seen->bytes_query == static_cast<int64_t>(Ask(0x1234).Wire().size()));
  CHECK(seen->rcode == 3);
  CHECK(seen->response_flags == 0x8183);
}

TEST_CASE("a TCP query that is never answered has its own size, too") {
  ParserBench bench;
  bench.Query(bench.NewFlow(kTransportTcp), Ask(1).TcpWire());
  bench.session.Finish();
  REQUIRE(bench.exchanges().size() == 1);
  CHECK(bench.exchanges()[0]->bytes_query == static_cast<int64_t>(Ask(1).Wire().size()));
}

TEST_CASE("the response code is extended by OPT while the record keeps the header's") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  bench.Query(flow, Ask(7).Wire());
  bench.Response(flow, test::Response(7).Additional(Opt({.extended_rcode = 1})).Wire());  // BADVERS
  REQUIRE(bench.exchanges().size() == 1);
  CHECK(bench.exchanges()[0]->rcode == 16);
  CHECK(bench.exchanges()[0]->result_code == 0);
  CHECK(bench.exchanges()[0]->status == Status::kAnswered);
}

TEST_CASE("the question of the response is compared with the query's") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  const auto mismatch = [&](const test::Message& query, const test::Message& response) {
    bench.Query(flow, query.Wire());
    bench.Response(flow, response.Wire());
    return bench.exchanges().back()->question_mismatch;
  };
  CHECK_FALSE(mismatch(Ask(1, "www.example"), Reply(1, "WWW.example")));
  CHECK_FALSE(mismatch(Ask(2), test::Response(2)));
  CHECK(mismatch(Ask(3, "aa"), Reply(3, "bb")));
  CHECK(mismatch(Ask(4, "aa", kHttps), Reply(4, "aa", kHttps + 32)));
  CHECK(mismatch(Ask(5, "aa"), Reply(5, "aa").Question("aa", kAaaa)));
  CHECK_FALSE(mismatch(Ask(6, "aa").Question("bb.aa", kA),
                       test::Response(6).Compressed().Question("aa", kA).Question("bb.aa", kA)));
  CHECK(bench.counts().question_mismatches == 3);
  CHECK(bench.counts().answered == 6);
}

TEST_CASE("a question that the capture cut is no mismatch") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  bench.Query(flow, Ask(7).Wire());
  bench.Feed(flow, false, Reply(7).Wire(), kStart, 15);
  REQUIRE(bench.exchanges().size() == 1);
  CHECK(bench.exchanges()[0]->status == Status::kAnswered);
  CHECK_FALSE(bench.exchanges()[0]->question_mismatch);
  CHECK(bench.counts().cut == 1);
}

TEST_CASE("several questions are kept, and more than 64 are cut") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  test::Message query = Ask(7, "aa").Question("bb", kAaaa);
  bench.Query(flow, query.Wire());
  bench.Response(flow, test::Response(7).Wire());
  for (int i = 2; i < 65; ++i) query.Question("aa", kA);
  bench.Query(flow, query.Wire());
  bench.Response(flow, test::Response(7).Wire());
  REQUIRE(bench.exchanges().size() == 2);
  CHECK(bench.exchanges()[0].question == QuestionWire("aa", kA) + QuestionWire("bb", kAaaa));
  CHECK(bench.exchanges()[0]->question_count == 2);
  CHECK_FALSE(bench.exchanges()[0]->question_cut);
  CHECK(bench.exchanges()[1]->question_count == 64);
  CHECK(bench.exchanges()[1]->question_cut);
}

TEST_CASE("names longer than 255 bytes are kept like the others") {
  std::string name;
  for (int i = 0; i < 20; ++i) name += std::string(63, static_cast<char>('a' + i)) + ".";
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  bench.Query(flow, Ask(7, name).Wire());
  bench.Query(flow, Ask(7, name).Wire());
  bench.Response(flow, Reply(7, name).Wire());
  REQUIRE(bench.exchanges().size() == 1);
  CHECK(bench.exchanges()[0].question == QuestionWire(name, kA));
  CHECK(bench.exchanges()[0]->retransmits == 1);
  CHECK_FALSE(bench.exchanges()[0]->question_mismatch);
}

TEST_CASE("mappings come with the time of the response, reverse ones without a question") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  bench.Query(flow, Ask(7).Wire());
  bench.Response(flow, Reply(7).Answer("cc.bb", A("192.0.2.9")).Wire(), kStart + 42);
  const char* reverse = "9.2.0.192.in-addr.arpa";
  bench.Query(flow, Ask(8, reverse, test::kPtr).Wire());
  bench.Response(flow, Reply(8, reverse, test::kPtr).Answer(reverse, test::Ptr("host.bb")).Wire(), kStart + 43);
  REQUIRE(bench.seen.mappings.size() == 2);
  const std::array<uint8_t, 4> address{192, 0, 2, 9};
  uint32_t ipv4 = 0;
  std::memcpy(&ipv4, address.data(), sizeof ipv4);
  CHECK(bench.seen.mappings[0].query_name == "aa.bb");
  CHECK(bench.seen.mappings[0].name == "cc.bb");
  CHECK(bench.seen.mappings[0].ipv4 == ipv4);
  CHECK(bench.seen.mappings[0].time_ns == kStart + 42);
  CHECK(bench.seen.mappings[1].query_name == "(null)");
  CHECK(bench.seen.mappings[1].name == "host.bb");
  CHECK(bench.seen.mappings[1].ipv4 == ipv4);
  CHECK(bench.seen.mappings[1].time_ns == kStart + 43);
  CHECK(bench.counts().mappings == 2);
}

TEST_CASE("a zero byte in a name does not end the answers' text") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  bench.Query(flow, Ask(7).Wire());
  bench.Response(flow, Reply(7).Answer("a\\000b", A("192.0.2.1")).Wire());
  REQUIRE(bench.exchanges().size() == 1);
  CHECK(bench.exchanges()[0].answers == std::string("[a\0b => 192.0.2.1]", 18));
}

TEST_CASE("signatures are known for queries that ask for them") {
  ParserBench bench("enable_dnssec", "true");
  flow::Flow* flow = bench.NewFlow();
  const auto exchange = [&](const test::Message& query, const test::Message& response) {
    bench.Query(flow, query.Wire());
    bench.Response(flow, response.Wire());
    return bench.exchanges().back().exchange;
  };
  const auto wants = Ask(7).Additional(Opt({.dnssec_ok = true}));
  CHECK(exchange(wants, Reply(7)).rrsigs_known);
  CHECK(exchange(wants, Reply(7)).rrsigs == 0);
  CHECK(exchange(wants, Reply(7).Answer("aa.bb", test::Rrsig(kA, "bb"))).rrsigs == 1);
  CHECK_FALSE(exchange(Ask(7), Reply(7)).rrsigs_known);
}

TEST_CASE("an answer that the capture shows before its query has a negative time, if it pairs at all") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  bench.Query(flow, Ask(7).Wire(), kStart + 1500);
  bench.Response(flow, Reply(7).Wire(), kStart - 500);
  REQUIRE(bench.exchanges().size() == 1);
  CHECK(bench.exchanges()[0]->rtt_us == -2);
}

TEST_CASE("a TCP message whose capture lacks exactly one byte keeps what was captured of its question") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow(kTransportTcp);
  const std::string query = Ask(7, "aa").Question("bb", kA).TcpWire();
  bench.Feed(flow, true, query, kStart, query.size() - 1);  // the parser decodes one byte behind
  CHECK(bench.counts().begun == 1);
  bench.Response(flow, test::Response(7).TcpWire());
  REQUIRE(bench.exchanges().size() == 1);
  CHECK(bench.exchanges()[0].question == QuestionWire("aa", kA));
  CHECK(bench.exchanges()[0]->question_cut);
  CHECK(bench.exchanges()[0]->cut);
}

TEST_CASE("each exchange is preceded by its record, with the parser's own key") {
  ParserBench bench;
  flow::Flow* flow = bench.NewFlow();
  bench.Query(flow, Ask(1).Wire(), kStart);
  bench.Query(flow, Ask(2).Wire(), kStart);
  bench.Query(flow, Ask(3).Wire(), kStart + 6 * kSecond);
  bench.Response(flow, Reply(1).Rcode(3).Wire(), kStart + kMillisecond);
  bench.Response(flow, Reply(1).Rcode(2).Wire(), kStart + kMillisecond);  // unsolicited: no record
  bench.session.AdvanceTime(kStart + 6 * kSecond);
  bench.session.Finish();

  const std::vector<SeenRecord>& records = bench.seen.records;
  REQUIRE(records.size() == 3);
  REQUIRE(bench.exchanges().size() == 3);
  for (size_t i = 0; i < records.size(); ++i) {
    CHECK(records[i].exchanges_before == i);
    CHECK(records[i].request_id == bench.exchanges()[i]->request_id);
    REQUIRE(records[i].key.size() == 1);
    CHECK(records[i].key[0].first == "ResultCode");
    CHECK(records[i].key[0].second == bench.exchanges()[i]->result_code);
  }
  CHECK(records[0].key[0].second == 3);
  CHECK(records[1].key[0].second == -1);
}

}  // namespace plugin
