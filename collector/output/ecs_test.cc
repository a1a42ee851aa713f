#include <doctest/doctest.h>

#include <limits>
#include <nlohmann/json.hpp>

#include "collector/output/exchange_for_tests.h"
#include "collector/output/record_writer.h"
#include "collector/output/written_for_tests.h"
#include "tests/support/dns_builder.h"

namespace output {
namespace {

using nlohmann::json;
using test::A;
using test::kA;

std::string Line(const plugin::Exchange& exchange) {
  return WrittenBy([&](Buffer* buffer) { MakeEcsWriter(buffer)->Write(exchange); });
}

json Record(const plugin::Exchange& exchange) { return json::parse(Line(exchange)); }

json Answers(const test::Message& message) {
  ExchangeForTests exchange;
  exchange.Respond(message.Wire());
  return Record(exchange)["dns"].value("answers", json());
}

TEST_CASE("an answered query is one nested object on a line") {
  ExchangeForTests exchange;
  exchange.Respond(
      test::Response(4660).Question("www.example.com", kA).Answer("www.example.com", A("192.0.2.80"), 300).Wire());
  CHECK(Line(exchange).find('\n') == Line(exchange).size() - 1);
  const json endpoint_of_client = {{"ip", "192.0.2.1"}, {"port", 40000}, {"bytes", 33}};
  const json endpoint_of_server = {{"ip", "198.51.100.53"}, {"port", 53}, {"bytes", 49}};
  const json expected = {
      {"@timestamp", "2023-11-14T22:13:20.123456Z"},
      {"ecs", {{"version", "8.11.0"}}},
      {"event",
       {{"kind", "event"},
        {"category", {"network"}},
        {"type", {"protocol"}},
        {"module", "dnspair"},
        {"dataset", "dnspair.dns"},
        {"outcome", "success"},
        {"start", "2023-11-14T22:13:20.123456Z"},
        {"end", "2023-11-14T22:13:20.125691Z"},
        {"duration", 2234569}}},
      {"dns",
       {{"type", "answer"},
        {"id", "4660"},
        {"op_code", "QUERY"},
        {"header_flags", {"RD", "RA"}},
        {"question", {{"name", "www.example.com"}, {"type", "A"}, {"class", "IN"}}},
        {"response_code", "NOERROR"},
        {"answers",
         {{{"name", "www.example.com"}, {"type", "A"}, {"class", "IN"}, {"ttl", 300}, {"data", "192.0.2.80"}}}},
        {"resolved_ip", {"192.0.2.80"}}}},
      {"client", endpoint_of_client},
      {"server", endpoint_of_server},
      {"source", endpoint_of_client},
      {"destination", endpoint_of_server},
      {"network", {{"protocol", "dns"}, {"transport", "udp"}, {"type", "ipv4"}, {"bytes", 82}}},
      {"dnspair",
       {{"status", "answered"},
        {"result_code", 0},
        {"retransmits", 0},
        {"question_mismatch", false},
        {"cut", false}}}};
  CHECK(Record(exchange) == expected);
}

TEST_CASE("what nobody answered has no end, no duration, no code and no answers") {
  ExchangeForTests exchange;
  exchange.TimeOut();
  const json record = Record(exchange);
  CHECK(record["event"]["outcome"] == "failure");
  CHECK(record["dns"]["type"] == "query");
  CHECK(record["dns"]["header_flags"] == json({"RD", "AD"}));
  CHECK(record["dnspair"]["status"] == "timeout");
  for (const char* absent : {"/event/end", "/event/duration", "/dns/response_code", "/dns/answers",
                             "/dns/resolved_ip", "/server/bytes", "/destination/bytes"}) {
    CAPTURE(absent);
    CHECK_FALSE(record.contains(json::json_pointer(absent)));
  }
  CHECK(record["network"]["bytes"] == 33);
}

TEST_CASE("only an answer without an error is a success") {
  ExchangeForTests exchange;
  const auto outcome = [&](plugin::Status status, uint16_t rcode) {
    exchange.status = status;
    exchange.rcode = rcode;
    return Record(exchange)["event"]["outcome"].get<std::string>();
  };
  CHECK(outcome(plugin::Status::kAnswered, 0) == "success");
  CHECK(outcome(plugin::Status::kAnswered, 3) == "failure");
  CHECK(outcome(plugin::Status::kMalformed, 0) == "failure");
  exchange.TimeOut();
  CHECK(outcome(plugin::Status::kTimeout, 0) == "failure");
  CHECK(outcome(plugin::Status::kOpen, 0) == "unknown");
}

TEST_CASE("tags, tunnels, other opcodes and several questions are there when there are any") {
  ExchangeForTests exchange;
  exchange.tags.vlan = {100, 200, 300};
  exchange.tags.vlan_count = 3;
  exchange.tags.tunnel = packet::Tunnel::kVxlan;
  exchange.tags.tunnel_id = 77;
  exchange.transport = 6;
  exchange.client_address = Ipv6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1});
  exchange.query_flags = 0x0800;
  exchange.Ask(Question("a.example", 1) + Question("b.example", 28));
  exchange.question_count = 2;
  const json record = Record(exchange);
  CHECK(record["network"]["vlan"]["id"] == "100");
  CHECK(record["network"]["inner"]["vlan"]["id"] == "200");
  CHECK(record["network"]["transport"] == "tcp");
  CHECK(record["network"]["type"] == "ipv6");
  CHECK(record["client"]["ip"] == "2001:db8::1");
  CHECK(record["dns"]["op_code"] == "IQUERY");
  CHECK(record["dns"]["question"]["name"] == "a.example");
  CHECK(record["dnspair"]["questions"] == 2);
  CHECK(record["dnspair"]["tunnel"] == "vxlan");
  CHECK(record["dnspair"]["tunnel_id"] == 77);
  exchange.query_flags = 0x1800;
  CHECK(Record(exchange)["dns"]["op_code"] == "OPCODE3");
}

