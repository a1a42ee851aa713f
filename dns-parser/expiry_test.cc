#include <doctest/doctest.h>
#include <sys/time.h>

#include <cstdint>
#include <limits>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/pairing.h"

using namespace test;

// Queries that nobody answers.

namespace {

using Strings = std::map<std::string, std::string>;

constexpr int64_t kTimeout = 5000000;
constexpr int64_t kNow = 1700000000000000;

std::string TooOld(const std::string& query) {
  return Dropped("Dropping %s %s that is too old", "Dropping " + query + " that is too old");
}

// The identifiers of the open queries, in the table's order.
std::vector<unsigned> OpenIds(const DNSParser& parser) {
  std::vector<unsigned> ids;
  for (const auto& [key, query] : parser.open_queries) ids.push_back(key.qid);
  return ids;
}

// A parser whose timed heartbeat only notes the time.
class NotingParser : public DNSParser {
 public:
  explicit NotingParser(const CollectorExports* table) : DNSParser(table, {}) {}
  using DNSParser::Heartbeat;
  void Heartbeat(Timestamp<1000000> now) override { noted.push_back(now.ticks); }

  std::vector<int64_t> noted;
};

int64_t WallClock() {
  timeval now;
  gettimeofday(&now, nullptr);
  return int64_t{now.tv_sec} * 1000000 + now.tv_usec;
}

}  // namespace

TEST_CASE("a query as old as the time-out survives, one that is a microsecond older does not") {
  Pairing bench;
  bench.Request(AQuery(1), kNow - kTimeout);
  bench.Request(AQuery(2), kNow - kTimeout - 1);
  bench.parser.Heartbeat({kNow});
  CHECK(OpenIds(bench.parser) == std::vector<unsigned>{1});
  CHECK(bench.parser.timed_out_requests == 1);
}

TEST_CASE("an expired query ends with one extended record, field by field") {
  Pairing bench;
  bench.parser.next_request_id = 41;
  bench.flow.host_field_5 = 55;
  bench.RequestCut(AQuery(7), 23, 60, kNow);
  const ParserFlow* kept = &bench.parser.open_queries.begin()->first.flow;
  const char* pattern = bench.OnlyQuery().types.c_str();
  bench.Forget();
  bench.parser.Heartbeat({kNow + 3 * kTimeout});
  REQUIRE(bench.host.records.size() == 1);
  CHECK(bench.host.Last() == RecordingHost::Record{.extended = true,
                                                   .spec_id = 1,
                                                   .request_id = 41,
                                                   .flow = kept,
                                                   .local_port = 40000,
                                                   .host_field_5 = 55,
                                                   .pattern = "A - IPv4 address lookup",
                                                   .pattern_address = pattern,
                                                   .response_time = kTimeout,  // not the age
                                                   .start_time = kNow,
                                                   .bytes_request = 60,
                                                   .result_code = -1,
                                                   .num_errors = 1,
                                                   .strings = {{"Names", "aa.bb"}}});
  CHECK(bench.Open() == 0);
}

TEST_CASE("the record's flow is the copy that is kept, whatever became of the host's") {
  Pairing bench;
  bench.Request(AQuery(7), 0);
  bench.flow = ParserFlow();
  bench.parser.Heartbeat({kTimeout + 1});
  CHECK(bench.host.Last().local_port == 40000);
  CHECK(bench.host.Last().flow != &bench.flow);
}

TEST_CASE("the response time of an expired query is the configured time-out") {
  Pairing bench(With("request_timeout_s", "2"));
  bench.Request(AQuery(7), 0);
  bench.parser.Heartbeat({2000001});
  CHECK(bench.host.Last().response_time == 2000000);
}

TEST_CASE("an expired query is logged at level 4 with its types and names") {
  Pairing bench;
  bench.Request(Query(7).Question("aa.bb", kA).Question("cc", kHttps).Wire(), 0);
  bench.Forget();
  bench.parser.Heartbeat({kTimeout + 1});
  CHECK(Log(bench.host) == TooOld("A - IPv4 address lookup, UNKNOWN/65 aa.bb, cc"));
  CHECK(Calls(bench.host) == "log details? end");
}

TEST_CASE("an expired query without names leaves their place in the line empty") {
  Pairing bench;
  bench.Request(Query(7).Question(".", kNs).Wire(), 0);
  bench.parser.Heartbeat({kTimeout + 1});
  CHECK(Log(bench.host) == TooOld("NS - Authoritative name server "));
}

TEST_CASE("an expired query is not logged below level 4, but recorded and counted") {
  Pairing bench({}, 3);
  bench.Request(AQuery(7), 0);
  bench.Forget();
  bench.parser.Heartbeat({kTimeout + 1});
  CHECK(Calls(bench.host) == "details? end");
  CHECK(bench.parser.timed_out_requests == 1);
}

