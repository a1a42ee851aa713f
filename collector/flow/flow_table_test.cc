#include "collector/flow/flow_table.h"

#include <doctest/doctest.h>

#include <set>
#include <string>
#include <vector>

#include "tests/support/datagram_builder.h"
#include "tests/support/dns_builder.h"
#include "tests/support/recording_listener.h"

using flow::Delivery;
using flow::Flow;
using flow::FlowTable;
using flow::Settings;
using namespace test;

namespace {

std::string Ask(unsigned id) { return Query(id).Question("aa.bb", kA).Wire(); }
std::string Reply(unsigned id) { return Response(id).Question("aa.bb", kA).Answer("aa.bb", A("192.0.2.1")).Wire(); }

struct Table {
  explicit Table(const Settings& settings = {}) : flows(settings, &listener) { listener.Attach(&flows); }

  Delivery Udp(const std::string& source, uint16_t source_port, const std::string& destination,
               uint16_t destination_port, const std::string& payload, int64_t time_ns = 0) {
    return flows.Handle(
        UdpDatagram(source, source_port, destination, destination_port).Payload(payload).At(time_ns));
  }
  Delivery Up(uint16_t port, const std::string& payload, int64_t time_ns = 0) {
    return Udp("10.0.0.1", port, "10.0.0.53", 53, payload, time_ns);
  }
  Delivery Down(uint16_t port, const std::string& payload, int64_t time_ns = 0) {
    return Udp("10.0.0.53", 53, "10.0.0.1", port, payload, time_ns);
  }
  const Delivered& Last() const { return listener.messages.back(); }

  RecordingListener listener;
  FlowTable flows;
};

Settings Small(size_t max_flows) {
  Settings settings;
  settings.max_flows = max_flows;
  return settings;
}

}  // namespace

TEST_CASE("a datagram is one message, handed on where it lies") {
  Table table;
  const auto datagram = UdpDatagram("10.0.0.1", 4000, "10.0.0.53", 53).Payload(Ask(7)).At(42);
  struct Checker : flow::Listener {
    void OnNewFlow(Flow*) override {}
    void OnMessage(const flow::Message& message) override { seen = message; }
    void OnEndOfFlow(Flow*) override {}
    flow::Message seen;
  } checker;
  FlowTable flows({}, &checker);
  CHECK(flows.Handle(datagram) == Delivery::kUdpMessage);
  CHECK(checker.seen.data == datagram.Get().payload);
  CHECK(checker.seen.snap_length == static_cast<int>(Ask(7).size()));
  CHECK(checker.seen.nominal_length == static_cast<int>(Ask(7).size()));
  CHECK(checker.seen.time_ns == 42);
  CHECK(checker.seen.from_client);
  CHECK(flows.counts().udp_messages == 1);
}

TEST_CASE("a datagram cut by the capture is handed on with both lengths, even when nothing is left") {
  Table table;
  for (uint32_t size : {20u, 2u, 0u}) {
    const auto datagram = UdpDatagram("10.0.0.1", 4000, "10.0.0.53", 53).Payload(Ask(7)).Captured(size);
    CHECK(table.flows.Handle(datagram) == Delivery::kUdpMessage);
    CHECK(table.Last().bytes == Ask(7).substr(0, size));
    CHECK(table.Last().nominal == static_cast<int>(Ask(7).size()));
  }
}

TEST_CASE("every delivery has a name of its own") {
  std::set<std::string> names;
  for (int i = 0; i < static_cast<int>(Delivery::kCount); ++i) names.insert(DeliveryName(static_cast<Delivery>(i)));
  CHECK(names ==
        std::set<std::string>{"udp_message", "tcp_segment", "not_dns_port", "empty", "no_flow", "no_surrogate"});
}

TEST_CASE("a datagram between other ports is none of ours") {
  Table table;
  CHECK(table.Udp("10.0.0.1", 4000, "10.0.0.53", 54, Ask(1)) == Delivery::kNotDnsPort);
  CHECK(table.flows.Handle(TcpSegment("10.0.0.1", 4000, "10.0.0.53", 54).Flags(packet::kTcpSyn)) ==
        Delivery::kNotDnsPort);
  CHECK(table.listener.messages.empty());
  CHECK(table.flows.size() == 0);
}

TEST_CASE("DNS ports are those of the settings") {
  Settings settings;
  settings.dns_ports = {5353, 8053};
  Table table(settings);
  CHECK(table.Up(4000, Ask(1)) == Delivery::kNotDnsPort);
  CHECK(table.Udp("10.0.0.1", 4000, "10.0.0.53", 5353, Ask(1)) == Delivery::kUdpMessage);
  CHECK(table.Udp("10.0.0.1", 4000, "10.0.0.53", 8053, Ask(1)) == Delivery::kUdpMessage);
}

