#include <doctest/doctest.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tests/support/pairing.h"

using namespace test;

// What is asked of a response before its query is looked up, and the responses that nobody asked for.

namespace {

const std::string kTooSmall = Dropped("Packet too small", "Packet too small");
const std::string kUnsolicited = Traced(389, "Unsolicited response: ignoring", "Unsolicited response: ignoring");

// A parser with query 7 open, whose host has forgotten about it.
struct Asked : Pairing {
  explicit Asked(int log_level = 4) {
    Request(AQuery(7));
    Forget();
    host.level = log_level;
  }
  // Nothing has come of the response.
  void CheckUntouched() const {
    CHECK(Open() == 1);
    CHECK(host.records.empty());
    CHECK(host.mappings.empty());
    CHECK(Counters(parser) == "mor:1");
  }
};

}  // namespace

TEST_CASE("a response is traced at the door, with its flow and its lengths") {
  Pairing bench({}, 5);
  bench.flow = DistinctFlow();
  bench.ResponseCut(AResponse(7), 5, 60);
  REQUIRE_FALSE(bench.host.lines.empty());
  const RecordingHost::Line& line = bench.host.lines.front();
  CHECK(LogLine(line.level, line.format, line.text) ==
        Traced(346,
               "DNSParser::HandleResponse: local=%d.%d.%d.%d:%d remote=%d.%d.%d.%d:%d tport=%d snap=%d nominal=%d",
               "DNSParser::HandleResponse: local=1.2.3.4:40000 remote=250.251.252.253:65535 tport=6 snap=5 "
               "nominal=60"));
}

TEST_CASE("fewer than twelve bytes of a response captured whole are refused") {
  for (size_t size = 0; size < 12; ++size) {
    CAPTURE(size);
    Asked bench;
    CHECK(bench.ResponseCut(AResponse(7), size, size) == 0);
    CHECK(Log(bench.host) == kTooSmall);
    bench.CheckUntouched();
  }
}

TEST_CASE("fewer than twelve bytes of a response that has a header are accepted") {
  Asked bench;
  CHECK(bench.ResponseCut(AResponse(7), 11, 44) == 1);
  CHECK(bench.ResponseCut(AResponse(7), 0, 12) == 1);
  CHECK(bench.ResponseCut(AResponse(7), 11, 12) == 1);
  CHECK(Log(bench.host) == kTooSmall + kTooSmall + kTooSmall);
  bench.CheckUntouched();
}

TEST_CASE("a cut response that was too small on the wire already is refused") {
  Asked bench;
  CHECK(bench.ResponseCut(AResponse(7), 10, 11) == 0);
  CHECK(bench.ResponseCut(AResponse(7), 0, 11) == 0);
  bench.CheckUntouched();
}

TEST_CASE("responses to queries and to inverse queries are paired") {
  Pairing bench;
  bench.Request(AQuery(1));
  bench.Request(Query(2).Opcode(1).Question("aa.bb", kA).Wire());
  CHECK(bench.Response(AResponse(1)) == 1);
  CHECK(bench.Response(Response(2).Opcode(1).Question("aa.bb", kA).Wire()) == 1);
  CHECK(bench.Open() == 0);
}

TEST_CASE("responses with opcodes 2 to 5 are accepted silently") {
  for (const unsigned opcode : {2U, 3U, 4U, 5U}) {
    CAPTURE(opcode);
    Asked bench(5);
    CHECK(bench.Response(Response(7).Opcode(opcode).Question("aa.bb", kA).Wire()) == 1);
    CHECK(bench.host.lines.size() == 1);  // the door's
    CHECK(bench.host.debug_files.size() == 1);
    bench.CheckUntouched();
  }
}

TEST_CASE("responses with opcodes above 5 are refused and logged, but unlike requests not counted") {
  for (unsigned opcode = 6; opcode <= 15; ++opcode) {
    CAPTURE(opcode);
    Asked bench;
    CHECK(bench.Response(Response(7).Opcode(opcode).Question("aa.bb", kA).Wire()) == 0);
    CHECK(Log(bench.host) == Dropped("Unknown opcode %d", "Unknown opcode " + std::to_string(opcode)));
    bench.CheckUntouched();
  }
}

TEST_CASE("a response's opcode is looked at before its response flag") {
  Asked bench;
  CHECK(bench.Response(Query(7).Opcode(9).Wire()) == 0);
  CHECK(bench.host.Texts(4) == std::vector<std::string>{"[dns]-Unknown opcode 9"});
  CHECK(bench.Response(Query(7).Opcode(5).Wire()) == 1);
  bench.CheckUntouched();
}

TEST_CASE("a response with an unknown opcode is not dumped") {
  Asked bench(5);
  bench.Response(Response(7).Opcode(6).Question("aa.bb", kA).Wire());
  CHECK(bench.host.lines.size() == 2);  // the door's and the refusal
}