TEST_CASE("answers show their data as zone files do") {
  const auto data = [](const test::Data& written) {
    const json answers = Answers(test::Response(7).Question("www.example.com", kA).Answer("x", written));
    return answers.at(0).at("data").get<std::string>();
  };
  CHECK(data(test::Aaaa("2001:db8::25")) == "2001:db8::25");
  CHECK(data(test::Cname("other.example")) == "other.example");
  CHECK(data(test::Ns(".")) == ".");
  CHECK(data(test::Mx(10, "mail.example")) == "10 mail.example");
  CHECK(data(test::Srv(1, 2, 5060, "sip.example")) == "1 2 5060 sip.example");
  CHECK(data(test::Txt("one \"two\"", "\xc3\\")) == "one \"two\" \\195\\\\");
  CHECK(data(test::Rdata(1, "abc")) == "\\# 3 616263");
  CHECK(data(test::Rdata(15, "")) == "\\# 0");
  CHECK(data(test::Mx(10, "mail.example").Add(std::string("more"))).starts_with("\\# 20 000a046d"));
  const std::string soa = data(test::Soa("ns.example", "host.example", 2026));
  CHECK(soa.starts_with("ns.example host.example 2026 "));
}

TEST_CASE("no response makes a line of any length") {
  test::Message many = test::Response(7).Compressed().Question("www.example.com", kA);
  for (int i = 0; i < 3000; ++i) many.Answer("www.example.com", test::Cname("www.example.com"));
  CHECK(Answers(many).size() == 256);
}

TEST_CASE("clocks at the ends of time have a duration") {
  ExchangeForTests exchange;
  exchange.query_time_ns = std::numeric_limits<int64_t>::max();
  exchange.response_time_ns = std::numeric_limits<int64_t>::min();
  const json event = Record(exchange)["event"];
  CHECK(event["start"] == "2262-04-11T23:47:16.854775Z");
  CHECK(event["end"] == "1677-09-21T00:12:43.145224Z");
  CHECK(event["duration"] == std::numeric_limits<int64_t>::min());
}

TEST_CASE("a parser reads back names of any bytes") {
  ExchangeForTests exchange;
  exchange.Ask(Question("a\"b\\c\x01\xff", 1));
  CHECK(Record(exchange)["dns"]["question"]["name"] == "a\"b\\\\c\\001\\255");
}

}  // namespace
}  // namespace output
