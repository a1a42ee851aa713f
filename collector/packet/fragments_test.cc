#include <doctest/doctest.h>

#include <algorithm>
#include <random>

#include "tests/support/fragment_frames.h"

using namespace test;
using packet::Decoder;
using packet::Outcome;

namespace {

// The result of the last frame; all before it must be kept.
Decoded DecodeAll(Decoder* decoder, const std::vector<Bytes>& frames) {
  Decoded last;
  for (const Bytes& frame : frames) {
    CHECK(last.outcome != Outcome::kDatagram);
    last = DecodeWith(decoder, frame);
  }
  return last;
}

}  // namespace

TEST_CASE("fragments of both families make their datagram again") {
  const Bytes message = Message(3000);
  for (const Packet& answer : {Answer4(message), Answer6(message)}) {
    Decoder decoder;
    const Decoded decoded = DecodeAll(&decoder, answer.Fragments(1000, 4711));
    CHECK(decoded.outcome == Outcome::kDatagram);
    CHECK(decoded.payload == Text(message));
    CHECK(decoded.datagram.nominal == 3000);
    CHECK(decoded.datagram.source_port == 53);
    CHECK(decoder.fragments().fragments == 4);
    CHECK(decoder.fragments().joined == 4);
    CHECK(decoder.fragments().reassembled == 1);
    CHECK(decoder.FragmentsHeld() == 0);
  }
}

TEST_CASE("a datagram from fragments has the addresses and the time of the frame that completed it") {
  Decoder decoder;
  const auto frames = Answer6(Message(100)).Fragments(64, 1);
  CHECK(DecodeWith(&decoder, frames[0], {.time_ns = 5}).outcome == Outcome::kFragment);
  const Decoded decoded = DecodeWith(&decoder, frames[1], {.time_ns = 9});
  CHECK(decoded.datagram.time_ns == 9);
  CHECK(ToText(decoded.datagram.source) == kServer6);
  CHECK(ToText(decoded.datagram.destination) == kClient6);
}

TEST_CASE("a readable byte lies behind a payload from fragments, however large") {
  Decoder decoder;
  const Bytes message = Message(65535 - 8);
  const auto frames = Answer6(message).Fragments(1480, 1);
  Decoded decoded;
  for (const Bytes& frame : frames) decoded = DecodeWith(&decoder, frame);
  REQUIRE(decoded.outcome == Outcome::kDatagram);
  CHECK(decoded.payload == Text(message));
  CHECK(decoded.datagram.payload[decoded.datagram.captured] == 0);  // nothing was ever written there
}

TEST_CASE("fragments arrive in any order") {
  const Bytes message = Message(500);
  std::mt19937 random(3);
  for (int round = 0; round < 50; ++round) {
    auto frames = (round % 2 == 0 ? Answer4(message) : Answer6(message)).Fragments(64, 9);
    std::shuffle(frames.begin(), frames.end(), random);
    Decoder decoder;
    CHECK(DecodeAll(&decoder, frames).payload == Text(message));
  }
}

TEST_CASE("fragments of several packets may be mixed") {
  const Bytes one = Message(200);
  const Bytes two = Message(333);
  const auto first = Answer4(one).Fragments(128, 1);
  const auto second = Answer4(two).Fragments(128, 2);
  Decoder decoder;
  CHECK(DecodeAll(&decoder, {first[0], second[0], second[1], first[1]}).payload == Text(one));
  CHECK(DecodeWith(&decoder, second[2]).payload == Text(two));
  CHECK(AddsUp(decoder));
}

TEST_CASE("fragments belong together by identifier, addresses, protocol, tags and tunnels") {
  const auto frames = Answer4(Message(100)).Fragments(64, 1);
  const auto same_but = [&](const Packet& other) {
    Decoder decoder;
    DecodeWith(&decoder, frames[0]);
    return DecodeWith(&decoder, other.Frame()).outcome == Outcome::kDatagram;
  };
  const Bytes rest = Slice(UdpBytes(Message(100)), 64, 108);
  const auto last = [&](Packet outer, const char* from, const char* to, uint16_t id, uint8_t protocol) {
    return outer.Ipv4(from, to).FragmentOf(id, 64, false).Type(protocol).Payload(rest);
  };
  CHECK(same_but(last(Ethernet(), kServer4, kClient4, 1, 17)));
  CHECK_FALSE(same_but(last(Ethernet(), kServer4, kClient4, 2, 17)));
  CHECK_FALSE(same_but(last(Ethernet(), kServer4, kTunnel4To, 1, 17)));
  CHECK_FALSE(same_but(last(Ethernet(), kTunnel4From, kClient4, 1, 17)));
  CHECK_FALSE(same_but(last(Ethernet(), kServer4, kClient4, 1, 6)));
  CHECK_FALSE(same_but(last(Ethernet().Vlan(5), kServer4, kClient4, 1, 17)));
  CHECK_FALSE(same_but(last(Ethernet().Ipv4(kTunnel4From, kTunnel4To), kServer4, kClient4, 1, 17)));
}

