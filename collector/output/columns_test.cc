#include "collector/output/columns.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <limits>
#include <stdexcept>

#include "collector/output/exchange_for_tests.h"

namespace output {
namespace {

std::string Field(const char* name, const plugin::Exchange& exchange) {
  const Column* column = FindColumn(name);
  REQUIRE(column != nullptr);
  return FieldText(*column, exchange);
}

bool Absent(const char* name, const plugin::Exchange& exchange) {
  std::string text(RoomFor(exchange), '\0');
  return FindColumn(name)->write(text.data(), exchange, Style::kJson) == text.data();
}

TEST_CASE("the columns have these names in this order") {
  std::string names;
  for (const Column& column : AllColumns()) names.append(column.name).append(" ");
  CHECK(names ==
        "ts_us client_ip client_port server_ip server_port proto qname qtype qclass pattern status rcode "
        "result_code rtt_us bytes_query bytes_response answers rrsigs dns_id flags response_flags query_ns "
        "response_ns retransmits question_mismatch cut vlan tunnel ip_version tunnel_id ");
}

TEST_CASE("an answered exchange fills its columns") {
  ExchangeForTests exchange;
  exchange.rrsigs = 2;
  CHECK(Field("ts_us", exchange) == "1700000000123456");
  CHECK(Field("client_ip", exchange) == "192.0.2.1");
  CHECK(Field("client_port", exchange) == "40000");
  CHECK(Field("server_ip", exchange) == "198.51.100.53");
  CHECK(Field("server_port", exchange) == "53");
  CHECK(Field("proto", exchange) == "udp");
  CHECK(Field("qname", exchange) == "www.example.com");
  CHECK(Field("qtype", exchange) == "A");
  CHECK(Field("qclass", exchange) == "IN");
  CHECK(Field("pattern", exchange) == "A - IPv4 address lookup");
  CHECK(Field("status", exchange) == "answered");
  CHECK(Field("rcode", exchange) == "NOERROR");
  CHECK(Field("result_code", exchange) == "0");
  CHECK(Field("rtt_us", exchange) == "2234");
  CHECK(Field("bytes_query", exchange) == "33");
  CHECK(Field("bytes_response", exchange) == "49");
  CHECK(Field("answers", exchange) == "A=192.0.2.80");
  CHECK(Field("rrsigs", exchange) == "2");
  CHECK(Field("dns_id", exchange) == "4660");
  CHECK(Field("flags", exchange) == "rd ad");
  CHECK(Field("response_flags", exchange) == "qr rd ra");
  CHECK(Field("query_ns", exchange) == "1700000000123456789");
  CHECK(Field("response_ns", exchange) == "1700000000125691358");
  CHECK(Field("retransmits", exchange) == "0");
  CHECK(Field("question_mismatch", exchange) == "false");
  CHECK(Field("cut", exchange) == "false");
  CHECK(Field("ip_version", exchange) == "4");
}

TEST_CASE("what belongs to a response is absent without one") {
  ExchangeForTests exchange;
  exchange.TimeOut();
  for (const char* name : {"rcode", "rtt_us", "bytes_response", "response_flags", "response_ns"}) {
    CAPTURE(name);
    CHECK(Absent(name, exchange));
  }
  CHECK(Field("status", exchange) == "timeout");
  CHECK(Field("result_code", exchange) == "-1");
  CHECK(Field("rrsigs", exchange) == "0");
  CHECK_FALSE(Absent("rrsigs", exchange));
}

TEST_CASE("only columns that are promised in every record are there without a response") {
  ExchangeForTests exchange;
  exchange.TimeOut();
  for (const Column& column : AllColumns()) {
    CAPTURE(std::string(column.name));
    std::string text(RoomFor(exchange), '\0');
    CHECK((column.write(text.data(), exchange, Style::kJson) != text.data()) == column.always);
  }
}

TEST_CASE("every flag has its name") {
  ExchangeForTests exchange;
  exchange.response_flags = 0xffff;
  CHECK(Field("response_flags", exchange) == "qr aa tc rd ra z ad cd");
  exchange.query_flags = 0x0010;
  CHECK(Field("flags", exchange) == "cd");
  exchange.query_flags = 0;
  CHECK(Field("flags", exchange) == "");
  CHECK_FALSE(Absent("flags", exchange));
}

TEST_CASE("all combinations of flags are put together from their names") {
  ExchangeForTests exchange;
  for (unsigned flags = 0; flags <= 0xffff; ++flags) {
    std::string expected;
    const auto add = [&](unsigned bit, const char* name) {
      if ((flags & bit) != 0) expected.append(expected.empty() ? "" : " ").append(name);
    };
    add(0x8000, "qr");
    add(0x0400, "aa");
    add(0x0200, "tc");
    add(0x0100, "rd");
    add(0x0080, "ra");
    add(0x0040, "z");
    add(0x0020, "ad");
    add(0x0010, "cd");
    exchange.query_flags = static_cast<uint16_t>(flags);
    if (Field("flags", exchange) != expected) FAIL_CHECK(flags);
  }
}

TEST_CASE("empty texts are there and absent texts are not") {
  ExchangeForTests exchange;
  exchange.answers = {};
  char text[4096];
  CHECK(std::string(text, FindColumn("answers")->write(text, exchange, Style::kJson)) == "\"\"");
  CHECK(FindColumn("vlan")->write(text, exchange, Style::kJson) == text);
}

TEST_CASE("tags are listed outermost first") {
  ExchangeForTests exchange;
  CHECK(Absent("vlan", exchange));
  exchange.tags.vlan = {100, 200, 0, 0};
  exchange.tags.vlan_count = 2;
  CHECK(Field("vlan", exchange) == "100,200");
}

TEST_CASE("a tunnel shows its name and identifier") {
  ExchangeForTests exchange;
  CHECK(Absent("tunnel", exchange));
  CHECK(Absent("tunnel_id", exchange));
  exchange.tags.tunnel = packet::Tunnel::kVxlan;
  exchange.tags.tunnel_id = 42;
  CHECK(Field("tunnel", exchange) == "vxlan");
  CHECK(Field("tunnel_id", exchange) == "42");
}

TEST_CASE("TCP and IPv6 are told") {
  ExchangeForTests exchange;
  exchange.transport = 6;
  exchange.client_address = Ipv6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1});
  CHECK(Field("proto", exchange) == "tcp");
  CHECK(Field("ip_version", exchange) == "6");
  CHECK(Field("client_ip", exchange) == "2001:db8::1");
}

