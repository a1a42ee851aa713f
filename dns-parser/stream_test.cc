#include <doctest/doctest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/death.h"
#include "tests/support/pairing.h"

using namespace test;

// What the data callbacks do with each transport. The cutting of streams is in tcp_stream_test.cc.

namespace {

std::string UnknownTransport(int number) {
  return Logged(2, "Unknown transport %d for DNS traffic",
                "Unknown transport " + std::to_string(number) + " for DNS traffic");
}

// A parser on a flow of the given transport.
struct Flow : Pairing {
  explicit Flow(int transport, int log_level = 4) : Pairing({}, log_level) {
    flow.transport = static_cast<uint8_t>(transport);
  }
};

}  // namespace

TEST_CASE("a datagram from the client is a request") {
  Flow bench(kTransportUdp);
  const std::string message = AQuery(7);
  CHECK(bench.Up(message) == static_cast<int>(message.size()));
  CHECK(bench.Open() == 1);
  CHECK(bench.host.Last().begin);
  CHECK(bench.Up(AResponse(7)) == -1);
  CHECK(bench.host.Texts(4) == std::vector<std::string>{"[dns]-Expected request, got response"});
}

TEST_CASE("a datagram from the server is a response") {
  Flow bench(kTransportUdp);
  bench.Up(AQuery(7));
  const std::string message = AResponse(7);
  CHECK(bench.Down(message) == static_cast<int>(message.size()));
  CHECK(bench.Open() == 0);
  CHECK_FALSE(bench.host.Last().begin);
  CHECK(bench.Down(AQuery(8)) == -1);
  CHECK(bench.host.Texts(4) == std::vector<std::string>{"[dns]-Expected response, got request"});
}

TEST_CASE("a datagram is one message, without a length in front") {
  Flow bench(kTransportUdp);
  const std::string framed = Query(7).Question("aa.bb", kA).TcpWire();
  bench.Up(framed);
  CHECK(bench.Open() == 0);
}

TEST_CASE("what follows the message in a datagram is consumed with it") {
  Flow bench(kTransportUdp);
  CHECK(bench.Up(AQuery(7) + AQuery(8)) == 46);
  CHECK(bench.Open() == 1);
}

TEST_CASE("an accepted datagram is consumed by its length on the wire, even when the capture was cut") {
  Flow bench(kTransportUdp);
  const std::string query = AQuery(7);
  CHECK(bench.Up(query, 23, 500) == 500);
  CHECK(bench.OnlyQuery().request_bytes == 500);
  CHECK(bench.Up(query, 5, 300) == 300);
  CHECK(bench.Down(AResponse(7), 25, 600) == 600);
  CHECK(bench.host.Last().bytes_response == 600);
  CHECK(bench.Down(AResponse(9), 25, 700) == 700);
}

TEST_CASE("a refused datagram is not consumed") {
  Flow bench(kTransportUdp);
  CHECK(bench.Up(AQuery(7), 11, 11) == -1);
  CHECK(bench.Down(AResponse(7), 11, 11) == -1);
}

TEST_CASE("an empty datagram is refused") {
  Flow bench(kTransportUdp);
  CHECK(bench.Up("") == -1);
  CHECK(bench.Down("") == -1);
  CHECK(bench.host.Texts(4) == std::vector<std::string>(2, "[dns]-Packet too small"));
}

TEST_CASE("the host's time goes with the message") {
  Flow bench(kTransportUdp);
  const std::string query = AQuery(7);
  const std::string response = AResponse(7);
  bench.parser.HandleDataClientToServer(&bench.flow, {1000}, query.data(), 23, 23, 0, nullptr);
  const int size = static_cast<int>(response.size());
  bench.parser.HandleDataServerToClient(&bench.flow, {1250}, response.data(), size, size, 0, nullptr);
  CHECK(bench.host.Last().start_time == 1000);
  CHECK(bench.host.Last().response_time == 250);
}

TEST_CASE("the stream state and the spare argument are not looked at") {
  for (const int transport : {kTransportUdp, kTransportTcp}) {
    Flow bench(transport);
    int word = 5;
    void* state = &word;
    const std::string up = transport == kTransportTcp ? Framed(AQuery(7)) : AQuery(7);
    const std::string down = transport == kTransportTcp ? Framed(AResponse(7)) : AResponse(7);
    const int up_size = static_cast<int>(up.size());
    const int down_size = static_cast<int>(down.size());
    CHECK(bench.parser.HandleDataClientToServer(&bench.flow, {0}, up.data(), up_size, up_size, -1, &state) ==
          up_size);
    CHECK(bench.parser.HandleDataServerToClient(&bench.flow, {0}, down.data(), down_size, down_size, 77, &state) ==
          down_size);
    CHECK(state == &word);
    CHECK(word == 5);
  }
}

