#include "collector/flow/tcp_tracker.h"

#include <doctest/doctest.h>

#include <string>
#include <vector>

#include "collector/flow/flow_pool.h"
#include "collector/flow/flow_store.h"
#include "collector/flow/tcp_connection.h"
#include "tests/support/datagram_builder.h"
#include "tests/support/dns_builder.h"

using flow::Flow;
using flow::TcpTracker;
using namespace test;

namespace {

struct Seen {
  Flow* flow;
  bool from_local;
  std::string bytes;
  uint32_t nominal;

  friend bool operator==(const Seen&, const Seen&) = default;
};

struct Recorder : flow::StreamOutput {
  void OnStreamMessage(Flow* flow, bool from_local, const flow::CutMessage& message) override {
    if (learns) {
      flow->oriented = true;
      flow::SwapEndpoints(flow);
    }
    seen.push_back({flow, from_local, std::string(reinterpret_cast<const char*>(message.data), message.snap),
                    message.nominal});
  }
  bool learns = false;
  std::vector<Seen> seen;
};

std::string Ask(unsigned id) { return Query(id).Question("aa.bb", kA).TcpWire(); }
std::string Reply(unsigned id) { return Response(id).Question("aa.bb", kA).TcpWire(); }

// A tracker and connections between one client and one server.
struct Network {
  explicit Network(size_t most_bytes = 1 << 20) : tracker(most_bytes, &store.pool(), &counts, &out) {}

  Flow* Connect(uint16_t port) {
    Flow* flow = Create(Up(port, 0, ""));
    flow->oriented = true;
    TcpTracker::Begin(flow);
    Send(flow, true, DatagramBuilder(Up(port, 0, "")).Flags(packet::kTcpSyn));
    Send(flow, false, DatagramBuilder(Down(port, 5000, "")).Flags(packet::kTcpSyn));
    return flow;
  }
  Flow* Create(const packet::Datagram& segment) {
    flow::FlowStore::Route route;
    store.Find(segment, &route);
    return store.Create(segment, route);
  }
  static DatagramBuilder Up(uint16_t port, uint32_t sequence, const std::string& bytes) {
    return TcpSegment("10.0.0.1", port, "10.0.0.53", 53).Sequence(sequence).Payload(bytes);
  }
  static DatagramBuilder Down(uint16_t port, uint32_t sequence, const std::string& bytes) {
    return TcpSegment("10.0.0.53", 53, "10.0.0.1", port).Sequence(sequence).Payload(bytes);
  }
  void Send(Flow* flow, bool from_local, const packet::Datagram& segment) {
    tracker.Follow(flow, from_local, segment);
  }

  std::vector<std::string> Texts() const {
    std::vector<std::string> texts;
    for (const Seen& seen : out.seen) texts.push_back(seen.bytes);
    return texts;
  }

  flow::Counts counts;
  Recorder out;
  flow::FlowStore store{false, 0};
  TcpTracker tracker;
};

using Texts = std::vector<std::string>;

}  // namespace

TEST_CASE("messages of both directions are told apart") {
  Network net;
  Flow* flow = net.Connect(4000);
  net.Send(flow, true, net.Up(4000, 1, Ask(1)));
  net.Send(flow, false, net.Down(4000, 5001, Reply(1)));
  CHECK(net.out.seen == std::vector<Seen>{{flow, true, Ask(1), static_cast<uint32_t>(Ask(1).size())},
                                          {flow, false, Reply(1), static_cast<uint32_t>(Reply(1).size())}});
}

TEST_CASE("a flow may learn its orientation from a message, and its streams follow") {
  Network net;
  Flow* flow = net.Create(net.Down(4000, 1, ""));
  TcpTracker::Begin(flow);
  net.out.learns = true;
  net.Send(flow, true, net.Down(4000, 1, Reply(1) + Reply(2)));
  net.out.learns = false;
  REQUIRE(net.out.seen.size() == 2);
  CHECK(net.out.seen[0].from_local);
  CHECK_FALSE(net.out.seen[1].from_local);
  net.Send(flow, false, net.Down(4000, 1 + 2 * static_cast<uint32_t>(Reply(1).size()), Reply(3)));
  REQUIRE(net.out.seen.size() == 3);
  CHECK_FALSE(net.out.seen[2].from_local);
}

TEST_CASE("payload in a SYN is part of the stream") {
  Network net;
  Flow* flow = net.Create(net.Up(4000, 0, ""));
  TcpTracker::Begin(flow);
  net.Send(flow, true, net.Up(4000, 99, Ask(1)).Flags(packet::kTcpSyn));
  net.Send(flow, true, net.Up(4000, 100 + static_cast<uint32_t>(Ask(1).size()), Ask(2)));
  CHECK(net.Texts() == Texts{Ask(1), Ask(2)});
}

