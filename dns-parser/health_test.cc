#include <doctest/doctest.h>

#include <cstring>
#include <limits>
#include <string>

#include "tests/support/pairing.h"

using namespace test;

// The health line and the counters behind it.

namespace {

constexpr int64_t kHighest = std::numeric_limits<int64_t>::max();
constexpr int64_t kLowest = std::numeric_limits<int64_t>::min();

std::string Health(DNSParser* parser) { return parser->GetHealthEvent(); }
std::string Health(Pairing* bench) { return Health(&bench->parser); }

}  // namespace

TEST_CASE("a fresh parser's line is all zeros") {
  Pairing bench;
  CHECK(Health(&bench) == "parser:dns uop:0 zqd:0 mqd:0 ur:0 inj:0 mor:0 or:0 rt:0");
}

TEST_CASE("each counter has its place in the line") {
  Pairing bench;
  bench.parser.unknown_opcodes = 1;
  bench.parser.zero_qdcount_requests = 2;
  bench.parser.table_full_drops = 99;
  bench.parser.multi_qdcount_requests = 3;
  bench.parser.unsolicited_responses = 4;
  bench.parser.injected_mappings = 5;
  bench.parser.max_open_queries_seen = 6;
  bench.parser.timed_out_requests = 7;
  CHECK(Health(&bench) == "parser:dns uop:1 zqd:2 mqd:3 ur:4 inj:5 mor:6 or:0 rt:7");
}

TEST_CASE("counters have a sign and 64 bits, the mark 32") {
  Pairing bench;
  bench.parser.unknown_opcodes = kHighest;
  bench.parser.zero_qdcount_requests = kLowest;
  bench.parser.multi_qdcount_requests = kHighest;
  bench.parser.unsolicited_responses = kLowest;
  bench.parser.injected_mappings = kHighest;
  bench.parser.max_open_queries_seen = -2147483647 - 1;
  bench.parser.timed_out_requests = kLowest;
  CHECK(Health(&bench) ==
        "parser:dns uop:9223372036854775807 zqd:-9223372036854775808 mqd:9223372036854775807 "
        "ur:-9223372036854775808 inj:9223372036854775807 mor:-2147483648 or:0 rt:-9223372036854775808");
}

TEST_CASE("a report starts every counter anew, the one that is not printed included") {
  Pairing bench(With("max_open_requests", "1"));
  bench.Request(Query(1).Opcode(9).Wire());
  bench.Request(Query(1).Wire());
  bench.Request(Query(1).Question("a", kA).Question("b", kA).Wire(), 0);
  bench.Request(AQuery(2));
  bench.Response(AResponse(9));
  bench.parser.Heartbeat({5000001});
  bench.Request(AQuery(3), 5000001);
  bench.Response(AResponse(3), 5000001);
  CHECK(Counters(bench.parser) == "uop:1 zqd:1 full:1 mqd:1 ur:1 inj:1 rt:1 mor:1");
  CHECK(Health(&bench) == "parser:dns uop:1 zqd:1 mqd:1 ur:1 inj:1 mor:1 or:0 rt:1");
  CHECK(Counters(bench.parser).empty());
  CHECK(Health(&bench) == "parser:dns uop:0 zqd:0 mqd:0 ur:0 inj:0 mor:0 or:0 rt:0");
}

TEST_CASE("what is open is what is open now, and the mark starts from it") {
  Pairing bench;
  for (const unsigned id : {1U, 2U, 3U}) bench.Request(AQuery(id));
  CHECK(Health(&bench) == "parser:dns uop:0 zqd:0 mqd:0 ur:0 inj:0 mor:3 or:3 rt:0");
  CHECK(bench.parser.max_open_queries_seen == 3);
  CHECK(Health(&bench) == "parser:dns uop:0 zqd:0 mqd:0 ur:0 inj:0 mor:3 or:3 rt:0");
}

TEST_CASE("the mark shows the most queries open since the last report") {
  Pairing bench;
  for (const unsigned id : {1U, 2U, 3U}) bench.Request(AQuery(id));
  bench.Response(AResponse(1));
  CHECK(Health(&bench) == "parser:dns uop:0 zqd:0 mqd:0 ur:0 inj:1 mor:3 or:2 rt:0");
  bench.Response(AResponse(2));
  CHECK(Health(&bench) == "parser:dns uop:0 zqd:0 mqd:0 ur:0 inj:1 mor:2 or:1 rt:0");
  bench.Request(AQuery(4));
  bench.Request(AQuery(5));
  CHECK(Health(&bench) == "parser:dns uop:0 zqd:0 mqd:0 ur:0 inj:0 mor:3 or:3 rt:0");
}

TEST_CASE("an expired query is counted and no longer open") {
  Pairing bench;
  bench.Request(AQuery(1), 0);
  bench.Request(AQuery(2), 5000000);
  bench.parser.Heartbeat({5000001});
  CHECK(Health(&bench) == "parser:dns uop:0 zqd:0 mqd:0 ur:0 inj:0 mor:2 or:1 rt:1");
}

TEST_CASE("requests that a full table refused are cleared unseen") {
  Pairing bench(With("max_open_requests", "0"));
  for (unsigned id = 0; id < 10; ++id) bench.Request(AQuery(id));
  CHECK(bench.parser.table_full_drops == 10);
  CHECK(Health(&bench) == "parser:dns uop:0 zqd:0 mqd:0 ur:0 inj:0 mor:0 or:0 rt:0");
  CHECK(bench.parser.table_full_drops == 0);
}

TEST_CASE("a report asks the host for nothing and leaves the queries alone") {
  Pairing bench({}, 5);
  bench.host.debug_enabled = false;
  bench.Request(AQuery(1));
  bench.Forget();
  Health(&bench);
  CHECK(Calls(bench.host).empty());
  CHECK(bench.host.debug_files.empty());
  CHECK(bench.Open() == 1);
  CHECK(bench.parser.next_request_id == 2);
}

TEST_CASE("all parsers report into one buffer") {
  RecordingHost host;
  DNSParser one(&host.table, {});
  DNSParser other(&host.table, {});
  one.unknown_opcodes = 1;
  other.unknown_opcodes = 2;
  const char* first = one.GetHealthEvent();
  CHECK(std::string(first) == "parser:dns uop:1 zqd:0 mqd:0 ur:0 inj:0 mor:0 or:0 rt:0");
  const char* second = other.GetHealthEvent();
  CHECK(first == second);
  CHECK(std::string(first) == "parser:dns uop:2 zqd:0 mqd:0 ur:0 inj:0 mor:0 or:0 rt:0");
}

TEST_CASE("the report is reached through the host's interface") {
  Pairing bench;
  IProtocolParser& parser = bench.parser;
  CHECK(std::strncmp(parser.GetHealthEvent(), "parser:dns ", 11) == 0);
}
