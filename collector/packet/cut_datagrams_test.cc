#include <doctest/doctest.h>

#include "tests/support/fragment_frames.h"

using namespace test;
using packet::Decoder;

TEST_CASE("the beginning of a packet that is given up is handed out as a cut datagram") {
  const Bytes message = Message(200);
  for (const Packet& answer : {Answer4(message), Answer6(message), Packet(Answer6(message))}) {
    const auto frames = answer.Fragments(64, 1);
    Decoder decoder;
    packet::Datagram datagram;
    DecodeWith(&decoder, frames[0], {.time_ns = 10});
    DecodeWith(&decoder, frames[1], {.time_ns = 20});
    CHECK_FALSE(decoder.TakeExpired(&datagram));
    CHECK(IsQuery4(DecodeWith(&decoder, Query4(Ethernet()).Frame(), {.time_ns = 5 * kSecond})));
    REQUIRE(decoder.TakeExpired(&datagram));
    CHECK(PayloadOf(datagram) == Text(message).substr(0, 120));
    CHECK(datagram.nominal == 200);
    CHECK(datagram.time_ns == 10);
    CHECK(datagram.source_port == 53);
    CHECK(datagram.transport == 17);
    CHECK(ToText(datagram.destination) == (datagram.destination.version == 4 ? kClient4 : kClient6));
    CHECK_FALSE(decoder.TakeExpired(&datagram));
    CHECK(decoder.fragments().cut_datagrams == 1);
  }
}

TEST_CASE("time alone hands a cut datagram out, before the frame that moves it is looked at") {
  const Bytes message = Message(200);
  const auto frames = Answer4(message).Fragments(64, 1);
  Decoder decoder;
  packet::Datagram datagram;
  decoder.Advance(5 * kSecond);
  DecodeWith(&decoder, frames[0], {.time_ns = 10});
  decoder.Advance(10 + 2 * kSecond);
  CHECK_FALSE(decoder.TakeExpired(&datagram));
  decoder.Advance(11 + 2 * kSecond);
  REQUIRE(decoder.TakeExpired(&datagram));
  CHECK(datagram.time_ns == 10);
  CHECK(PayloadOf(datagram) == Text(message).substr(0, 56));
  CHECK_FALSE(decoder.TakeExpired(&datagram));
  CHECK(AddsUp(decoder));
}

TEST_CASE("a packet without its beginning is given up in silence") {
  const auto frames = Answer4(Message(200)).Fragments(64, 1);
  Decoder decoder;
  packet::Datagram datagram;
  DecodeWith(&decoder, frames[1]);
  DecodeWith(&decoder, frames[3]);
  decoder.Flush();
  CHECK_FALSE(decoder.TakeExpired(&datagram));
  CHECK(decoder.fragments().expired == 2);
  CHECK(decoder.fragments().cut_datagrams == 0);
}

TEST_CASE("a cut datagram ends at its first gap, and its last fragment tells its length") {
  const auto frames = Answer4(Message(200)).Fragments(64, 1);
  Decoder decoder;
  packet::Datagram datagram;
  DecodeWith(&decoder, frames[0]);
  DecodeWith(&decoder, frames[2]);
  DecodeWith(&decoder, frames[3]);
  decoder.Flush();
  REQUIRE(decoder.TakeExpired(&datagram));
  CHECK(datagram.captured == 56);
  CHECK(datagram.nominal == 200);
}

TEST_CASE("a cut TCP segment has what came of it, to its first gap") {
  const auto frames = Ethernet().Ipv4(kServer4, kClient4).Tcp(53, 40000).Payload(Message(200)).Fragments(64, 1);
  Decoder decoder;
  packet::Datagram datagram;
  DecodeWith(&decoder, frames[0]);
  DecodeWith(&decoder, frames[1]);
  decoder.Flush();
  REQUIRE(decoder.TakeExpired(&datagram));
  CHECK(datagram.captured == 108);
  CHECK(datagram.nominal == 108);
}

