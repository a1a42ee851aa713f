#include <doctest/doctest.h>

#include <string>
#include <vector>

#include "tests/support/pairing.h"

using namespace test;

// What is asked of a message before its questions are read.

namespace {

const std::string kTooSmall = Dropped("Packet too small", "Packet too small");

std::string UnknownOpcode(unsigned opcode) {
  return Dropped("Unknown opcode %d", "Unknown opcode " + std::to_string(opcode));
}

std::string TableFull(const std::string& sizes) {
  return Logged(2, "DNS open_queries table is full: %zd/%d", "DNS open_queries table is full: " + sizes);
}

// Only lines of the given level.
std::string LogAt(const RecordingHost& host, int level) {
  std::string text;
  for (const RecordingHost::Line& line : host.lines) {
    if (line.level == level) text += LogLine(line.level, line.format, line.text);
  }
  return text;
}

}  // namespace

TEST_CASE("a request is traced at the door, with its flow and its lengths") {
  Pairing bench({}, 5);
  bench.flow = DistinctFlow();
  bench.RequestCut(AQuery(7), 5, 60);
  REQUIRE_FALSE(bench.host.lines.empty());
  const RecordingHost::Line& line = bench.host.lines.front();
  CHECK(LogLine(line.level, line.format, line.text) ==
        Traced(153,
               "DNSParser::HandleRequest: local=%d.%d.%d.%d:%d remote=%d.%d.%d.%d:%d tport=%d snap=%d nominal=%d",
               "DNSParser::HandleRequest: local=1.2.3.4:40000 remote=250.251.252.253:65535 tport=6 snap=5 "
               "nominal=60"));
}

TEST_CASE("fewer than twelve bytes captured whole are refused") {
  for (size_t size = 0; size < 12; ++size) {
    CAPTURE(size);
    Pairing bench;
    CHECK_FALSE(bench.RequestCut(AQuery(7), size, size));
    CHECK(Log(bench.host) == kTooSmall);
    CHECK(Counters(bench.parser).empty());
  }
}

TEST_CASE("fewer than twelve bytes of a message that has a header are accepted and not recorded") {
  Pairing bench;
  CHECK(bench.RequestCut(AQuery(7), 10, 60));
  CHECK(bench.RequestCut(AQuery(7), 0, 12));
  CHECK(bench.RequestCut(AQuery(7), 11, 12));
  CHECK(Log(bench.host) == kTooSmall + kTooSmall + kTooSmall);
  CHECK(bench.Open() == 0);
  CHECK(bench.host.records.empty());
  CHECK(Counters(bench.parser).empty());
}

TEST_CASE("a cut message that was too small on the wire already is refused") {
  Pairing bench;
  CHECK_FALSE(bench.RequestCut(AQuery(7), 10, 11));
  CHECK_FALSE(bench.RequestCut(AQuery(7), 0, 11));
  CHECK(Log(bench.host) == kTooSmall + kTooSmall);
}

TEST_CASE("a small message is logged at level 4 and not below") {
  Pairing bench({}, 3);
  CHECK_FALSE(bench.RequestCut(AQuery(7), 5, 5));
  CHECK(Calls(bench.host).empty());
}

TEST_CASE("queries and inverse queries are recorded") {
  Pairing bench;
  CHECK(bench.Request(Query(1).Opcode(0).Question("aa.bb", kA).Wire()));
  CHECK(bench.Request(Query(2).Opcode(1).Question("aa.bb", kA).Wire()));
  CHECK(bench.Open() == 2);
}

TEST_CASE("status, the unassigned 3, notify and update are accepted silently") {
  for (const unsigned opcode : {2U, 3U, 4U, 5U}) {
    CAPTURE(opcode);
    Pairing bench({}, 5);
    CHECK(bench.Request(Query(1).Opcode(opcode).Question("aa.bb", kA).Wire()));
    CHECK(bench.host.lines.size() == 1);  // the door's
    CHECK(bench.host.debug_files.size() == 1);
    CHECK(bench.Open() == 0);
    CHECK(bench.host.records.empty());
    CHECK(Counters(bench.parser).empty());
  }
}