TEST_CASE("the host is asked about details once per expired query, even when there are no names") {
  Pairing bench;
  bench.Request(Query(1).Question(".", kNs).Wire(), 0);
  bench.Request(AQuery(2), 0);
  bench.Request(AQuery(3), kNow);
  bench.Forget();
  bench.parser.Heartbeat({kTimeout + 1});
  CHECK(Calls(bench.host) == "log details? end log details? end");
}

TEST_CASE("an expired query without names has no strings") {
  Pairing bench;
  bench.Request(Query(7).Question(".", kNs).Wire(), 0);
  bench.parser.Heartbeat({kTimeout + 1});
  CHECK(bench.host.Last().extended);
  CHECK(bench.host.Last().strings.empty());
}

TEST_CASE("an expired query has no strings when no details are wanted") {
  Pairing bench;
  bench.host.want_details = false;
  bench.Request(AQuery(7), 0);
  bench.parser.Heartbeat({kTimeout + 1});
  CHECK(bench.host.Last().extended);
  CHECK(bench.host.Last().strings.empty());
}

TEST_CASE("an expired query that asked for DNSSEC is not told of signatures") {
  Pairing bench(With("enable_dnssec", "1"));
  bench.Request(Query(7).Question("aa.bb", kA).Additional(Opt({.dnssec_ok = true})).Wire(), 0);
  bench.parser.Heartbeat({kTimeout + 1});
  CHECK(bench.host.Last().strings == Strings{{"Names", "aa.bb"}});
}

TEST_CASE("every query that is too old expires in one heartbeat, in the table's order") {
  Pairing bench;
  for (const unsigned id : {9U, 1U, 5U, 3U, 7U}) bench.Request(AQuery(id), id == 5 ? kNow : 0);
  bench.Forget();
  bench.parser.Heartbeat({kTimeout + 1});
  REQUIRE(bench.host.records.size() == 4);
  // Numbered in the order of the queries above: 9, 1, 5, 3, 7.
  CHECK(bench.host.records.at(0).request_id == 2);
  CHECK(bench.host.records.at(1).request_id == 4);
  CHECK(bench.host.records.at(2).request_id == 5);
  CHECK(bench.host.records.at(3).request_id == 1);
  CHECK(OpenIds(bench.parser) == std::vector<unsigned>{5});
  CHECK(bench.parser.timed_out_requests == 4);
}

TEST_CASE("a heartbeat looks at the whole table, however large") {
  Pairing bench({}, 0);
  for (unsigned id = 0; id < 5000; ++id) bench.Request(AQuery(id), id % 2 == 0 ? 0 : kNow);
  bench.parser.Heartbeat({kNow});
  CHECK(bench.Open() == 2500);
  CHECK(bench.parser.timed_out_requests == 2500);
}

TEST_CASE("an expired query is expired once") {
  Pairing bench;
  bench.Request(AQuery(7), 0);
  bench.parser.Heartbeat({kTimeout + 1});
  bench.parser.Heartbeat({kTimeout + 2});
  CHECK(bench.host.records.size() == 2);  // begun and ended
  CHECK(bench.parser.timed_out_requests == 1);
}

TEST_CASE("a heartbeat on an empty table does nothing") {
  Pairing bench;
  bench.parser.Heartbeat({kNow});
  CHECK(Calls(bench.host).empty());
  CHECK(Counters(bench.parser).empty());
}

TEST_CASE("a heartbeat lowers no mark") {
  Pairing bench;
  bench.Request(AQuery(1), 0);
  bench.Request(AQuery(2), 0);
  bench.parser.Heartbeat({kNow});
  CHECK(Counters(bench.parser) == "rt:2 mor:2");
}

TEST_CASE("a clock that goes back expires nothing") {
  Pairing bench;
  bench.Request(AQuery(7), kNow);
  bench.parser.Heartbeat({0});
  bench.parser.Heartbeat({-kNow});
  CHECK(bench.Open() == 1);
  bench.parser.Heartbeat({kNow + kTimeout});
  CHECK(bench.Open() == 1);
}

TEST_CASE("a clock that jumps forward expires everything at once") {
  Pairing bench;
  bench.Request(AQuery(1), kNow);
  bench.Request(AQuery(2), kNow + 4000000);
  bench.parser.Heartbeat({std::numeric_limits<int64_t>::max()});
  CHECK(bench.Open() == 0);
}

