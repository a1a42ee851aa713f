#pragma once

#include <string>

#include "collector/output/exchange_for_tests.h"

namespace top {

// One exchange in a few words.
struct Case {
  std::string name = "www.example.com";
  int code = 0;  // -1 for a time-out
  int64_t rtt_us = 1000;
  uint8_t server = 53;
  uint8_t client = 1;
};

// `To` is what takes exchanges: a slice, a timeline.
template <typename To>
void Add(To* to, const Case& given) {
  output::ExchangeForTests exchange;
  exchange.Ask(output::Question(given.name, 1));
  exchange.server_address = output::Ipv4(198, 51, 100, given.server);
  exchange.client_address = output::Ipv4(192, 0, 2, given.client);
  exchange.rtt_us = given.rtt_us;
  exchange.result_code = given.code;
  if (given.code == -1) exchange.TimeOut();
  to->Add(exchange);
}

}  // namespace top