TEST_CASE("opcodes above update are refused, logged and counted") {
  for (unsigned opcode = 6; opcode <= 15; ++opcode) {
    CAPTURE(opcode);
    Pairing bench;
    CHECK_FALSE(bench.Request(Query(1).Opcode(opcode).Question("aa.bb", kA).Wire()));
    CHECK(Log(bench.host) == UnknownOpcode(opcode));
    CHECK(Counters(bench.parser) == "uop:1");
    CHECK(bench.Open() == 0);
  }
}

TEST_CASE("the opcode is looked at before the response flag, the questions and the table") {
  Pairing bench(With("max_open_requests", "0"));
  CHECK_FALSE(bench.Request(Response(1).Opcode(6).Wire()));
  CHECK(Log(bench.host) == UnknownOpcode(6));
  CHECK(Counters(bench.parser) == "uop:1");
  CHECK(bench.Request(Response(1).Opcode(4).Wire()));
  CHECK(Counters(bench.parser) == "uop:1");
}

TEST_CASE("an unknown opcode is not dumped") {
  Pairing bench({}, 5);
  bench.Request(Query(1).Opcode(6).Question("aa.bb", kA).Wire());
  CHECK(bench.host.lines.size() == 2);  // the door's and the refusal
}

TEST_CASE("a response from the client is refused and not counted") {
  Pairing bench;
  CHECK_FALSE(bench.Request(AResponse(7)));
  CHECK(Log(bench.host) == Dropped("Expected request, got response", "Expected request, got response"));
  CHECK(Counters(bench.parser).empty());
  CHECK(bench.Open() == 0);
}

TEST_CASE("a response without a question is refused for being a response") {
  Pairing bench;
  CHECK_FALSE(bench.Request(Response(7).Wire()));
  CHECK(bench.host.Texts(4) == std::vector<std::string>{"[dns]-Expected request, got response"});
  CHECK(Counters(bench.parser).empty());
}

TEST_CASE("a response is dumped before it is refused") {
  Pairing bench({}, 5);
  bench.Request(AResponse(7));
  REQUIRE(bench.host.lines.size() >= 3);
  CHECK(bench.host.lines.at(1).format.find("qid=%u") != std::string::npos);
  CHECK(bench.host.lines.back().text == "[dns]-Expected request, got response");
}

TEST_CASE("a request without a question is accepted, logged, counted and not recorded") {
  Pairing bench;
  CHECK(bench.Request(Query(7).Wire()));
  CHECK(Log(bench.host) == Dropped("Zero qdcount", "Zero qdcount"));
  CHECK(Counters(bench.parser) == "zqd:1");
  CHECK(bench.Open() == 0);
}

TEST_CASE("a request without a question is counted even when the table is full") {
  Pairing bench(With("max_open_requests", "0"));
  CHECK(bench.Request(Query(7).Wire()));
  CHECK(Counters(bench.parser) == "zqd:1");
}

TEST_CASE("a request with several questions is counted once") {
  Pairing bench;
  CHECK(bench.Request(Query(7).Question("a", kA).Question("b", kA).Question("c", kA).Wire()));
  CHECK(Counters(bench.parser) == "mqd:1 mor:1");
  CHECK(bench.Open() == 1);
}

TEST_CASE("a request with one question is not counted as one with several") {
  Pairing bench;
  bench.Request(AQuery(7));
  CHECK(Counters(bench.parser) == "mor:1");
}

TEST_CASE("several questions are counted before the table is found full") {
  Pairing bench(With("max_open_requests", "0"));
  CHECK(bench.Request(Query(7).Question("a", kA).Question("b", kA).Wire()));
  CHECK(Counters(bench.parser) == "full:1 mqd:1");
}

TEST_CASE("several questions are counted even when they cannot be read") {
  Pairing bench;
  CHECK_FALSE(bench.Request(Query(7).Question("a", kA).QuestionCount(2).Wire()));
  CHECK(Counters(bench.parser) == "mqd:1");
}

TEST_CASE("a full table refuses the request, which is accepted, logged and counted") {
  Pairing bench(With("max_open_requests", "2"));
  CHECK(bench.Request(AQuery(1)));
  CHECK(bench.Request(AQuery(2)));
  CHECK(Log(bench.host).empty());
  CHECK(bench.Request(AQuery(3)));
  CHECK(Log(bench.host) == TableFull("2/2"));
  CHECK(Counters(bench.parser) == "full:1 mor:2");
  CHECK(bench.Open() == 2);
  CHECK(bench.host.records.size() == 2);
  CHECK(bench.parser.next_request_id == 3);
}

