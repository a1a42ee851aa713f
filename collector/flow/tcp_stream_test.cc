#include "collector/flow/tcp_stream.h"

#include <doctest/doctest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/cutter_recorder.h"
#include "tests/support/dns_builder.h"

using flow::TcpStream;
using namespace test;

namespace {

using Texts = std::vector<std::string>;

std::string Ask(unsigned id) { return Query(id).Question("aa.bb", kA).TcpWire(); }

// One direction whose stream is `all`; the tests send parts of it.
struct Sender {
  explicit Sender(std::string stream_bytes, uint32_t isn = 1000) : all(std::move(stream_bytes)), base(isn + 1) {}

  Sender& Syn() {
    stream.Syn(base - 1);
    return *this;
  }
  // Up to the stream's end at the most.
  Sender& Part(size_t at, size_t size, int64_t time_ns = 0) {
    const std::string bytes = all.substr(at, size);
    return Send(at, bytes, bytes.size(), time_ns);
  }
  // `wire` bytes on the wire, of which `bytes` were captured.
  Sender& Send(size_t at, const std::string& bytes, size_t wire, int64_t time_ns = 0) {
    const auto block = std::make_unique<uint8_t[]>(bytes.size() + 1);
    for (size_t i = 0; i < bytes.size(); ++i) block[i] = static_cast<uint8_t>(bytes[i]);
    stream.Data({base + static_cast<uint32_t>(at), block.get(), static_cast<uint32_t>(bytes.size()),
                 static_cast<uint32_t>(wire), time_ns},
                &out);
    return *this;
  }
  Sender& Fin(int64_t time_ns = 0) {
    stream.Fin(base + static_cast<uint32_t>(all.size()), time_ns, &out);
    return *this;
  }

  std::string all;
  uint32_t base;
  TcpStream stream;
  CutterRecorder out;
};

}  // namespace

TEST_CASE("segments in order are delivered as they come") {
  Sender sender(Ask(1) + Ask(2));
  sender.Syn().Part(0, 10).Part(10, 20).Part(30, 100);
  CHECK(sender.out.Texts() == Texts{Ask(1), Ask(2)});
  CHECK(sender.stream.Held() == 0);
  CHECK_FALSE(sender.stream.HasGap());
}

TEST_CASE("segments out of order wait for what is missing") {
  Sender sender(Ask(1) + Ask(2));
  sender.Syn().Part(30, 100, 7).Part(10, 20, 8);
  CHECK(sender.out.cuts.empty());
  CHECK(sender.stream.HasGap());
  CHECK(sender.stream.GapSince() == 8);
  sender.Part(0, 10, 9);
  CHECK(sender.out.Texts() == Texts{Ask(1), Ask(2)});
  CHECK_FALSE(sender.stream.HasGap());
  CHECK(sender.stream.Held() == 0);
  CHECK(sender.out.own.tcp_gaps == 0);
}

TEST_CASE("a message whole in a segment that had to wait keeps that segment's time") {
  Sender sender(Ask(1) + Ask(2));
  sender.Syn().Part(Ask(1).size(), 100, 5).Part(0, Ask(1).size(), 9);
  REQUIRE(sender.out.cuts.size() == 2);
  CHECK(sender.out.cuts[0].time_ns == 9);
  CHECK(sender.out.cuts[1].time_ns == 5);
}

TEST_CASE("sequence numbers wrap") {
  const std::string all = Ask(1) + Ask(2) + Ask(3);
  for (uint32_t isn = 0xFFFFFFFFu - 70; isn != 3; ++isn) {
    CAPTURE(isn);
    Sender sender(all, isn);
    sender.Syn().Part(50, 100).Part(20, 20).Part(0, 25).Part(35, 20).Fin();
    CHECK(sender.out.Texts() == Texts{Ask(1), Ask(2), Ask(3)});
    CHECK(sender.stream.ended());
  }
}

TEST_CASE("retransmitted bytes are counted and handed on once") {
  Sender sender(Ask(1) + Ask(2));
  sender.Syn().Part(0, 30).Part(0, 30).Part(10, 30).Part(40, 100);
  CHECK(sender.out.Texts() == Texts{Ask(1), Ask(2)});
  CHECK(sender.out.own.tcp_retransmitted_bytes == 50);
}

TEST_CASE("a keep-alive's old byte changes nothing") {
  Sender sender(Ask(1) + Ask(2));
  sender.Syn().Part(0, Ask(1).size()).Send(Ask(1).size() - 1, std::string(1, '\0'), 1).Part(Ask(1).size(), 100);
  CHECK(sender.out.Texts() == Texts{Ask(1), Ask(2)});
  CHECK(sender.out.own.tcp_retransmitted_bytes == 1);
}

