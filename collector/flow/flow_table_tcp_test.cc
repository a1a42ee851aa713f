#include <doctest/doctest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "collector/flow/flow_table.h"
#include "tests/support/datagram_builder.h"
#include "tests/support/dns_builder.h"
#include "tests/support/recording_listener.h"

using flow::Delivery;
using flow::Flow;
using flow::FlowTable;
using flow::Settings;
using namespace test;

namespace {

using Texts = std::vector<std::string>;

constexpr unsigned kAck = 0x10;

std::string Ask(unsigned id) { return Query(id).Question("aa.bb", kA).TcpWire(); }
std::string Reply(unsigned id) {
  return Response(id).Question("aa.bb", kA).Answer("aa.bb", A("192.0.2.1")).TcpWire();
}
uint32_t Size(const std::string& bytes) { return static_cast<uint32_t>(bytes.size()); }

struct Table {
  explicit Table(const Settings& settings = {}) : flows(settings, &listener) { listener.Attach(&flows); }

  RecordingListener listener;
  FlowTable flows;
};

// One connection: keeps count of both sides' sequence numbers.
struct Connection {
  Connection(Table* table_of, uint16_t client_port, const std::string& client_address = "10.0.0.1",
             const std::string& server_address = "10.0.0.53")
      : table(table_of), port(client_port), client(client_address), server(server_address) {}

  Connection& At(int64_t time_ns) {
    now = time_ns;
    return *this;
  }
  Connection& Syn(uint32_t isn = 1000) {
    Send(true, isn, "", packet::kTcpSyn);
    up = isn + 1;
    return *this;
  }
  Connection& SynAck(uint32_t isn = 7000) {
    Send(false, isn, "", packet::kTcpSyn | kAck);
    down = isn + 1;
    return *this;
  }
  Connection& Open(uint32_t client_isn = 1000, uint32_t server_isn = 7000) {
    return Syn(client_isn).SynAck(server_isn).Up("");
  }
  Connection& Up(const std::string& bytes, unsigned flags = 0) {
    Send(true, up, bytes, flags | kAck);
    up += Size(bytes) + (flags & packet::kTcpFin ? 1 : 0);
    return *this;
  }
  Connection& Down(const std::string& bytes, unsigned flags = 0) {
    Send(false, down, bytes, flags | kAck);
    down += Size(bytes) + (flags & packet::kTcpFin ? 1 : 0);
    return *this;
  }
  Connection& LoseUp(uint32_t size) {
    up += size;
    return *this;
  }
  Connection& LoseDown(uint32_t size) {
    down += size;
    return *this;
  }

  void Send(bool from_client, uint32_t sequence, const std::string& bytes, unsigned flags) {
    const auto segment = from_client ? TcpSegment(client, port, server, 53) : TcpSegment(server, 53, client, port);
    last = table->flows.Handle(DatagramBuilder(segment).Sequence(sequence).Payload(bytes).Flags(flags).At(now));
  }

  Table* table;
  uint16_t port;
  std::string client;
  std::string server;
  uint32_t up = 1001;
  uint32_t down = 7001;
  int64_t now = 0;
  Delivery last{};
};

}  // namespace

TEST_CASE("a connection's queries and responses are messages of one flow") {
  Table table;
  Connection connection(&table, 4000);
  connection.Open().Up(Ask(1)).Down(Reply(1)).Up("", packet::kTcpFin).Down("", packet::kTcpFin);
  CHECK(connection.last == Delivery::kTcpSegment);
  CHECK(table.listener.Texts() == Texts{Ask(1), Reply(1)});
  CHECK(table.listener.messages[0].from_client);
  CHECK_FALSE(table.listener.messages[1].from_client);
  CHECK(table.listener.messages[0].flow == table.listener.messages[1].flow);
  CHECK(table.flows.counts().tcp_messages == 2);
  CHECK(table.flows.counts().tcp_unfinished_messages == 0);
  CHECK(table.flows.counts().tcp_cut_messages == 0);
}

TEST_CASE("pipelined queries and answers out of order are all handed on") {
  Table table;
  Connection(&table, 4000).Open().Up(Ask(1) + Ask(2) + Ask(3)).Down(Reply(3) + Reply(1)).Down(Reply(2));
  CHECK(table.listener.messages.size() == 6);
  CHECK(table.listener.open.empty());
}

