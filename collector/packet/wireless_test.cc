#include <doctest/doctest.h>

#include "tests/support/decode_frame.h"

using namespace test;
using packet::Outcome;

namespace {

constexpr FrameFields kWifi{.link_type = 105};
constexpr FrameFields kRadiotap{.link_type = 127};

}  // namespace

TEST_CASE("802.11 data frames carry LLC, with three addresses and with four") {
  CHECK(IsQuery4(Decode(Query4(Wifi().Snap()), kWifi)));
  CHECK(IsQuery6(Decode(Query6(Wifi({.to_ds = false, .from_ds = true}).Snap()), kWifi)));
  CHECK(IsQuery4(Decode(Query4(Wifi({.from_ds = true}).Snap()), kWifi)));
}

TEST_CASE("802.11 frames with quality of service and HT control are decoded") {
  CHECK(IsQuery4(Decode(Query4(Wifi({.qos = true}).Snap()), kWifi)));
  CHECK(IsQuery4(Decode(Query4(Wifi({.from_ds = true, .qos = true}).Snap()), kWifi)));
  CHECK(IsQuery6(Decode(Query6(Wifi({.qos = true, .order = true}).Snap()), kWifi)));
}

TEST_CASE("802.11 management, empty, encrypted and later fragments' frames are not IP") {
  CHECK(Decode(Query4(Wifi().Set8(0, 0x80).Snap()), kWifi).outcome == Outcome::kNotIp);  // a beacon
  CHECK(Decode(Query4(Wifi().Set8(0, 0x48).Snap()), kWifi).outcome == Outcome::kNotIp);  // a null function
  CHECK(Decode(Query4(Wifi().Set8(1, 0x41).Snap()), kWifi).outcome == Outcome::kNotIp);  // protected
  CHECK(Decode(Query4(Wifi().Set8(22, 1).Snap()), kWifi).outcome == Outcome::kNotIp);    // fragment 1
}

TEST_CASE("802.11 aggregates are not taken apart") {
  CHECK(Decode(Query4(Wifi({.qos = true}).Set8(24, 0x80).Snap()), kWifi).outcome == Outcome::kNotIp);
  CHECK(IsQuery4(Decode(Query4(Wifi({.qos = true}).Set8(24, 0x7f).Snap()), kWifi)));
  const WifiFields ordered{.qos = true, .order = true};
  CHECK(Decode(Query4(Wifi(ordered).Set8(24, 0x80).Snap()), kWifi).outcome == Outcome::kNotIp);
}

TEST_CASE("802.11 of another version is malformed, cut inside its header truncated") {
  CHECK(Decode(Query4(Wifi().Set8(0, 0x09).Snap()), kWifi).outcome == Outcome::kMalformed);
  CHECK(Decode(Wifi(), {.link_type = 105, .cut = 1}).outcome == Outcome::kTruncated);
  CHECK(Decode(Wifi(), {.link_type = 105, .cut = 23}).outcome == Outcome::kTruncated);
}

TEST_CASE("radiotap is skipped whatever its presence bits") {
  CHECK(IsQuery4(Decode(Query4(Radiotap().Wifi().Snap()), kRadiotap)));
  CHECK(IsQuery6(Decode(Query6(Radiotap(0x10, 2).Wifi().Snap()).Padding(4), kRadiotap)));  // with a check sequence
  CHECK(IsQuery4(Decode(Query4(Radiotap().Set8(4, 0).Wifi().Snap()), kRadiotap)));
}

TEST_CASE("radiotap's flags tell of padding behind the 802.11 header") {
  const WifiFields qos{.qos = true};
  for (const int words : {0, 1, 2}) {
    CAPTURE(words);
    CHECK(IsQuery4(Decode(Query4(Radiotap(0x20, words).Wifi(qos).Payload(Bytes(2)).Snap()), kRadiotap)));
    CHECK(IsQuery4(Decode(Query4(Radiotap(0x20, words).Wifi().Snap()), kRadiotap)));  // 24 need no padding
    CHECK(IsQuery4(Decode(Query4(Radiotap(0xdf, words).Wifi(qos).Snap()), kRadiotap)));
    CHECK_FALSE(IsQuery4(Decode(Query4(Radiotap(0, words).Wifi(qos).Payload(Bytes(2)).Snap()), kRadiotap)));
  }
}

TEST_CASE("radiotap's flags stand first where there is no time stamp") {
  const Packet header = RawIp().Payload(Bytes{0, 0, 9, 0, 2, 0, 0, 0, 0x20});
  CHECK(IsQuery4(Decode(Query4(Packet(header).Wifi({.qos = true}).Payload(Bytes(2)).Snap()), kRadiotap)));
}

TEST_CASE("radiotap without flags tells of no padding, whatever stands where they would") {
  const Packet header = RawIp().Payload(Bytes{0, 0, 17, 0, 1, 0, 0, 0, 9, 9, 9, 9, 9, 9, 9, 9, 0x20});
  CHECK(IsQuery4(Decode(Query4(Packet(header).Wifi({.qos = true}).Snap()), kRadiotap)));
}

TEST_CASE("radiotap that contradicts itself is malformed, cut truncated") {
  CHECK(Decode(Query4(Radiotap().Set8(0, 1).Wifi().Snap()), kRadiotap).outcome == Outcome::kMalformed);
  CHECK(Decode(Query4(Radiotap().Set8(2, 7).Wifi().Snap()), kRadiotap).outcome == Outcome::kMalformed);
  CHECK(Decode(Query4(Radiotap().Set32(8, 0xffffffff).Set8(7, 0x80).Set32(12, 0xffffffff).Wifi().Snap()), kRadiotap)
            .outcome == Outcome::kMalformed);
  CHECK(Decode(Radiotap(), {.link_type = 127, .cut = 1}).outcome == Outcome::kTruncated);
  CHECK(Decode(Radiotap(), {.link_type = 127, .cut = 10}).outcome == Outcome::kTruncated);
}
