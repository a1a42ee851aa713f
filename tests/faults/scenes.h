#pragma once

#include <string>
#include <vector>

#include "tests/faults/plain_host.h"
#include "tests/support/rich_messages.h"

// What is interrupted, at each place where it can be.
namespace faults {

// One call of the parser, behind the calls that lead up to it.
struct Scene {
  const char* name;
  Calls before;
  Call call;
};

inline const Config kConfig = {{"enable_dnssec", "1"}, {"a key that is longer than short strings", "1"}};

inline Call UdpQuery(const test::Message& message, int64_t time = 1000) {
  return {Call::kQuery, message.Wire(), time};
}
inline Call UdpResponse(const test::Message& message, int64_t time = 2000) {
  return {Call::kResponse, message.Wire(), time};
}
inline Call OverTcp(Call::What what, const test::Message& message) {
  return {what, message.TcpWire(), 3000, kTransportTcp};
}

// What shows that a parser works.
inline Calls AnotherExchange() {
  return {UdpQuery(test::RichQuery(99), 20000000), UdpResponse(test::RichResponse(99), 20000500)};
}

inline std::vector<Scene> Scenes() {
  using test::RichQuery;
  using test::RichResponse;
  const Call query = UdpQuery(RichQuery(7));
  const test::Message malformed = RichResponse(7).Answer(test::RawName("\x80"), test::A("192.0.2.1"));
  const Calls three = {query, UdpQuery(RichQuery(8)), UdpQuery(RichQuery(9))};
  Calls warm = AnotherExchange();
  warm.push_back(query);
  return {
      {"a query", {}, query},
      {"a query after others", AnotherExchange(), query},
      {"a query that is open already", {query}, query},
      {"a query over TCP", {}, OverTcp(Call::kQuery, RichQuery(7))},
      {"a response", {query}, UdpResponse(RichResponse(7))},
      {"a response after others", warm, UdpResponse(RichResponse(7))},
      {"a malformed response", {query}, UdpResponse(malformed)},
      {"a response over TCP", {OverTcp(Call::kQuery, RichQuery(7))}, OverTcp(Call::kResponse, RichResponse(7))},
      {"a heartbeat", three, {Call::kHeartbeat, "", 10000000}},
  };
}

}  // namespace faults