TEST_CASE("TCP and UDP between the same endpoints are two flows") {
  Table table;
  Connection(&table, 4000).Open().Up(Ask(1));
  table.flows.Handle(UdpDatagram("10.0.0.1", 4000, "10.0.0.53", 53).Payload(Query(1).Question("aa.bb", kA).Wire()));
  CHECK(table.flows.size() == 2);
  CHECK(table.listener.messages[0].flow->descriptor.transport == 6);
  CHECK(table.listener.messages[1].flow->descriptor.transport == 17);
}

TEST_CASE("segments that carry nothing and belong to no flow begin none") {
  Table table;
  Connection connection(&table, 4000);
  connection.Up("");
  CHECK(connection.last == Delivery::kTcpSegment);
  connection.Up("", packet::kTcpFin).Up("", packet::kTcpRst).Up("text", packet::kTcpRst);
  CHECK(connection.last == Delivery::kTcpSegment);
  CHECK(table.flows.size() == 0);
}

// QR bits that say otherwise change nothing.
TEST_CASE("between two DNS ports whoever sends the SYN is the client, and who answers it the server") {
  Table table;
  Connection(&table, 53).Syn().Up(Reply(1));
  Connection(&table, 53, "10.0.0.2").SynAck().Down(Ask(2));
  REQUIRE(table.listener.messages.size() == 2);
  CHECK(table.listener.messages[0].from_client);
  CHECK_FALSE(table.listener.messages[1].from_client);
  for (const Flow* flow : table.listener.live) CHECK(flow->server == ToAddress("10.0.0.53"));
}

TEST_CASE("between two DNS ports without a SYN the first message's QR bit decides for the whole connection") {
  for (const bool response_first : {false, true}) {
    CAPTURE(response_first);
    Table table;
    Connection connection(&table, 53);
    if (response_first) connection.Down(Reply(1));
    connection.Up(Ask(2) + Ask(3)).Down(Reply(2));
    for (const Delivered& message : table.listener.messages) {
      CHECK(message.from_client == ((static_cast<uint8_t>(message.bytes[4]) & 0x80) == 0));
      CHECK(message.flow->client == ToAddress("10.0.0.1"));
    }
    CHECK(table.listener.messages.size() == (response_first ? 4 : 3));
    CHECK(table.listener.begun == 1);
  }
}

TEST_CASE("between two DNS ports a flow is announced with its first message") {
  Table table;
  Connection connection(&table, 53);
  connection.Up("the middle of something");
  CHECK(table.flows.size() == 1);
  CHECK(table.listener.begun == 0);
  connection.Up(Ask(1));
  CHECK(table.listener.begun == 1);
  Connection silent(&table, 53, "10.0.0.2");
  silent.Up("the middle of something");
  table.flows.Tick(FlowTable::kTcpIdleNs + 1);
  CHECK(table.listener.ended == 0);  // one has an open query, the other was never announced
  CHECK(table.flows.size() == 1);
}

TEST_CASE("a capture of one direction alone is followed") {
  Table table;
  Connection(&table, 4000).Syn().Up(Ask(1)).Up(Ask(2));
  Connection(&table, 4001).SynAck().Down(Reply(1)).Down(Reply(2));
  CHECK(table.listener.Texts() == Texts{Ask(1), Ask(2), Reply(1), Reply(2)});
}

TEST_CASE("bytes lost inside a message cut it, and nothing else") {
  Table table;
  Connection connection(&table, 4000);
  connection.Open().Up(Ask(1)).Down(Reply(1).substr(0, 20)).LoseDown(5).Down(Reply(1).substr(25) + Reply(2));
  CHECK(table.listener.Texts() == Texts{Ask(1)});
  table.flows.Tick(3 * kSecond);
  CHECK(table.listener.Texts() == Texts{Ask(1), Reply(1).substr(0, 20), Reply(2)});
  CHECK(table.listener.messages[1].nominal == static_cast<int>(Reply(1).size()));
  CHECK(table.flows.counts().tcp_cut_messages == 1);
  CHECK(table.flows.counts().tcp_gaps == 1);
  CHECK(table.flows.counts().tcp_skipped_bytes == 0);
}

TEST_CASE("gaps are given up alone too, and nothing is dropped then") {
  Table table;
  Connection connection(&table, 4000);
  connection.Open().Up(Ask(1)).LoseDown(5).Down(Reply(1));
  table.flows.GiveUpGaps(2 * kSecond);
  CHECK(table.listener.open.size() == 1);
  table.flows.GiveUpGaps(1000 * kSecond);
  CHECK(table.listener.Texts() == Texts{Ask(1), Reply(1)});
  CHECK(table.listener.open.empty());
  CHECK(table.flows.size() == 1);
}

