#include "collector/flow/surrogates.h"

#include <doctest/doctest.h>

#include <map>
#include <random>
#include <set>
#include <string>

#include "tests/support/datagram_builder.h"

using flow::ScopedAddress;
using flow::Surrogates;
using test::ToAddress;

namespace {

ScopedAddress Endpoint(const std::string& text) { return {ToAddress(text), {}}; }

ScopedAddress Numbered(uint32_t number) {
  ScopedAddress endpoint = Endpoint("2001:db8::");
  endpoint.address.octets[14] = static_cast<uint8_t>(number >> 8);
  endpoint.address.octets[15] = static_cast<uint8_t>(number);
  return endpoint;
}

}  // namespace

TEST_CASE("a surrogate lies in 240.0.0.0/4, its first octet first in memory") {
  Surrogates surrogates(10);
  const uint32_t surrogate = surrogates.Acquire(Endpoint("2001:db8::1"));
  CHECK((surrogate & 0xF0) == 0xF0);
  CHECK(Surrogates::IsInRange(surrogate));
}

TEST_CASE("the range of surrogates begins at 240.0.0.0 and ends at 255.255.255.255") {
  CHECK(Surrogates::IsInRange(ToAddress("240.0.0.0").Ipv4()));
  CHECK(Surrogates::IsInRange(ToAddress("255.255.255.255").Ipv4()));
  CHECK_FALSE(Surrogates::IsInRange(ToAddress("239.255.255.255").Ipv4()));
  CHECK_FALSE(Surrogates::IsInRange(ToAddress("0.0.0.0").Ipv4()));
}

TEST_CASE("an endpoint keeps its surrogate until its last user has left") {
  Surrogates surrogates(10);
  const uint32_t surrogate = surrogates.Acquire(Endpoint("2001:db8::1"));
  CHECK(surrogates.Acquire(Endpoint("2001:db8::1")) == surrogate);
  CHECK(surrogates.size() == 1);
  surrogates.Release(surrogate);
  CHECK(surrogates.Find(Endpoint("2001:db8::1")) == surrogate);
  surrogates.Release(surrogate);
  CHECK(surrogates.Find(Endpoint("2001:db8::1")) == Surrogates::kNone);
  CHECK(surrogates.size() == 0);
}

TEST_CASE("address, version, tags and tunnel tell endpoints apart") {
  std::vector<ScopedAddress> endpoints(8, Endpoint("10.0.0.1"));
  endpoints[1].scope.vlan = {5};
  endpoints[1].scope.vlan_count = 1;
  endpoints[2].scope.vlan = {0};
  endpoints[2].scope.vlan_count = 1;
  endpoints[3].scope.vlan = {5, 6};
  endpoints[3].scope.vlan_count = 2;
  endpoints[4].scope.tunnel = packet::Tunnel::kVxlan;
  endpoints[5].scope.tunnel = packet::Tunnel::kVxlan;
  endpoints[5].scope.tunnel_id = 9;
  endpoints[6].address.version = 6;  // the same octets
  endpoints[7] = Endpoint("10.0.0.2");
  Surrogates surrogates(100);
  std::set<uint32_t> given;
  for (const ScopedAddress& endpoint : endpoints) given.insert(surrogates.Acquire(endpoint));
  CHECK(given.size() == endpoints.size());
}

TEST_CASE("when all surrogates are taken a new endpoint gets none, a known one its own") {
  Surrogates surrogates(2);
  const uint32_t first = surrogates.Acquire(Numbered(1));
  surrogates.Acquire(Numbered(2));
  CHECK(surrogates.Acquire(Numbered(3)) == Surrogates::kNone);
  CHECK(surrogates.Acquire(Numbered(1)) == first);
  surrogates.Release(first);
  surrogates.Release(first);
  CHECK(surrogates.Acquire(Numbered(3)) == first);
}

TEST_CASE("looking an endpoint up makes nobody a user") {
  Surrogates surrogates(1);
  CHECK(surrogates.Find(Numbered(1)) == Surrogates::kNone);
  CHECK(surrogates.Acquire(Numbered(2)) != Surrogates::kNone);
}

TEST_CASE("releasing an address that is no surrogate in use changes nothing") {
  Surrogates surrogates(2);
  const uint32_t surrogate = surrogates.Acquire(Numbered(1));
  surrogates.Release(ToAddress("10.0.0.1").Ipv4());
  surrogates.Release(ToAddress("240.0.0.1").Ipv4());
  surrogates.Release(ToAddress("255.255.255.255").Ipv4());
  surrogates.Release(Surrogates::kNone);
  CHECK(surrogates.Find(Numbered(1)) == surrogate);
  surrogates.Release(surrogate);
  surrogates.Release(surrogate);
  CHECK(surrogates.Acquire(Numbered(1)) != surrogates.Acquire(Numbered(2)));
}

TEST_CASE("however surrogates are recycled, no two endpoints share one") {
  std::mt19937 random(3);
  Surrogates surrogates(50);
  std::map<uint32_t, std::pair<uint32_t, int>> model;  // endpoint -> surrogate, users
  for (int step = 0; step < 50000; ++step) {
    const uint32_t number = static_cast<uint32_t>(random() % 100);
    auto known = model.find(number);
    REQUIRE(surrogates.Find(Numbered(number)) == (known == model.end() ? Surrogates::kNone : known->second.first));
    if (random() % 2 == 0) {
      const uint32_t surrogate = surrogates.Acquire(Numbered(number));
      REQUIRE((surrogate == Surrogates::kNone) == (known == model.end() && model.size() == 50));
      if (surrogate == Surrogates::kNone) continue;
      for (const auto& [other, entry] : model) REQUIRE((other == number) == (entry.first == surrogate));
      model.try_emplace(number, surrogate, 0).first->second.second++;
    } else if (known != model.end()) {
      surrogates.Release(known->second.first);
      if (--known->second.second == 0) model.erase(known);
    }
  }
  CHECK(surrogates.size() == model.size());
}
