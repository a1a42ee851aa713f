#include "collector/output/summary.h"

#include <doctest/doctest.h>

#include <limits>
#include <nlohmann/json.hpp>

#include "collector/output/exchange_for_tests.h"

namespace output {
namespace {

constexpr int64_t kSecond = 1000000000;

struct Case {
  const char* name = "www.example.com";
  uint16_t type = 1;
  int code = 0;  // -1 for a time-out
  int64_t rtt_us = 1000;
  uint8_t server = 53;
  uint8_t client = 1;
  int64_t at_ns = 1700000000 * kSecond;
  plugin::Status status = plugin::Status::kAnswered;
};

void Add(Summary* summary, const Case& given) {
  static const DNSRequestMetricSpecification metrics;
  ExchangeForTests exchange;
  exchange.Ask(Question(given.name, given.type));
  exchange.server_address = Ipv4(198, 51, 100, given.server);
  exchange.client_address = Ipv4(192, 0, 2, given.client);
  exchange.query_time_ns = given.at_ns;
  exchange.rtt_us = given.rtt_us;
  exchange.result_code = given.code;
  exchange.rcode = static_cast<uint16_t>(given.code);
  exchange.status = given.status;
  if (given.code == -1) exchange.TimeOut();
  if (given.status == plugin::Status::kOpen) exchange.status = given.status;
  EndRequest record;
  record.result_code = given.code;
  record.num_errors = given.code == 0 ? 0 : 1;
  summary->Find(&metrics, record);
  summary->Add(exchange);
}

nlohmann::ordered_json JsonOf(const std::vector<Case>& cases, size_t top = 10) {
  Summary summary;
  for (const Case& one : cases) Add(&summary, one);
  summary.Release();
  return summary.Json(top);
}

TEST_CASE("nothing is no division by zero") {
  CHECK(Summary().Text(10) == "no DNS exchanges\n");
  const auto json = Summary().Json(10);
  CHECK(json["exchanges"]["total"] == 0);
  CHECK(json["share"]["timeout"] == 0.0);
}

TEST_CASE("answered, failed, timed out and open are told apart") {
  const auto json = JsonOf({{.code = 0},
                            {.code = 3},
                            {.code = 2},
                            {.code = -1},
                            {.code = -2, .status = plugin::Status::kMalformed},
                            {.code = -1, .status = plugin::Status::kOpen}});
  const auto& exchanges = json["exchanges"];
  CHECK(exchanges["total"] == 6);
  CHECK(exchanges["answered"] == 4);
  CHECK(exchanges["failed"] == 3);
  CHECK(exchanges["malformed"] == 1);
  CHECK(exchanges["timeout"] == 1);
  CHECK(exchanges["open"] == 1);
}

TEST_CASE("shares leave open queries out") {
  const auto json =
      JsonOf({{.code = 0}, {.code = 3}, {.code = 0}, {.code = -1}, {.code = -1, .status = plugin::Status::kOpen}});
  CHECK(json["share"]["answered"] == 0.75);
  CHECK(json["share"]["failed"] == 0.25);
  CHECK(json["share"]["timeout"] == 0.25);
}

TEST_CASE("groups are the parser's own, without open queries") {
  const auto json = JsonOf({{.code = 0},
                            {.code = 0},
                            {.code = 3},
                            {.code = -1},
                            {.code = -2, .status = plugin::Status::kMalformed},
                            {.code = -1, .status = plugin::Status::kOpen}});
  CHECK(json["groups"].dump() == R"([{"name":"malformed","count":1,"failed":1,"ResultCode":-2},)"
                                 R"({"name":"timeout","count":1,"failed":1,"ResultCode":-1},)"
                                 R"({"name":"NOERROR","count":2,"failed":0,"ResultCode":0},)"
                                 R"({"name":"NXDOMAIN","count":1,"failed":1,"ResultCode":3}])");
}

TEST_CASE("time-outs do not touch response times") {
  const auto json = JsonOf({{.rtt_us = 100}, {.rtt_us = 120}, {.code = -1}});
  CHECK(json["response_time_us"]["count"] == 2);
  CHECK(json["response_time_us"]["p50"] == 100);
  CHECK(json["response_time_us"]["max"] == 120);
}

TEST_CASE("servers and types have response times of their own") {
  const auto json = JsonOf({{.rtt_us = 10, .server = 1},
                            {.rtt_us = 20, .server = 1},
                            {.rtt_us = 99, .server = 2},
                            {.type = 28, .code = -1, .server = 2},
                            {.type = 28, .rtt_us = 5, .server = 1}});
  REQUIRE(json["servers"].size() == 2);
  CHECK(json["servers"][0]["server_ip"] == "198.51.100.1");
  CHECK(json["servers"][0]["answered"] == 3);
  CHECK(json["servers"][0]["response_time_us"]["max"] == 20);
  CHECK(json["servers"][1]["timeout"] == 1);
  CHECK(json["servers"][1]["response_time_us"]["max"] == 99);
  REQUIRE(json["types"].size() == 2);
  CHECK(json["types"][0]["qtype"] == "A");
  CHECK(json["types"][1]["qtype"] == "AAAA");
  CHECK(json["types"][1]["response_time_us"]["max"] == 5);
}

TEST_CASE("servers are also ranked by slow answers and by time-outs, where they have any") {
  const auto json = JsonOf({{.rtt_us = 10, .server = 1},
                            {.rtt_us = 10, .server = 1},
                            {.rtt_us = 900, .server = 2},
                            {.code = -1, .server = 2},
                            {.code = -1, .server = 3},
                            {.code = -1, .server = 3}});
  const auto addresses = [&](const char* list) {
    std::string text;
    for (const auto& server : json[list]) text += server["server_ip"].get<std::string>().substr(11) + " ";
    return text;
  };
  CHECK(addresses("slowest_servers") == "2 1 ");
  CHECK(addresses("unanswered_servers") == "3 2 ");
}

TEST_CASE("a server without answers has no response times") {
  const auto json = JsonOf({{.code = -1}});
  CHECK(json["servers"][0]["response_time_us"].dump() == R"({"count":0})");
}

TEST_CASE("names are listed by how often they were asked, without regard to letter case") {
  const auto json = JsonOf({{.name = "one.example"}, {.name = "TWO.example"}, {.name = "two.EXAMPLE"}});
  CHECK(json["names"].dump() == R"([{"qname":"two.example","count":2,"error":0},)"
                                R"({"qname":"one.example","count":1,"error":0}])");
}

TEST_CASE("failing and unanswered names are lists of their own") {
  const auto json = JsonOf({{.name = "good"},
                            {.name = "bad", .code = 2},
                            {.name = "silent", .code = -1},
                            {.name = "waiting", .code = -1, .status = plugin::Status::kOpen}});
  CHECK(json["failing_names"].dump() == R"([{"qname":"bad","count":1,"error":0}])");
  CHECK(json["unanswered_names"].dump() == R"([{"qname":"silent","count":1,"error":0}])");
  CHECK(json["names"].size() == 4);
}

TEST_CASE("the slowest names come first, time-outs apart") {
  const auto json =
      JsonOf({{.name = "quick", .rtt_us = 5}, {.name = "slow", .rtt_us = 900}, {.name = "silent", .code = -1}});
  CHECK(json["slowest_names"].dump() == R"([{"qname":"slow","rtt_us":900},{"qname":"quick","rtt_us":5}])");
}

TEST_CASE("clients are listed by how much they asked") {
  const auto json = JsonOf({{.client = 9}, {.client = 7}, {.client = 9}});
  CHECK(json["clients"][0]["client_ip"] == "192.0.2.9");
  CHECK(json["clients"][0]["count"] == 2);
}

TEST_CASE("IPv6 endpoints are shown as such") {
  Summary summary;
  ExchangeForTests exchange;
  exchange.server_address = Ipv6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 0x53});
  summary.Add(exchange);
  CHECK(summary.Json(1)["servers"][0]["server_ip"] == "2001:db8::53");
}

