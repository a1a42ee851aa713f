#include "collector/cli/pipeline.h"

#include <doctest/doctest.h>

#include <functional>
#include <stdexcept>

#include "collector/cli/frames_for_tests.h"
#include "collector/plugin/library.h"

namespace cli {
namespace {

using test::kA;

struct Statuses : plugin::ExchangeListener {
  void OnExchange(const plugin::Exchange& exchange) override { seen.push_back(exchange.status); }
  std::vector<plugin::Status> seen;
};

test::Packet Query(uint16_t id, const char* client = "192.0.2.1") {
  return test::Packet()
      .Ethernet()
      .Ipv4(client, "192.0.2.53")
      .Udp(40000, 53)
      .Payload(test::ToBytes(test::Query(id).Question("www.example", kA).Wire()));
}
test::Packet Response(uint16_t id) {
  return test::Packet()
      .Ethernet()
      .Ipv4("192.0.2.53", "192.0.2.1")
      .Udp(53, 40000)
      .Payload(test::ToBytes(test::Response(id).Question("www.example", kA).Wire()));
}
test::Packet Arp() { return test::Packet().Ethernet().Type(0x0806).Text("who has"); }

struct Bench {
  explicit Bench(const std::string& filter = {})
      : library(DNS_PARSER), pipeline(Settings(filter), library, &statuses) {}

  static PipelineSettings Settings(const std::string& filter) {
    PipelineSettings settings;
    settings.filter = filter;
    return settings;
  }

  output::Account Run(const std::function<bool()>& go_on = [] { return true; }) {
    pipeline.Run(&frames, go_on);
    pipeline.Finish();
    output::Account account = pipeline.Account();
    account.exchanges = statuses.seen.size();
    return account;
  }

  FrameList frames;
  Statuses statuses;
  plugin::Library library;
  Pipeline pipeline;
};

using plugin::Status;

TEST_CASE("packets become exchanges and every one is accounted for") {
  Bench bench;
  bench.frames.Add(0, Query(1));
  bench.frames.Add(kMillisecond, Response(1));
  bench.frames.Add(2 * kMillisecond, Arp());
  bench.frames.Add(3 * kMillisecond, test::Packet().Ethernet().Ipv4("192.0.2.1", "192.0.2.2").Udp(1, 2).Text("x"));
  bench.frames.Add(4 * kMillisecond, Arp(), 147);  // a private link type
  bench.frames.Add(5 * kMillisecond, Query(2));
  const output::Account account = bench.Run();
  CHECK(Contradictions(account).empty());
  CHECK(account.packets == 6);
  CHECK(account.outcomes[static_cast<size_t>(packet::Outcome::kNotIp)] == 1);
  CHECK(account.outcomes[static_cast<size_t>(packet::Outcome::kUnknownLinkType)] == 1);
  CHECK(account.unknown_link_types.size() == 1);
  CHECK(account.deliveries[static_cast<size_t>(flow::Delivery::kNotDnsPort)] == 1);
  CHECK(account.messages.queries == 2);
  CHECK(account.flows.flows > 0);
  CHECK(account.health.starts_with("parser:dns "));
  CHECK(bench.statuses.seen == std::vector<Status>{Status::kAnswered, Status::kOpen});
}

TEST_CASE("a packet of any kind moves the clock") {
  Bench bench;
  bench.frames.Add(0, Query(1));
  bench.frames.Add(8 * kSecond, Arp());
  bench.frames.Add(8 * kSecond + 1, Response(1));
  bench.Run();
  CHECK(bench.statuses.seen == std::vector<Status>{Status::kTimeout});
}

TEST_CASE("a packet that the filter leaves out moves the clock too") {
  Bench bench("udp");
  bench.frames.Add(0, Query(1));
  bench.frames.Add(8 * kSecond, Arp());
  bench.frames.Add(8 * kSecond + 1, Response(1));
  const output::Account account = bench.Run();
  CHECK(account.filtered == 1);
  CHECK(account.outcomes[static_cast<size_t>(packet::Outcome::kNotIp)] == 0);
  CHECK(Contradictions(account).empty());
  CHECK(bench.statuses.seen == std::vector<Status>{Status::kTimeout});
}

TEST_CASE("the clock moves before the packet that moved it is looked at") {
  Bench bench;
  bench.frames.Add(0, Query(1));
  bench.frames.Add(8 * kSecond, Response(1));
  const output::Account account = bench.Run();
  CHECK(account.messages.unsolicited == 1);
  CHECK(bench.statuses.seen == std::vector<Status>{Status::kTimeout});
}

TEST_CASE("a filter that does not compile is refused") { CHECK_THROWS_AS(Bench("hosst"), std::runtime_error); }

TEST_CASE("a run stops when it is told to, and still adds up") {
  Bench bench;
  for (uint16_t i = 0; i < 10; ++i) bench.frames.Add(i, Query(i));
  int batches = 0;
  const output::Account account = bench.Run([&] { return ++batches <= 3; });
  CHECK(account.packets == 3);
  CHECK(Contradictions(account).empty());
  CHECK(bench.statuses.seen.size() == 3);
}

TEST_CASE("a source that has nothing yet is asked again") {
  Bench bench;
  bench.frames.Add(0, Query(1));
  bench.frames.idle_first = true;
  CHECK(bench.Run().packets == 1);
}

}  // namespace
}  // namespace cli
