#include <doctest/doctest.h>

#include <cstring>
#include <map>
#include <stdexcept>
#include <string>

#include "dns-parser/dns_parser.h"
#include "host/protocol_parser.h"
#include "tests/support/pairing.h"

using namespace test;

// The entry points, and the operations that need nothing of DNS. The configuration is in configuration_test.cc.

namespace {

// A parser from the library's door, destroyed through it.
struct Delivered {
  explicit Delivered(RecordingHost* host, uint64_t handle = 0, const Config& config = {})
      : parser(get_parser_default(handle, &host->table, config)) {
    parser->request_sink = host;
  }
  Delivered(const Delivered&) = delete;
  Delivered& operator=(const Delivered&) = delete;
  ~Delivered() { destroy_parser_default(parser); }

  int Query(const std::string& message) {
    const ParserFlow flow = MakeFlow();
    const int size = static_cast<int>(message.size());
    return parser->HandleDataClientToServer(&flow, {0}, message.data(), size, size, 0, nullptr);
  }
  int Response(const std::string& message) {
    const ParserFlow flow = MakeFlow();
    const int size = static_cast<int>(message.size());
    return parser->HandleDataServerToClient(&flow, {0}, message.data(), size, size, 0, nullptr);
  }

  IProtocolParser* parser;
};

struct Refusal : std::runtime_error {
  Refusal() : std::runtime_error("the host refuses") {}
};

// Tells when it is destroyed.
class ToldParser : public DNSParser {
 public:
  ToldParser(const CollectorExports* table, bool* flag) : DNSParser(table, {}), destroyed(flag) {}
  ~ToldParser() override { *destroyed = true; }

 private:
  bool* destroyed;
};

}  // namespace

TEST_CASE("the library implements interface version 5") { CHECK(get_api_version() == 5); }

TEST_CASE("the factory stores the host's word and table and leaves the sink to the host") {
  RecordingHost host;
  IProtocolParser* parser = get_parser_default(0xfedcba9876543210, &host.table, {});
  REQUIRE(parser != nullptr);
  CHECK(parser->host_handle == 0xfedcba9876543210);
  CHECK(parser->host_exports == &host.table);
  CHECK(parser->request_sink == nullptr);
  CHECK(dynamic_cast<ITimedProtocolParser*>(parser) != nullptr);
  REQUIRE(dynamic_cast<DNSParser*>(parser) != nullptr);
  CHECK(dynamic_cast<DNSParser*>(parser)->exports == &host.table);
  destroy_parser_default(parser);
}

TEST_CASE("the constructor alone leaves the host's word and table empty") {
  RecordingHost host;
  const DNSParser parser(&host.table, {});
  CHECK(parser.host_handle == 0);
  CHECK(parser.host_exports == nullptr);
  CHECK(parser.exports == &host.table);
}

TEST_CASE("the factory hands the configuration on") {
  RecordingHost host;
  const Delivered delivered(&host, 0, {{"max_open_requests", "7"}});
  CHECK(dynamic_cast<DNSParser*>(delivered.parser)->max_open_requests == 7);
}

TEST_CASE("an exception from the constructor reaches the host, and the parser is released") {
  RecordingHost host;
  const LogWatch watch(&host.table, [](const std::string&) { throw Refusal(); });
  CHECK_THROWS_AS(get_parser_default(1, &host.table, {{"some_key", std::string(100, 'x')}}), const Refusal&);
}

TEST_CASE("destroying no parser does nothing") { destroy_parser_default(nullptr); }

TEST_CASE("a parser is destroyed through the virtual table") {
  RecordingHost host;
  bool destroyed = false;
  destroy_parser_default(new ToldParser(&host.table, &destroyed));
  CHECK(destroyed);
}

TEST_CASE("open queries are dropped silently with their parser") {
  RecordingHost host;
  {
    Delivered delivered(&host);
    delivered.Query(AQuery(1));
    delivered.Query(AQuery(2));
    host.level = 5;
    host.calls.clear();
    host.debug_files.clear();
  }
  CHECK(Calls(host).empty());
  CHECK(host.debug_files.empty());
  CHECK(host.records.size() == 2);
}

