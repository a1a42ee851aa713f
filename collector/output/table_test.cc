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
  const std::string line = Table(exchange, {.width = 130});
  CHECK(line.size() == 131);
  CHECK(line.substr(128) == "..\n");
  CHECK(Table(exchange).find(answers) != std::string::npos);
}

TEST_CASE("a long name leaves room for the rest on a terminal") {
  ExchangeForTests exchange;
  exchange.Ask(Question(std::string(60, 'n') + "." + std::string(60, 'n'), 1));
  CHECK(Table(exchange, {.width = 200}).find(std::string(46, 'n') + ".. A  ") != std::string::npos);
  CHECK(Table(exchange).find(std::string(60, 'n') + " A  ") != std::string::npos);
}

TEST_CASE("a line of eighty columns shows when, who, what, what came of it and how long it took") {
  ExchangeForTests exchange;
  const std::string text = WrittenBy([&](Buffer* buffer) {
    const auto writer = MakeTableWriter(buffer, {}, {.width = 80});
    writer->Begin();
    writer->Write(exchange);
    exchange.Ask(Question("a-name-that-is-rather-long.example", 65));
    exchange.server_port = 5353;
    writer->Write(exchange);
  });
  CHECK(text ==
        "TIME UTC CLIENT      SERVER      NAME           TYPE   RESULT         MS\n"
        "22:13:20 192.0.2.1   198.51.100.53 www.example.com A      NOERROR     2.234\n"
        "22:13:20 192.0.2.1   198.51.100.53:5353 a-name-that-i.. HTTPS  NOERROR     2.234\n");
}

TEST_CASE("the date is the first to go, the names and addresses of few columns are shorter") {
  ExchangeForTests exchange;
  CHECK(Table(exchange, {.width = 124}) ==
        "2023-11-14 22:13:20.123456 192.0.2.1:40000       198.51.100.53:53   udp www.example.com          A      "
        "NOERROR     2.234 ..\n");
  CHECK(Table(exchange, {.width = 123}) ==
        "22:13:20.123456 192.0.2.1:40000       198.51.100.53:53   udp www.example.com          A      "
        "NOERROR     2.234\n");
}

// All that can be long is.
struct LongExchange : ExchangeForTests {
  LongExchange() {
    Ask(Question(std::string(60, 'n') + "." + std::string(60, 'n'), 65281));
    client_address = Ipv6({0x2001, 0xdb8, 0x1111, 0x2222, 0x3333, 0x4444, 0x5555, 0x6666});
    server_address = client_address;
    rcode = 23;
    rtt_us = 60000123;
  }
};

TEST_CASE("type, result and milliseconds are whole from eighty columns on, whatever stands before them") {
  const LongExchange exchange;
  for (size_t width = 80; width < 240; ++width) {
    CAPTURE(width);
    const std::string line = Table(exchange, {.width = width});
    CHECK(line.size() <= width + 1);
    CHECK(line.find("22:13:20") != std::string::npos);
    CHECK(line.find(" nn") != std::string::npos);
    CHECK(line.find(" TYPE65281 BADCOOKIE 60000.123") != std::string::npos);
  }
}

TEST_CASE("on the narrowest terminals result and milliseconds are the last to go") {
  const LongExchange exchange;
  CHECK(Table(exchange, {.width = 79}).find(" TYPE65281 BADCOOKIE 60000.123\n") != std::string::npos);
  CHECK(Table(exchange, {.width = 35}) == "nnnnnnnnnnnnn.. BADCOOKIE 60000.123\n");
  CHECK(Table(exchange, {.width = 23}) == "BADCOOKIE 60000.123\n");
  for (size_t width = 1; width < 80; ++width) {
    CAPTURE(width);
    const std::string line = Table(exchange, {.width = width});
    CHECK(line.size() <= width + 1);
    if (width >= 19) CHECK(line.find("BADCOOKIE 60000.123\n") != std::string::npos);
  }
}

TEST_CASE("an address that finds no room keeps its end") {
  const LongExchange exchange;
  CHECK(Table(exchange, {.width = 80}).find(" 2001:d..5:6666 ") != std::string::npos);
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