TEST_CASE("a repeated SYN is no new connection, one with another number is") {
  Network net;
  Flow* flow = net.Connect(4000);
  net.Send(flow, true, net.Up(4000, 1, Ask(1)));
  CHECK_FALSE(TcpTracker::IsNewConnection(*flow, true, net.Up(4000, 0, "").Flags(packet::kTcpSyn)));
  CHECK(TcpTracker::IsNewConnection(*flow, true, net.Up(4000, 777, "").Flags(packet::kTcpSyn)));
  CHECK(TcpTracker::IsNewConnection(*flow, false, net.Down(4000, 777, "").Flags(packet::kTcpSyn)));
  CHECK_FALSE(TcpTracker::IsNewConnection(*flow, true, net.Up(4000, 777, "")));
  net.Send(flow, true, net.Up(4000, 0, "").Flags(packet::kTcpSyn));
  net.Send(flow, true, net.Up(4000, 1 + static_cast<uint32_t>(Ask(1).size()), Ask(2)));
  CHECK(net.Texts() == Texts{Ask(1), Ask(2)});
}

TEST_CASE("a gap is given up after two seconds, and not before") {
  Network net;
  Flow* flow = net.Connect(4000);
  net.Send(flow, true, net.Up(4000, 6, Ask(1).substr(5)).At(10 * kSecond));
  net.Send(flow, true, net.Up(4000, 1 + static_cast<uint32_t>(Ask(1).size()), Ask(2)).At(10 * kSecond));
  net.tracker.Tick(12 * kSecond);
  CHECK(net.out.seen.empty());
  net.tracker.Tick(12 * kSecond + 1);
  CHECK(net.Texts() == Texts{Ask(2)});
  CHECK(net.counts.tcp_gaps == 1);
  CHECK(net.tracker.held() == 0);
}

TEST_CASE("gaps of several connections are given up each in its time") {
  Network net;
  Flow* first = net.Connect(4000);
  Flow* second = net.Connect(4001);
  net.Send(first, true, net.Up(4000, 50, Ask(1)).At(1 * kSecond));
  net.Send(second, true, net.Up(4001, 50, Ask(2)).At(2 * kSecond));
  net.Send(first, false, net.Down(4000, 5050, Reply(3)).At(3 * kSecond));
  net.tracker.Tick(kSecond + TcpTracker::kGapPatienceNs + 1);
  CHECK(net.Texts() == Texts{Ask(1)});
  net.tracker.Tick(2 * kSecond + TcpTracker::kGapPatienceNs + 1);
  CHECK(net.Texts() == Texts{Ask(1), Ask(2)});
  net.tracker.Tick(3 * kSecond + TcpTracker::kGapPatienceNs + 1);
  CHECK(net.Texts() == Texts{Ask(1), Ask(2), Reply(3)});
}

TEST_CASE("a gap that was filled is not given up") {
  Network net;
  Flow* flow = net.Connect(4000);
  net.Send(flow, true, net.Up(4000, 6, Ask(1).substr(5)).At(0));
  net.Send(flow, true, net.Up(4000, 1, Ask(1).substr(0, 5)).At(kSecond));
  net.tracker.Tick(100 * kSecond);
  CHECK(net.Texts() == Texts{Ask(1)});
  CHECK(net.counts.tcp_gaps == 0);
}

TEST_CASE("a clock that steps back far gives up what would wait for it") {
  Network net;
  Flow* flow = net.Connect(4000);
  net.Send(flow, true, net.Up(4000, 50, Ask(1)).At(1000 * kSecond));
  net.tracker.Tick(5 * kSecond);
  CHECK(net.Texts() == Texts{Ask(1)});
}

TEST_CASE("a reset ends both directions and is counted once") {
  Network net;
  Flow* flow = net.Connect(4000);
  net.Send(flow, true, net.Up(4000, 1, Ask(1) + Ask(2).substr(0, 9)));
  net.Send(flow, false, net.Down(4000, 5001, Reply(1).substr(0, 20)));
  net.Send(flow, true, net.Up(4000, 10 + static_cast<uint32_t>(Ask(1).size()), "").Flags(packet::kTcpRst));
  CHECK(net.Texts() == Texts{Ask(1), Ask(2).substr(0, 9), Reply(1).substr(0, 20)});
  CHECK(net.counts.tcp_unfinished_messages == 2);
  CHECK(flow->tcp->closed);
  net.Send(flow, true, net.Up(4000, 10 + static_cast<uint32_t>(Ask(1).size()), "").Flags(packet::kTcpRst));
  CHECK(net.counts.tcp_resets == 1);
}

TEST_CASE("what crosses a reset is still followed") {
  Network net;
  Flow* flow = net.Connect(4000);
  net.Send(flow, true, net.Up(4000, 1, Ask(1)));
  net.Send(flow, true, net.Up(4000, 1 + static_cast<uint32_t>(Ask(1).size()), "").Flags(packet::kTcpRst));
  net.Send(flow, false, net.Down(4000, 5001, Reply(1)));
  CHECK(net.Texts() == Texts{Ask(1), Reply(1)});
}