TEST_CASE("two parsers of one configuration know nothing of each other's queries") {
  RecordingHost host;
  const Config config;
  Delivered one(&host, 1, config);
  Delivered other(&host, 2, config);
  one.Query(AQuery(7));
  CHECK(other.Response(AResponse(7)) > 0);
  CHECK(host.records.size() == 1);  // the begin record
  CHECK(dynamic_cast<DNSParser*>(other.parser)->unsolicited_responses == 1);
  CHECK(dynamic_cast<DNSParser*>(one.parser)->unsolicited_responses == 0);
  one.Response(AResponse(7));
  CHECK(host.records.size() == 2);
}

TEST_CASE("two parsers number their queries for themselves") {
  RecordingHost host;
  Delivered one(&host);
  Delivered other(&host);
  one.Query(AQuery(7));
  other.Query(AQuery(7));
  CHECK(host.records.at(0).request_id == 1);
  CHECK(host.records.at(1).request_id == 1);
}

TEST_CASE("a new stream is welcome whatever its transport, and nothing is kept of it") {
  Pairing bench;
  int word = 5;
  void* state = &word;
  for (const int transport : {17, 6, 1, 0, 255}) {
    bench.flow.transport = static_cast<uint8_t>(transport);
    CHECK(bench.parser.HandleNewStream(&bench.flow, &state) == 1);
  }
  CHECK(bench.parser.HandleNewStream(nullptr, nullptr) == 1);
  CHECK(state == &word);
  CHECK(word == 5);
  CHECK(Calls(bench.host).empty());
}

TEST_CASE("the end of a stream changes nothing") {
  Pairing bench;
  bench.Request(AQuery(7));
  bench.Forget();
  int word = 5;
  void* state = &word;
  bench.parser.HandleEndOfStream(&bench.flow, &state);
  bench.parser.HandleEndOfStream(nullptr, nullptr);
  CHECK(state == &word);
  CHECK(bench.Open() == 1);
  CHECK(Calls(bench.host).empty());
}

TEST_CASE("the parser has no flags") {
  RecordingHost host;
  CHECK(DNSParser(&host.table, {}).GetFlags() == 0);
}

TEST_CASE("the metric specification is one object, the same for every parser") {
  RecordingHost host;
  const RequestMetricSpecification* specification = nullptr;
  {
    const Delivered one(&host);
    specification = one.parser->GetRequestMetricSpec();
    CHECK(specification == &DNSParser::requestMetricSpec);
    CHECK(specification == one.parser->GetRequestMetricSpec());
  }
  const Delivered other(&host);
  CHECK(other.parser->GetRequestMetricSpec() == specification);
  CHECK(specification->name == "dns");
  CHECK(specification->spec_id == 1);
}

TEST_CASE("the callback table is neither written to nor used beyond its entries") {
  RecordingHost host;
  // Not to be called: there is nothing there.
  for (void** entry : {&host.table.reserved_4, &host.table.reserved_5, &host.table.reserved_8}) {
    *entry = reinterpret_cast<void*>(8);
  }
  const CollectorExports before = host.table;
  {
    Delivered delivered(&host);
    host.level = 5;
    delivered.Query(AQuery(7));
    delivered.Response(AResponse(7));
    delivered.Response(AResponse(7));
    delivered.Query(AQuery(8));
    delivered.parser->Heartbeat();
    CHECK(delivered.parser->GetHealthEvent() != nullptr);
  }
  CHECK(std::memcmp(&before, &host.table, sizeof before) == 0);
  CHECK(host.records.size() == 4);
}

TEST_CASE("without a sink the parser can still be asked and destroyed") {
  RecordingHost host;
  IProtocolParser* parser = get_parser_default(0, &host.table, {});
  CHECK(std::string(parser->GetHealthEvent()) == "parser:dns uop:0 zqd:0 mqd:0 ur:0 inj:0 mor:0 or:0 rt:0");
  parser->Heartbeat();
  destroy_parser_default(parser);
}
