#include "collector/packet/outcome.h"

#include <doctest/doctest.h>

#include <string>

using packet::Outcome;

TEST_CASE("every outcome has the name that the account shows") {
  const auto name = [](Outcome outcome) { return std::string(OutcomeName(outcome)); };
  CHECK(name(Outcome::kDatagram) == "datagram");
  CHECK(name(Outcome::kUnknownLinkType) == "unknown_link_type");
  CHECK(name(Outcome::kNotIp) == "not_ip");
  CHECK(name(Outcome::kNotUdpOrTcp) == "not_udp_or_tcp");
  CHECK(name(Outcome::kTruncated) == "truncated");
  CHECK(name(Outcome::kMalformed) == "malformed");
  CHECK(name(Outcome::kTooDeep) == "too_deep");
  CHECK(name(Outcome::kFragment) == "fragment");
}