TEST_CASE("a transport that is neither UDP nor TCP is refused and logged at level 2") {
  for (const int transport : {0, 1, 5, 7, 16, 18, 255}) {
    Flow bench(transport, 2);
    CHECK(bench.Up(AQuery(7)) == -1);
    CHECK(Log(bench.host) == UnknownTransport(transport));
    CHECK(bench.Down(AResponse(7)) == -1);
    CHECK(Log(bench.host) == UnknownTransport(transport) + UnknownTransport(transport));
    CHECK(bench.Open() == 0);
    CHECK(Counters(bench.parser).empty());
  }
}

TEST_CASE("an unknown transport is not logged below level 2") {
  Flow bench(1, 1);
  CHECK(bench.Up(AQuery(7)) == -1);
  CHECK(Calls(bench.host).empty());
}

TEST_CASE("more captured than there was on the wire is refused silently, whatever the transport") {
  for (const int transport : {17, 6, 1}) {
    Flow bench(transport, 5);
    const std::string query = Query(7).Question("aa.bb", kA).TcpWire();
    CHECK(bench.Up(query, 25, 24) == -1);
    CHECK(bench.Down(query, 25, 24) == -1);
    CHECK(bench.Up(query, 1, 0) == -1);
    CHECK(bench.parser.HandleDataClientToServer(&bench.flow, {0}, query.data(), 0, -1, 0, nullptr) == -1);
    CHECK(Calls(bench.host).empty());
    CHECK(bench.host.debug_files.empty());
    CHECK(Counters(bench.parser).empty());
  }
}

TEST_CASE("a datagram of negative length is the host's mistake and fatal") {
  const auto feed = [](int direction) {
    return FatalLine([=] {
      Flow bench(kTransportUdp);
      const std::string message = AQuery(7);
      if (direction == 0) {
        bench.parser.HandleDataClientToServer(&bench.flow, {0}, message.data(), -1, 23, 0, nullptr);
      } else {
        bench.parser.HandleDataServerToClient(&bench.flow, {0}, message.data(), -1, 23, 0, nullptr);
      }
    });
  };
  CHECK(feed(0) == "{ERROR}-iovec.h:83: failed condition: len >= 0\n");
  CHECK(feed(1) == "{ERROR}-iovec.h:83: failed condition: len >= 0\n");
}

TEST_CASE("a handler given more captured than nominal bytes is fatal, and traces first") {
  for (const bool request : {true, false}) {
    const ChildResult child = RunInChild([=] {
      Flow bench(kTransportUdp, 5);
      const LogWatch watch(&bench.host.table, [](const std::string& line) {
        puts(line.c_str());
        fflush(stdout);
      });
      const std::string message = AQuery(7);
      if (request) bench.parser.HandleRequest(&bench.flow, {0}, message.data(), 23, 22);
      if (!request) bench.parser.HandleResponse(&bench.flow, {0}, message.data(), 23, 22);
    });
    CHECK(child.Aborted());
    CHECK(StartsWithTimestamp(child.err));
    CHECK(child.err.substr(kTimestampLength) == "{ERROR}-iovec.h:82: failed condition: nomlen >= len\n");
    CHECK(child.out.ends_with("snap=23 nominal=22\n"));
  }
}

TEST_CASE("a handler given a negative length is fatal") {
  const auto feed = [](bool request, int len, int nominal) {
    return FatalLine([=] {
      Flow bench(kTransportUdp);
      const std::string message = AQuery(7);
      if (request) bench.parser.HandleRequest(&bench.flow, {0}, message.data(), len, nominal);
      if (!request) bench.parser.HandleResponse(&bench.flow, {0}, message.data(), len, nominal);
    });
  };
  for (const bool request : {true, false}) {
    CHECK(feed(request, -1, 0) == "{ERROR}-iovec.h:83: failed condition: len >= 0\n");
    CHECK(feed(request, -1, -2) == "{ERROR}-iovec.h:82: failed condition: nomlen >= len\n");
  }
}
