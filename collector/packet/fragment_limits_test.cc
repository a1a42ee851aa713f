#include <doctest/doctest.h>

#include <random>

#include "tests/support/fragment_frames.h"

using namespace test;
using packet::Decoder;
using packet::Outcome;

TEST_CASE("an IPv6 packet that contradicted itself is forgotten in time") {
  const auto frames = Answer6(Message(100)).Fragments(64, 1);
  Decoder decoder;
  DecodeWith(&decoder, frames[0]);
  DecodeWith(&decoder, Piece6(1, 0, true, Bytes(64, 0xee)));
  CHECK(DecodeWith(&decoder, frames[0], {.time_ns = 3 * kSecond}).outcome == Outcome::kFragment);
  CHECK(DecodeWith(&decoder, frames[1], {.time_ns = 3 * kSecond}).outcome == Outcome::kDatagram);
}

TEST_CASE("a packet whose rest does not come in time is given up") {
  const auto frames = Answer4(Message(200)).Fragments(64, 1);
  Decoder decoder;
  DecodeWith(&decoder, frames[0], {.time_ns = 10 * kSecond});
  DecodeWith(&decoder, frames[2], {.time_ns = 11 * kSecond});
  CHECK(IsQuery4(DecodeWith(&decoder, Query4(Ethernet()).Frame(), {.time_ns = 12 * kSecond})));
  CHECK(decoder.FragmentsHeld() == 2);
  CHECK(IsQuery4(DecodeWith(&decoder, Query4(Ethernet()).Frame(), {.time_ns = 12 * kSecond + 1})));
  CHECK(decoder.FragmentsHeld() == 0);
  CHECK(decoder.fragments().expired == 2);
  CHECK(AddsUp(decoder));
}

TEST_CASE("an identifier that is used again after its time begins a new packet, also when time jumped back") {
  const Bytes message = Message(100);
  const auto old = Answer4(Bytes(100, 0xee)).Fragments(64, 1);
  const auto frames = Answer4(message).Fragments(64, 1);
  for (const int64_t later : {100 * kSecond + 5 * kSecond, 100 * kSecond - 5 * kSecond, INT64_MIN, INT64_MAX}) {
    Decoder decoder;
    DecodeWith(&decoder, old[0], {.time_ns = 100 * kSecond});
    DecodeWith(&decoder, frames[0], {.time_ns = later});
    CHECK(decoder.fragments().expired == 1);
    CHECK(DecodeWith(&decoder, frames[1], {.time_ns = later}).payload == Text(message));
  }
}

TEST_CASE("a packet behind one from the future is still given up when its own turn comes") {
  const auto future = Answer4(Message(100)).Fragments(64, 1);
  const auto frames = Answer4(Message(100)).Fragments(64, 2);
  Decoder decoder;
  DecodeWith(&decoder, future[0], {.time_ns = 101 * kSecond});
  DecodeWith(&decoder, frames[0], {.time_ns = 100 * kSecond});
  DecodeWith(&decoder, frames[0], {.time_ns = 103 * kSecond});  // the first is not overdue, this one is
  CHECK(decoder.fragments().expired == 1);
  CHECK(decoder.FragmentsHeld() == 2);
}

TEST_CASE("time that jumps a little forth and back does not part fragments") {
  const Bytes message = Message(100);
  const auto frames = Answer4(message).Fragments(64, 1);
  Decoder decoder;
  DecodeWith(&decoder, frames[1], {.time_ns = 2 * kSecond});
  CHECK(DecodeWith(&decoder, frames[0], {.time_ns = kSecond}).payload == Text(message));
}

TEST_CASE("the oldest packet makes room when there are too many") {
  packet::FragmentLimits limits;
  limits.max_packets = 3;
  Decoder decoder(limits);
  packet::Datagram datagram;
  for (uint32_t id = 1; id <= 4; ++id) DecodeWith(&decoder, Answer4(Message(100)).Fragments(64, id)[0]);
  CHECK(decoder.FragmentsHeld() == 3);
  CHECK(decoder.fragments().dropped == 1);
  REQUIRE(decoder.TakeExpired(&datagram));
  CHECK(datagram.captured == 56);
  CHECK_FALSE(decoder.TakeExpired(&datagram));
  CHECK(DecodeWith(&decoder, Answer4(Message(100)).Fragments(64, 2)[1]).outcome == Outcome::kDatagram);
  CHECK(DecodeWith(&decoder, Answer4(Message(100)).Fragments(64, 1)[1]).outcome == Outcome::kFragment);
  CHECK(AddsUp(decoder));
}

