#include <doctest/doctest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/pairing.h"

using namespace test;

// Messages behind their two-byte length (RFC 1035 4.2.2).

namespace {

using Handed = std::vector<std::string>;

// A parser on a TCP flow whose host sees every trace.
struct Stream : Pairing {
  explicit Stream(int log_level = 5) : Pairing({}, log_level) { flow.transport = kTransportTcp; }

  // The frame handler alone.
  int Frame(const std::string& bytes, int snap, int nominal, bool is_request = true) {
    return parser.HandleTCPFrame(&flow, {0}, bytes.data(), snap, nominal, is_request);
  }
};

// A query of 30 bytes and one of 40.
std::string Query30(unsigned id) { return Query(id).Question("aaaaaa.bbbbb", kA).Wire(); }
std::string Query40(unsigned id) { return Query(id).Question("aaaaaaaaaaa.bbbbbbbbbb", kA).Wire(); }

std::string FrameTrace(const std::string& kind, int size, int have) {
  return Traced(
      118, "Handle TCP %s frame with size=%d (have %d)",
      "Handle TCP " + kind + " frame with size=" + std::to_string(size) + " (have " + std::to_string(have) + ")");
}

// Lines that are frame traces.
std::string FrameTraces(const RecordingHost& host) {
  std::string text;
  for (const RecordingHost::Line& line : host.lines) {
    if (line.format.find("frame with size") != std::string::npos) {
      text += LogLine(line.level, line.format, line.text);
    }
  }
  return text;
}

}  // namespace

TEST_CASE("the example messages have the sizes their names say") {
  CHECK(Query30(1).size() == 30);
  CHECK(Query40(1).size() == 40);
}

TEST_CASE("two complete messages in one chunk are both handed on and consumed") {
  Stream bench;
  CHECK(bench.Up(Framed(Query30(1)) + Framed(Query40(2))) == 74);
  CHECK(HandedOn(bench.host) == Handed{"request snap=30 nominal=30", "request snap=40 nominal=40"});
  CHECK(bench.Open() == 2);
  CHECK(bench.parser.open_queries.begin()->second.names == "aaaaaa.bbbbb");
  CHECK(bench.parser.open_queries.rbegin()->second.names == "aaaaaaaaaaa.bbbbbbbbbb");
}

TEST_CASE("messages from the server are responses") {
  Stream bench;
  bench.Up(Framed(AQuery(1)) + Framed(AQuery(2)));
  bench.Forget();
  const std::string chunk = Framed(AResponse(2)) + Framed(AResponse(1));
  CHECK(bench.Down(chunk) == static_cast<int>(chunk.size()));
  CHECK(bench.Open() == 0);
  CHECK(HandedOn(bench.host) == Handed{"response snap=44 nominal=44", "response snap=44 nominal=44"});
}

TEST_CASE("many messages in one chunk are all handed on") {
  Stream bench(4);
  std::string chunk;
  for (unsigned id = 1; id <= 200; ++id) chunk += Framed(AQuery(id));
  CHECK(bench.Up(chunk) == 200 * 25);
  CHECK(bench.Open() == 200);
}

TEST_CASE("the start of a next message is left to the next call") {
  Stream bench;
  const std::string chunk = Framed(Query30(1)) + Framed(Query40(2)).substr(0, 5);
  CHECK(bench.Up(chunk) == 32);
  CHECK(HandedOn(bench.host) == Handed{"request snap=30 nominal=30"});
  CHECK(FrameTraces(bench.host) == FrameTrace("request", 30, 35) + FrameTrace("request", 40, 3));
}

TEST_CASE("half a length is left to the next call") {
  Stream bench;
  CHECK(bench.Up(Framed(Query30(1)) + std::string(1, '\0')) == 32);
  CHECK(bench.Open() == 1);
}

TEST_CASE("a chunk of fewer than two bytes has no length yet, captured or not") {
  Stream bench;
  const std::string chunk = Framed(Query30(1));
  CHECK(bench.Up(chunk, 1, 1) == 0);
  CHECK(bench.Up(chunk, 0, 1) == 0);
  CHECK(bench.Up(chunk, 0, 0) == 0);
  CHECK(bench.parser.HandleDataClientToServer(&bench.flow, {0}, chunk.data(), -1, -1, 0, nullptr) == 0);
  CHECK(bench.parser.HandleDataClientToServer(&bench.flow, {0}, chunk.data(), -1, 1, 0, nullptr) == 0);
  CHECK(Calls(bench.host).empty());
}