TEST_CASE("lists have at most as many entries as asked for") {
  const auto json = JsonOf({{.name = "a", .server = 1}, {.name = "b", .server = 2}, {.name = "c", .server = 3}}, 2);
  CHECK(json["names"].size() == 2);
  CHECK(json["servers"].size() == 2);
  CHECK(json["slowest_names"].size() == 2);
}

TEST_CASE("rates are of queries, in average and in the busiest second") {
  const int64_t begin = 1700000000 * kSecond;
  const auto json = JsonOf({{.at_ns = begin},
                            {.at_ns = begin + 2 * kSecond},
                            {.at_ns = begin + 2 * kSecond + 1},
                            {.at_ns = begin + 4 * kSecond},
                            {.at_ns = begin + 2 * kSecond + 2}});
  CHECK(json["queries_per_second"] == 1.25);
  CHECK(json["busiest_second"] == 3);
  CHECK(json["first_ns"] == begin);
  CHECK(json["last_ns"] == begin + 4 * kSecond);
}

TEST_CASE("the earliest and the latest instant in one capture are centuries apart") {
  Rate rate;
  rate.Add(std::numeric_limits<int64_t>::min());
  rate.Add(std::numeric_limits<int64_t>::max());
  CHECK(rate.Seconds() > 18e9);
}