TEST_CASE("nothing is evicted from a full table") {
  Pairing bench(With("max_open_requests", "1"));
  bench.Request(Query(5).Question("first", kA).Wire());
  bench.Request(Query(4).Question("second", kA).Wire());
  bench.Request(Query(6).Question("third", kA).Wire());
  CHECK(bench.OnlyQuery().names == "first");
  CHECK(bench.parser.table_full_drops == 2);
}

TEST_CASE("a full table takes requests again when a query was answered") {
  Pairing bench(With("max_open_requests", "1"));
  bench.Request(AQuery(1));
  bench.Request(AQuery(2));
  bench.Response(AResponse(1));
  CHECK(bench.Request(AQuery(3)));
  CHECK(bench.Open() == 1);
  CHECK(bench.host.Last().begin);
}

TEST_CASE("a duplicate at a full table is refused and not announced") {
  Pairing bench(With("max_open_requests", "1"));
  bench.Request(AQuery(1));
  CHECK(bench.Request(AQuery(1)));
  CHECK(bench.host.records.size() == 1);
  CHECK(bench.parser.table_full_drops == 1);
  CHECK(Log(bench.host) == TableFull("1/1"));
}

TEST_CASE("a table of no or of negative capacity refuses every query") {
  for (const int capacity : {0, -1, -2147483647 - 1}) {
    Pairing bench(With("max_open_requests", std::to_string(capacity)));
    CHECK(bench.Request(AQuery(1)));
    CHECK(Log(bench.host) == TableFull("0/" + std::to_string(capacity)));
    CHECK(bench.parser.table_full_drops == 1);
    CHECK(bench.Open() == 0);
  }
}

TEST_CASE("a full table is found before a question is read") {
  Pairing bench(With("max_open_requests", "0"));
  CHECK(bench.Request(Query(1).QuestionCount(1).Bytes("\x80").Wire()));
  CHECK(bench.parser.table_full_drops == 1);
  CHECK(bench.host.Texts(4).empty());
}

TEST_CASE("a full table is logged at level 2 and not below") {
  Pairing bench(With("max_open_requests", "0"), 2);
  bench.Request(AQuery(1));
  CHECK(bench.host.lines.size() == 1);
  bench.host.level = 1;
  bench.Request(AQuery(1));
  CHECK(bench.host.lines.size() == 1);
  CHECK(bench.parser.table_full_drops == 2);
}

TEST_CASE("unknown opcodes, missing questions and a full table are counted, then logged") {
  Pairing bench(With("max_open_requests", "0"));
  std::vector<std::string> seen;
  const LogWatch watch(&bench.host.table, [&](const std::string&) { seen.push_back(Counters(bench.parser)); });
  bench.Request(Query(1).Opcode(9).Wire());
  bench.Request(Query(1).Wire());
  bench.Request(AQuery(1));
  CHECK(seen == std::vector<std::string>{"uop:1", "uop:1 zqd:1", "uop:1 zqd:1 full:1"});
}

TEST_CASE("a request is dumped between the door and its recording") {
  Pairing bench({}, 5);
  CHECK(bench.Request(AQuery(7)));
  REQUIRE(bench.host.lines.size() == 3);
  CHECK(bench.host.lines.at(0).format.find("HandleRequest") != std::string::npos);
  CHECK(bench.host.lines.at(1).format.find("qid=%u") != std::string::npos);
  CHECK(bench.host.lines.at(2).format.find("question[%d]@%d") != std::string::npos);
  CHECK(Calls(bench.host) == "log log log begin");
}

TEST_CASE("a dump that runs past the captured bytes spoils nothing") {
  const std::string message = Query(7).Question("aa.bb", kA).AnswerCount(3).Wire();
  Pairing bench({}, 5);
  CHECK(bench.Request(message));
  CHECK(bench.Open() == 1);
  CHECK_FALSE(LogAt(bench.host, 4).empty());  // the dump did run past them
}

TEST_CASE("the dump is asked for afresh") {
  Pairing bench({}, 5);
  bench.host.debug_enabled = false;
  bench.Request(AQuery(7));
  CHECK(bench.host.debug_files == std::vector<std::string>(2, "dns-parser.cc"));  // the door, the dump
  CHECK(Calls(bench.host) == "begin");
}
