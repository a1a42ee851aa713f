#include "collector/flow/flow_store.h"

#include <doctest/doctest.h>

#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "collector/flow/tcp_connection.h"
#include "tests/support/datagram_builder.h"

using flow::Flow;
using flow::FlowStore;
using namespace test;

namespace {

struct Store : FlowStore {
  explicit Store(bool separate = false, size_t most = 1000) : FlowStore(separate, most) {}

  Flow* Find(const packet::Datagram& datagram) const {
    Route route;
    return FlowStore::Find(datagram, &route);
  }
  Flow* Create(const packet::Datagram& datagram) {
    Route route;
    FlowStore::Find(datagram, &route);
    return FlowStore::Create(datagram, route);
  }
};

std::string Dotted(uint32_t address) {
  uint8_t octets[4];
  std::memcpy(octets, &address, sizeof octets);
  std::string text;
  for (uint8_t octet : octets) text += (text.empty() ? "" : ".") + std::to_string(octet);
  return text;
}

bool IsSurrogate(uint32_t address) { return flow::Surrogates::IsInRange(address); }

}  // namespace

TEST_CASE("a new flow describes its first datagram, with the sender as the local endpoint") {
  Store store;
  Flow* flow = store.Create(UdpDatagram("10.0.0.1", 4000, "10.0.0.53", 53).Vlan(5));
  REQUIRE(flow != nullptr);
  CHECK(Dotted(flow->descriptor.local_ipv4) == "10.0.0.1");
  CHECK(Dotted(flow->descriptor.remote_ipv4) == "10.0.0.53");
  CHECK(flow->descriptor.local_port == 4000);
  CHECK(flow->descriptor.remote_port == 53);
  CHECK(flow->descriptor.transport == 17);
  CHECK(flow->descriptor.context_id == 1);
  CHECK(flow->descriptor.client_side == 0);  // not known yet
  CHECK(flow->client == ToAddress("10.0.0.1"));
  CHECK(flow->server == ToAddress("10.0.0.53"));
  CHECK(flow->encapsulation.vlan_count == 1);
  CHECK(flow->encapsulation.vlan[0] == 5);
  CHECK(flow->descriptor.host_field_1 == flow->number);
  CHECK(flow->descriptor.host_field_4 == reinterpret_cast<uintptr_t>(flow));
  CHECK(flow->descriptor.host_field_2 == 0);
  CHECK(flow->descriptor.host_field_3 == 0);
  CHECK(flow->descriptor.host_field_5 == 0);
}

TEST_CASE("both directions are one flow") {
  for (const char* server : {"10.0.0.53", "2001:db8::53", "250.0.0.1"}) {
    CAPTURE(server);
    const std::string client = std::string(server).find(':') == std::string::npos ? "10.0.0.1" : "2001:db8::1";
    Store store;
    CHECK(store.Find(UdpDatagram(client, 4000, server, 53)) == nullptr);
    Flow* flow = store.Create(UdpDatagram(client, 4000, server, 53));
    CHECK(store.Find(UdpDatagram(client, 4000, server, 53)) == flow);
    CHECK(store.Find(UdpDatagram(server, 53, client, 4000)) == flow);
    flow::SwapEndpoints(flow);
    CHECK(store.Find(UdpDatagram(client, 4000, server, 53)) == flow);
    CHECK(store.Find(UdpDatagram(server, 53, client, 4000)) == flow);
    store.Drop(flow);
    CHECK(store.Find(UdpDatagram(client, 4000, server, 53)) == nullptr);
    CHECK(store.SurrogatesInUse() == 0);
  }
}

TEST_CASE("each address, each port and the transport tell flows apart") {
  Store store;
  const std::vector<DatagramBuilder> all{
      UdpDatagram("10.0.0.1", 4000, "10.0.0.2", 53), TcpSegment("10.0.0.1", 4000, "10.0.0.2", 53),
      UdpDatagram("10.0.0.3", 4000, "10.0.0.2", 53), UdpDatagram("10.0.0.1", 4001, "10.0.0.2", 53),
      UdpDatagram("10.0.0.1", 4000, "10.0.0.3", 53), UdpDatagram("10.0.0.1", 4000, "10.0.0.2", 54),
      UdpDatagram("10.0.0.2", 4000, "10.0.0.1", 53), UdpDatagram("2001:db8::1", 4000, "2001:db8::2", 53),
      UdpDatagram("a00:1::", 4000, "a00:2::", 53)};
  std::set<Flow*> flows;
  for (const DatagramBuilder& datagram : all) {
    CHECK(store.Find(datagram) == nullptr);
    flows.insert(store.Create(datagram));
  }
  CHECK(flows.size() == all.size());
  for (const DatagramBuilder& datagram : all) CHECK(flows.contains(store.Find(datagram)));
}