TEST_CASE("a datagram without payload is empty") {
  Table table;
  CHECK(table.Up(4000, "") == Delivery::kEmpty);
  CHECK(table.flows.size() == 0);
}

TEST_CASE("the endpoint on a DNS port is the server, whoever speaks first and whatever is said") {
  for (const std::string& first : {Ask(1), Reply(1)}) {
    Table table;
    table.listener.pairs = false;
    table.Down(4000, first);
    CHECK_FALSE(table.Last().from_client);
    table.Up(4000, first);
    CHECK(table.Last().from_client);
  }
}

TEST_CASE("the descriptor has the client as its local endpoint, ports as numbers and addresses as in packets") {
  Table table;
  table.Down(4000, Reply(9));  // gone at once, but the answer came first
  table.Up(4000, Ask(1));
  REQUIRE(table.listener.live.size() == 1);
  const Flow& flow = **table.listener.live.begin();
  CHECK(flow.descriptor.local_ipv4 == ToAddress("10.0.0.1").Ipv4());
  CHECK(flow.descriptor.remote_ipv4 == ToAddress("10.0.0.53").Ipv4());
  CHECK(flow.descriptor.local_port == 4000);
  CHECK(flow.descriptor.remote_port == 53);
  CHECK(flow.descriptor.client_side == kClientIsLocal);
  CHECK(flow.descriptor.transport == 17);
  CHECK(flow.descriptor.context_id == 1);
  CHECK(flow.client == ToAddress("10.0.0.1"));
  CHECK(flow.server == ToAddress("10.0.0.53"));
}

TEST_CASE("both directions of a conversation are one flow") {
  Table table;
  table.Up(4000, Ask(1));
  Flow* flow = table.Last().flow;
  table.Up(4000, Ask(2));
  table.Down(4000, Reply(1));
  CHECK(table.Last().flow == flow);
  CHECK(table.listener.begun == 1);
  CHECK(table.flows.counts().flows == 1);
}

TEST_CASE("a flow without open queries whose ports told its direction is dropped at once") {
  Table table;
  table.Up(4000, Ask(1));
  CHECK(table.flows.size() == 1);
  table.Down(4000, Reply(1));
  CHECK(table.flows.size() == 0);
  CHECK(table.listener.ended == 1);
  table.Down(4000, Reply(5));  // unsolicited
  CHECK(table.flows.size() == 0);
  CHECK(table.listener.ended == 2);
}

TEST_CASE("where both endpoints are on DNS ports the first message's QR bit decides, once per flow") {
  for (const bool response_first : {false, true}) {
    CAPTURE(response_first);
    Table table;
    table.Udp("10.0.0.9", 53, "10.0.0.53", 53, response_first ? Reply(1) : Ask(1));
    CHECK(table.Last().from_client == !response_first);
    Flow* flow = table.Last().flow;
    CHECK(flow->client == ToAddress(response_first ? "10.0.0.53" : "10.0.0.9"));
    // From now on the bit changes nothing.
    table.Udp("10.0.0.9", 53, "10.0.0.53", 53, response_first ? Ask(2) : Reply(2));
    CHECK(table.Last().from_client == !response_first);
    table.Udp("10.0.0.53", 53, "10.0.0.9", 53, Ask(2));
    CHECK(table.Last().from_client == response_first);
    CHECK(table.Last().flow == flow);
    CHECK(table.listener.begun == 1);
  }
}

TEST_CASE("with every port a DNS port the first message's QR bit decides") {
  Settings settings;
  settings.dns_ports = {};
  Table table(settings);
  CHECK(table.Udp("10.0.0.53", 5000, "10.0.0.1", 4000, Reply(1)) == Delivery::kUdpMessage);
  CHECK_FALSE(table.Last().from_client);
  CHECK(table.Last().flow->server == ToAddress("10.0.0.53"));
}

TEST_CASE("a flow whose direction a message decided is kept until it has been idle for a minute") {
  Table table;
  table.listener.pairs = false;
  table.Udp("10.0.0.53", 53, "10.0.0.9", 53, Reply(1), 0);
  table.Udp("10.0.0.53", 53, "10.0.0.9", 53, Reply(1), kSecond);
  table.flows.Tick(kSecond + FlowTable::kUdpIdleNs);
  CHECK(table.flows.size() == 1);
  table.flows.Tick(kSecond + FlowTable::kUdpIdleNs + 1);
  CHECK(table.flows.size() == 0);
  CHECK(table.listener.ended == 1);
}