TEST_CASE("a length that was not captured cannot be known") {
  Stream bench;
  const std::string chunk = Framed(Query30(1));
  CHECK(bench.Up(chunk, 1, 2) == -1);
  CHECK(bench.Up(chunk, 0, 2) == -1);
  CHECK(bench.Up(chunk, 1, 32) == -1);
  CHECK(bench.parser.HandleDataClientToServer(&bench.flow, {0}, chunk.data(), -1, 32, 0, nullptr) == -1);
  CHECK(Calls(bench.host).empty());
}

TEST_CASE("a length that was not captured is not read") {
  Stream bench;
  CHECK(bench.parser.HandleDataClientToServer(&bench.flow, {0}, nullptr, 0, 32, 0, nullptr) == -1);
  CHECK(bench.parser.HandleDataServerToClient(&bench.flow, {0}, nullptr, 0, 2, 0, nullptr) == -1);
  CHECK(bench.parser.HandleDataServerToClient(&bench.flow, {0}, nullptr, 0, 1, 0, nullptr) == 0);
}

TEST_CASE("an incomplete message of which nothing is lost is waited for") {
  Stream bench;
  const std::string chunk = Framed(Query30(1));
  for (int size = 2; size < 32; ++size) {
    CAPTURE(size);
    CHECK(bench.Up(chunk, size, size) == 0);
  }
  CHECK(HandedOn(bench.host).empty());
  CHECK(bench.host.Texts(4).empty());
  CHECK(bench.Up(chunk, 32, 32) == 32);
}

TEST_CASE("the length is big-endian and without a sign") {
  Stream bench;
  CHECK(bench.Up(U16(0x0102) + std::string(8, 'x')) == 0);
  CHECK(bench.Up(U16(0xffff) + std::string(8, 'x')) == 0);
  CHECK(bench.Up(U16(0x80ff) + std::string(8, 'x')) == 0);
  CHECK(FrameTraces(bench.host) ==
        FrameTrace("request", 258, 8) + FrameTrace("request", 65535, 8) + FrameTrace("request", 33023, 8));
}

TEST_CASE("the longest message is handed on whole") {
  Stream bench(4);
  std::string message = AQuery(1);
  message.resize(65535);
  CHECK(bench.Up(Framed(message)) == 65537);
  CHECK(bench.OnlyQuery().request_bytes == 65535);
}

TEST_CASE("each frame is traced with its kind, before it is known to be complete") {
  Stream bench;
  bench.Down(Framed(AResponse(1)).substr(0, 2));
  CHECK(Log(bench.host) == FrameTrace("response", 44, 0));
  CHECK(bench.host.debug_files == std::vector<std::string>{"dns-parser.cc"});
  bench.Forget();
  bench.Up(Framed(AQuery(1)).substr(0, 12));
  CHECK(Log(bench.host) == FrameTrace("request", 23, 10));
}

TEST_CASE("frames are not traced when the switch is off") {
  Stream bench;
  bench.host.debug_enabled = false;
  CHECK(bench.Up(Framed(AQuery(1)).substr(0, 12)) == 0);
  CHECK(Calls(bench.host).empty());
  CHECK(bench.host.debug_files.size() == 1);
}

TEST_CASE("a message of length 0 is handed on and refused") {
  Stream bench;
  CHECK(bench.Up(U16(0)) == -1);
  CHECK(HandedOn(bench.host) == Handed{"request snap=0 nominal=0"});
  CHECK(bench.host.Texts(4) == std::vector<std::string>{"[dns]-Packet too small"});
  CHECK(bench.Down(U16(0) + Framed(AResponse(1))) == -1);
}

TEST_CASE("a refused message ends the chunk, and what was consumed before is not reported") {
  Stream bench;
  const std::string refused = Query(2).Opcode(9).Question("aa.bb", kA).TcpWire();
  CHECK(bench.Up(Framed(AQuery(1)) + refused + Framed(AQuery(3))) == -1);
  CHECK(bench.Open() == 1);
  CHECK(HandedOn(bench.host).size() == 2);
  CHECK(bench.host.records.size() == 1);
}

TEST_CASE("a complete message is handed on by what was captured of it") {
  struct Row {
    int snap;
    const char* handed;
  };
  // A message of 30 bytes in a chunk of 32, of which `snap` bytes were captured.
  for (const Row& row : {Row{2, "request snap=0 nominal=30"}, Row{3, "request snap=1 nominal=30"},
                         Row{16, "request snap=14 nominal=30"}, Row{29, "request snap=27 nominal=30"},
                         Row{30, "request snap=28 nominal=30"}, Row{31, "request snap=30 nominal=30"},
                         Row{32, "request snap=30 nominal=30"}}) {
    CAPTURE(row.snap);
    Stream bench;
    CHECK(bench.Up(Framed(Query30(1)), row.snap, 32) == 32);
    CHECK(HandedOn(bench.host) == Handed{row.handed});
  }
}