TEST_CASE("a message handed on by a tick may be the last one, and then its flow may go") {
  Table table;
  Connection connection(&table, 4000);
  connection.Open().Up(Ask(1), packet::kTcpFin).LoseDown(5).Down(Reply(1), packet::kTcpFin);
  CHECK(table.listener.open.size() == 1);
  table.flows.Tick(3 * kSecond);
  CHECK(table.listener.open.empty());
  CHECK(table.flows.size() == 1);
  table.flows.Tick(FlowTable::kTcpClosedNs + 1);
  CHECK(table.flows.size() == 0);
}

TEST_CASE("a message handed on by a tick may open a query, and then its flow stays") {
  Table table;
  Connection connection(&table, 4000);
  connection.Open().LoseUp(5).Up(Ask(1) + Ask(2).substr(0, 10));
  table.flows.Tick(3 * kSecond);
  CHECK(table.listener.open.size() == 1);
  table.flows.Tick(1000 * kSecond);
  CHECK(table.flows.size() == 1);
  connection.Up(Ask(2).substr(10));
  CHECK(table.listener.Texts() == Texts{Ask(1), Ask(2)});
}

TEST_CASE("a connection without open queries is dropped after five minutes of idleness") {
  Table table;
  Connection connection(&table, 4000);
  connection.Open().Up(Ask(1)).Down(Reply(1)).At(10 * kSecond).Up("");
  table.flows.Tick(10 * kSecond + FlowTable::kTcpIdleNs);
  CHECK(table.flows.size() == 1);
  table.flows.Tick(10 * kSecond + FlowTable::kTcpIdleNs + 1);
  CHECK(table.flows.size() == 0);
  CHECK(table.listener.ended == 1);
}

TEST_CASE("a closed connection lingers for retransmissions, then goes") {
  for (const bool reset : {false, true}) {
    CAPTURE(reset);
    Table table;
    Connection connection(&table, 4000);
    connection.Open().Up(Ask(1)).Down(Reply(1));
    if (reset) {
      connection.Up("", packet::kTcpRst);
    } else {
      connection.Up("", packet::kTcpFin).Down("", packet::kTcpFin);
    }
    connection.down -= Size(Reply(1)) + (reset ? 0 : 1);
    connection.Down(Reply(1));  // again
    CHECK(table.listener.messages.size() == 2);
    table.flows.Tick(FlowTable::kTcpClosedNs);
    CHECK(table.flows.size() == 1);
    table.flows.Tick(FlowTable::kTcpClosedNs + 1);
    CHECK(table.flows.size() == 0);
    table.flows.Tick(FlowTable::kTcpIdleNs + 1);  // it does not wait for this any more
    CHECK(table.listener.ended == 1);
    CHECK(table.flows.counts().tcp_resets == (reset ? 1 : 0));
  }
}

TEST_CASE("a closed connection with open queries stays until they end") {
  Table table;
  Connection connection(&table, 4000);
  connection.Open().Up(Ask(1), packet::kTcpFin).Down("", packet::kTcpFin);
  table.flows.Tick(1000 * kSecond);
  CHECK(table.flows.size() == 1);
  table.listener.ExpireAll();
  table.flows.Tick(1000 * kSecond);
  CHECK(table.flows.size() == 0);
}

TEST_CASE("an idle connection hands on what had begun before it goes") {
  Table table;
  Connection(&table, 4000).Open().Up(Ask(1)).Down(Reply(1)).Up(Ask(2).substr(0, 9));
  table.flows.Tick(FlowTable::kTcpIdleNs + 1);
  CHECK(table.listener.Texts() == Texts{Ask(1), Reply(1), Ask(2).substr(0, 9)});
  CHECK(table.flows.counts().tcp_unfinished_messages == 1);
  CHECK(table.flows.counts().tcp_cut_messages == 1);
  CHECK(table.flows.size() == 0);
}

TEST_CASE("an idle connection whose last words are a query stays for the answer") {
  Table table;
  Connection(&table, 4000).Open().Up(Ask(1).substr(0, 20));
  table.flows.Tick(FlowTable::kTcpIdleNs + 1);
  CHECK(table.listener.open.size() == 1);
  CHECK(table.flows.size() == 1);
  CHECK(table.listener.ended == 0);
}

