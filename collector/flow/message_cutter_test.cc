#include "collector/flow/message_cutter.h"

#include <doctest/doctest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/cutter_recorder.h"
#include "tests/support/dns_builder.h"

using flow::Expected;
using flow::MessageCutter;
using namespace test;

namespace {

using Texts = std::vector<std::string>;

std::string Ask(unsigned id) { return Query(id).Question("aa.bb", kA).TcpWire(); }
std::string Reply(unsigned id) {
  return Response(id).Question("aa.bb", kA).Answer("aa.bb", A("192.0.2.1")).TcpWire();
}

// One direction of a stream. Each piece lies in a block of its own with one byte behind it.
struct Direction {
  explicit Direction(bool at_boundary, Expected expects = Expected::kEither) : out(expects) {
    cutter.Start(at_boundary);
  }

  Direction& Segment(std::string_view bytes, int64_t time_ns = 0) { return Piece(bytes, true, time_ns); }
  Direction& Piece(std::string_view bytes, bool begins_segment, int64_t time_ns = 0) {
    block = std::make_unique<uint8_t[]>(bytes.size() + 1);
    for (size_t i = 0; i < bytes.size(); ++i) block[i] = static_cast<uint8_t>(bytes[i]);
    cutter.Bytes({block.get(), static_cast<uint32_t>(bytes.size()), begins_segment, time_ns}, &out);
    return *this;
  }
  Direction& Hole(uint32_t size) {
    cutter.Hole(size, &out);
    return *this;
  }

  MessageCutter cutter;
  CutterRecorder out;
  std::unique_ptr<uint8_t[]> block;
};

Direction FromStart() { return Direction(true); }
Direction FromMiddle(Expected expects = Expected::kEither) { return Direction(false, expects); }

}  // namespace

TEST_CASE("a message that lies whole in a segment is handed on where it lies") {
  Direction stream = FromStart();
  stream.Segment(Ask(1), 42);
  REQUIRE(stream.out.Texts() == Texts{Ask(1)});
  CHECK(stream.out.cuts[0].data == stream.block.get());
  CHECK(stream.out.cuts[0].nominal == Ask(1).size());
  CHECK(stream.out.cuts[0].time_ns == 42);
  CHECK(stream.cutter.Held() == 0);
}

TEST_CASE("each of several messages in one segment is handed on") {
  Direction stream = FromStart();
  stream.Segment(Ask(1) + Ask(2) + Ask(3));
  CHECK(stream.out.Texts() == Texts{Ask(1), Ask(2), Ask(3)});
}

TEST_CASE("a message over many segments is put together, whatever its pieces are") {
  for (size_t size = 1; size < Ask(1).size(); ++size) {
    CAPTURE(size);
    Direction stream = FromStart();
    const std::string all = Ask(1) + Ask(2);
    for (size_t at = 0; at < all.size(); at += size) stream.Segment(std::string_view(all).substr(at, size));
    CHECK(stream.out.Texts() == Texts{Ask(1), Ask(2)});
    CHECK(stream.cutter.Held() == 0);
  }
}

TEST_CASE("a message bears the latest time of the packets that brought it") {
  Direction stream = FromStart();
  const std::string all = Ask(1) + Ask(2);
  stream.Segment(all.substr(0, 5), 30).Segment(all.substr(5, 5), 50).Segment(all.substr(10), 40);
  REQUIRE(stream.out.cuts.size() == 2);
  CHECK(stream.out.cuts[0].time_ns == 50);
  CHECK(stream.out.cuts[1].time_ns == 40);
}

TEST_CASE("a message of length zero is handed on as it is") {
  Direction stream = FromStart();
  stream.Segment(U16(0) + Ask(1) + U16(0));
  CHECK(stream.out.Texts() == Texts{U16(0), Ask(1), U16(0)});
  CHECK(stream.out.cuts[0].nominal == 2);
}

TEST_CASE("the longest message is handed on whole") {
  Direction stream = FromStart();
  const std::string longest = U16(0xFFFF) + std::string(0xFFFF, 'x');
  stream.Segment(longest.substr(0, 40000)).Segment(longest.substr(40000) + Ask(1));
  CHECK(stream.out.Texts() == Texts{longest, Ask(1)});
}

TEST_CASE("a stream whose beginning was seen is followed whatever it carries") {
  Direction stream = FromStart();
  stream.Segment(U16(4) + "xxxx" + Ask(1));
  CHECK(stream.out.Texts() == Texts{U16(4) + "xxxx", Ask(1)});
}