TEST_CASE("IPv6 endpoints get surrogates, and the flow shows the real addresses") {
  Store store;
  Flow* flow = store.Create(UdpDatagram("2001:db8::1", 4000, "2001:db8::53", 53));
  CHECK(IsSurrogate(flow->descriptor.local_ipv4));
  CHECK(IsSurrogate(flow->descriptor.remote_ipv4));
  CHECK(flow->descriptor.local_ipv4 != flow->descriptor.remote_ipv4);
  CHECK(flow->client == ToAddress("2001:db8::1"));
  CHECK(flow->server == ToAddress("2001:db8::53"));
  Flow* other = store.Create(UdpDatagram("2001:db8::1", 4001, "2001:db8::53", 53));
  CHECK(other->descriptor.local_ipv4 == flow->descriptor.local_ipv4);
  CHECK(store.SurrogatesInUse() == 2);
  store.Drop(flow);
  CHECK(store.SurrogatesInUse() == 2);
  store.Drop(other);
  CHECK(store.SurrogatesInUse() == 0);
}

TEST_CASE("real addresses of 240.0.0.0/4 never stand for themselves") {
  Store store;
  Flow* flow = store.Create(UdpDatagram("2001:db8::1", 4000, "2001:db8::53", 53));
  // A datagram that really bears the two surrogates.
  const std::string client = Dotted(flow->descriptor.local_ipv4);
  const std::string server = Dotted(flow->descriptor.remote_ipv4);
  CHECK(store.Find(UdpDatagram(client, 4000, server, 53)) == nullptr);
  Flow* real = store.Create(UdpDatagram(client, 4000, server, 53));
  CHECK(real->descriptor.local_ipv4 != flow->descriptor.local_ipv4);
  CHECK(real->descriptor.remote_ipv4 != flow->descriptor.remote_ipv4);
  CHECK(store.SurrogatesInUse() == 4);
}

TEST_CASE("0.0.0.0 stays itself, in a tag too") {
  Store store(true);
  Flow* flow = store.Create(UdpDatagram("0.0.0.0", 4000, "10.0.0.53", 53).Vlan(5));
  CHECK(flow->descriptor.local_ipv4 == 0);
  CHECK(IsSurrogate(flow->descriptor.remote_ipv4));
}

TEST_CASE("a datagram both of whose ends are one endpoint has a flow") {
  Store store;
  Flow* flow = store.Create(UdpDatagram("2001:db8::1", 53, "2001:db8::1", 53));
  CHECK(store.Find(UdpDatagram("2001:db8::1", 53, "2001:db8::1", 53)) == flow);
  store.Drop(flow);
  CHECK(store.SurrogatesInUse() == 0);
}

TEST_CASE("without a surrogate left there is no flow, and nothing is held") {
  Store store(false, 3);
  Flow* flow = store.Create(UdpDatagram("2001:db8::1", 4000, "2001:db8::53", 53));
  CHECK(store.Create(UdpDatagram("2001:db8::2", 4000, "2001:db8::54", 53)) == nullptr);
  CHECK(store.SurrogatesInUse() == 2);
  CHECK(store.pool().live() == 1);
  CHECK(store.Create(UdpDatagram("10.0.0.1", 4000, "10.0.0.53", 53)) != nullptr);
  CHECK(store.Create(UdpDatagram("2001:db8::2", 4000, "2001:db8::53", 53)) != nullptr);
  store.Drop(flow);
  CHECK(store.SurrogatesInUse() == 2);
}

TEST_CASE("tags and tunnels do not count unless they are asked for") {
  Store store;
  Flow* flow = store.Create(UdpDatagram("10.0.0.1", 4000, "10.0.0.53", 53).Vlan(5));
  CHECK(store.Find(UdpDatagram("10.0.0.53", 53, "10.0.0.1", 4000)) == flow);
  CHECK(store.Find(UdpDatagram("10.0.0.53", 53, "10.0.0.1", 4000).Tunnel(packet::Tunnel::kGre, 3)) == flow);
  CHECK(flow->descriptor.local_ipv4 == ToAddress("10.0.0.1").Ipv4());
  Flow* six = store.Create(UdpDatagram("2001:db8::1", 4000, "2001:db8::53", 53).Vlan(5));
  CHECK(store.Find(UdpDatagram("2001:db8::1", 4000, "2001:db8::53", 53)) == six);
}