TEST_CASE("a message too short to show its QR bit decides nothing for later ones") {
  Table table;
  packet::Datagram cut = UdpDatagram("10.0.0.53", 53, "10.0.0.9", 53).Payload("");
  const uint8_t response[] = {'a', 'b', 0x80, 0};
  cut.payload = response;
  cut.captured = 2;  // the flags lie behind
  cut.nominal = 3;
  table.flows.Handle(cut);
  CHECK(table.Last().from_client);
  CHECK(table.flows.size() == 0);
  cut.captured = 3;
  table.flows.Handle(cut);
  CHECK_FALSE(table.Last().from_client);
  CHECK(table.flows.size() == 1);
}

TEST_CASE("a flow with open queries is never dropped, however long it is idle") {
  Table table;
  table.Up(4000, Ask(1), 0);
  table.Udp("10.0.0.9", 53, "10.0.0.53", 53, Ask(2), 0);
  table.flows.Tick(1'000'000 * kSecond);
  CHECK(table.flows.size() == 2);
  CHECK(table.listener.ended == 0);
}

TEST_CASE("a flow whose last query a heartbeat ended is dropped at the next tick") {
  Table table;
  table.Up(4000, Ask(1));
  table.Up(4000, Ask(2));
  table.listener.ExpireAll();
  CHECK(table.flows.size() == 1);  // nothing is dropped under the heartbeat's feet
  table.flows.Tick(kSecond);
  CHECK(table.flows.size() == 0);
  CHECK(table.listener.ended == 1);
}

TEST_CASE("a flow whose last query a heartbeat ended is dropped with the next datagram at the latest") {
  Table table;
  table.Up(4000, Ask(1));
  table.listener.ExpireAll();
  table.Up(4001, Ask(2));
  CHECK(table.flows.size() == 1);
  CHECK(table.listener.ended == 1);
}

TEST_CASE("a flow that was released may be used again at once") {
  Table table;
  table.Up(4000, Ask(1));
  table.listener.ExpireAll();
  table.Up(4000, Ask(2));
  CHECK(table.listener.ended == 1);  // before the datagram, which begins another
  CHECK(table.listener.begun == 2);
  CHECK(table.flows.size() == 1);
  CHECK(table.Last().flow->open_queries == 1);
  table.Down(4000, Reply(2));
  CHECK(table.flows.size() == 0);
}

TEST_CASE("releasing a flow that still has open queries, or twice, is harmless") {
  Table table;
  table.Up(4000, Ask(1));
  Flow* flow = table.Last().flow;
  table.flows.Release(flow);
  table.flows.Tick(kSecond);
  CHECK(table.flows.size() == 1);
  table.listener.ExpireAll();
  table.flows.Release(flow);
  table.flows.Tick(kSecond);
  CHECK(table.listener.ended == 1);
}

TEST_CASE("a kept flow whose query a heartbeat ended waits for its idle time") {
  Table table;
  table.Udp("10.0.0.9", 53, "10.0.0.53", 53, Ask(1), 0);
  table.listener.ExpireAll();
  table.flows.Tick(5 * kSecond);
  CHECK(table.flows.size() == 1);
  table.flows.Tick(100 * kSecond);
  CHECK(table.flows.size() == 0);
}

TEST_CASE("in a full table the longest idle flow without open queries makes room") {
  Table table(Small(3));
  table.listener.pairs = false;
  for (const char* server : {"10.0.0.1", "10.0.0.2", "10.0.0.3"})
    table.Udp(server, 53, "10.0.0.9", 53, Reply(1), 0);
  table.Udp("10.0.0.1", 53, "10.0.0.9", 53, Reply(1), kSecond);
  CHECK(table.Udp("10.0.0.4", 53, "10.0.0.9", 53, Reply(1), kSecond) == Delivery::kUdpMessage);
  CHECK(table.flows.size() == 3);
  CHECK(table.flows.counts().flows_evicted == 1);
  std::set<packet::Address> servers;
  for (const Flow* flow : table.listener.live) servers.insert(flow->server);
  CHECK(servers == std::set<packet::Address>{ToAddress("10.0.0.1"), ToAddress("10.0.0.3"), ToAddress("10.0.0.4")});
}

TEST_CASE("a table full of open queries takes no new flow, but goes on with those it has") {
  Table table(Small(2));
  table.Up(4000, Ask(1));
  table.Up(4001, Ask(2));
  CHECK(table.Up(4002, Ask(3)) == Delivery::kNoFlow);
  CHECK(table.flows.Handle(TcpSegment("10.0.0.1", 4000, "10.0.0.53", 53).Flags(packet::kTcpSyn)) ==
        Delivery::kNoFlow);
  CHECK(table.listener.messages.size() == 2);
  CHECK(table.Up(4001, Ask(4)) == Delivery::kUdpMessage);
  CHECK(table.Down(4000, Reply(1)) == Delivery::kUdpMessage);
  CHECK(table.Up(4002, Ask(3)) == Delivery::kUdpMessage);
  CHECK(table.flows.counts().flows_evicted == 0);
}

