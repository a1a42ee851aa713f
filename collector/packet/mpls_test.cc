#include <doctest/doctest.h>

#include "tests/support/decode_frame.h"

using namespace test;
using packet::Outcome;

TEST_CASE("what MPLS labels carry shows in its first bits") {
  CHECK(IsQuery4(Decode(Query4(Ethernet().Mpls(16)))));
  CHECK(IsQuery6(Decode(Query6(Ethernet().Mpls(16).Mpls(17).Mpls(18)))));
}

TEST_CASE("multicast MPLS is decoded, and MPLS as a link type of its own") {
  const Bytes labelled = Query4(RawIp().Mpls(16)).Frame();
  CHECK(IsQuery4(Decode(Ethernet().Type(0x8848).Payload(labelled))));
  CHECK(IsQuery4(Decode(labelled, {.link_type = 219})));
}

TEST_CASE("MPLS carries Ethernet with and without a control word") {
  CHECK(IsQuery4(Decode(Query4(Ethernet().Mpls(16).ControlWord().Ethernet()))));
  CHECK(IsQuery6(Decode(Query6(Ethernet().Mpls(16).Ethernet()))));
  const Decoded tagged = Decode(Query4(Ethernet().Vlan(5).Mpls(16).ControlWord().Ethernet().Vlan(6)));
  CHECK(IsQuery4(tagged));
  CHECK(tagged.datagram.encapsulation.vlan_count == 2);
  CHECK(tagged.datagram.encapsulation.vlan[1] == 6);
}

TEST_CASE("labelled packets that are neither IP nor Ethernet are not IP") {
  CHECK(Decode(Ethernet().Mpls(16).Payload(Bytes(60, 0x10))).outcome == Outcome::kNotIp);
  CHECK(Decode(Ethernet().Mpls(16).Payload(Bytes(60))).outcome == Outcome::kNotIp);
  CHECK(Decode(Ethernet().Mpls(16).Payload(Bytes{0, 0, 0})).outcome == Outcome::kNotIp);
}

TEST_CASE("a label stack that the capture cuts is truncated, one without an end malformed") {
  CHECK(Decode(Ethernet().Mpls(16), {.cut = 1}).outcome == Outcome::kTruncated);
  CHECK(Decode(Ethernet().Mpls(16).Payload(Bytes{0x45}), {.cut = 1}).outcome == Outcome::kTruncated);
  CHECK(Decode(Ethernet().Mpls(16).Set8(2, 0)).outcome == Outcome::kMalformed);
}

TEST_CASE("label stacks are bounded") {
  Packet frame = Ethernet();
  for (int i = 0; i < 30; ++i) frame.Mpls(16);
  CHECK(IsQuery4(Decode(Query4(frame))));
  CHECK(Decode(Query4(frame.Mpls(16))).outcome == Outcome::kTooDeep);
  for (int i = 0; i < 5000; ++i) frame.Mpls(16);
  CHECK(Decode(Query4(frame)).outcome == Outcome::kTooDeep);
}
