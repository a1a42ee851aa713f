#include <doctest/doctest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>

#include "tests/support/pairing.h"

using namespace test;

// What is remembered of a request, and how the host hears of it.

namespace {

constexpr int32_t kHighestId = std::numeric_limits<int32_t>::max();

// A query that is told from AQuery by its texts.
std::string OtherQuery(unsigned id) { return Query(id).Question("other", kAaaa).Wire(); }

}  // namespace

TEST_CASE("a query for one address is remembered field by field") {
  Pairing bench;
  const std::string message = Query(0xfffe).Question("aaaaaaaaaaa.bbbbbbbbbb", kA).Wire();
  REQUIRE(message.size() == 40);
  CHECK(bench.Request(message, 1700000000123456));
  const DnsQuery& query = bench.OnlyQuery();
  CHECK(query.types == "A - IPv4 address lookup");
  CHECK(query.names == "aaaaaaaaaaa.bbbbbbbbbb");
  CHECK(query.start_time.ticks == 1700000000123456);
  CHECK(query.request_bytes == 40);
  CHECK(query.request_id == 1);
  CHECK_FALSE(query.dnssec_ok);
  CHECK(bench.parser.open_queries.begin()->first.qid == 0xfffe);
}

TEST_CASE("the key holds a copy of the whole flow") {
  Pairing bench;
  FillOtherFields(&bench.flow);
  const std::string before = FlowText(bench.flow);
  bench.Request(AQuery(7));
  bench.flow = ParserFlow();
  CHECK(FlowText(bench.parser.open_queries.begin()->first.flow) == before);
}

TEST_CASE("the bytes of a request are those on the wire") {
  Pairing bench;
  bench.RequestCut(AQuery(7), 23, 512);
  CHECK(bench.OnlyQuery().request_bytes == 512);
}

TEST_CASE("the host is told of a recorded query field by field") {
  Pairing bench;
  bench.Request(AQuery(7), -5);
  REQUIRE(bench.host.records.size() == 1);
  CHECK(bench.host.Last() == RecordingHost::Record{.begin = true,
                                                   .spec_id = 1,
                                                   .request_id = 1,
                                                   .flow = &bench.flow,
                                                   .local_port = 40000,
                                                   .pattern = "A - IPv4 address lookup",
                                                   .pattern_address = bench.host.Last().pattern_address,
                                                   .start_time = -5});
}

TEST_CASE("recording asks the host for nothing and logs nothing") {
  Pairing bench;
  bench.Request(AQuery(7));
  CHECK(Calls(bench.host) == "begin");
}

TEST_CASE("the begin record's pattern holds the types of all questions") {
  Pairing bench;
  bench.Request(Query(7).Question("a", kA).Question("b", kHttps, kChaos).Wire());
  CHECK(bench.host.Last().pattern == "A - IPv4 address lookup, CH/UNKNOWN/65");
}

TEST_CASE("the begin record's pattern is not the table's copy") {
  Pairing bench;
  bench.Request(AQuery(7));
  CHECK(bench.host.Last().pattern_address != bench.OnlyQuery().types.c_str());
}

TEST_CASE("requests are numbered from 1, one after the other") {
  Pairing bench;
  bench.Request(AQuery(9));
  bench.Request(AQuery(3));
  bench.Request(AQuery(5));
  CHECK(bench.host.records.at(0).request_id == 1);
  CHECK(bench.host.records.at(1).request_id == 2);
  CHECK(bench.host.records.at(2).request_id == 3);
  CHECK(bench.parser.next_request_id == 4);
  CHECK(bench.parser.open_queries.begin()->second.request_id == 2);  // query 3
}

TEST_CASE("what is not recorded takes no number") {
  Pairing bench;
  bench.Request(Query(1).Opcode(4).Wire());
  bench.Request(Query(1).Wire());
  bench.Request(AResponse(1));
  bench.RequestCut(AQuery(1), 20, 23);
  bench.Request(AQuery(1));
  CHECK(bench.host.Last().request_id == 1);
}

TEST_CASE("numbers wrap around as signed ones") {
  Pairing bench;
  bench.parser.next_request_id = kHighestId;
  bench.Request(AQuery(1));
  CHECK(bench.parser.next_request_id == std::numeric_limits<int32_t>::min());
  bench.Request(AQuery(2));
  CHECK(bench.host.records.at(0).request_id == kHighestId);
  CHECK(bench.host.records.at(1).request_id == std::numeric_limits<int32_t>::min());
  bench.parser.next_request_id = -1;
  bench.Request(AQuery(3));
  CHECK(bench.parser.next_request_id == 0);
}