TEST_CASE("a window probe's byte is the stream's next one") {
  Sender sender(Ask(1));
  sender.Syn().Part(0, 10).Part(10, 1).Part(10, 100);
  CHECK(sender.out.Texts() == Texts{Ask(1)});
}

TEST_CASE("where segments overlap, what came first stands") {
  SUBCASE("against bytes that were delivered") {
    Sender sender(Ask(1));
    sender.Syn().Part(0, 20);
    sender.Send(10, std::string(10, '!') + Ask(1).substr(20), Ask(1).size() - 10);
    CHECK(sender.out.Texts() == Texts{Ask(1)});
  }
  SUBCASE("against bytes that wait") {
    Sender sender(Ask(1));
    sender.Syn().Part(15, 5);
    sender.Send(10, Ask(1).substr(10, 5) + std::string(5, '!') + Ask(1).substr(20), Ask(1).size() - 10);
    sender.Part(0, 10);
    CHECK(sender.out.Texts() == Texts{Ask(1)});
    CHECK(sender.out.own.tcp_retransmitted_bytes == 5);
  }
  SUBCASE("against bytes that wait, when the gap is filled and more") {
    Sender sender(Ask(1));
    sender.Syn().Part(15, 5);
    sender.Send(0, Ask(1).substr(0, 15) + std::string(5, '!') + Ask(1).substr(20), Ask(1).size());
    CHECK(sender.out.Texts() == Texts{Ask(1)});
  }
  SUBCASE("against several that wait") {
    Sender sender(Ask(1));
    sender.Syn().Part(4, 3).Part(10, 3).Part(20, 3);
    std::string mixed = Ask(1);
    for (size_t at : {4u, 10u, 20u}) mixed.replace(at, 3, "!!!");
    sender.Send(0, mixed, mixed.size());
    CHECK(sender.out.Texts() == Texts{Ask(1)});
    CHECK(sender.out.own.tcp_retransmitted_bytes == 9);
  }
}

TEST_CASE("a gap that is given up cuts its message, and the stream goes on") {
  Sender sender(Ask(1) + Ask(2));
  sender.Syn().Part(0, 15).Part(20, 100);
  sender.stream.GiveUpGap(&sender.out);
  CHECK(sender.out.Texts() == Texts{Ask(1).substr(0, 15), Ask(2)});
  CHECK(sender.out.own.tcp_gaps == 1);
  CHECK_FALSE(sender.stream.HasGap());
  sender.Part(15, 5);  // too late
  CHECK(sender.out.cuts.size() == 2);
  CHECK(sender.out.own.tcp_retransmitted_bytes == 5);
}

TEST_CASE("only the first gap is given up at a time") {
  Sender sender(Ask(1) + Ask(2) + Ask(3));
  const size_t size = Ask(1).size();
  sender.Syn().Part(2 * size, size, 4).Part(size, 10, 3);
  sender.stream.GiveUpGap(&sender.out);
  CHECK(sender.out.cuts.empty());
  CHECK(sender.stream.HasGap());
  CHECK(sender.stream.GapSince() == 4);
  sender.Part(size + 10, size - 10);
  CHECK(sender.out.Texts() == Texts{Ask(2), Ask(3)});
}

TEST_CASE("too many segments behind a gap end the wait for it") {
  Sender sender(std::string(2000, 'x'));
  sender.Syn();
  for (size_t i = 0; i < TcpStream::kMostWaiting; ++i) sender.Part(10 + 2 * i, 1);
  CHECK(sender.out.own.tcp_gaps == 0);
  sender.Part(10 + 2 * TcpStream::kMostWaiting, 1);
  CHECK(sender.out.own.tcp_gaps == 1);
}

TEST_CASE("too many bytes behind a gap end the wait for it") {
  const std::string all(TcpStream::kMostWaitingBytes + 70000, 'x');
  Sender sender(all);
  sender.Syn();
  size_t at = 10;
  for (; at + 60000 <= TcpStream::kMostWaitingBytes; at += 60000) sender.Part(at, 60000);
  CHECK(sender.out.own.tcp_gaps == 0);
  CHECK(sender.stream.Held() > 200000);
  sender.Part(at, 60000);
  CHECK(sender.out.own.tcp_gaps == 1);
  CHECK(sender.stream.Held() < TcpStream::kMostWaitingBytes);
}

TEST_CASE("a segment cut by the capture leaves a hole at its end") {
  Sender sender(Ask(1) + Ask(2));
  const size_t size = Ask(1).size();
  SUBCASE("in order") {
    sender.Syn().Send(0, Ask(1).substr(0, 20), size).Part(size, 100);
    CHECK(sender.out.own.tcp_gaps == 1);
  }
  SUBCASE("out of order") {
    sender.Syn().Part(size, 100).Send(10, Ask(1).substr(10, 10), size - 10).Part(0, 10);
    CHECK(sender.out.own.tcp_gaps == 1);
  }
  SUBCASE("overlapped where its bytes are") {
    sender.Syn().Part(0, 15).Send(10, Ask(1).substr(10, 10), size - 10).Part(size, 100);
  }
  CHECK(sender.out.Texts() == Texts{Ask(1).substr(0, 20), Ask(2)});
  CHECK(sender.out.cuts[0].nominal == size);
}