TEST_CASE(
    "without a surrogate left an IPv6 datagram has no flow, and the answer to an open query still finds its") {
  Settings settings;
  settings.max_surrogates = 2;
  Table table(settings);
  CHECK(table.Udp("2001:db8::1", 4000, "2001:db8::53", 53, Ask(1)) == Delivery::kUdpMessage);
  CHECK(table.Udp("2001:db8::2", 4000, "2001:db8::53", 53, Ask(2)) == Delivery::kNoSurrogate);
  CHECK(table.Udp("2001:db8::53", 53, "2001:db8::1", 4000, Reply(1)) == Delivery::kUdpMessage);
  CHECK(table.flows.SurrogatesInUse() == 0);
  CHECK(table.Udp("2001:db8::2", 4000, "2001:db8::53", 53, Ask(2)) == Delivery::kUdpMessage);
}

TEST_CASE("IPv6 flows show real addresses beside their surrogates") {
  Table table;
  table.Udp("2001:db8::53", 53, "2001:db8::1", 4000, Reply(1));
  table.Udp("2001:db8::1", 4000, "2001:db8::53", 53, Ask(1));
  const Flow* flow = table.Last().flow;
  CHECK(flow->client == ToAddress("2001:db8::1"));
  CHECK(flow->server == ToAddress("2001:db8::53"));
  CHECK(flow->descriptor.local_ipv4 != flow->descriptor.remote_ipv4);
  CHECK((flow->descriptor.local_ipv4 & 0xF0) == 0xF0);
}

TEST_CASE("separate tags and tunnels have flows of their own when asked for") {
  for (const bool separate : {false, true}) {
    CAPTURE(separate);
    Settings settings;
    settings.separate_vlans = separate;
    Table table(settings);
    table.flows.Handle(UdpDatagram("10.0.0.1", 4000, "10.0.0.53", 53).Payload(Ask(1)).Vlan(5));
    CHECK(table.Last().flow->encapsulation.vlan[0] == 5);
    table.flows.Handle(UdpDatagram("10.0.0.53", 53, "10.0.0.1", 4000).Payload(Reply(1)));
    CHECK(table.flows.size() == (separate ? 1 : 0));
    CHECK(table.listener.open.size() == (separate ? 1 : 0));
  }
}

TEST_CASE("times that jump far back drop what is idle, and break nothing") {
  Table table;
  table.listener.pairs = false;
  table.Udp("10.0.0.53", 53, "10.0.0.9", 53, Reply(1), 1000 * kSecond);
  table.flows.Tick(990 * kSecond);
  CHECK(table.flows.size() == 1);
  table.flows.Tick(-1000 * kSecond);
  CHECK(table.flows.size() == 0);
  table.Udp("10.0.0.53", 53, "10.0.0.9", 53, Reply(1), INT64_MIN);
  table.flows.Tick(INT64_MAX);
  CHECK(table.flows.size() == 0);
}

TEST_CASE("finishing drops all flows but those with open queries") {
  Table table;
  table.Up(4000, Ask(1));
  table.Udp("10.0.0.53", 53, "10.0.0.9", 53, Reply(1));
  table.flows.Finish();
  CHECK(table.flows.size() == 1);
  CHECK(table.listener.ended == 1);
  table.listener.ExpireAll();
  table.flows.Finish();
  CHECK(table.flows.size() == 0);
}

TEST_CASE("an exception out of the listener passes through, and the next datagram is handled") {
  struct Thrower : flow::Listener {
    void OnNewFlow(Flow*) override {}
    void OnMessage(const flow::Message& message) override {
      last = message.flow;
      if (throws) throw 7;
    }
    void OnEndOfFlow(Flow*) override { ++ended; }
    bool throws = true;
    int ended = 0;
    Flow* last = nullptr;
  } thrower;
  FlowTable flows({}, &thrower);
  const auto datagram = UdpDatagram("10.0.0.1", 4000, "10.0.0.53", 53).Payload(Ask(1));
  CHECK_THROWS_AS(flows.Handle(datagram), int);
  flows.Release(thrower.last);  // the flow is not the current one any more
  thrower.throws = false;
  CHECK(flows.Handle(datagram) == Delivery::kUdpMessage);
  CHECK(thrower.ended == 2);
  CHECK(flows.size() == 0);
}
