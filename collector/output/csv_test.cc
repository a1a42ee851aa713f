#include <doctest/doctest.h>

#include "collector/output/exchange_for_tests.h"
#include "collector/output/record_writer.h"
#include "collector/output/written_for_tests.h"

namespace output {
namespace {

std::string Csv(const plugin::Exchange& exchange, const ColumnList& columns) {
  return WrittenBy([&](Buffer* buffer) {
    const auto writer = MakeCsvWriter(buffer, columns);
    writer->Begin();
    writer->Write(exchange);
  });
}

TEST_CASE("a header line names the columns") {
  ExchangeForTests exchange;
  CHECK(Csv(exchange, ParseColumns("qname,rtt_us,cut")) == "qname,rtt_us,cut\nwww.example.com,2234,false\n");
}

TEST_CASE("absent and empty fields are empty") {
  ExchangeForTests exchange;
  exchange.TimeOut();
  CHECK(Csv(exchange, ParseColumns("rcode,status,rtt_us,answers")) == "rcode,status,rtt_us,answers\n,timeout,,\n");
}

TEST_CASE("fields with commas or quotes stand in quotes") {
  ExchangeForTests exchange;
  exchange.answers = "TXT=\"a,b\"";
  exchange.Ask(Question("a", 1) + Question("b", 1));
  CHECK(Csv(exchange, ParseColumns("qname,answers,proto")) ==
        "qname,answers,proto\n\"a, b\",\"TXT=\"\"a,b\"\"\",udp\n");
}

TEST_CASE("line ends from a packet cannot break a line") {
  ExchangeForTests exchange;
  exchange.answers = "a\r\nb";
  CHECK(Csv(exchange, ParseColumns("answers")) == "answers\na\\013\\010b\n");
}

TEST_CASE("a field of nothing but quotes fits") {
  ExchangeForTests exchange;
  const std::string quotes(70000, '"');
  exchange.answers = quotes;
  CHECK(Csv(exchange, ParseColumns("answers")) == "answers\n\"" + quotes + quotes + "\"\n");
}

}  // namespace
}  // namespace output
