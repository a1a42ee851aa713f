#include <doctest/doctest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/support/pairing.h"

using namespace test;

// Which messages the host gets at which level, and what they all have in common. Each text is tested where it
// belongs.

namespace {

// Makes the parser say everything it can say outside the decoders.
void ProvokeAll(Pairing* bench) {
  bench->parser.max_open_requests = 2;
  bench->flow.transport = 1;
  bench->Up(AQuery(1));  // unknown transport
  bench->flow.transport = kTransportTcp;
  bench->Up(Framed(AQuery(1)).substr(0, 5));  // a frame
  bench->flow.transport = kTransportUdp;
  bench->Up("");                         // too small
  bench->Up(Query(1).Opcode(9).Wire());  // unknown opcode
  bench->Up(AResponse(1));               // a response
  bench->Up(Query(1).Wire());            // no question
  bench->Up(AQuery(1));
  bench->Up(AQuery(2));
  bench->Up(AQuery(3));                       // full
  bench->Down("");                            // too small
  bench->Down(Response(1).Opcode(9).Wire());  // unknown opcode
  bench->Down(AQuery(1));                     // a request
  bench->Down(AResponse(9));                  // unsolicited
  bench->Down(Response(1).Wire());            // unexpected question
  bench->parser.Heartbeat({100000000});       // too old
}

// The levels of the lines that a host at `level` gets of all these.
std::set<int> LevelsAt(int level, bool debug = true) {
  RecordingHost host;
  host.level = level;
  host.debug_enabled = debug;
  std::set<int> levels;
  {
    const DNSParser parser(&host.table, {});  // the starting line
    for (const RecordingHost::Line& line : host.lines) levels.insert(line.level);
  }
  return levels;
}

std::set<int> ProvokedAt(int level, bool debug = true) {
  Pairing bench({}, level);
  bench.host.debug_enabled = debug;
  ProvokeAll(&bench);
  std::set<int> levels;
  for (const RecordingHost::Line& line : bench.host.lines) levels.insert(line.level);
  return levels;
}

}  // namespace

TEST_CASE("a message is produced only when the host's level is at least its own") {
  CHECK(ProvokedAt(-2147483647 - 1).empty());
  CHECK(ProvokedAt(0).empty());
  CHECK(ProvokedAt(1).empty());
  CHECK(ProvokedAt(2) == std::set<int>{2});
  CHECK(ProvokedAt(3) == std::set<int>{2});
  CHECK(ProvokedAt(4) == std::set<int>{2, 4});
  CHECK(ProvokedAt(5) == std::set<int>{2, 4, 5});
  CHECK(ProvokedAt(2147483647) == std::set<int>{2, 4, 5});
  CHECK(LevelsAt(2).empty());
  CHECK(LevelsAt(3) == std::set<int>{3});
  CHECK(LevelsAt(9) == std::set<int>{3});
}

TEST_CASE("traces need the debug switch as well") {
  CHECK(ProvokedAt(5, false) == std::set<int>{2, 4});
  CHECK(ProvokedAt(9, false) == std::set<int>{2, 4});
}

TEST_CASE("every kind of message was provoked") {
  Pairing bench({}, 5);
  ProvokeAll(&bench);
  std::map<int, std::set<std::string>> formats;
  for (const RecordingHost::Line& line : bench.host.lines) formats[line.level].insert(line.format);
  CHECK(formats[2].size() == 3);
  CHECK(formats[4].size() == 6);
  CHECK(formats[5].size() >= 5);
}

TEST_CASE("every format starts with the prefix, traces with file and line before it, and ends without a newline") {
  Pairing bench({}, 5);
  ProvokeAll(&bench);
  for (const RecordingHost::Line& line : bench.host.lines) {
    CAPTURE(line.format);
    const bool trace = line.level == 5;
    CHECK(line.format.starts_with(trace ? "[%s:%d]-%s" : "%s"));
    CHECK(line.text.starts_with(trace ? "[dns-parser.cc:" : "[dns]-"));
    CHECK(line.text.find("[dns]-") != std::string::npos);
    CHECK(line.text.find('\n') == std::string::npos);
  }
}