TEST_CASE("a hole inside a message cuts it, and the stream goes on behind it") {
  const std::string reply = Reply(1);
  Direction stream = FromStart();
  stream.Segment(reply.substr(0, 20), 5).Hole(6).Segment(reply.substr(26) + Reply(2));
  REQUIRE(stream.out.Texts() == Texts{reply.substr(0, 20), Reply(2)});
  CHECK(stream.out.cuts[0].nominal == reply.size());
  CHECK(stream.out.cuts[0].time_ns == 5);
  CHECK(stream.out.own.tcp_skipped_bytes == 0);
}

TEST_CASE("a second hole in the same message is passed over with it") {
  const std::string reply = Reply(1);
  Direction stream = FromStart();
  stream.Segment(reply.substr(0, 20))
      .Hole(2)
      .Segment(reply.substr(22, 2))
      .Hole(2)
      .Segment(reply.substr(26) + Ask(2));
  CHECK(stream.out.Texts() == Texts{reply.substr(0, 20), Ask(2)});
}

TEST_CASE("behind a hole that ends with a message the next one begins, whatever it looks like") {
  const std::string reply = Reply(1);
  Direction stream = FromStart();
  stream.Segment(reply.substr(0, 20)).Hole(static_cast<uint32_t>(reply.size() - 20)).Piece(U16(0) + Ask(2), false);
  CHECK(stream.out.Texts() == Texts{reply.substr(0, 20), U16(0), Ask(2)});
}

TEST_CASE("behind a hole that swallowed a length the next segment that begins like a message is looked for") {
  const std::string reply = Reply(1);
  Direction stream = FromStart();
  stream.Segment(reply.substr(0, 20)).Hole(static_cast<uint32_t>(reply.size() - 20 + 1));
  stream.Segment("the rest of something").Segment(Ask(3) + Ask(4));
  CHECK(stream.out.Texts() == Texts{reply.substr(0, 20), Ask(3), Ask(4)});
  CHECK(stream.out.own.tcp_skipped_bytes == 21);
}

TEST_CASE("a hole between two messages loses the length of the second") {
  Direction stream = FromStart();
  stream.Segment(Ask(1)).Hole(5).Segment(Ask(2).substr(5)).Segment(Ask(3));
  CHECK(stream.out.Texts() == Texts{Ask(1), Ask(3)});
  CHECK(stream.out.own.tcp_skipped_bytes == Ask(2).size() - 5);
}

TEST_CASE("half a length in front of a hole is skipped") {
  Direction stream = FromStart();
  stream.Segment(Ask(1) + Ask(2).substr(0, 1)).Hole(10).Segment(Ask(3));
  CHECK(stream.out.Texts() == Texts{Ask(1), Ask(3)});
  CHECK(stream.out.own.tcp_skipped_bytes == 1);
}

TEST_CASE("a message cut right behind its length is handed on") {
  Direction stream = FromStart();
  stream.Segment(Ask(1).substr(0, 2)).Hole(5).Segment(Ask(1).substr(7) + Ask(2));
  CHECK(stream.out.Texts() == Texts{Ask(1).substr(0, 2), Ask(2)});
}

TEST_CASE("a stream joined in its middle begins with the first segment that begins like a message") {
  Direction stream = FromMiddle();
  stream.Segment(Reply(1).substr(9)).Segment(Reply(2));
  CHECK(stream.out.Texts() == Texts{Reply(2)});
  CHECK(stream.out.own.tcp_skipped_bytes == Reply(1).size() - 9);
}

TEST_CASE("in a stream joined in its middle messages are put together, whatever their pieces are") {
  const auto ask = [](unsigned id) { return Query(id).Question(".", kA).TcpWire(); };  // the shortest there is
  const std::string all = ask(2) + ask(3) + ask(4);
  for (size_t size = 1; size <= all.size(); ++size) {
    CAPTURE(size);
    Direction stream = FromMiddle();
    stream.Segment(ask(1));
    for (size_t at = 0; at < all.size(); at += size) stream.Segment(std::string_view(all).substr(at, size));
    CHECK(stream.out.Texts() == Texts{ask(1), ask(2), ask(3), ask(4)});
  }
}

TEST_CASE("while searching only beginnings of segments are looked at") {
  Direction stream = FromMiddle();
  stream.Piece(Ask(1), false).Segment("xx" + Ask(2)).Segment(Ask(3));
  CHECK(stream.out.Texts() == Texts{Ask(3)});
}

TEST_CASE("while searching the known direction rejects the other kind of message") {
  Direction stream = FromMiddle(Expected::kResponses);
  stream.Segment(Ask(1)).Segment(Reply(2));
  CHECK(stream.out.Texts() == Texts{Reply(2)});
}