TEST_CASE("with separate tags and tunnels each has its own flows") {
  Store store(true);
  std::vector<DatagramBuilder> all;
  for (const char* server : {"10.0.0.53", "2001:db8::53"}) {
    const auto datagram = UdpDatagram(server, 4000, server, 53);
    all.push_back(datagram);
    all.push_back(DatagramBuilder(datagram).Vlan(5));
    all.push_back(DatagramBuilder(datagram).Vlan(0));
    all.push_back(DatagramBuilder(datagram).Vlan(5).Vlan(6));
    all.push_back(DatagramBuilder(datagram).Tunnel(packet::Tunnel::kGre));
    all.push_back(DatagramBuilder(datagram).Tunnel(packet::Tunnel::kGre, 7));
    all.push_back(DatagramBuilder(datagram).Tunnel(packet::Tunnel::kVxlan, 7));
  }
  std::set<Flow*> flows;
  for (const DatagramBuilder& datagram : all) {
    CHECK(store.Find(datagram) == nullptr);
    flows.insert(store.Create(datagram));
  }
  CHECK(flows.size() == all.size());
  for (const DatagramBuilder& datagram : all) CHECK(flows.contains(store.Find(datagram)));
  CHECK(store.Find(UdpDatagram("10.0.0.53", 53, "10.0.0.53", 4000).Vlan(5)) != nullptr);
}

TEST_CASE("an endpoint in a tag of its own never looks like the one outside") {
  Store store(true);
  Flow* outside = store.Create(UdpDatagram("10.0.0.1", 4000, "10.0.0.53", 53));
  Flow* inside = store.Create(UdpDatagram("10.0.0.1", 4000, "10.0.0.53", 53).Vlan(5));
  CHECK(outside->descriptor.local_ipv4 == ToAddress("10.0.0.1").Ipv4());
  CHECK(IsSurrogate(inside->descriptor.local_ipv4));
  CHECK(inside->client == ToAddress("10.0.0.1"));
}

TEST_CASE("the two directions of a GTP tunnel are one flow although their identifiers differ") {
  Store store(true);
  Flow* flow = store.Create(UdpDatagram("10.0.0.1", 4000, "10.0.0.53", 53).Tunnel(packet::Tunnel::kGtp, 1));
  CHECK(store.Find(UdpDatagram("10.0.0.53", 53, "10.0.0.1", 4000).Tunnel(packet::Tunnel::kGtp, 2)) == flow);
  CHECK(flow->encapsulation.tunnel_id == 1);
}

TEST_CASE("who sent a datagram is told by the ports, and by the addresses where the ports are equal") {
  Store store;
  Flow* flow = store.Create(UdpDatagram("10.0.0.1", 4000, "10.0.0.1", 53));
  CHECK(flow::IsFromLocal(*flow, UdpDatagram("10.0.0.1", 4000, "10.0.0.1", 53)));
  CHECK_FALSE(flow::IsFromLocal(*flow, UdpDatagram("10.0.0.1", 53, "10.0.0.1", 4000)));
  Flow* equal = store.Create(UdpDatagram("2001:db8::1", 53, "2001:db8::2", 53));
  CHECK(flow::IsFromLocal(*equal, UdpDatagram("2001:db8::1", 53, "2001:db8::2", 53)));
  CHECK_FALSE(flow::IsFromLocal(*equal, UdpDatagram("2001:db8::2", 53, "2001:db8::1", 53)));
}

TEST_CASE("swapping the endpoints swaps all that belongs to them") {
  Store store;
  Flow* flow = store.Create(TcpSegment("10.0.0.53", 53, "10.0.0.1", 4000));
  flow->tcp = std::make_unique<flow::TcpConnection>();
  const flow::TcpStream* stream = &flow->tcp->Stream(true);
  flow::SwapEndpoints(flow);
  CHECK(Dotted(flow->descriptor.local_ipv4) == "10.0.0.1");
  CHECK(Dotted(flow->descriptor.remote_ipv4) == "10.0.0.53");
  CHECK(flow->descriptor.local_port == 4000);
  CHECK(flow->descriptor.remote_port == 53);
  CHECK(flow->client == ToAddress("10.0.0.1"));
  CHECK(flow->server == ToAddress("10.0.0.53"));
  CHECK(&flow->tcp->Stream(false) == stream);
}

TEST_CASE("prefetching is safe for any datagram") {
  Store store(true);
  store.Prefetch(UdpDatagram("10.0.0.1", 4000, "10.0.0.53", 53));
  store.Prefetch(UdpDatagram("2001:db8::1", 4000, "2001:db8::53", 53));
  store.Prefetch(packet::Datagram{});
  CHECK(store.pool().live() == 0);
}