TEST_CASE("an extended response code shows beside the record's own") {
  ExchangeForTests exchange;
  exchange.rcode = 16;
  exchange.result_code = 0;
  CHECK(Field("rcode", exchange) == "BADVERS");
  CHECK(Field("result_code", exchange) == "0");
}

TEST_CASE("an answer text with quotes and control bytes is printable") {
  ExchangeForTests exchange;
  exchange.answers = std::string_view("TXT=\"\n\\\0", 8);
  CHECK(Field("answers", exchange) == "TXT=\"\\010\\\\\\000");
}

TEST_CASE("instants before 1970 round down") {
  ExchangeForTests exchange;
  exchange.query_time_ns = -1;
  CHECK(Field("ts_us", exchange) == "-1");
  exchange.query_time_ns = -1000;
  CHECK(Field("ts_us", exchange) == "-1");
  exchange.query_time_ns = -1001;
  CHECK(Field("ts_us", exchange) == "-2");
}

TEST_CASE("the largest values fit the room") {
  ExchangeForTests exchange;
  exchange.query_time_ns = exchange.response_time_ns = std::numeric_limits<int64_t>::min();
  exchange.rtt_us = exchange.bytes_query = exchange.bytes_response = std::numeric_limits<int64_t>::min();
  exchange.result_code = std::numeric_limits<int32_t>::min();
  exchange.client_address = exchange.server_address = Ipv6({1, 2, 3, 4, 5, 6, 7, 0xffff});
  exchange.tags.vlan = {4095, 4095, 4095, 4095};
  exchange.tags.vlan_count = 4;
  exchange.tags.tunnel = packet::Tunnel::kGeneve;
  exchange.tags.tunnel_id = ~uint32_t{0};
  exchange.query_flags = exchange.response_flags = 0xffff;
  const std::string worst(2000, '\xff');
  exchange.answers = exchange.pattern = worst;
  std::string questions;
  for (int i = 0; i < 100; ++i) questions += Question("\\\\\\\\\\\\\\\\", 65535, 65535);
  exchange.Ask(questions);
  std::string text(2 * RoomFor(exchange), '\0');
  char* end = text.data();
  for (const Column& column : AllColumns())
    end = column.write(PutText(end, column.name) + 4, exchange, Style::kJson);
  CHECK(static_cast<size_t>(end - text.data()) <= RoomFor(exchange));
}

TEST_CASE("a list of columns is taken in its own order") {
  const ColumnList columns = ParseColumns("qname,ts_us");
  REQUIRE(columns.size() == 2);
  CHECK(columns[0]->name == "qname");
  CHECK(columns[1]->name == "ts_us");
}

TEST_CASE("who names no column is told which there are") {
  const std::string problem = UnknownColumn("colour");
  CHECK(problem.starts_with("there is no column 'colour' (only ts_us, client_ip, client_port, "));
  CHECK(problem.ends_with(", ip_version, tunnel_id)"));
  CHECK(static_cast<size_t>(std::count(problem.begin(), problem.end(), ',')) == AllColumns().size() - 1);
}

TEST_CASE("a list with something else in it is refused") {
  CHECK_THROWS_WITH_AS(ParseColumns("qname,colour"), UnknownColumn("colour").c_str(), std::runtime_error);
  CHECK_THROWS_WITH_AS(ParseColumns("qname,"), UnknownColumn("").c_str(), std::runtime_error);
  CHECK_THROWS_WITH_AS(ParseColumns("qname,qname"), "column 'qname' is named twice", std::runtime_error);
}

}  // namespace
}  // namespace output
