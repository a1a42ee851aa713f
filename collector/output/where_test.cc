#include "collector/output/where.h"

#include <doctest/doctest.h>

#include <stdexcept>

#include "collector/output/exchange_for_tests.h"

namespace output {
namespace {

bool Holds(const char* condition, const plugin::Exchange& exchange) { return Condition(condition).Holds(exchange); }

TEST_CASE("texts are equal without regard to letter case") {
  ExchangeForTests exchange;
  CHECK(Holds("rcode=NOERROR", exchange));
  CHECK(Holds("rcode=noerror", exchange));
  CHECK(Holds("qname==WWW.example.com", exchange));
  CHECK_FALSE(Holds("rcode=NXDOMAIN", exchange));
  CHECK_FALSE(Holds("qname=www.example.co", exchange));
  CHECK(Holds("rcode!=NXDOMAIN", exchange));
  CHECK_FALSE(Holds("rcode!=noerror", exchange));
}

TEST_CASE("numbers compare as numbers") {
  ExchangeForTests exchange;
  exchange.bytes_query = 90;
  CHECK(Holds("bytes_query<512", exchange));
  CHECK(Holds("bytes_query<=90", exchange));
  CHECK_FALSE(Holds("bytes_query<90", exchange));
  CHECK(Holds("bytes_query>=90", exchange));
  CHECK_FALSE(Holds("bytes_query>90", exchange));
  CHECK(Holds("bytes_query=90", exchange));
  CHECK(Holds("bytes_query!=91", exchange));
  CHECK_FALSE(Holds("bytes_query!=90", exchange));
  exchange.result_code = -2;
  CHECK(Holds("result_code<0", exchange));
  CHECK(Holds("result_code=-2", exchange));
}

TEST_CASE("times take units") {
  ExchangeForTests exchange;
  exchange.rtt_us = 100001;
  CHECK(Holds("rtt>100ms", exchange));
  CHECK(Holds("rtt>0.1s", exchange));
  CHECK(Holds("rtt=100001us", exchange));
  CHECK(Holds("rtt=100001", exchange));
  CHECK(Holds("rtt_us=100.001ms", exchange));
  CHECK_FALSE(Holds("rtt>1s", exchange));
  exchange.rtt_us = 100000;
  CHECK_FALSE(Holds("rtt>100ms", exchange));
  exchange.query_time_ns = 2000000000;
  CHECK(Holds("query_ns>=2s", exchange));
  CHECK(Holds("ts_us=2000ms", exchange));
  CHECK(Holds("query_ns=2000000000ns", exchange));
  CHECK(Holds("ts_us=2000000400ns", exchange));  // to the nearest that the column can show
  CHECK(Holds("ts_us=1999999500ns", exchange));
}

TEST_CASE("expressions search a text without regard to letter case") {
  ExchangeForTests exchange;
  CHECK(Holds("qname~\\.EXAMPLE\\.", exchange));
  CHECK(Holds("qname~^www", exchange));
  CHECK(Holds("qname~(com|net)$", exchange));
  CHECK_FALSE(Holds("qname~^example", exchange));
  CHECK(Holds("qname!~^example", exchange));
  CHECK_FALSE(Holds("qname!~www", exchange));
  CHECK(Holds("client_port~^4", exchange));
  CHECK(Holds("client_port!~^5", exchange));
  CHECK_FALSE(Holds("client_port!~^4", exchange));
}

TEST_CASE("an operator inside the value belongs to the value") {
  ExchangeForTests exchange;
  exchange.answers = "A=192.0.2.80";
  CHECK(Holds("answers=A=192.0.2.80", exchange));
  CHECK(Holds("answers~A=.*80", exchange));
}

TEST_CASE("a field that is absent differs from everything") {
  ExchangeForTests exchange;
  exchange.TimeOut();
  CHECK_FALSE(Holds("rcode=NOERROR", exchange));
  CHECK_FALSE(Holds("rcode=", exchange));
  CHECK(Holds("rcode!=NOERROR", exchange));
  CHECK_FALSE(Holds("rtt<1s", exchange));
  CHECK_FALSE(Holds("rtt>=0", exchange));
  CHECK(Holds("rtt!=0", exchange));
  CHECK_FALSE(Holds("rcode~.*", exchange));
  CHECK(Holds("rcode!~x", exchange));
}

TEST_CASE("a text that is empty in every such record is no absent one") {
  ExchangeForTests exchange;
  exchange.answers = {};
  CHECK(Holds("answers=", exchange));
  CHECK_FALSE(Holds("answers!=", exchange));
}

TEST_CASE("codes are compared by their names, or by their numbers where they have none") {
  ExchangeForTests exchange;
  CHECK(Holds("qtype=a", exchange));
  CHECK(Holds("qclass=in", exchange));
  CHECK(Holds("proto=UDP", exchange));
  exchange.Ask(Question("a", 65280, 2));
  CHECK(Holds("qtype=TYPE65280", exchange));
  CHECK(Holds("qclass=class2", exchange));
  exchange.rcode = 4095;
  CHECK(Holds("rcode=RCODE4095", exchange));
  exchange.Ask(Question("a", 1) + Question("a", 28));
  CHECK(Holds("qtype=A, AAAA", exchange));
  CHECK_FALSE(Holds("qtype=", exchange));
}

TEST_CASE("truth values are compared") {
  ExchangeForTests exchange;
  CHECK(Holds("cut=false", exchange));
  CHECK(Holds("cut!=true", exchange));
  exchange.cut = true;
  CHECK(Holds("cut=true", exchange));
}

TEST_CASE("all conditions have to hold") {
  ExchangeForTests exchange;
  CHECK(Where({}).Holds(exchange));
  CHECK(Where({"status=answered", "rtt<1s"}).Holds(exchange));
  CHECK_FALSE(Where({"status=answered", "rtt>1s"}).Holds(exchange));
}

TEST_CASE("a condition that cannot be understood says what is wrong") {
  const auto refused = [](const char* text, const char* message) {
    CHECK_THROWS_WITH_AS(Condition{text}, message, std::runtime_error);
  };
  refused("rcode", "condition 'rcode': no operator (one of = != < <= > >= ~ !~)");
  const std::string colour = "condition 'colour=red': " + UnknownColumn("colour");
  refused("colour=red", colour.c_str());
  const std::string none = "condition '=red': " + UnknownColumn("");
  refused("=red", none.c_str());
  refused("rcode!NOERROR", "condition 'rcode!NOERROR': '!' is no operator (one of = != < <= > >= ~ !~)");
  refused("qname<a", "condition 'qname<a': 'qname' is a text: only = != ~ !~ compare it");
  refused("dns_id=x", "condition 'dns_id=x': 'x' is no number");
  refused("dns_id=", "condition 'dns_id=': '' is no number");
  refused("dns_id=5ms", "condition 'dns_id=5ms': '5ms' is no whole number");
  refused("dns_id=1.5", "condition 'dns_id=1.5': '1.5' is no whole number");
  refused("rtt>5min", "condition 'rtt>5min': '5min' is no time (such as 100ms or 2s)");
  refused("rtt>99999999999999999999s",
          "condition 'rtt>99999999999999999999s': '99999999999999999999s' is no time "
          "(such as 100ms or 2s)");
  refused("ts_us>2026-11-20",
          "condition 'ts_us>2026-11-20': '2026-11-20' is no time (such as 1700000000s, counted since 1970)");
  refused("response_ns<1h",
          "condition 'response_ns<1h': '1h' is no time (such as 1700000000s, counted since 1970)");
  refused("rcode=NXDOMIAN",
          "condition 'rcode=NXDOMIAN': 'NXDOMIAN' is no rcode (such as NOERROR, NXDOMAIN or RCODE12)");
  refused("status!=answred",
          "condition 'status!=answred': 'answred' is no status (answered, timeout, malformed or open)");
  refused("proto=dot", "condition 'proto=dot': 'dot' is no proto (udp or tcp)");
  refused("qtype=AAA", "condition 'qtype=AAA': 'AAA' is no qtype (such as A, HTTPS or TYPE65280)");
  refused("qclass=INT", "condition 'qclass=INT': 'INT' is no qclass (such as IN, CH or CLASS2)");
  refused("cut>true", "condition 'cut>true': 'cut' is true or false: only = != ~ !~ compare it");
  refused("cut=maybe", "condition 'cut=maybe': 'maybe' is neither true nor false");
}

TEST_CASE("an expression that does not compile says what is wrong") {
  CHECK_THROWS_WITH_AS(Condition("qname~("), doctest::Contains("'(' is no regular expression: "),
                       std::runtime_error);
}

}  // namespace
}  // namespace output
