#include "collector/report/worst.h"

#include <doctest/doctest.h>

#include "collector/output/exchange_for_tests.h"

namespace report {
namespace {

struct Case {
  const char* name = "a";
  int code = 0;  // -1 for a time-out
  int64_t rtt_us = 1000;
  uint32_t retransmits = 0;
};

std::string NamesOf(const std::vector<Case>& cases, size_t most) {
  Worst worst(most);
  for (const Case& one : cases) {
    output::ExchangeForTests exchange;
    exchange.Ask(output::Question(one.name, 1));
    exchange.result_code = one.code;
    exchange.rcode = static_cast<uint16_t>(one.code);
    exchange.rtt_us = one.rtt_us;
    exchange.retransmits = one.retransmits;
    if (one.code == -1) exchange.TimeOut();
    worst.Add(exchange);
  }
  std::string names;
  for (const BadExchange& one : worst.All()) names += one.name + " ";
  return names;
}

TEST_CASE("the slowest answers come first") {
  CHECK(NamesOf({{.name = "b", .rtt_us = 20}, {.name = "a", .rtt_us = 30}, {.name = "c", .rtt_us = 10}}, 2) ==
        "a b ");
}

TEST_CASE("time-outs stand before answers, those asked most often first") {
  CHECK(NamesOf({{.name = "slow", .rtt_us = 9000000},
                 {.name = "once", .code = -1},
                 {.name = "again", .code = -1, .retransmits = 2},
                 {.name = "later", .code = -1}},
                2) == "again once slow ");
}

TEST_CASE("a server's failure counts for more than a name that does not exist, however slow") {
  CHECK(NamesOf({{.name = "nx", .code = 3, .rtt_us = 300},
                 {.name = "refused", .code = 5, .rtt_us = 20},
                 {.name = "servfail", .code = 2, .rtt_us = 10},
                 {.name = "slow", .rtt_us = 400}},
                1) == "slow servfail ");
}

TEST_CASE("what is slow and a failure stands once") {
  CHECK(NamesOf({{.name = "both", .code = 2, .rtt_us = 5}}, 10) == "both ");
}

TEST_CASE("open queries are not bad yet") {
  Worst worst;
  output::ExchangeForTests exchange;
  exchange.TimeOut();
  exchange.status = plugin::Status::kOpen;
  worst.Add(exchange);
  CHECK(worst.All().empty());
}

TEST_CASE("room for nothing holds nothing") { CHECK(NamesOf({{.code = -1}, {.code = 2}}, 0).empty()); }

TEST_CASE("an exchange is kept as it is shown") {
  Worst worst;
  output::ExchangeForTests exchange;
  exchange.result_code = 9;
  exchange.rcode = 9;
  exchange.Ask(output::Question("\x07<b>", 28));
  worst.Add(exchange);
  REQUIRE(worst.All().size() == 1);
  const BadExchange one = worst.All().front();
  CHECK(one.name == "\\007<b>");
  CHECK(one.type == "AAAA");
  CHECK(one.client == "192.0.2.1");
  CHECK(one.server == "198.51.100.53");
  CHECK(one.proto == "udp");
  CHECK(one.result == "NOTAUTH");
  CHECK(one.rtt_us == 2234);
}

}  // namespace
}  // namespace report
