#include <doctest/doctest.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "collector/output/exchange_for_tests.h"
#include "collector/output/record_writer.h"
#include "collector/output/written_for_tests.h"

namespace output {
namespace {

std::string Json(const plugin::Exchange& exchange, const ColumnList& columns = EveryColumn()) {
  return WrittenBy([&](Buffer* buffer) {
    const auto writer = MakeJsonWriter(buffer, columns);
    writer->Begin();
    writer->Write(exchange);
  });
}

TEST_CASE("a record is one JSON object on a line") {
  ExchangeForTests exchange;
  CHECK(Json(exchange) ==
        "{\"ts_us\":1700000000123456,\"client_ip\":\"192.0.2.1\",\"client_port\":40000,"
        "\"server_ip\":\"198.51.100.53\",\"server_port\":53,\"proto\":\"udp\",\"qname\":\"www.example.com\","
        "\"qtype\":\"A\",\"qclass\":\"IN\",\"pattern\":\"A - IPv4 address lookup\",\"status\":\"answered\","
        "\"rcode\":\"NOERROR\",\"result_code\":0,\"rtt_us\":2234,\"bytes_query\":33,\"bytes_response\":49,"
        "\"answers\":\"A=192.0.2.80\",\"rrsigs\":0,\"dns_id\":4660,\"flags\":\"rd ad\","
        "\"response_flags\":\"qr rd ra\",\"query_ns\":1700000000123456789,\"response_ns\":1700000000125691358,"
        "\"retransmits\":0,\"question_mismatch\":false,\"cut\":false,\"ip_version\":4}\n");
}

TEST_CASE("chosen columns come in the order they were asked for") {
  ExchangeForTests exchange;
  CHECK(Json(exchange, ParseColumns("status,qname")) ==
        "{\"status\":\"answered\",\"qname\":\"www.example.com\"}\n");
}

TEST_CASE("absent fields leave no key behind, first, last or alone") {
  ExchangeForTests exchange;
  exchange.TimeOut();
  CHECK(Json(exchange, ParseColumns("rcode,dns_id,rtt_us")) == "{\"dns_id\":4660}\n");
  CHECK(Json(exchange, ParseColumns("rcode,rtt_us")) == "{}\n");
}

TEST_CASE("a parser reads back what was written, whatever the bytes") {
  std::string every;
  for (int byte = 0; byte < 256; ++byte) every += static_cast<char>(byte);
  ExchangeForTests exchange;
  exchange.answers = every;
  exchange.pattern = every;
  exchange.Ask(Question(std::string("\xf0\x28\x8c\x28\"\\\x7f", 7), 1));
  const std::string line = Json(exchange);
  CHECK(line.find_first_of(std::string("\0\t\r\x1b\x7f", 5)) == std::string::npos);
  const auto record = nlohmann::json::parse(line);
  CHECK(record["answers"] == Printable(every));
  CHECK(record["pattern"] == Printable(every));
  CHECK(record["qname"] == "\\240(\\140(\"\\\\\\127");
}

TEST_CASE("a long answer text needs no more room than there is") {
  ExchangeForTests exchange;
  const std::string all(70000, '\xff');
  exchange.answers = all;
  const auto record = nlohmann::json::parse(Json(exchange));
  CHECK(record["answers"].get<std::string>().size() == 4 * all.size());
}

}  // namespace
}  // namespace output
