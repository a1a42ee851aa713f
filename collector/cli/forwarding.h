#pragma once

#include <functional>
#include <utility>

#include "collector/output/client_mask.h"
#include "collector/plugin/exchange.h"

// What may stand between the parser and the consumer of its exchanges.
namespace cli {

// Passes everything on as it is.
class Forwarding : public plugin::ExchangeListener {
 public:
  explicit Forwarding(plugin::ExchangeListener* listener) : next(listener) {}

  void OnExchange(const plugin::Exchange& exchange) override { next->OnExchange(exchange); }
  bool WantsDetails() const override { return next->WantsDetails(); }
  void OnRecord(const EndRequest& record, const RequestMetricSpecification* metrics) override {
    next->OnRecord(record, metrics);
  }
  void OnMapping(const char* query_name, const char* name, uint32_t ipv4, int64_t time_ns) override {
    next->OnMapping(query_name, name, ipv4, time_ns);
  }

 private:
  plugin::ExchangeListener* next;
};

// Hides the clients' addresses from all that comes behind it: writers, summaries and conditions alike.
class Masking : public Forwarding {
 public:
  Masking(plugin::ExchangeListener* listener, const output::ClientMask& client_mask)
      : Forwarding(listener), mask(client_mask) {}

  void OnExchange(const plugin::Exchange& exchange) override {
    plugin::Exchange masked = exchange;
    const packet::Address client = exchange.client == nullptr ? packet::Address() : mask.Applied(*exchange.client);
    if (exchange.client != nullptr) masked.client = &client;
    Forwarding::OnExchange(masked);
  }

 private:
  output::ClientMask mask;
};

// Does something after each exchange.
class AfterEach : public Forwarding {
 public:
  AfterEach(plugin::ExchangeListener* listener, std::function<void()> what)
      : Forwarding(listener), then(std::move(what)) {}

  void OnExchange(const plugin::Exchange& exchange) override {
    Forwarding::OnExchange(exchange);
    then();
  }

 private:
  std::function<void()> then;
};

}  // namespace cli