TEST_CASE("of two queries with one key the first one stands") {
  Pairing bench;
  bench.Request(AQuery(7), 100);
  CHECK(bench.Request(OtherQuery(7), 200));
  const DnsQuery& query = bench.OnlyQuery();
  CHECK(query.types == "A - IPv4 address lookup");
  CHECK(query.names == "aa.bb");
  CHECK(query.start_time.ticks == 100);
  CHECK(query.request_bytes == 23);
  CHECK(query.request_id == 1);
}

TEST_CASE("a duplicate is announced with its own text and a number that no open query has") {
  Pairing bench;
  bench.Request(AQuery(7), 100);
  bench.Request(OtherQuery(7), 200);
  REQUIRE(bench.host.records.size() == 2);
  const RecordingHost::Record& record = bench.host.Last();
  CHECK(record.begin);
  CHECK(record.request_id == 2);
  CHECK(record.pattern == "AAAA - IPv6 address lookup");
  CHECK(record.start_time == 200);
  CHECK(bench.parser.next_request_id == 3);
  CHECK(bench.OnlyQuery().request_id == 1);
}

TEST_CASE("a duplicate keeps the flow of the first query") {
  Pairing bench;
  bench.flow.host_field_5 = 1;
  bench.Request(AQuery(7));
  bench.flow.host_field_5 = 2;
  bench.Request(AQuery(7));
  CHECK(bench.parser.open_queries.begin()->first.flow.host_field_5 == 1);
}

TEST_CASE("a duplicate keeps the first query's DO bit") {
  Pairing bench(With("enable_dnssec", "1"));
  bench.Request(Query(7).Question("aa.bb", kA).Additional(Opt({.dnssec_ok = true})).Wire());
  bench.Request(AQuery(7));
  CHECK(bench.OnlyQuery().dnssec_ok);
}

TEST_CASE("the response to a duplicate ends the first query") {
  Pairing bench;
  bench.Request(AQuery(7), 100);
  bench.Request(OtherQuery(7), 200);
  bench.Response(AResponse(7), 350);
  CHECK(bench.host.Last().request_id == 1);
  CHECK(bench.host.Last().response_time == 250);
  CHECK(bench.Open() == 0);
}

TEST_CASE("the most queries open at once are remembered") {
  Pairing bench;
  bench.Request(AQuery(1));
  bench.Request(AQuery(2));
  CHECK(bench.parser.max_open_queries_seen == 2);
  bench.Response(AResponse(1));
  bench.Response(AResponse(2));
  bench.Request(AQuery(3));
  CHECK(bench.parser.max_open_queries_seen == 2);
  bench.Request(AQuery(3));
  CHECK(bench.parser.max_open_queries_seen == 2);
}

TEST_CASE("a duplicate raises the mark that a report has left behind") {
  Pairing bench;
  bench.Request(AQuery(1));
  bench.parser.max_open_queries_seen = 0;
  bench.Request(AQuery(1));
  CHECK(bench.parser.max_open_queries_seen == 1);
}

TEST_CASE("when the host hears of a query it is open, marked and still has the next number") {
  Pairing bench;
  size_t open = 0;
  int32_t mark = 0;
  int32_t next = 0;
  bench.host.on_record = [&] {
    open = bench.Open();
    mark = bench.parser.max_open_queries_seen;
    next = bench.parser.next_request_id;
  };
  bench.Request(AQuery(7));
  CHECK(open == 1);
  CHECK(mark == 1);
  CHECK(next == 1);
}

TEST_CASE("the number moves after the begin record was destroyed") {
  Pairing bench;
  int32_t next = 0;
  WatchingSink sink([&] { next = bench.parser.next_request_id; });
  bench.parser.request_sink = &sink;
  bench.Request(AQuery(7));
  CHECK(next == 1);
  CHECK(bench.parser.next_request_id == 2);
}

TEST_CASE("a sink that throws on a begin record leaves the query open and the number unmoved") {
  Pairing bench;
  bench.host.on_record = [] { throw std::runtime_error("the host refuses"); };
  CHECK_THROWS_AS(bench.Request(AQuery(7)), const std::runtime_error&);
  CHECK(bench.Open() == 1);
  CHECK(bench.parser.next_request_id == 1);
  CHECK(Counters(bench.parser) == "mor:1");
  bench.host.on_record = nullptr;
  CHECK(bench.Request(AQuery(8)));
  CHECK(bench.host.Last().request_id == 1);
  CHECK(bench.Response(AResponse(7)) == 1);
  CHECK(bench.host.Last().request_id == 1);
}

TEST_CASE("the exception of a sink leaves a datagram's call as it is") {
  Pairing bench;
  bench.host.on_record = [] { throw 5; };
  CHECK_THROWS_AS(bench.Up(AQuery(7)), int);
}