TEST_CASE("a request from the server is refused") {
  Asked bench;
  CHECK(bench.Response(AQuery(7)) == 0);
  CHECK(Log(bench.host) == Dropped("Expected response, got request", "Expected response, got request"));
  bench.CheckUntouched();
}

TEST_CASE("a request from the server is dumped before it is refused") {
  Asked bench(5);
  bench.Response(AQuery(7));
  REQUIRE(bench.host.lines.size() >= 3);
  CHECK(bench.host.lines.at(1).format.find("qid=%u") != std::string::npos);
  CHECK(bench.host.lines.back().text == "[dns]-Expected response, got request");
}

TEST_CASE("refused responses are logged at level 4 and not below") {
  Asked bench(3);
  bench.ResponseCut(AResponse(7), 5, 5);
  bench.Response(Response(7).Opcode(9).Wire());
  bench.Response(AQuery(7));
  CHECK(Calls(bench.host).empty());
  bench.host.level = 4;
  bench.ResponseCut(AResponse(7), 5, 5);
  bench.Response(Response(7).Opcode(9).Wire());
  bench.Response(AQuery(7));
  CHECK(Calls(bench.host) == "log log log");
}

TEST_CASE("an unsolicited response is accepted, counted and otherwise ignored") {
  Asked bench;
  CHECK(bench.Response(AResponse(8)) == 1);
  CHECK(Counters(bench.parser) == "ur:1 mor:1");
  CHECK(Calls(bench.host).empty());
  CHECK(bench.Open() == 1);
}

TEST_CASE("an unsolicited response is traced, and its counter moves whether it is traced or not") {
  Pairing bench({}, 5);
  bench.Response(Response(8).Wire());
  REQUIRE(bench.host.lines.size() == 3);  // door, dump
  CHECK(LogLine(5, bench.host.lines.back().format, bench.host.lines.back().text) == kUnsolicited);
  CHECK(bench.host.debug_files.size() == 4);  // each line, and whether to dump
  bench.host.debug_enabled = false;
  bench.Forget();
  bench.Response(Response(8).Wire());
  CHECK(bench.host.lines.empty());
  CHECK(bench.host.debug_files.size() == 3);  // door, dump, unsolicited
  CHECK(bench.parser.unsolicited_responses == 2);
}

TEST_CASE("an unsolicited response is traced, then counted") {
  Pairing bench({}, 5);
  std::vector<int64_t> seen;
  const LogWatch watch(&bench.host.table, [&](const std::string& line) {
    if (line.find("Unsolicited") != std::string::npos) seen.push_back(bench.parser.unsolicited_responses);
  });
  bench.Response(AResponse(8));
  bench.Response(AResponse(8));
  CHECK(seen == std::vector<int64_t>{0, 1});
}

TEST_CASE("an unsolicited response is not read: broken questions do not matter") {
  Pairing bench;
  CHECK(bench.Response(Response(8).QuestionCount(1).Bytes("\x80").Wire()) == 1);
  CHECK(bench.ResponseCut(AResponse(8), 12, 12) == 1);
  CHECK(Log(bench.host).empty());
  CHECK(bench.parser.unsolicited_responses == 2);
}

TEST_CASE("a second response to the same query is unsolicited") {
  Pairing bench;
  bench.Request(AQuery(7));
  CHECK(bench.Response(AResponse(7)) == 1);
  CHECK(bench.host.records.size() == 2);
  CHECK(bench.host.mappings.size() == 1);
  CHECK(bench.Response(AResponse(7)) == 1);
  CHECK(bench.host.records.size() == 2);
  CHECK(bench.host.mappings.size() == 1);
  CHECK(Counters(bench.parser) == "ur:1 inj:1 mor:1");
}

TEST_CASE("a response after its query has expired is unsolicited") {
  Pairing bench;
  bench.Request(AQuery(7), 0);
  bench.parser.Heartbeat({5000001});
  CHECK(bench.Response(AResponse(7), 5000002) == 1);
  CHECK(bench.parser.unsolicited_responses == 1);
}

TEST_CASE("a dump that runs past the captured bytes does not spoil the response") {
  Asked bench(5);
  const std::string message = Response(7).Question("aa.bb", kA).AuthorityCount(2).Wire();
  CHECK(bench.Response(message) == 1);
  CHECK(bench.Open() == 0);
  CHECK(bench.host.Last().strings == std::map<std::string, std::string>{{"Names", "aa.bb"}});
  CHECK_FALSE(bench.host.Texts(4).empty());  // the dump did run past them
}

TEST_CASE("responses come in any order") {
  Pairing bench;
  for (const unsigned id : {1U, 2U, 3U}) bench.Request(AQuery(id));
  for (const unsigned id : {2U, 3U, 1U}) bench.Response(AResponse(id));
  CHECK(bench.Open() == 0);
  CHECK(bench.host.records.at(3).request_id == 2);
  CHECK(bench.host.records.at(4).request_id == 3);
  CHECK(bench.host.records.at(5).request_id == 1);
}