TEST_CASE("a reset from another connection's numbers is not believed") {
  Network net;
  Flow* flow = net.Connect(4000);
  net.Send(flow, true, net.Up(4000, 1u << 30, "").Flags(packet::kTcpRst));
  CHECK_FALSE(flow->tcp->closed);
  CHECK(net.counts.tcp_resets == 0);
}

TEST_CASE("a text behind a reset is not part of the stream") {
  Network net;
  Flow* flow = net.Connect(4000);
  net.Send(flow, true, net.Up(4000, 1, "go away, please").Flags(packet::kTcpRst));
  CHECK(net.out.seen.empty());
  CHECK(net.counts.tcp_unfinished_messages == 0);
}

TEST_CASE("a connection is closed once both sides have sent their FIN and all before it") {
  Network net;
  Flow* flow = net.Connect(4000);
  net.Send(flow, true, net.Up(4000, 1, Ask(1)).Flags(packet::kTcpFin));
  CHECK_FALSE(flow->tcp->closed);
  net.Send(flow, false, net.Down(4000, 5011, Reply(1).substr(10)).Flags(packet::kTcpFin));
  CHECK_FALSE(flow->tcp->closed);
  net.Send(flow, false, net.Down(4000, 5001, Reply(1).substr(0, 10)));
  CHECK(flow->tcp->closed);
  CHECK(net.Texts() == Texts{Ask(1), Reply(1)});
}

TEST_CASE("the least recently active connection gives up first when too much is held") {
  Network net(4000);
  std::vector<Flow*> flows;
  for (uint16_t port = 4000; port < 4003; ++port) flows.push_back(net.Connect(port));
  const std::string part = U16(5000) + std::string(900, 'x');
  for (uint16_t port = 4000; port < 4003; ++port) net.Send(flows[port - 4000u], true, net.Up(port, 1, part));
  net.Send(flows[0], true, net.Up(4000, 903, "y"));  // now the most recent
  net.tracker.Shed();
  CHECK(net.out.seen.empty());
  net.Send(flows[2], true, net.Up(4002, 903, std::string(1000, 'z')));
  net.tracker.Shed();
  REQUIRE(net.out.seen.size() == 1);
  CHECK(net.out.seen[0] == Seen{flows[1], true, part, 5002});
  CHECK(net.counts.tcp_dropped_bytes >= 902);
  CHECK(net.counts.tcp_unfinished_messages == 0);
  CHECK(net.tracker.held() <= 4000);
}

TEST_CASE("a connection that gave up for want of memory goes on behind its message") {
  Network net(10);
  Flow* flow = net.Connect(4000);
  net.Send(flow, true, net.Up(4000, 1, Ask(1).substr(0, 15)));
  net.tracker.Shed();
  CHECK(net.tracker.held() == 0);
  net.Send(flow, true, net.Up(4000, 16, Ask(1).substr(15) + Ask(2)));
  CHECK(net.Texts() == Texts{Ask(1).substr(0, 15), Ask(2)});
}

TEST_CASE("waiting segments count as memory, and are handed on when it is short") {
  Network net(100);
  Flow* flow = net.Connect(4000);
  net.Send(flow, true, net.Up(4000, 50, Ask(1) + Ask(2)));
  CHECK(net.tracker.held() > 2 * Ask(1).size());
  net.Send(flow, false, net.Down(4000, 5050, Reply(1)));
  net.tracker.Shed();
  CHECK(net.tracker.held() == 0);
  CHECK(net.Texts() == Texts{Ask(1), Ask(2), Reply(1)});
}

TEST_CASE("the end of a flow hands on what is left of both directions") {
  Network net;
  Flow* flow = net.Connect(4000);
  net.Send(flow, true, net.Up(4000, 1, Ask(1).substr(0, 15)));
  net.Send(flow, false, net.Down(4000, 5050, Reply(3)));
  net.tracker.End(flow);
  CHECK(net.Texts() == Texts{Ask(1).substr(0, 15), Reply(3)});
  CHECK(net.counts.tcp_unfinished_messages == 1);
  CHECK(net.counts.tcp_gaps == 1);
}

TEST_CASE("a forgotten connection holds nothing and is never ticked or shed again") {
  Network net(10);
  Flow* flow = net.Connect(4000);
  net.Send(flow, true, net.Up(4000, 50, Ask(1)));
  net.tracker.Forget(flow);
  CHECK(net.tracker.held() == 0);
  net.tracker.Forget(flow);
  net.tracker.Tick(1000 * kSecond);
  CHECK(net.out.seen.empty());
  net.Send(net.Connect(4001), true, net.Up(4001, 1, Ask(2).substr(0, 15)));
  net.tracker.Shed();
  CHECK(net.Texts() == Texts{Ask(2).substr(0, 15)});
  CHECK(net.tracker.held() == 0);
}
