#include <arpa/inet.h>
#include <doctest/doctest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <list>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "collector/flow/flow_table.h"
#include "tests/support/datagram_builder.h"
#include "tests/support/dns_builder.h"
#include "tests/support/recording_listener.h"

using flow::Delivery;
using flow::Flow;
using flow::FlowTable;
using namespace test;

namespace {

using Endpoint = std::pair<std::string, uint16_t>;

struct Conversation {
  Endpoint client;
  bool kept = false;
  std::set<unsigned> open;
  int64_t last_seen_ns = 0;
  Flow* flow = nullptr;
};

// The table's rules for UDP, told as naively as possible.
class Model {
 public:
  using Key = std::pair<Endpoint, Endpoint>;  // the smaller one first

  explicit Model(size_t max_flows) : most(max_flows) {}

  // What becomes of a message, and whether it comes from the client.
  std::pair<Delivery, bool> Handle(const Endpoint& from, const Endpoint& to, bool response, unsigned id,
                                   int64_t time_ns) {
    const Key key = std::minmax(from, to);
    if (!conversations.contains(key)) {
      if (!MakeRoom()) return {Delivery::kNoFlow, false};
      Begin(key, from, to, response);
    }
    Conversation& conversation = conversations[key];
    conversation.last_seen_ns = time_ns;
    const bool from_client = conversation.client == from;
    if (from_client) {
      conversation.open.insert(id);
    } else {
      conversation.open.erase(id);
    }
    Settle(key);
    return {Delivery::kUdpMessage, from_client};
  }

  void Expire(const Key& key) {
    conversations[key].open.clear();
    Settle(key);
  }

  void Tick(int64_t now_ns) {
    while (!idle.empty()) {
      if (std::abs(now_ns - conversations[idle.front()].last_seen_ns) <= FlowTable::kUdpIdleNs) return;
      DropLongestIdle();
    }
  }

  std::map<Key, Conversation> conversations;

 private:
  void Begin(const Key& key, const Endpoint& from, const Endpoint& to, bool response) {
    Conversation conversation;
    conversation.kept = from.second == to.second;
    if (conversation.kept) {
      conversation.client = response ? to : from;
    } else {
      conversation.client = from.second == 53 ? to : from;
    }
    conversations[key] = conversation;
  }

  bool MakeRoom() {
    if (conversations.size() < most) return true;
    if (idle.empty()) return false;
    DropLongestIdle();
    return true;
  }

  void DropLongestIdle() {
    conversations.erase(idle.front());
    idle.pop_front();
  }

  void Settle(const Key& key) {
    idle.remove(key);
    if (!conversations[key].open.empty()) return;
    if (conversations[key].kept) {
      idle.push_back(key);
    } else {
      conversations.erase(key);
    }
  }

  size_t most;
  std::list<Key> idle;
};

template <typename T>
const T& Any(const std::vector<T>& choices) {
  return choices[*rc::gen::inRange<size_t>(0, choices.size())];
}

// Hosts of both families; some would look like others' surrogates.
std::pair<std::string, std::string> AnyHosts() {
  static const std::vector<std::string> v4{"10.0.0.1",  "10.0.0.2",  "240.0.0.0",
                                           "240.0.0.1", "240.0.0.2", "0.0.0.0"};
  static const std::vector<std::string> v6{"2001:db8::1", "2001:db8::2", "2001:db8::3", "::", "a00:1::"};
  const auto& family = *rc::gen::arbitrary<bool>() ? v4 : v6;
  return {Any(family), Any(family)};
}

std::string TextOf(const packet::Address& address) {
  char text[INET6_ADDRSTRLEN];
  return inet_ntop(address.version == 4 ? AF_INET : AF_INET6, address.octets.data(), text, sizeof text);
}

bool SeenByParserOnce(const std::set<Flow*>& live) {
  std::set<std::tuple<uint32_t, uint16_t, uint32_t, uint16_t>> seen;
  std::map<uint32_t, std::set<packet::Address>> users;
  for (const Flow* flow : live) {
    const ParserFlow& descriptor = flow->descriptor;
    users[descriptor.local_ipv4].insert(flow->client);
    users[descriptor.remote_ipv4].insert(flow->server);
    seen.insert({descriptor.local_ipv4, descriptor.local_port, descriptor.remote_ipv4, descriptor.remote_port});
  }
  const bool unshared =
      std::all_of(users.begin(), users.end(), [](const auto& user) { return user.second.size() == 1; });
  return unshared && seen.size() == live.size();
}

}  // namespace

TEST_CASE("random datagrams, time-outs, ticks and floods agree with a naive model") {
  CHECK(rc::check([] {
    flow::Settings settings;
    settings.max_flows = *rc::gen::inRange<size_t>(1, 12);
    RecordingListener listener;
    FlowTable flows(settings, &listener);
    listener.Attach(&flows);
    Model model(settings.max_flows);
    int64_t now = 0;
    for (int step = 0; step < 300; ++step) {
      now += *rc::gen::inRange<int64_t>(-kSecond, 3 * kSecond);
      const int choice = *rc::gen::inRange(0, 20);
      if (choice == 0) {
        now += *rc::gen::inRange<int64_t>(-100, 100) * kSecond;
        flows.Tick(now);
        model.Tick(now);
      } else if (choice == 1 && !listener.open.empty()) {
        Flow* flow = listener.open.begin()->first;
        const Model::Key key = std::minmax(Endpoint{TextOf(flow->client), flow->descriptor.local_port},
                                           Endpoint{TextOf(flow->server), flow->descriptor.remote_port});
        listener.Expire(flow);
        flows.Tick(now);
        model.Expire(key);
        model.Tick(now);
      } else {
        const auto [source, destination] = AnyHosts();
        const auto [source_port, destination_port] =
            Any(std::vector<std::pair<uint16_t, uint16_t>>{{53, 53}, {4000, 53}, {53, 4000}, {4001, 53}});
        if (source == destination && source_port == destination_port) continue;  // has no two directions
        const bool response = *rc::gen::arbitrary<bool>();
        const unsigned id = *rc::gen::inRange(0u, 3u);
        const auto message = (response ? Response(id) : Query(id)).Question("aa", kA).Wire();
        const auto [delivery, from_client] =
            model.Handle({source, source_port}, {destination, destination_port}, response, id, now);
        const size_t before = listener.messages.size();
        RC_ASSERT(flows.Handle(
                      UdpDatagram(source, source_port, destination, destination_port).Payload(message).At(now)) ==
                  delivery);
        RC_ASSERT(listener.messages.size() == before + (delivery == Delivery::kUdpMessage ? 1U : 0U));
        if (delivery == Delivery::kUdpMessage) RC_ASSERT(listener.messages.back().from_client == from_client);
      }
      RC_ASSERT(flows.size() == model.conversations.size());
      RC_ASSERT(listener.live.size() == flows.size());
      RC_ASSERT(SeenByParserOnce(listener.live));
    }
  }));
}