TEST_CASE("cut datagrams keep tags and tunnels, and come out of tunnels") {
  const Bytes message = Message(200);
  Packet inside = Ethernet().Vlan(5).Ipv4(kTunnel4From, kTunnel4To).Gre({.has_key = true, .key = 9});
  const auto inner_fragments = Packet(inside).Ipv4(kServer4, kClient4).Udp(53, 9).Payload(message).Fragments(64, 1);
  Packet tunnelled = Ethernet().Ipv4(kTunnel4From, kTunnel4To).Udp(50000, 4789).Vxlan(77).Ethernet();
  Packet whole = tunnelled.Ipv4(kServer4, kClient4).Udp(53, 9).Payload(message);
  Decoder decoder;
  packet::Datagram datagram;
  DecodeWith(&decoder, inner_fragments[0]);
  decoder.Flush();
  REQUIRE(decoder.TakeExpired(&datagram));
  CHECK(datagram.encapsulation.vlan[0] == 5);
  CHECK(datagram.encapsulation.tunnel == packet::Tunnel::kGre);
  CHECK(datagram.encapsulation.tunnel_id == 9);
  const Bytes frame = whole.Frame();
  const Bytes outer_fragment = Ethernet()
                                   .Ipv4(kTunnel4From, kTunnel4To)
                                   .FragmentOf(3, 0, true)
                                   .Type(17)
                                   .Payload(Slice(frame, 34, 34 + 128))
                                   .Frame();
  DecodeWith(&decoder, outer_fragment);
  decoder.Flush();
  REQUIRE(decoder.TakeExpired(&datagram));
  CHECK(datagram.encapsulation.tunnel == packet::Tunnel::kVxlan);
  CHECK(ToText(datagram.source) == kServer4);
  CHECK(datagram.nominal == 200);
  CHECK(PayloadOf(datagram) == Text(message).substr(0, 128 - 8 - 8 - 14 - 20 - 8));
}

TEST_CASE("what is not taken before the next frame is lost, and counted all the same") {
  const auto frames = Answer4(Message(200)).Fragments(64, 1);
  Decoder decoder;
  packet::Datagram datagram;
  DecodeWith(&decoder, frames[0]);
  DecodeWith(&decoder, Query4(Ethernet()).Frame(), {.time_ns = 5 * kSecond});
  DecodeWith(&decoder, Query4(Ethernet()).Frame(), {.time_ns = 5 * kSecond});
  CHECK_FALSE(decoder.TakeExpired(&datagram));
  CHECK(decoder.fragments().expired == 1);
  CHECK(decoder.fragments().cut_datagrams == 0);
}

TEST_CASE("the beginning of a datagram that is not UDP or TCP, or too short to tell, is not handed out") {
  Decoder decoder;
  packet::Datagram datagram;
  DecodeWith(&decoder,
             Ethernet().Ipv4(kServer4, kClient4).FragmentOf(1, 0, true).Type(1).Payload(Bytes(64)).Frame());
  DecodeWith(&decoder, Piece4(2, 0, true, Bytes(16)), {.cut = 9});
  decoder.Flush();
  CHECK_FALSE(decoder.TakeExpired(&datagram));
  CHECK(decoder.fragments().expired == 2);
}

TEST_CASE("the end of the input hands out fragments that others carried") {
  // The outer packets' last fragments are missing; each first one holds a whole inner fragment.
  const Bytes message = Message(160);
  const auto inner = RawIp().Ipv4(kServer4, kClient4).Udp(53, 9).Payload(message).Fragments(64, 5);
  Decoder decoder;
  uint16_t id = 100;
  for (const size_t i : Sizes{0, 1}) {
    Bytes carried = inner[i];
    carried.resize((carried.size() + 7) / 8 * 8);
    DecodeWith(
        &decoder,
        Ethernet().Ipv4(kTunnel4From, kTunnel4To).FragmentOf(++id, 0, true).Type(4).Payload(carried).Frame());
  }
  decoder.Flush();
  packet::Datagram datagram;
  REQUIRE(decoder.TakeExpired(&datagram));
  CHECK(PayloadOf(datagram) == Text(message).substr(0, 120));
  CHECK(datagram.nominal == 160);
  CHECK_FALSE(decoder.TakeExpired(&datagram));
  CHECK(AddsUp(decoder));
}