TEST_CASE("a new SYN on an old connection ends its flow and begins another") {
  Table table;
  Connection(&table, 4000).Open().Up(Ask(1)).Down(Reply(1)).Up(Ask(2).substr(0, 9));
  Connection(&table, 4000).Open(500000, 900000).Up(Ask(3)).Down(Reply(3));
  CHECK(table.listener.Texts() == Texts{Ask(1), Reply(1), Ask(2).substr(0, 9), Ask(3), Reply(3)});
  CHECK(table.listener.begun == 2);
  CHECK(table.listener.ended == 1);
  CHECK(table.flows.counts().tcp_unfinished_messages == 1);
  CHECK(table.flows.size() == 1);
}

TEST_CASE("a new SYN on a connection with open queries resets its streams alone") {
  Table table;
  Connection(&table, 4000).Open().Up(Ask(1)).Up(Ask(2).substr(0, 9));
  Flow* flow = table.listener.messages[0].flow;
  Connection(&table, 4000).Open(500000, 900000).Up(Ask(3)).Down(Reply(3) + Reply(1));
  CHECK(table.listener.Texts() == Texts{Ask(1), Ask(2).substr(0, 9), Ask(3), Reply(3), Reply(1)});
  for (const Delivered& message : table.listener.messages) CHECK(message.flow == flow);
  CHECK(table.listener.begun == 1);
  CHECK(table.listener.ended == 0);
  CHECK(table.listener.open.empty());
}

TEST_CASE("where the client's SYN was lost the server's tells the new connection") {
  Table table;
  Connection(&table, 4000).Open().Up(Ask(1)).Down(Reply(1));
  Connection again(&table, 4000);
  again.SynAck(900000).Down(Reply(2));
  CHECK(table.listener.begun == 2);
  CHECK(table.listener.Texts().back() == Reply(2));
}

TEST_CASE("a repeated SYN changes nothing") {
  Table table;
  Connection connection(&table, 4000);
  connection.Open().Up(Ask(1)).Down(Reply(1));
  connection.Send(true, 1000, "", packet::kTcpSyn);
  connection.Send(false, 7000, "", packet::kTcpSyn | kAck);
  connection.Up(Ask(2)).Down(Reply(2));
  CHECK(table.listener.Texts() == Texts{Ask(1), Reply(1), Ask(2), Reply(2)});
  CHECK(table.listener.begun == 1);
}

TEST_CASE("data that overtook its SYN stays part of the connection") {
  Table table;
  Connection connection(&table, 4000);
  connection.Up(Ask(1));
  connection.Send(true, 1000, "", packet::kTcpSyn);
  connection.Down(Reply(1));
  CHECK(table.listener.Texts() == Texts{Ask(1), Reply(1)});
  CHECK(table.listener.begun == 1);
}

TEST_CASE("a stream joined in its middle is counted where it is skipped, and paired from there") {
  Table table;
  Connection connection(&table, 4000);
  connection.Down(Reply(1).substr(20)).Up(Ask(2)).Down(Reply(2));
  CHECK(table.listener.Texts() == Texts{Ask(2), Reply(2)});
  CHECK(table.flows.counts().tcp_skipped_bytes == Reply(1).size() - 20);
}

TEST_CASE("a segment cut by the capture is a cut message") {
  Table table;
  Connection connection(&table, 4000);
  connection.Open();
  table.flows.Handle(
      TcpSegment("10.0.0.1", 4000, "10.0.0.53", 53).Sequence(connection.up).Payload(Ask(1)).Captured(20));
  connection.LoseUp(Size(Ask(1))).Up(Ask(2));
  CHECK(table.listener.Texts() == Texts{Ask(1).substr(0, 20), Ask(2)});
  CHECK(table.listener.messages[0].nominal == static_cast<int>(Ask(1).size()));
}

TEST_CASE("a message cut within its header is still handed on") {
  Table table;
  Connection(&table, 4000).Open().Up(Ask(1).substr(0, 2), packet::kTcpFin);
  CHECK(table.listener.Texts() == Texts{Ask(1).substr(0, 2)});
  CHECK(table.listener.messages[0].nominal == static_cast<int>(Ask(1).size()));
}