TEST_CASE("a capture that lacks only the message's last byte hands on the full length") {
  Stream bench;
  // The host keeps a readable byte behind its data: here it is what the wire had.
  CHECK(bench.Up(Framed(Query30(1)), 31, 32) == 32);
  CHECK(bench.OnlyQuery().types == "A - IPv4 address lookup");
}

TEST_CASE("more than the message in the chunk never makes the message longer") {
  Stream bench;
  const std::string chunk = Framed(Query30(1)) + std::string(20, 'x');
  CHECK(bench.Frame(chunk, 33, 52) == 32);
  CHECK(bench.Frame(chunk, 52, 52) == 32);
  CHECK(HandedOn(bench.host) == Handed(2, "request snap=30 nominal=30"));
}

TEST_CASE("an incomplete message is not waited for once the capture has lost bytes") {
  Stream bench;
  const std::string chunk = Framed(Query30(1));
  CHECK(bench.Up(chunk, 19, 20) == 32);  // more than the call accounted for
  CHECK(HandedOn(bench.host) == Handed{"request snap=17 nominal=30"});
  CHECK(bench.Up(chunk, 30, 31) == 32);
  CHECK(bench.Up(chunk, 2, 3) == 32);
}

TEST_CASE("a response that the capture cut is counted by its full frame too") {
  Stream bench;
  bench.Up(Framed(AQuery(1)));
  CHECK(bench.Down(Framed(AResponse(1)), 20, 30) == 46);
  CHECK(bench.host.Last().bytes_response == 44);
  CHECK(bench.Open() == 0);
}

TEST_CASE("the chunk goes on behind a message that was cut only when the next length was captured") {
  Stream bench;
  const std::string chunk = Framed(Query30(1)) + Framed(Query40(2));
  CHECK(bench.Up(chunk, 20, 74) == -1);
  CHECK(HandedOn(bench.host) == Handed{"request snap=18 nominal=30"});
  bench.Forget();
  CHECK(bench.Up(chunk, 33, 74) == -1);  // half of the second length
  CHECK(HandedOn(bench.host) == Handed{"request snap=30 nominal=30"});
  bench.Forget();
  CHECK(bench.Up(chunk, 34, 74) == 74);
  CHECK(HandedOn(bench.host) == Handed{"request snap=30 nominal=30", "request snap=0 nominal=40"});
  bench.Forget();
  CHECK(bench.Up(chunk, 60, 74) == 74);
  CHECK(HandedOn(bench.host) == Handed{"request snap=30 nominal=30", "request snap=26 nominal=40"});
}

TEST_CASE("one byte behind a message that was cut is left to the next call") {
  Stream bench;
  CHECK(bench.Up(Framed(Query30(1)) + "x", 20, 33) == 32);
  CHECK(bench.Up(Framed(Query30(2)) + "x", 32, 33) == 32);
}

TEST_CASE("an incomplete second message is handled when the capture lost its end") {
  Stream bench;
  const std::string chunk = Framed(Query30(1)) + Framed(Query40(2));
  CHECK(bench.Up(chunk, 60, 61) == 74);
  CHECK(HandedOn(bench.host) == Handed{"request snap=30 nominal=30", "request snap=26 nominal=40"});
  CHECK(FrameTraces(bench.host) == FrameTrace("request", 30, 59) + FrameTrace("request", 40, 27));
}

TEST_CASE("every prefix of a stream is consumed by whole messages") {
  const std::string chunk = Framed(Query30(1)) + Framed(Query40(2));
  for (int size = 0; size <= 74; ++size) {
    CAPTURE(size);
    Stream bench(4);
    const int consumed = size < 32 ? 0 : size < 74 ? 32 : 74;
    CHECK(bench.Up(chunk, size, size) == consumed);
    CHECK(bench.Open() == (size < 32 ? 0U : size < 74 ? 1U : 2U));
  }
}

TEST_CASE("bytes that were left come again with the next call, and nothing is kept in between") {
  Stream bench(4);
  const std::string chunk = Framed(Query30(1)) + Framed(Query40(2));
  CHECK(bench.Up(chunk.substr(0, 40)) == 32);
  CHECK(bench.Up(chunk.substr(32)) == 42);
  CHECK(bench.Open() == 2);
  bench.Up(chunk.substr(0, 10));
  CHECK(bench.Up(chunk) == 74);
}

TEST_CASE("an exception out of a message leaves the call, after the messages before it") {
  Stream bench(4);
  bench.host.on_record = [&] {
    if (bench.host.records.size() == 2) throw std::runtime_error("the host refuses");
  };
  CHECK_THROWS_AS(bench.Up(Framed(AQuery(1)) + Framed(AQuery(2)) + Framed(AQuery(3))), const std::runtime_error&);
  CHECK(bench.host.records.size() == 2);
  CHECK(bench.Open() == 2);
}