TEST_CASE("a hundred thousand names take bounded memory and keep the frequent one") {
  Summary summary;
  for (int i = 0; i < 100000; ++i) {
    const std::string name = "n" + std::to_string(i);
    Add(&summary, {.name = i % 10 == 0 ? "often" : name.c_str()});
  }
  summary.Release();
  const auto json = summary.Json(1);
  CHECK(json["names"][0]["qname"] == "often");
  CHECK(json["names"][0]["count"] == 10000);
}

TEST_CASE("a long list has room for names that are not frequent at all") {
  constexpr int kListed = 1000;
  Summary summary(kListed);
  for (int i = 0; i < 50000; ++i) {
    const std::string name = i % 5 == 0 ? "some" + std::to_string(i / 5 % kListed) : "once" + std::to_string(i);
    Add(&summary, {.name = name.c_str()});
  }
  summary.Release();
  const auto json = summary.Json(kListed);
  REQUIRE(json["names"].size() == kListed);
  for (const auto& name : json["names"]) {
    CHECK(name["qname"].get<std::string>().starts_with("some"));
    CHECK(name["count"] == 10);
    CHECK(name["error"] == 0);
  }
}

TEST_CASE("servers that made room for others are counted together") {
  Summary summary;
  for (int i = 0; i < 3000; ++i) {
    ExchangeForTests exchange;
    exchange.server_address = Ipv4(10, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i & 0xff));
    summary.Add(exchange);
  }
  CHECK(summary.Text(3).find("(forgotten)  ") != std::string::npos);
  CHECK(summary.Text(3).find("(all)") != std::string::npos);
}

TEST_CASE("the text says what people want first") {
  Summary summary;
  const int64_t begin = 1700000000 * kSecond;
  Add(&summary, {.name = "www.example", .rtt_us = 1234, .at_ns = begin});
  Add(&summary, {.name = "\033[31m", .code = 3, .rtt_us = 100, .at_ns = begin + kSecond / 2});
  Add(&summary, {.code = -1, .at_ns = begin + kSecond});
  summary.Release();
  const std::string text = summary.Text(10);
  CHECK(text.find("3 exchanges from 2023-11-14 22:13:20.000000 to 2023-11-14 22:13:21.000000 UTC\n") == 0);
  CHECK(text.find("3.0 queries per second, 2 in the busiest one\n") != std::string::npos);
  CHECK(text.find("  answered   2  66.7 %\n    failed   1  33.3 %\n  timed out  1  33.3 %\n") != std::string::npos);
  CHECK(text.find("NXDOMAIN  1  33.3 %\n") != std::string::npos);
  CHECK(text.find("www.example") != std::string::npos);
  CHECK(text.find("1.234") != std::string::npos);
  CHECK(text.find('\033') == std::string::npos);
  CHECK(text.find("\\027[31m") != std::string::npos);
}

}  // namespace
}  // namespace output