TEST_CASE("IPv6 takes the protocol of the first fragment, whatever the others say") {
  const Bytes udp = UdpBytes(Message(100));
  const Bytes last = Ethernet()
                         .Ipv6(kServer6, kClient6)
                         .FragmentHeader(1, 64, false)
                         .Type(59)
                         .Payload(Slice(udp, 64, 108))
                         .Frame();
  Decoder decoder;
  CHECK(DecodeAll(&decoder, {last, Piece6(1, 0, true, Slice(udp, 0, 64))}).payload == Text(Message(100)));
}

TEST_CASE("of several first fragments of IPv6 the first tells the protocol") {
  const Bytes udp = UdpBytes(Message(200));
  const Bytes longer =
      Ethernet().Ipv6(kServer6, kClient6).FragmentHeader(1, 0, true).Type(59).Payload(Slice(udp, 0, 128)).Frame();
  Decoder decoder;
  CHECK(DecodeAll(&decoder,
                  {Piece6(1, 0, true, Slice(udp, 0, 64)), longer, Piece6(1, 128, false, Slice(udp, 128, 208))})
            .payload == Text(Message(200)));
}

TEST_CASE("IPv6 extension headers inside fragments are followed") {
  const auto frames =
      Ethernet().Ipv6(kServer6, kClient6).FragmentHeader(1, 0, true).DestinationOptions(16).Udp(53, 9);
  const Bytes part = Packet(frames).Payload(Message(8)).Frame();  // 16 + 8 + 8 bytes
  const Bytes rest = Ethernet().Ipv6(kServer6, kClient6).FragmentHeader(1, 32, false).Type(60).Text("rest").Frame();
  Decoder decoder;
  const Decoded decoded = DecodeAll(&decoder, {part, rest});
  CHECK(decoded.outcome == Outcome::kDatagram);
  CHECK(decoded.payload == Text(Message(8)));  // by the UDP length
}

TEST_CASE("a repeated fragment changes nothing and is counted") {
  const Bytes message = Message(100);
  for (const Packet& answer : {Answer4(message), Answer6(message)}) {
    const auto frames = answer.Fragments(64, 1);
    Decoder decoder;
    CHECK(DecodeAll(&decoder, {frames[0], frames[0], frames[0], frames[1]}).payload == Text(message));
    CHECK(decoder.fragments().repeated == 2);
    CHECK(decoder.fragments().joined == 2);
    CHECK(AddsUp(decoder));
  }
}

TEST_CASE("fragments that overlap and agree are put together") {
  const Bytes message = Message(200);
  const Bytes udp = UdpBytes(message);  // 208 bytes
  for (const auto piece : {Piece4, Piece6}) {
    Decoder decoder;
    CHECK(DecodeAll(&decoder, {piece(1, 0, true, Slice(udp, 0, 64)), piece(1, 128, true, Slice(udp, 128, 160)),
                               piece(1, 32, true, Slice(udp, 32, 200)), piece(1, 160, false, Slice(udp, 160, 208))})
              .payload == Text(message));
    CHECK(decoder.fragments().joined == 4);
    CHECK(decoder.fragments().inconsistent == 0);
  }
}

TEST_CASE("where IPv4 fragments contradict each other the first bytes win") {
  const Bytes message = Message(200);
  const Bytes udp = UdpBytes(message);
  Bytes other = Slice(udp, 32, 128);
  for (size_t i = 0; i < 32; ++i) other[i] = 0xee;  // bytes 32 to 63 are there already
  Decoder decoder;
  CHECK(DecodeAll(&decoder, {Piece4(1, 0, true, Slice(udp, 0, 64)), Piece4(1, 32, true, other),
                             Piece4(1, 128, false, Slice(udp, 128, 208))})
            .payload == Text(message));
  CHECK(decoder.fragments().inconsistent == 1);
  CHECK(decoder.fragments().joined == 2);
  CHECK(AddsUp(decoder));
}

TEST_CASE("a fragment repeated with other bytes is inconsistent, wherever it lies") {
  for (const size_t offset : Sizes{0, 8, 128, 1024}) {
    Bytes other(16, 7);
    other.back() = 8;
    Decoder decoder;
    DecodeWith(&decoder, Piece4(1, offset, true, Bytes(16, 7)));
    DecodeWith(&decoder, Piece4(1, offset, true, other));
    CHECK(decoder.fragments().inconsistent == 1);
    CHECK(decoder.FragmentsHeld() == 1);
  }
}

TEST_CASE("an IPv6 packet that contradicts itself is given up, with all that still comes of it") {
  const Bytes udp = UdpBytes(Message(200));
  Decoder decoder;
  DecodeWith(&decoder, Piece6(1, 0, true, Slice(udp, 0, 64)));
  DecodeWith(&decoder, Piece6(1, 32, true, Bytes(96, 0xee)));
  CHECK(decoder.fragments().inconsistent == 2);
  CHECK(decoder.FragmentsHeld() == 0);
  DecodeWith(&decoder, Piece6(1, 0, true, Slice(udp, 0, 128)));
  CHECK(DecodeWith(&decoder, Piece6(1, 128, false, Slice(udp, 128, 208))).outcome == Outcome::kFragment);
  CHECK(decoder.fragments().inconsistent == 4);
  decoder.Flush();
  packet::Datagram datagram;
  CHECK_FALSE(decoder.TakeExpired(&datagram));
  CHECK(AddsUp(decoder));
}