TEST_CASE("a retransmission that reaches only into the bytes not captured adds the hole alone") {
  Sender sender(Ask(1) + Ask(2));
  const size_t size = Ask(1).size();
  sender.Syn().Part(0, 20).Send(5, Ask(1).substr(5, 10), size - 5).Part(size, 100);
  CHECK(sender.out.Texts() == Texts{Ask(1).substr(0, 20), Ask(2)});
}

TEST_CASE("a segment whose payload was not captured at all is a hole") {
  Sender sender(Ask(1) + Ask(2));
  sender.Syn().Part(0, 15).Send(15, "", Ask(1).size() - 15).Part(Ask(1).size(), 100);
  CHECK(sender.out.Texts() == Texts{Ask(1).substr(0, 15), Ask(2)});
}

TEST_CASE("a FIN ends the stream once everything before it has come") {
  Sender sender(Ask(1));
  sender.Syn().Fin();
  CHECK_FALSE(sender.stream.ended());
  CHECK(sender.stream.HasGap());
  sender.Part(0, 100);
  CHECK(sender.stream.ended());
  CHECK(sender.out.Texts() == Texts{Ask(1)});
  CHECK(sender.out.own.tcp_unfinished_messages == 0);
}

TEST_CASE("a FIN inside a message hands on what is there and counts it as unfinished") {
  Sender sender(Ask(1) + Ask(2).substr(0, 20));
  sender.Syn().Part(0, 100).Fin();
  CHECK(sender.stream.ended());
  CHECK(sender.out.Texts() == Texts{Ask(1), Ask(2).substr(0, 20)});
  CHECK(sender.out.cuts[1].nominal == Ask(2).size());
  CHECK(sender.out.own.tcp_unfinished_messages == 1);
  sender.stream.End(&sender.out);
  CHECK(sender.out.own.tcp_unfinished_messages == 1);
}

TEST_CASE("half a length at the end is counted, but not handed on") {
  Sender sender(Ask(1) + "\1");
  sender.Syn().Part(0, 100).Fin();
  CHECK(sender.out.Texts() == Texts{Ask(1)});
  CHECK(sender.out.own.tcp_unfinished_messages == 1);
}

TEST_CASE("bytes missing before a FIN are a gap since the FIN") {
  Sender sender(Ask(1) + Ask(2));
  sender.Syn().Part(0, 40, 1).Fin(7);
  CHECK(sender.stream.GapSince() == 7);
  sender.stream.GiveUpGap(&sender.out);
  CHECK(sender.stream.ended());
  CHECK(sender.out.Texts() == Texts{Ask(1), Ask(2).substr(0, 40 - Ask(1).size())});
  CHECK(sender.out.own.tcp_gaps == 1);
}

TEST_CASE("a repeated FIN and one behind the stream change nothing") {
  Sender sender(Ask(1));
  sender.Syn().Part(0, 100);
  sender.stream.Fin(sender.base + 5, 0, &sender.out);
  CHECK_FALSE(sender.stream.ended());
  sender.Fin().Fin();
  CHECK(sender.stream.ended());
  CHECK_FALSE(sender.stream.HasGap());
}

TEST_CASE("of two FINs in different places the first stands") {
  Sender sender(Ask(1) + Ask(2));
  sender.Syn().Fin();
  sender.stream.Fin(sender.base + 25, 0, &sender.out);
  sender.Part(0, 25);
  CHECK_FALSE(sender.stream.ended());
  sender.Part(25, 100);
  CHECK(sender.stream.ended());
}

TEST_CASE("what waits behind a FIN is no part of the stream") {
  Sender sender(Ask(1));
  sender.Syn().Send(Ask(1).size() + 5, Ask(9), Ask(9).size()).Fin().Part(0, 100);
  CHECK(sender.stream.ended());
  CHECK(sender.stream.Held() == 0);
  CHECK(sender.out.Texts() == Texts{Ask(1)});
}

TEST_CASE("the end of the connection gives up all gaps and hands on what has begun") {
  Sender sender(Ask(1) + Ask(2) + Ask(3));
  const size_t size = Ask(1).size();
  sender.Syn().Part(0, 15).Part(20, size - 20).Part(size, 20).Part(size + 25, size - 25).Part(2 * size, 9);
  sender.stream.End(&sender.out);
  CHECK(sender.out.Texts() == Texts{Ask(1).substr(0, 15), Ask(2).substr(0, 20), Ask(3).substr(0, 9)});
  CHECK(sender.out.own.tcp_gaps == 2);
  CHECK(sender.out.own.tcp_unfinished_messages == 1);
  CHECK(sender.stream.Held() == 0);
}

