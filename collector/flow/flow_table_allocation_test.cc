#include <doctest/doctest.h>

#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "collector/flow/flow_table.h"
#include "tests/support/datagram_builder.h"
#include "tests/support/dns_builder.h"

using namespace test;

namespace {

size_t allocations = 0;

}  // namespace

// This program's operator new, counted.
void* operator new(size_t size) {
  ++allocations;
  if (void* block = std::malloc(size == 0 ? 1 : size)) return block;
  throw std::bad_alloc();
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, size_t) noexcept { std::free(block); }

namespace {

// Opens with a query, ends with the response, and allocates nothing of its own.
struct Counter : flow::Listener {
  void OnNewFlow(flow::Flow*) override {}
  void OnMessage(const flow::Message& message) override {
    if (message.from_client) {
      ++message.flow->open_queries;
    } else {
      --message.flow->open_queries;
      table->Release(message.flow);
    }
    ++messages;
  }
  void OnEndOfFlow(flow::Flow*) override { ++ended; }
  flow::FlowTable* table = nullptr;
  uint64_t messages = 0;
  uint64_t ended = 0;
};

std::vector<packet::Datagram> Directions(const DatagramBuilder& one, const DatagramBuilder& other,
                                         uint16_t clients) {
  std::vector<packet::Datagram> all;
  for (const DatagramBuilder& datagram : {one, other}) {
    for (uint16_t client = 0; client < clients; ++client) {
      all.push_back(datagram);
      uint16_t& port = all.back().source_port == 53 ? all.back().destination_port : all.back().source_port;
      port = static_cast<uint16_t>(port + client);
    }
  }
  return all;
}

void CheckSteadyState(const DatagramBuilder& query, const DatagramBuilder& response) {
  Counter counter;
  flow::FlowTable table({}, &counter);
  counter.table = &table;
  const std::vector<packet::Datagram> all = Directions(query, response, 500);
  for (const packet::Datagram& datagram : all) table.Handle(datagram);
  const size_t before = allocations;
  for (int round = 0; round < 5; ++round) {
    for (const packet::Datagram& datagram : all) table.Prefetch(datagram);
    for (const packet::Datagram& datagram : all) table.Handle(datagram);
    table.Tick(round * kSecond);
  }
  CHECK(allocations == before);
  CHECK(counter.messages == 6 * 1000);
  CHECK(counter.ended == 6 * 500);
  CHECK(table.size() == 0);
}

}  // namespace

TEST_CASE("once warm, UDP conversations allocate nothing") {
  const std::string ask = Query(1).Question("aa.bb", kA).Wire();
  const std::string reply = Response(1).Question("aa.bb", kA).Wire();
  SUBCASE("IPv4") {
    CheckSteadyState(UdpDatagram("10.0.0.1", 4000, "10.0.0.53", 53).Payload(ask),
                     UdpDatagram("10.0.0.53", 53, "10.0.0.1", 4000).Payload(reply));
  }
  SUBCASE("IPv6") {
    CheckSteadyState(UdpDatagram("2001:db8::1", 4000, "2001:db8::53", 53).Payload(ask),
                     UdpDatagram("2001:db8::53", 53, "2001:db8::1", 4000).Payload(reply));
  }
}

TEST_CASE("once warm, a TCP connection whose messages lie whole in segments allocates nothing") {
  const std::string ask = Query(1).Question("aa.bb", kA).TcpWire();
  const std::string reply = Response(1).Question("aa.bb", kA).TcpWire();
  Counter counter;
  flow::FlowTable table({}, &counter);
  counter.table = &table;
  auto up = TcpSegment("10.0.0.1", 4000, "10.0.0.53", 53).Payload(ask);
  auto down = TcpSegment("10.0.0.53", 53, "10.0.0.1", 4000).Payload(reply);
  size_t before = 0;
  for (uint32_t round = 0; round < 100; ++round) {
    if (round == 1) before = allocations;
    table.Handle(up.Sequence(1000 + round * static_cast<uint32_t>(ask.size())));
    table.Handle(down.Sequence(7000 + round * static_cast<uint32_t>(reply.size())));
  }
  CHECK(allocations == before);
  CHECK(counter.messages == 200);
}