TEST_CASE("the switch is asked once for each trace, by the name of one file") {
  Pairing bench({}, 5);
  bench.Request(AQuery(7));
  const auto traces = std::ranges::count(bench.host.lines, 5, &RecordingHost::Line::level);
  // Once more for whether to dump at all.
  CHECK(bench.host.debug_files == std::vector<std::string>(static_cast<size_t>(traces) + 1, "dns-parser.cc"));
}

TEST_CASE("the switch is not asked below level 5") {
  Pairing bench({}, 4);
  ProvokeAll(&bench);
  CHECK(bench.host.debug_files.empty());
}

TEST_CASE("the switch is asked at each place for a trace when it is off") {
  Pairing bench({}, 5);
  bench.host.debug_enabled = false;
  bench.Request(AQuery(7));  // door, dump
  CHECK(bench.host.debug_files.size() == 2);
  bench.flow.transport = kTransportTcp;
  bench.Up(Framed(AQuery(8)));  // frame, door, dump
  CHECK(bench.host.debug_files.size() == 5);
  bench.Down(Framed(AResponse(9)));  // frame, door, dump, unsolicited
  CHECK(bench.host.debug_files.size() == 9);
  bench.Down(Framed(Response(8).Question("aa.bb", kA).Wire()));  // frame, door, dump
  CHECK(bench.host.debug_files.size() == 12);
}

TEST_CASE("the level is read anew before every message") {
  Pairing bench({}, 5);
  std::vector<std::string> lines;
  const LogWatch watch(&bench.host.table, [&](const std::string& line) {
    lines.push_back(line);
    bench.host.level = 0;  // enough
  });
  bench.Request(AQuery(7));
  CHECK(lines.size() == 1);
  bench.host.level = 4;
  bench.Request(Query(7).Wire());
  CHECK(lines.size() == 2);
  CHECK(lines.back() == "[dns]-Zero qdcount");
}

TEST_CASE("the level may rise in the middle of a message") {
  Pairing bench({}, 2);
  bench.Request(AQuery(7));
  std::vector<std::string> lines;
  const LogWatch watch(&bench.host.table, [&](const std::string& line) {
    lines.push_back(line);
    bench.host.level = 5;
  });
  // A warning at level 2, and then the trace of the mapping.
  bench.Response(Response(7).Answer("aa.bb", A("192.0.2.1")).Wire());
  REQUIRE(lines.size() == 2);
  CHECK(lines[1].find("Injected dns mapping") != std::string::npos);
}

TEST_CASE("the level is the host's word, wherever it points") {
  RecordingHost host;
  int elsewhere = 9;
  host.table.log_level = &elsewhere;
  host.level = 0;
  const DNSParser parser(&host.table, {});
  CHECK(host.lines.size() == 1);
}

TEST_CASE("counters, records and results are the same at every level") {
  Pairing bench({}, 0);
  ProvokeAll(&bench);
  const std::string counters = Counters(bench.parser);
  CHECK(counters == "uop:1 zqd:1 full:1 ur:1 rt:1 mor:2");
  const size_t records = bench.host.records.size();
  CHECK(records == 4);
  for (const int level : {2, 4, 5}) {
    bench.parser.GetHealthEvent();
    bench.parser.max_open_queries_seen = 0;
    bench.Forget();
    bench.host.level = level;
    ProvokeAll(&bench);
    CHECK(Counters(bench.parser) == counters);
    CHECK(bench.host.records.size() == records);
  }
}

TEST_CASE("an exception from the host's log passes through") {
  Pairing bench;
  const LogWatch watch(&bench.host.table, [](const std::string&) { throw 5; });
  CHECK_THROWS_AS(bench.Up(Query(1).Wire()), int);
  CHECK(bench.parser.zero_qdcount_requests == 1);  // counted, then logged
}