TEST_CASE("the oldest packet makes room when memory runs out, but not for its own fragments") {
  packet::FragmentLimits limits;
  limits.max_bytes = 3000;
  Decoder decoder(limits);
  const Bytes message = Message(1800);
  const auto first = Answer4(message).Fragments(904, 1);
  const auto second = Answer4(message).Fragments(904, 2);
  DecodeWith(&decoder, first[0]);
  DecodeWith(&decoder, second[0]);
  CHECK(decoder.FragmentsHeld() == 2);
  const auto large = Answer4(Message(2000)).Fragments(1504, 3);
  DecodeWith(&decoder, large[0]);
  CHECK(decoder.fragments().dropped == 1);
  CHECK(decoder.FragmentsHeld() == 2);
  CHECK(DecodeWith(&decoder, second[1]).payload == Text(message));  // needs no more than is left without the third
  CHECK(AddsUp(decoder));
}

TEST_CASE("a fragment that never fits is dropped with its packet") {
  packet::FragmentLimits limits;
  limits.max_bytes = 500;
  Decoder decoder(limits);
  DecodeWith(&decoder, Piece4(1, 0, true, Bytes(400)));
  DecodeWith(&decoder, Piece4(1, 400, true, Bytes(400)));
  CHECK(decoder.fragments().dropped == 2);
  CHECK(decoder.FragmentsHeld() == 0);
  CHECK(AddsUp(decoder));
}

TEST_CASE("a packet in too many pieces is dropped") {
  packet::FragmentLimits limits;
  limits.max_pieces = 4;
  Decoder decoder(limits);
  const auto frames = Answer4(Message(100)).Fragments(16, 1);
  for (size_t i = 0; i < 5; ++i) DecodeWith(&decoder, frames[i]);
  CHECK(decoder.fragments().dropped == 5);
  CHECK(decoder.FragmentsHeld() == 0);
  packet::Datagram datagram;
  REQUIRE(decoder.TakeExpired(&datagram));
  CHECK(datagram.captured == 64 - 8);
  CHECK(AddsUp(decoder));
}

TEST_CASE("fragments of one byte's content cost more than their bytes") {
  packet::FragmentLimits limits;
  limits.max_bytes = 1000;
  Decoder decoder(limits);
  for (uint32_t id = 0; id < 100; ++id) {
    DecodeWith(&decoder, Piece4(id, 0, false, Bytes(1)));  // completes at once
    DecodeWith(&decoder, Piece4(id, 8, false, Bytes(1)));
  }
  CHECK(decoder.FragmentsHeld() <= 1000 / 33);
  CHECK(AddsUp(decoder));
}

TEST_CASE("any fragments in any order leave counts that add up") {
  std::mt19937 random(11);
  const auto pick = [&](uint32_t below) { return static_cast<uint32_t>(random() % below); };
  packet::FragmentLimits limits;
  limits.max_packets = 5;
  limits.max_pieces = 5;
  limits.max_bytes = 700;
  Decoder decoder(limits);
  packet::Datagram datagram;
  int64_t now = 0;
  for (int round = 0; round < 20000; ++round) {
    const size_t offset = 8 * pick(8);
    const Bytes bytes(8 * (1 + pick(8)), pick(12) == 0 ? 1 : 0);
    const bool more = offset + bytes.size() != 64 && pick(40) != 0;  // most packets are of 64 bytes
    const uint32_t id = pick(3);
    now += pick(20) == 0 ? -5 * kSecond : kSecond / 10;
    const Bytes frame = pick(2) == 0 ? Piece4(id, offset, more, bytes) : Piece6(id, offset, more, bytes);
    DecodeWith(&decoder, frame, {.time_ns = now, .cut = pick(8) == 0 ? pick(9) : 0});
    while (decoder.TakeExpired(&datagram)) CHECK(datagram.captured <= datagram.nominal);
    CHECK(AddsUp(decoder));
  }
  decoder.Flush();
  CHECK(decoder.FragmentsHeld() == 0);
  CHECK(decoder.fragments().reassembled > 100);
  CHECK(decoder.fragments().expired > 100);
  CHECK(decoder.fragments().dropped > 100);
  CHECK(decoder.fragments().inconsistent > 100);
}