TEST_CASE("times before the epoch are compared with their sign") {
  Pairing bench;
  bench.Request(AQuery(1), -kTimeout);
  bench.Request(AQuery(2), -kTimeout - 1);
  bench.parser.Heartbeat({0});
  CHECK(OpenIds(bench.parser) == std::vector<unsigned>{1});
}

TEST_CASE("a time-out of 0 expires what is older than the heartbeat itself") {
  Pairing bench(With("request_timeout_s", "0"));
  bench.Request(AQuery(1), kNow);
  bench.Request(AQuery(2), kNow - 1);
  bench.parser.Heartbeat({kNow});
  CHECK(OpenIds(bench.parser) == std::vector<unsigned>{1});
  CHECK(bench.host.Last().response_time == 0);
}

TEST_CASE("the longest time-out is 4294967295 seconds") {
  constexpr int64_t kLongest = 4294967295 * int64_t{1000000};
  Pairing bench(With("request_timeout_s", "4294967295"));
  bench.Request(AQuery(7), 0);
  bench.parser.Heartbeat({kLongest});
  CHECK(bench.Open() == 1);
  bench.parser.Heartbeat({kLongest + 1});
  CHECK(bench.Open() == 0);
  CHECK(bench.host.Last().response_time == kLongest);
}

TEST_CASE("a cutoff beyond the range wraps around") {
  Pairing bench;
  bench.Request(AQuery(7), 0);
  bench.parser.Heartbeat({std::numeric_limits<int64_t>::min()});  // the cutoff is far in the future
  CHECK(bench.Open() == 0);
}

TEST_CASE("while the host looks at the record the query is open and uncounted") {
  Pairing bench;
  bench.Request(AQuery(7), 0);
  size_t open = 0;
  int64_t counted = -1;
  bench.host.on_record = [&] {
    open = bench.Open();
    counted = bench.parser.timed_out_requests;
  };
  bench.parser.Heartbeat({kNow});
  CHECK(open == 1);
  CHECK(counted == 0);
}

TEST_CASE("the record is destroyed after its query was erased and counted") {
  Pairing bench;
  bench.Request(AQuery(7), 0);
  size_t open = 99;
  int64_t counted = -1;
  WatchingSink sink([&] {
    open = bench.Open();
    counted = bench.parser.timed_out_requests;
  });
  bench.parser.request_sink = &sink;
  bench.parser.Heartbeat({kNow});
  CHECK(open == 0);
  CHECK(counted == 1);
}

TEST_CASE("a sink that throws leaves its query open and uncounted, and those behind it") {
  Pairing bench;
  for (const unsigned id : {1U, 2U, 3U}) bench.Request(AQuery(id), 0);
  bench.host.on_record = [&] {
    if (bench.host.Last().request_id == 2) throw std::runtime_error("the host refuses");
  };
  CHECK_THROWS_AS(bench.parser.Heartbeat({kNow}), const std::runtime_error&);
  CHECK(OpenIds(bench.parser) == std::vector<unsigned>{2, 3});
  CHECK(bench.parser.timed_out_requests == 1);
  bench.host.on_record = nullptr;
  bench.parser.Heartbeat({kNow});
  CHECK(bench.Open() == 0);
  CHECK(bench.parser.timed_out_requests == 3);
  CHECK(bench.host.records.size() == 3 + 4);
}

TEST_CASE("the heartbeat without a time takes the wall clock's, through the virtual table") {
  RecordingHost host;
  NotingParser parser(&host.table);
  const int64_t before = WallClock();
  static_cast<IProtocolParser&>(parser).Heartbeat();
  const int64_t after = WallClock();
  REQUIRE(parser.noted.size() == 1);
  CHECK(parser.noted[0] >= before);
  CHECK(parser.noted[0] <= after);
}

TEST_CASE("the wall clock's microseconds are taken too") {
  RecordingHost host;
  NotingParser parser(&host.table);
  bool fractions = false;
  for (int i = 0; i < 100 && !fractions; ++i) {
    static_cast<DNSParser&>(parser).Heartbeat();
    fractions = parser.noted.back() % 1000 != 0;
  }
  CHECK(fractions);
}

TEST_CASE("the heartbeat without a time expires by the wall clock") {
  Pairing bench;
  bench.Request(AQuery(1), WallClock() - 2 * kTimeout);
  bench.Request(AQuery(2), WallClock());
  bench.parser.Heartbeat();
  CHECK(OpenIds(bench.parser) == std::vector<unsigned>{2});
}

TEST_CASE("the timed heartbeat is reached through the host's interface") {
  Pairing bench;
  bench.Request(AQuery(7), 0);
  static_cast<ITimedProtocolParser&>(bench.parser).Heartbeat(Timestamp<1000000>{kNow});
  CHECK(bench.Open() == 0);
}
