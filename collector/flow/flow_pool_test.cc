#include "collector/flow/flow_pool.h"

#include <doctest/doctest.h>

#include <set>
#include <vector>

#include "collector/flow/tcp_connection.h"

using flow::Flow;
using flow::FlowPool;

TEST_CASE("flows keep their addresses and numbers however many there are") {
  FlowPool pool;
  std::vector<Flow*> flows;
  for (int i = 0; i < 2000; ++i) flows.push_back(pool.Take());
  CHECK(std::set<Flow*>(flows.begin(), flows.end()).size() == 2000);
  for (uint32_t i = 0; i < 2000; ++i) {
    CHECK(flows[i]->number == i);
    CHECK(pool.At(i) == flows[i]);
  }
  CHECK(pool.live() == 2000);
  CHECK(pool.Made() == 2000);
}

TEST_CASE("the flow given back last is the next one taken") {
  FlowPool pool;
  Flow* first = pool.Take();
  Flow* second = pool.Take();
  pool.Give(first);
  pool.Give(second);
  CHECK(pool.live() == 0);
  CHECK(pool.Take() == second);
  CHECK(pool.Take() == first);
  CHECK(pool.Made() == 2);
}

TEST_CASE("a recycled flow remembers nothing of the one before") {
  FlowPool pool;
  Flow* flow = pool.Take();
  flow->descriptor.local_port = 7;
  flow->descriptor.host_field_5 = 7;
  flow->stream_state = flow;
  flow->open_queries = 7;
  flow->single_open = flow->oriented = flow->kept = true;
  flow->place = flow::Place::kBusy;
  flow->encapsulation.vlan_count = 1;
  flow->client.version = 6;
  flow->tcp = std::make_unique<flow::TcpConnection>();
  pool.Give(flow);
  CHECK(flow->place == flow::Place::kFree);
  REQUIRE(pool.Take() == flow);
  CHECK(flow->descriptor.local_port == 0);
  CHECK(flow->descriptor.host_field_5 == 0);
  CHECK(flow->stream_state == nullptr);
  CHECK(flow->open_queries == 0);
  CHECK_FALSE(flow->single_open);
  CHECK_FALSE(flow->oriented);
  CHECK_FALSE(flow->kept);
  CHECK(flow->encapsulation == packet::Encapsulation{});
  CHECK(flow->client == packet::Address{});
  CHECK(flow->tcp == nullptr);
}

TEST_CASE("the host fields lead from a copy of the descriptor back to its flow") {
  FlowPool pool;
  pool.Take();
  Flow* flow = pool.Take();
  const ParserFlow copy = flow->descriptor;
  CHECK(copy.host_field_1 == 1);
  CHECK(reinterpret_cast<Flow*>(copy.host_field_4) == flow);
}

TEST_CASE("what a look-up compares and what the parser's caller needs fill the first two cache lines") {
  FlowPool pool;
  Flow* flow = pool.Take();
  const auto offset = [flow](const void* member) {
    return static_cast<const char*>(member) - reinterpret_cast<const char*>(flow);
  };
  CHECK(reinterpret_cast<uintptr_t>(flow) % 64 == 0);
  CHECK(offset(&flow->descriptor) == 0);
  CHECK(offset(&flow->stream_state) == 64);
  CHECK(offset(&flow->tcp) < 128);
  CHECK(sizeof(Flow) <= 192);
}