TEST_CASE("finishing hands on what is left in all streams") {
  Table table;
  Connection(&table, 4000).Open().Up(Ask(1).substr(0, 20));
  Connection(&table, 4001).Open().LoseUp(5).Up(Ask(2));
  Connection(&table, 4002).Open();
  table.flows.Finish();
  CHECK(table.listener.Texts() == Texts{Ask(1).substr(0, 20), Ask(2)});
  CHECK(table.flows.size() == 2);
  CHECK(table.flows.StreamBytes() == 0);
  table.listener.ExpireAll();
  table.flows.Finish();
  CHECK(table.flows.size() == 0);
  CHECK(table.flows.counts().tcp_unfinished_messages == 1);
}

TEST_CASE("the longest idle flow goes first, whatever its transport and state") {
  for (const int longest : {0, 1, 2}) {
    CAPTURE(longest);
    Settings settings;
    settings.max_flows = 3;
    Table table(settings);
    table.listener.pairs = false;
    const auto time = [&](int which) { return which == longest ? 0 : (which + 1) * kSecond; };
    table.flows.Handle(UdpDatagram("10.0.0.9", 53, "10.0.0.53", 53).Payload(Ask(1).substr(2)).At(time(0)));
    Connection(&table, 4000).At(time(1)).Open();
    Connection(&table, 4001).At(time(2)).Open().Up("", packet::kTcpRst);
    Connection(&table, 4002).At(9 * kSecond).Open();
    const auto has = [&](uint16_t port) {
      return std::any_of(table.listener.live.begin(), table.listener.live.end(),
                         [port](const Flow* flow) { return flow->descriptor.local_port == port; });
    };
    CHECK(has(53) == (longest != 0));
    CHECK(has(4000) == (longest != 1));
    CHECK(has(4001) == (longest != 2));
  }
}

TEST_CASE("an evicted connection hands on what had begun; if that opens a query it stays and the next one goes") {
  Settings settings;
  settings.max_flows = 2;
  Table table(settings);
  Connection(&table, 4000).At(0).Open().Up(Ask(1).substr(0, 20));
  Connection(&table, 4001).At(kSecond).Open();
  Connection third(&table, 4002);
  third.At(2 * kSecond).Open();
  CHECK(third.last == Delivery::kTcpSegment);
  CHECK(table.listener.Texts() == Texts{Ask(1).substr(0, 20)});
  CHECK(table.flows.counts().flows_evicted == 1);
  CHECK(table.flows.size() == 2);
  CHECK(table.listener.open.size() == 1);
}

TEST_CASE("a SYN flood leaves the table at its size, and connections with open queries in it") {
  Settings settings;
  settings.max_flows = 100;
  Table table(settings);
  Connection busy(&table, 4000);
  busy.Open().Up(Ask(1));
  for (uint16_t port = 10000; port < 12000; ++port) Connection(&table, port, "10.9.9.9").At(port).Syn();
  CHECK(table.flows.size() == 100);
  busy.Down(Reply(1));
  CHECK(table.listener.open.empty());
  CHECK(table.flows.counts().flows == 2001);
  CHECK(table.flows.counts().flows_evicted == 1901);
}

TEST_CASE("streams that never complete hold no more than they may") {
  Settings settings;
  settings.max_stream_bytes = 50000;
  Table table(settings);
  table.listener.pairs = false;
  for (uint16_t port = 10000; port < 12000; ++port) {
    Connection(&table, port).Open().Up(U16(60000) + std::string(700, 'x')).LoseUp(9).Up(std::string(700, 'y'));
    CHECK(table.flows.StreamBytes() <= 50000);
  }
  CHECK(table.flows.counts().tcp_dropped_bytes > 2'000'000);
  CHECK(table.flows.size() == 2000);
}

TEST_CASE("a flood of segments that are all out of order ends waiting, not in growing") {
  Table table;
  table.listener.pairs = false;
  Connection connection(&table, 4000);
  connection.Open();
  for (int i = 0; i < 5000; ++i) connection.LoseUp(1).Up("xyz");
  CHECK(table.flows.StreamBytes() < 300 * 1024);
  CHECK(table.flows.counts().tcp_gaps > 4000);
}

TEST_CASE("IPv6 connections are followed under surrogates") {
  Table table;
  Connection(&table, 4000, "2001:db8::1", "2001:db8::53").Open().Up(Ask(1)).Down(Reply(1));
  CHECK(table.listener.messages.size() == 2);
  CHECK(table.listener.messages[0].flow->client == ToAddress("2001:db8::1"));
  CHECK(table.flows.SurrogatesInUse() == 2);
  table.flows.Tick(FlowTable::kTcpIdleNs + 1);
  CHECK(table.flows.SurrogatesInUse() == 0);
}
