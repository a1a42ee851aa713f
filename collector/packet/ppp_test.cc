#include <doctest/doctest.h>

#include "tests/support/decode_frame.h"

using namespace test;
using packet::Outcome;

namespace {

constexpr FrameFields kPpp{.link_type = 9};
constexpr FrameFields kPppHdlc{.link_type = 50};
constexpr FrameFields kPppEther{.link_type = 51};
constexpr FrameFields kCiscoHdlc{.link_type = 104};

}  // namespace

TEST_CASE("PPP carries IPv4, IPv6 and MPLS, with or without address and control") {
  CHECK(IsQuery4(Decode(Query4(Ppp()), kPpp)));
  CHECK(IsQuery6(Decode(Query6(Ppp(true)), kPpp)));
  CHECK(IsQuery4(Decode(Query4(Ppp().Mpls(16)), kPpp)));
  CHECK(IsQuery4(Decode(Query4(Ppp().Type(0x0283).Payload(Bytes{0, 1, 1, 64})), kPpp)));
}

TEST_CASE("PPP's protocol number may be one octet") {
  CHECK(IsQuery4(Decode(Query4(RawIp().Payload(Bytes{0x21})), kPpp)));
  CHECK(IsQuery6(Decode(Query6(RawIp().Payload(Bytes{0xff, 3, 0x57})), kPpp)));
}

TEST_CASE("PPP's own protocols are not IP") {
  CHECK(Decode(Ppp().Type(0xc021).Text("LCP"), kPpp).outcome == Outcome::kNotIp);
}

TEST_CASE("PPP cut inside its protocol number is truncated") {
  CHECK(Decode(Ppp(), {.link_type = 9, .cut = 1}).outcome == Outcome::kTruncated);
  CHECK(Decode(Ppp(), {.link_type = 9, .cut = 2}).outcome == Outcome::kTruncated);
  CHECK(Decode(Ppp(true), {.link_type = 9, .cut = 2}).outcome == Outcome::kTruncated);
}

TEST_CASE("PPPoE sessions inside Ethernet and alone carry PPP") {
  CHECK(IsQuery6(Decode(Query6(Ethernet().Pppoe(9)))));
  CHECK(IsQuery4(Decode(Query4(Ethernet().Vlan(7).Pppoe(9)).Padding(6))));
  CHECK(IsQuery4(Decode(Query4(RawIp().Pppoe(9)), kPppEther)));
}

TEST_CASE("PPPoE of another version is malformed, of another code not IP") {
  CHECK(Decode(Query4(Ethernet().Pppoe(9).Set8(0, 0x12))).outcome == Outcome::kMalformed);
  CHECK(Decode(Query4(Ethernet().Pppoe(9).Set8(1, 0xa7))).outcome == Outcome::kNotIp);
}

TEST_CASE("a header that fills its frame is enough to see that PPP carries no IP") {
  CHECK(Decode(Ppp().Type(0xc021), kPpp).outcome == Outcome::kNotIp);
  CHECK(Decode(Bytes{0x23}, kPpp).outcome == Outcome::kNotIp);
  CHECK(Decode(CiscoHdlc().Type(0x8035), kCiscoHdlc).outcome == Outcome::kNotIp);
  CHECK(Decode(RawIp().Payload(Bytes{0x11, 0xa7, 0, 9, 0, 0}), kPppEther).outcome == Outcome::kNotIp);
}

TEST_CASE("PPPoE's length leaves no room for a header") {
  CHECK(Decode(Query4(Ethernet().Pppoe(9).Set16(4, 1))).outcome == Outcome::kMalformed);
}

TEST_CASE("PPPoE cut inside its header is truncated") {
  CHECK(Decode(Ethernet().Pppoe(9), {.cut = 3}).outcome == Outcome::kTruncated);
}

TEST_CASE("Cisco's HDLC carries type fields, PPP in HDLC frames its own numbers, under either link type") {
  CHECK(IsQuery4(Decode(Query4(CiscoHdlc()), kCiscoHdlc)));
  CHECK(IsQuery6(Decode(Query6(CiscoHdlc()), kPppHdlc)));
  CHECK(IsQuery4(Decode(Query4(Ppp(true)), kPppHdlc)));
  CHECK(IsQuery4(Decode(Query4(CiscoHdlc()).Set8(0, 0), kCiscoHdlc)) == false);
  CHECK(Decode(CiscoHdlc(), {.link_type = 104, .cut = 1}).outcome == Outcome::kTruncated);
}

TEST_CASE("multicast frames of Cisco's HDLC are decoded") {
  CHECK(IsQuery4(Decode(Query4(RawIp().Payload(Bytes{0x8f, 0, 0x08, 0x00})), kCiscoHdlc)));
}

TEST_CASE("PPP with an octet of direction in front is decoded") {
  for (const uint16_t link_type : Numbers{166, 204}) {
    CHECK(IsQuery4(Decode(Query4(RawIp().Payload(Bytes{1}).Ppp(true)), {.link_type = link_type})));
    CHECK(Decode(Bytes{}, {.link_type = link_type}).outcome == Outcome::kMalformed);
  }
}