TEST_CASE("fragments that end where the packet cannot are inconsistent") {
  const Bytes udp = UdpBytes(Message(200));
  const Bytes first = Slice(udp, 0, 64);
  const Bytes middle = Slice(udp, 64, 128);
  const Bytes last = Slice(udp, 128, 208);
  const auto inconsistent = [](const std::vector<Bytes>& frames) {
    Decoder decoder;
    DecodeAll(&decoder, frames);
    CHECK(AddsUp(decoder));
    return decoder.fragments().inconsistent;
  };
  CHECK(inconsistent({Piece4(1, 128, false, last), Piece4(1, 136, false, last)}) == 1);   // two ends
  CHECK(inconsistent({Piece4(1, 64, false, middle), Piece4(1, 128, true, last)}) == 1);   // beyond the end
  CHECK(inconsistent({Piece4(1, 64, false, middle), Piece4(1, 64, true, middle)}) == 1);  // more at the end
  CHECK(inconsistent({Piece4(1, 128, true, last), Piece4(1, 64, false, middle)}) == 1);   // an end before the end
  CHECK(inconsistent({Piece6(1, 128, false, last), Piece6(1, 136, false, last)}) == 2);
  CHECK(inconsistent({Piece4(1, 0, true, first), Piece4(1, 64, true, middle)}) == 0);
}

TEST_CASE("fragments that no packet can hold are malformed") {
  CHECK(Decode(Piece4(1, 0, true, Bytes(20))).outcome == Outcome::kMalformed);  // not a multiple of eight
  CHECK(Decode(Piece6(1, 0, true, Bytes(20))).outcome == Outcome::kMalformed);
  CHECK(Decode(Piece4(1, 64, false, {})).outcome == Outcome::kMalformed);
  CHECK(Decode(Piece4(1, 65528, false, Bytes(8))).outcome == Outcome::kMalformed);
  CHECK(Decode(Piece4(1, 65528, false, Bytes(7))).outcome == Outcome::kFragment);
}

TEST_CASE("a fragment of unknown length is bounded like the others") {
  const Packet endless = Ethernet().Ipv4(kServer4, kClient4).FragmentOf(1, 65528, false).Set16(2, 0).Type(17);
  const Bytes frame = Packet(endless).Payload(Bytes(8)).Frame();
  Decoder decoder;
  packet::Datagram datagram;
  CHECK(decoder.Decode({.data = frame.data(),
                        .captured = static_cast<uint32_t>(frame.size()),
                        .wire = 0xffffffff,
                        .link_type = 1},
                       &datagram) == Outcome::kMalformed);
}

TEST_CASE("bytes that the capture cut from fragments cut the datagram at the first hole") {
  const Bytes message = Message(200);
  const auto frames = Answer4(message).Fragments(64, 1);
  Decoder decoder;
  DecodeWith(&decoder, frames[0]);
  DecodeWith(&decoder, frames[1], {.cut = 10});
  DecodeWith(&decoder, frames[2]);
  const Decoded decoded = DecodeWith(&decoder, frames[3], {.cut = 4});
  CHECK(decoded.outcome == Outcome::kDatagram);
  CHECK(decoded.payload == Text(message).substr(0, 128 - 8 - 10));
  CHECK(decoded.datagram.nominal == 200);
}

TEST_CASE("a fragment repeated with other bytes where the first was cut is a repeated one") {
  const auto frames = Answer4(Message(200)).Fragments(64, 1);
  Decoder decoder;
  DecodeWith(&decoder, frames[1], {.cut = 60});
  Bytes other = frames[1];
  other.back() = static_cast<uint8_t>(other.back() + 1);
  DecodeWith(&decoder, other);
  CHECK(decoder.fragments().repeated == 1);
}

TEST_CASE("fragments inside a fragmented tunnel are put together") {
  const Bytes message = Message(900);
  Packet outer = Ethernet().Ipv4(kTunnel4From, kTunnel4To);
  const auto inner = Packet(outer).Ipv6(kServer6, kClient6).Udp(53, 9).Payload(message).Fragments(304, 5);
  Decoder decoder;
  Decoded decoded;
  uint16_t id = 100;
  for (const Bytes& frame : inner) {
    const Bytes carried(frame.begin() + 34, frame.end());
    const auto pieces = Ethernet().Ipv4(kTunnel4From, kTunnel4To).Type(41).Payload(carried).Fragments(104, ++id);
    for (const Bytes& piece : pieces) decoded = DecodeWith(&decoder, piece);
  }
  CHECK(decoded.outcome == Outcome::kDatagram);
  CHECK(decoded.payload == Text(message));
  CHECK(decoded.datagram.encapsulation.tunnel == packet::Tunnel::k6in4);
  CHECK(decoder.fragments().reassembled == inner.size() + 1);
  CHECK(AddsUp(decoder));
}