TEST_CASE("a length in a segment of its own is found as the beginning of a message") {
  Direction stream = FromMiddle();
  stream.Segment(Reply(1).substr(30)).Segment(Ask(2).substr(0, 2)).Segment(Ask(2).substr(2)).Segment(Ask(3));
  CHECK(stream.out.Texts() == Texts{Ask(2), Ask(3)});
  CHECK(stream.out.own.tcp_skipped_bytes == Reply(1).size() - 30);
}

TEST_CASE("a short segment that turns out to be no beginning gives way to the one behind it") {
  Direction stream = FromMiddle();
  stream.Segment("x").Segment(Ask(2));
  CHECK(stream.out.Texts() == Texts{Ask(2)});
  CHECK(stream.out.own.tcp_skipped_bytes == 1);
}

TEST_CASE("a short segment that waits to be judged is skipped when a hole follows") {
  Direction stream = FromMiddle();
  stream.Segment(Ask(1).substr(0, 2)).Hole(4).Segment(Ask(2));
  CHECK(stream.out.Texts() == Texts{Ask(2)});
  CHECK(stream.out.own.tcp_skipped_bytes == 2);
}

TEST_CASE("a stream without a known beginning is searched anew where something else than a message comes") {
  const std::string odd = U16(40) + std::string(40, '\xFF');
  SUBCASE("in one segment with a message") {
    Direction stream = FromMiddle();
    stream.Segment(Ask(1)).Segment(odd + Ask(2)).Segment(Ask(3));
    CHECK(stream.out.Texts() == Texts{Ask(1), Ask(3)});
    CHECK(stream.out.own.tcp_skipped_bytes == odd.size() + Ask(2).size());
  }
  SUBCASE("as soon as its header is there, byte by byte") {
    Direction stream = FromMiddle();
    stream.Segment(Ask(1));
    for (char byte : odd.substr(0, 14)) stream.Segment(std::string(1, byte));
    CHECK(stream.cutter.Held() == 0);
    stream.Segment(Ask(3));
    CHECK(stream.out.Texts() == Texts{Ask(1), Ask(3)});
    CHECK(stream.out.own.tcp_skipped_bytes == 14);
  }
  SUBCASE("when it is shorter than a header") {
    Direction stream = FromMiddle();
    stream.Segment(Ask(1)).Segment(U16(3) + "abc").Segment(Ask(3));
    CHECK(stream.out.Texts() == Texts{Ask(1), Ask(3)});
    CHECK(stream.out.own.tcp_skipped_bytes == 5);
  }
}

TEST_CASE("a stream that lost its step is no longer believed whatever it carries") {
  Direction stream = FromStart();
  stream.Segment(Ask(1)).Hole(5).Segment(Ask(2)).Segment(U16(40) + std::string(40, '\xFF')).Segment(Ask(3));
  CHECK(stream.out.Texts() == Texts{Ask(1), Ask(2), Ask(3)});
  CHECK(stream.out.own.tcp_skipped_bytes == 42);
}

TEST_CASE("a message in a stream without a known beginning is judged alone, not by what follows it") {
  Direction stream = FromMiddle();
  stream.Segment(Ask(1)).Segment(Ask(2) + U16(40) + std::string(40, '\xFF'));
  CHECK(stream.out.Texts() == Texts{Ask(1), Ask(2)});
}

TEST_CASE("giving up hands on what has begun and passes over the rest") {
  Direction stream = FromStart();
  stream.Segment(Ask(1).substr(0, 15));
  CHECK(stream.cutter.Held() > 0);
  CHECK(stream.cutter.GiveUp(&stream.out));
  CHECK(stream.cutter.Held() == 0);
  stream.Segment(Ask(1).substr(15) + Ask(2));
  CHECK(stream.out.Texts() == Texts{Ask(1).substr(0, 15), Ask(2)});
  CHECK(stream.out.cuts[0].nominal == Ask(1).size());
  CHECK_FALSE(stream.cutter.GiveUp(&stream.out));
}

TEST_CASE("giving up with half a length has begun something, but hands nothing on") {
  Direction stream = FromStart();
  stream.Segment(Ask(1).substr(0, 1));
  CHECK(stream.cutter.GiveUp(&stream.out));
  CHECK(stream.out.cuts.empty());
}

TEST_CASE("giving up while searching has begun nothing") {
  Direction stream = FromMiddle();
  stream.Segment(Ask(1).substr(0, 9));
  CHECK_FALSE(stream.cutter.GiveUp(&stream.out));
  CHECK(stream.out.cuts.empty());
  CHECK(stream.out.own.tcp_skipped_bytes == 9);
  CHECK(stream.cutter.Held() == 0);
}

TEST_CASE("a message is held in little more memory than its bytes") {
  Direction stream = FromStart();
  stream.Segment(U16(0xFFFF) + "abc");
  CHECK(stream.cutter.Held() < 100);
  CHECK(stream.cutter.Held() > 5);  // with the byte behind
}
