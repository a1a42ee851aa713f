#include "collector/packet/datagram.h"

#include <doctest/doctest.h>

#include <string>

using packet::Tunnel;

TEST_CASE("every tunnel has the name that records show") {
  const auto name = [](Tunnel tunnel) { return std::string(TunnelName(tunnel)); };
  CHECK(name(Tunnel::kNone).empty());
  CHECK(name(Tunnel::kIpInIp) == "ipip");
  CHECK(name(Tunnel::k6in4) == "6in4");
  CHECK(name(Tunnel::kGre) == "gre");
  CHECK(name(Tunnel::kVxlan) == "vxlan");
  CHECK(name(Tunnel::kGeneve) == "geneve");
  CHECK(name(Tunnel::kTeredo) == "teredo");
  CHECK(name(Tunnel::kGtp) == "gtp");
  CHECK(name(Tunnel::kOther) == "other");
}
