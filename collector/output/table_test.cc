#include <doctest/doctest.h>

#include "collector/output/exchange_for_tests.h"
#include "collector/output/record_writer.h"
#include "collector/output/written_for_tests.h"

namespace output {
namespace {

std::string Table(const plugin::Exchange& exchange, const TableSettings& settings = {},
                  const ColumnList& columns = {}) {
  return WrittenBy([&](Buffer* buffer) { MakeTableWriter(buffer, columns, settings)->Write(exchange); });
}

TEST_CASE("a row shows when, who, what and how long") {
  ExchangeForTests exchange;
  CHECK(Table(exchange) ==
        "2023-11-14 22:13:20.123456 192.0.2.1:40000       198.51.100.53:53   udp www.example.com          A      "
        "NOERROR     2.234 A=192.0.2.80\n");
}

TEST_CASE("the header stands above the columns") {
  ExchangeForTests exchange;
  const std::string text = WrittenBy([&](Buffer* buffer) {
    const auto writer = MakeTableWriter(buffer, {}, {});
    writer->Begin();
    writer->Write(exchange);
  });
  const std::string header = text.substr(0, text.find('\n'));
  const std::string row = text.substr(text.find('\n') + 1);
  CHECK(header.find("CLIENT") == row.find("192.0.2.1"));
  CHECK(header.find("TIME (UTC)") == 0);
}

TEST_CASE("columns stay as wide as their widest value so far") {
  ExchangeForTests wide, narrow;
  wide.Ask(Question("a-name-that-is-rather-long.example", 1));
  const std::string text = WrittenBy([&](Buffer* buffer) {
    const auto writer = MakeTableWriter(buffer, {}, {});
    writer->Write(wide);
    writer->Write(narrow);
  });
  const std::string second = text.substr(text.find('\n') + 1);
  CHECK(text.find(" A ") == second.find(" A "));
}

TEST_CASE("a query without an answer shows why") {
  ExchangeForTests exchange;
  exchange.TimeOut();
  CHECK(Table(exchange).find("timeout         -\n") != std::string::npos);
  exchange.status = plugin::Status::kOpen;
  CHECK(Table(exchange).find(" open ") != std::string::npos);
}

TEST_CASE("IPv6 endpoints stand in brackets") {
  ExchangeForTests exchange;
  exchange.client_address = Ipv6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1});
  CHECK(Table(exchange).find(" [2001:db8::1]:40000 ") != std::string::npos);
}

TEST_CASE("lines end at the width of the terminal") {
  ExchangeForTests exchange;
  const std::string answers(300, 'x');
  exchange.answers = answers;
  const std::string line = Table(exchange, {.width = 120});
  CHECK(line.size() == 121);
  CHECK(line.substr(118) == "..\n");
  CHECK(Table(exchange).find(answers) != std::string::npos);
}

TEST_CASE("a long name leaves room for the rest on a terminal") {
  ExchangeForTests exchange;
  exchange.Ask(Question(std::string(60, 'n') + "." + std::string(60, 'n'), 1));
  CHECK(Table(exchange, {.width = 200}).find(std::string(46, 'n') + ".. A  ") != std::string::npos);
  CHECK(Table(exchange).find(std::string(60, 'n') + " A  ") != std::string::npos);
}

TEST_CASE("colours only where they are wanted") {
  ExchangeForTests exchange;
  exchange.rcode = 2;
  CHECK(Table(exchange).find('\033') == std::string::npos);
  const std::string line = Table(exchange, {.width = 0, .colours = true});
  CHECK(line.rfind("\033[31m", 0) == 0);
  CHECK(line.substr(line.size() - 5) == "\033[0m\n");
}

TEST_CASE("no escape sequence in a packet reaches the terminal") {
  ExchangeForTests exchange;
  exchange.Ask(Question("\033[31mred", 1));
  exchange.answers = "\033]0;title\007";
  const std::string line = Table(exchange, {.width = 300});
  CHECK(line.find('\033') == std::string::npos);
  CHECK(line.find('\007') == std::string::npos);
  CHECK(line.find("\\027[31mred") != std::string::npos);
}

TEST_CASE("chosen columns are shown under their names") {
  ExchangeForTests exchange;
  const std::string text = WrittenBy([&](Buffer* buffer) {
    const auto writer = MakeTableWriter(buffer, ParseColumns("rtt_us,qname"), {});
    writer->Begin();
    writer->Write(exchange);
  });
  CHECK(text == "rtt_us qname\n  2234 www.example.com\n");
}

}  // namespace
}  // namespace output
