#include <doctest/doctest.h>

#include <string>

#include "tests/support/pairing.h"

using namespace test;

namespace {

int MaxOpenRequests(const std::string& text) {
  return Pairing(With("max_open_requests", text)).parser.max_open_requests;
}

uint64_t Timeout(const std::string& text) {
  return Pairing(With("request_timeout_s", text)).parser.request_timeout_us;
}

bool Dnssec(const std::string& text) { return Pairing(With("enable_dnssec", text)).parser.enable_dnssec; }
bool Axfr(const std::string& text) { return Pairing(With("enable_axfr", text)).parser.enable_axfr; }

// What a parser logs at its start on a host at a level.
std::string StartLog(const Config& config, int level = 3) {
  RecordingHost host;
  host.level = level;
  const DNSParser parser(&host.table, config);
  return Log(host);
}

std::string Started(const std::string& values) {
  return Logged(3, "parser initialized max_open_requests:%d handle_dnssec:%s handle_axfr:%s dns_timeout:%ld",
                "parser initialized " + values);
}

}  // namespace

TEST_CASE("a parser without configuration has the defaults") {
  const Pairing bench;
  CHECK(bench.parser.max_open_requests == 65536);
  CHECK_FALSE(bench.parser.enable_dnssec);
  CHECK_FALSE(bench.parser.enable_axfr);
  CHECK(bench.parser.request_timeout_us == 5000000);
}

TEST_CASE("a fresh parser has seen nothing") {
  const Pairing bench;
  CHECK(bench.Open() == 0);
  CHECK(bench.parser.next_request_id == 1);
  CHECK(Counters(bench.parser).empty());
}

TEST_CASE("a parser starts with one line at level 3") {
  CHECK(StartLog({}) ==
        Started("max_open_requests:65536 handle_dnssec:false handle_axfr:false dns_timeout:5000000"));
}

TEST_CASE("the starting line shows the configuration, the time-out in microseconds") {
  CHECK(StartLog({{"max_open_requests", "-12"}, {"enable_dnssec", "on"}, {"request_timeout_s", "7"}}) ==
        Started("max_open_requests:-12 handle_dnssec:true handle_axfr:false dns_timeout:7000000"));
  CHECK(StartLog({{"enable_axfr", "1"}, {"request_timeout_s", "4294967295"}}) ==
        Started("max_open_requests:65536 handle_dnssec:false handle_axfr:true dns_timeout:4294967295000000"));
}

TEST_CASE("the starting line is silent below level 3") {
  CHECK(StartLog({}, 2).empty());
  CHECK(StartLog({}, 0).empty());
  CHECK(StartLog({}, 4) == StartLog({}, 3));
}

TEST_CASE("at its start a parser asks the host for nothing but the level") {
  RecordingHost host;
  host.level = 9;
  const DNSParser parser(&host.table, {});
  CHECK(Calls(host) == "log");
  CHECK(host.debug_files.empty());
}

TEST_CASE("max_open_requests is read leniently") {
  CHECK(MaxOpenRequests("100") == 100);
  CHECK(MaxOpenRequests("12abc") == 12);
  CHECK(MaxOpenRequests("-3") == -3);
  CHECK(MaxOpenRequests("+4") == 4);
  CHECK(MaxOpenRequests(" 100") == 100);
  CHECK(MaxOpenRequests("\t\n 5") == 5);
  CHECK(MaxOpenRequests("007") == 7);
  CHECK(MaxOpenRequests("1.9") == 1);
}

TEST_CASE("max_open_requests without digits is 0, not the default") {
  for (const char* text : {"", "x", "none", "- 3", "abc12", " "}) CHECK(MaxOpenRequests(text) == 0);
}

TEST_CASE("max_open_requests is decimal") {
  CHECK(MaxOpenRequests("0x10") == 0);
  CHECK(MaxOpenRequests("010") == 10);
}

TEST_CASE("max_open_requests keeps its low 32 bits and knows no bounds") {
  CHECK(MaxOpenRequests("0") == 0);
  CHECK(MaxOpenRequests("2147483647") == 2147483647);
  CHECK(MaxOpenRequests("2147483648") == -2147483647 - 1);
  CHECK(MaxOpenRequests("4294967295") == -1);
  CHECK(MaxOpenRequests("4294967297") == 1);
  CHECK(MaxOpenRequests("-4294967298") == -2);
  CHECK(MaxOpenRequests("99999999999999999999") == -1);  // the largest long
  CHECK(MaxOpenRequests("-99999999999999999999") == 0);  // the smallest
}

TEST_CASE("request_timeout_s is read in seconds and kept in microseconds") {
  CHECK(Timeout("1") == 1000000);
  CHECK(Timeout("30") == 30000000);
  CHECK(Timeout("0") == 0);
  CHECK(Timeout("4294967295") == 4294967295000000);
}

TEST_CASE("an empty request_timeout_s is 0, not the default") { CHECK(Timeout("") == 0); }

TEST_CASE("a request_timeout_s that is no whole number is the default") {
  for (const char* text : {"-1", "5s", "4294967296", "1.5", "ten", "7 "}) CHECK(Timeout(text) == 5000000);
}

TEST_CASE("the flags are true for four words in any case") {
  for (const char* text : {"true", "TRUE", "yes", "Yes", "1", "on", "On", "oN"}) {
    CHECK(Dnssec(text));
    CHECK(Axfr(text));
  }
}

TEST_CASE("the flags are false for anything else") {
  for (const char* text : {"false", "no", "0", "2", "enabled", "", "true ", "11", "off"}) {
    CHECK_FALSE(Dnssec(text));
    CHECK_FALSE(Axfr(text));
  }
}

TEST_CASE("each flag has a key of its own") {
  const Pairing dnssec(With("enable_dnssec", "1"));
  CHECK(dnssec.parser.enable_dnssec);
  CHECK_FALSE(dnssec.parser.enable_axfr);
  const Pairing axfr(With("enable_axfr", "1"));
  CHECK_FALSE(axfr.parser.enable_dnssec);
  CHECK(axfr.parser.enable_axfr);
}

TEST_CASE("keys match exactly and unknown ones are ignored") {
  const Pairing bench({{"Max_Open_Requests", "1"},
                       {"max_open_requests ", "2"},
                       {"ENABLE_DNSSEC", "1"},
                       {"enable_axfr2", "1"},
                       {"request_timeout", "9"},
                       {"request_timeout_S", "9"},
                       {"colour", "blue"}});
  CHECK(bench.parser.max_open_requests == 65536);
  CHECK_FALSE(bench.parser.enable_dnssec);
  CHECK_FALSE(bench.parser.enable_axfr);
  CHECK(bench.parser.request_timeout_us == 5000000);
}

TEST_CASE("the parser keeps a copy of its configuration, unknown keys included") {
  Config config{{"max_open_requests", "4"}, {"colour", "blue"}};
  const Pairing bench(config);
  config.clear();
  CHECK(bench.parser.args == Config{{"max_open_requests", "4"}, {"colour", "blue"}});
}
