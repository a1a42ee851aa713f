#include <doctest/doctest.h>

#include <limits>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "collector/output/exchange_for_tests.h"
#include "collector/output/record_writer.h"
#include "collector/output/written_for_tests.h"
#include "tests/support/dns_builder.h"

namespace output {
namespace {

using test::A;
using test::kA;

std::vector<std::string> Cut(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
  return parts;
}

std::vector<std::string> Log(const plugin::Exchange& exchange) {
  return Cut(WrittenBy([&](Buffer* buffer) {
               const auto writer = MakeZeekWriter(buffer);
               writer->Begin();
               writer->Write(exchange);
               writer->Finish();
             }),
             '\n');
}

// The record's values by the names that the header gives them.
std::map<std::string, std::string> Record(const plugin::Exchange& exchange) {
  const std::vector<std::string> lines = Log(exchange);
  REQUIRE(lines.size() == 10);
  const std::vector<std::string> names = Cut(lines[6], '\t');
  const std::vector<std::string> values = Cut(lines[8], '\t');
  REQUIRE(values.size() + 1 == names.size());
  std::map<std::string, std::string> record;
  for (size_t i = 0; i < values.size(); ++i) record[names[i + 1]] = values[i];
  return record;
}

TEST_CASE("a log has its header, a line a record, and its end") {
  const std::vector<std::string> lines = Log(ExchangeForTests());
  REQUIRE(lines.size() == 10);
  CHECK(lines[0] == "#separator \\x09");
  CHECK(lines[1] == "#set_separator\t,");
  CHECK(lines[2] == "#empty_field\t(empty)");
  CHECK(lines[3] == "#unset_field\t-");
  CHECK(lines[4] == "#path\tdns");
  CHECK(std::regex_match(lines[5], std::regex("#open\t\\d{4}-\\d\\d-\\d\\d-\\d\\d-\\d\\d-\\d\\d")));
  CHECK(lines[6] ==
        "#fields\tts\tuid\tid.orig_h\tid.orig_p\tid.resp_h\tid.resp_p\tproto\ttrans_id\trtt\tquery\tqclass\t"
        "qclass_name\tqtype\tqtype_name\trcode\trcode_name\tAA\tTC\tRD\tRA\tZ\tanswers\tTTLs\trejected");
  CHECK(
      lines[7] ==
      "#types\ttime\tstring\taddr\tport\taddr\tport\tenum\tcount\tinterval\tstring\tcount\tstring\tcount\tstring\t"
      "count\tstring\tbool\tbool\tbool\tbool\tcount\tvector[string]\tvector[interval]\tbool");
  CHECK(std::regex_match(lines[9], std::regex("#close\t\\d{4}-\\d\\d-\\d\\d-\\d\\d-\\d\\d-\\d\\d")));
}

TEST_CASE("an answered query has everything") {
  ExchangeForTests exchange;
  exchange.Respond(test::Response(4660)
                       .Question("www.example.com", kA)
                       .Answer("www.example.com", A("192.0.2.80"), 300)
                       .Answer("www.example.com", test::Txt("a,b"), 0)
                       .Wire());
  auto record = Record(exchange);
  record.erase("uid");
  CHECK(record == std::map<std::string, std::string>{{"ts", "1700000000.123456"},
                                                     {"id.orig_h", "192.0.2.1"},
                                                     {"id.orig_p", "40000"},
                                                     {"id.resp_h", "198.51.100.53"},
                                                     {"id.resp_p", "53"},
                                                     {"proto", "udp"},
                                                     {"trans_id", "4660"},
                                                     {"rtt", "0.002234"},
                                                     {"query", "www.example.com"},
                                                     {"qclass", "1"},
                                                     {"qclass_name", "C_INTERNET"},
                                                     {"qtype", "1"},
                                                     {"qtype_name", "A"},
                                                     {"rcode", "0"},
                                                     {"rcode_name", "NOERROR"},
                                                     {"AA", "F"},
                                                     {"TC", "F"},
                                                     {"RD", "T"},
                                                     {"RA", "T"},
                                                     {"Z", "0"},
                                                     {"answers", "192.0.2.80,a\\x2cb"},
                                                     {"TTLs", "300.000000,0.000000"},
                                                     {"rejected", "F"}});
}

TEST_CASE("what nobody answered leaves the response's fields unset") {
  ExchangeForTests exchange;
  exchange.TimeOut();
  auto record = Record(exchange);
  for (const char* unset : {"rtt", "rcode", "rcode_name", "AA", "TC", "RA", "answers", "TTLs"}) {
    CAPTURE(unset);
    CHECK(record[unset] == "-");
  }
  CHECK(record["RD"] == "T");
  CHECK(record["Z"] == "2");
  CHECK(record["rejected"] == "F");
}

TEST_CASE("a response without any record is a rejection") {
  ExchangeForTests exchange;
  exchange.Respond(test::Response(4660).Question("www.example.com", kA).Rcode(5).Wire());
  exchange.rcode = 5;
  CHECK(Record(exchange)["rejected"] == "T");
  CHECK(Record(exchange)["rcode_name"] == "REFUSED");
}

TEST_CASE("numbers without a name show as the format has them") {
  ExchangeForTests exchange;
  exchange.rcode = 4000;
  exchange.Ask(Question("a", 65000, 9));
  auto record = Record(exchange);
  CHECK(record["rcode_name"] == "rcode-4000");
  CHECK(record["qtype_name"] == "query-65000");
  CHECK(record["qclass_name"] == "qclass-9");
  exchange.Ask(Question("a", 255, 255));
  CHECK(Record(exchange)["qtype_name"] == "*");
  CHECK(Record(exchange)["qclass_name"] == "C_ANY");
}

TEST_CASE("no byte of a name breaks the line") {
  ExchangeForTests exchange;
  exchange.Ask(Question("tab\tline\n\xff\\", 1));
  CHECK(Record(exchange)["query"] == "tab\\x09line\\x0a\\xff\\\\");
  exchange.Ask(std::string("\3a.b\0\0\1\0\1", 9));
  CHECK(Record(exchange)["query"] == "a\\x2eb");
  exchange.Ask(Question("-", 1));
  CHECK(Record(exchange)["query"] == "\\x2d");
  exchange.Ask(Question("", 1));
  CHECK(Record(exchange)["query"] == ".");
}

TEST_CASE("an identifier is the same in every run, and another one for every exchange") {
  ExchangeForTests exchange;
  const std::string first = Record(exchange)["uid"];
  CHECK(std::regex_match(first, std::regex("C[0-9A-Za-z]{17}")));
  // As it was when logs were first written: whoever joins old and new ones relies on it.
  CHECK(first == "CIP8omtvFzfn8qvc7a");
  std::set<std::string> seen = {first};
  const auto is_new = [&] { return seen.insert(Record(exchange)["uid"]).second; };
  ++exchange.query_time_ns;
  CHECK(is_new());
  ++exchange.client_port;
  CHECK(is_new());
  ++exchange.dns_id;
  CHECK(is_new());
  exchange.transport = 6;
  CHECK(is_new());
  exchange.client_address.octets[3] = 9;
  CHECK(is_new());
  exchange.server_address.octets[3] = 9;
  CHECK(is_new());
}

TEST_CASE("instants before 1970 are rounded down, a clock that went back shows") {
  ExchangeForTests exchange;
  exchange.query_time_ns = -1;
  exchange.response_time_ns = -1500000001;
  CHECK(Record(exchange)["ts"] == "-0.000001");
  CHECK(Record(exchange)["rtt"] == "-1.500000");
}

TEST_CASE("clocks at the ends of time are as far apart as can be told") {
  ExchangeForTests exchange;
  exchange.query_time_ns = std::numeric_limits<int64_t>::min();
  exchange.response_time_ns = std::numeric_limits<int64_t>::max();
  CHECK(Record(exchange)["ts"] == "-9223372036.854775");
  CHECK(Record(exchange)["rtt"] == "9223372036.854775");
}

}  // namespace
}  // namespace output