TEST_CASE("a stream joined in its middle starts with the first segment seen") {
  Sender sender("rest of something" + Ask(2) + Ask(3));
  sender.Part(3, 14).Part(17, 100);
  CHECK(sender.out.Texts() == Texts{Ask(2), Ask(3)});
  CHECK(sender.out.own.tcp_skipped_bytes == 14);
  CHECK(sender.out.own.tcp_gaps == 0);
}

TEST_CASE("of segments that wait in pieces only the true beginnings may begin a message") {
  // Ten bytes of something, a lost byte, then segments that overlap.
  const std::string begin = std::string(11, '-');
  SUBCASE("a piece in front of an earlier segment is a beginning") {
    Sender sender(begin + Ask(1) + Ask(2));
    sender.Part(0, 10).Part(31, 5).Part(11, 50);
    sender.stream.GiveUpGap(&sender.out);
    CHECK(sender.out.Texts() == Texts{Ask(1), Ask(2)});
  }
  SUBCASE("a piece behind an earlier segment is none") {
    Sender sender(begin + std::string(14, '-') + Ask(1));
    sender.Part(0, 10).Part(15, 10).Part(11, 100);
    sender.stream.GiveUpGap(&sender.out);
    CHECK(sender.out.Texts().empty());
  }
  SUBCASE("a piece between two earlier segments is none") {
    Sender sender(begin + std::string(14, '-') + Ask(1) + std::string(10, '-'));
    sender.Part(0, 10).Part(15, 10).Part(50, 5).Part(11, 100);
    sender.stream.GiveUpGap(&sender.out);
    CHECK(sender.out.Texts().empty());
  }
}

TEST_CASE("a segment far ahead or far behind starts the stream anew") {
  for (const int64_t jump : {int64_t{TcpStream::kReach} + 1000, -int64_t{TcpStream::kReach} - 1000}) {
    CAPTURE(jump);
    Sender sender(Ask(1));
    sender.Syn().Part(0, 20);
    sender.base += static_cast<uint32_t>(jump);
    sender.Send(0, Ask(5), Ask(5).size());
    CHECK(sender.out.Texts() == Texts{Ask(1).substr(0, 20), Ask(5)});
    CHECK(sender.out.own.tcp_gaps == 1);
    CHECK(sender.stream.BeganWith(sender.base - 100));  // joined in its middle now
  }
}

TEST_CASE("a segment just within reach waits, or is old") {
  Sender sender(Ask(1));
  sender.Syn().Part(0, 20);
  sender.base += TcpStream::kReach;
  sender.Send(0, Ask(5), Ask(5).size());
  CHECK(sender.stream.HasGap());
  sender.base -= 2 * static_cast<uint32_t>(TcpStream::kReach);
  sender.Send(30, Ask(5), Ask(5).size());
  CHECK(sender.out.own.tcp_retransmitted_bytes == Ask(5).size());
}

TEST_CASE("an ended stream that goes on elsewhere is followed anew") {
  Sender sender(Ask(1));
  sender.Syn().Part(0, 100).Fin();
  sender.base += 1u << 30;
  sender.Send(0, Ask(5), Ask(5).size());
  CHECK_FALSE(sender.stream.ended());
  CHECK(sender.out.Texts() == Texts{Ask(1), Ask(5)});
}

TEST_CASE("a SYN belongs to the stream that it began, or to one joined shortly after it") {
  Sender begun(Ask(1));
  begun.Syn().Part(0, 100);
  CHECK(begun.stream.BeganWith(begun.base - 1));
  CHECK_FALSE(begun.stream.BeganWith(begun.base));
  CHECK_FALSE(begun.stream.BeganWith(begun.base - 2));
  Sender joined(Ask(1) + Ask(2));
  joined.Part(Ask(1).size(), 100);
  CHECK(joined.stream.BeganWith(joined.base - 1));
  CHECK_FALSE(joined.stream.BeganWith(joined.base + 200));
  CHECK_FALSE(joined.stream.BeganWith(joined.base - 70000));
}

TEST_CASE("a reset is believed where the stream stands or ahead of it") {
  Sender sender(Ask(1));
  CHECK(sender.stream.MayReset(77));  // nothing is known yet
  sender.Syn().Part(0, 20);
  CHECK(sender.stream.MayReset(sender.base + 20));
  CHECK(sender.stream.MayReset(sender.base + 19));
  CHECK(sender.stream.MayReset(sender.base + 2000));
  CHECK_FALSE(sender.stream.MayReset(sender.base + 18));
  CHECK_FALSE(sender.stream.MayReset(sender.base + (1u << 30)));
}
