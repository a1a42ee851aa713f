#include <doctest/doctest.h>

#include <cstdint>
#include <limits>
#include <map>
#include <stdexcept>
#include <string>

#include "tests/support/pairing.h"

using namespace test;

// The record that a response ends its query with, and what becomes of the query.

namespace {

using Strings = std::map<std::string, std::string>;

// An answer that cannot be decoded: its owner points into the header.
std::string MalformedResponse(unsigned id) {
  return Response(id).Question("aa.bb", kA).Answer(Pointer(3), A("192.0.2.1")).Wire();
}

std::string Rrsigs(unsigned id, int count) {
  Message message = Response(id).Question("aa.bb", kA);
  for (int i = 0; i < count; ++i) message.Answer("aa.bb", Rrsig(kA, "bb"));
  return message.Wire();
}

const Config kDnssec = With("enable_dnssec", "1");
const std::string kDnssecQuery = Query(7).Question("aa.bb", kA).Additional(Opt({.dnssec_ok = true})).Wire();

}  // namespace

TEST_CASE("an exchange ends with one extended record, field by field") {
  Pairing bench;
  bench.parser.next_request_id = 41;
  bench.RequestCut(AQuery(7), 23, 60, 1700000000000001);
  const char* kept = bench.OnlyQuery().types.c_str();
  bench.flow.host_field_5 = 5;
  bench.Forget();
  const std::string message =
      Response(7).Question("aa.bb", kA).Answer("aa.bb", A("192.0.2.1")).Answer("aa.bb", A("192.0.2.2")).Wire();
  CHECK(bench.ResponseCut(message, message.size(), 512, 1700000000025003) == 1);
  REQUIRE(bench.host.records.size() == 1);
  CHECK(bench.host.Last() ==
        RecordingHost::Record{
            .extended = true,
            .spec_id = 1,
            .request_id = 41,
            .flow = &bench.flow,
            .local_port = 40000,
            .host_field_5 = 5,  // the response's flow, not the one that is kept
            .pattern = "A - IPv4 address lookup",
            .pattern_address = kept,
            .response_time = 25002,
            .start_time = 1700000000000001,
            .bytes_request = 60,
            .bytes_response = 512,
            .strings = {{"Names", "aa.bb"}, {"Response", "[aa.bb => 192.0.2.1], [aa.bb => 192.0.2.2]"}}});
  CHECK(bench.host.mappings.size() == 2);
  CHECK(bench.Open() == 0);
}

TEST_CASE("a malformed answer ends the exchange with one plain record, field by field") {
  Pairing bench;
  bench.parser.next_request_id = 41;
  bench.RequestCut(AQuery(7), 23, 60, 1000);
  const char* kept = bench.OnlyQuery().types.c_str();
  bench.flow.host_field_5 = 5;
  bench.Forget();
  const std::string message = MalformedResponse(7);
  CHECK(bench.ResponseCut(message, message.size(), 512, 3500) == 0);
  REQUIRE(bench.host.records.size() == 1);
  CHECK(bench.host.Last() == RecordingHost::Record{.spec_id = 1,
                                                   .request_id = 41,
                                                   .flow = &bench.flow,
                                                   .local_port = 40000,
                                                   .host_field_5 = 5,
                                                   .pattern = "A - IPv4 address lookup",
                                                   .pattern_address = kept,
                                                   .response_time = 2500,
                                                   .start_time = 1000,
                                                   .bytes_request = 60,
                                                   .bytes_response = 512,
                                                   .result_code = -2,
                                                   .num_errors = 1});
  CHECK(bench.Open() == 0);
}

TEST_CASE("the response time is negative when the clock goes back") {
  Pairing bench;
  bench.Request(AQuery(7), 5000);
  bench.Response(AResponse(7), 3000);
  CHECK(bench.host.Last().response_time == -2000);
  CHECK(bench.host.Last().start_time == 5000);
}

TEST_CASE("a response time beyond the range wraps around") {
  Pairing bench;
  bench.Request(AQuery(7), std::numeric_limits<int64_t>::min());
  bench.Response(AResponse(7), 1);
  CHECK(bench.host.Last().response_time == std::numeric_limits<int64_t>::min() + 1);
}

TEST_CASE("the header's response code is the record's result code, and an error unless 0") {
  for (unsigned rcode = 0; rcode <= 15; ++rcode) {
    CAPTURE(rcode);
    Pairing bench;
    bench.Request(AQuery(7));
    CHECK(bench.Response(Response(7).Rcode(rcode).Question("aa.bb", kA).Wire()) == 1);
    CHECK(bench.host.Last().extended);
    CHECK(bench.host.Last().result_code == static_cast<int>(rcode));
    CHECK(bench.host.Last().num_errors == (rcode == 0 ? 0 : 1));
    CHECK(bench.Open() == 0);
  }
}

TEST_CASE("Names holds the query's names, whatever the response asks") {
  Pairing bench;
  bench.Request(Query(7).Question("aa", kA).Question("bb", kA).Wire());
  bench.Response(Response(7).Question("cc", kA).Wire());
  CHECK(bench.host.Last().strings == Strings{{"Names", "aa, bb"}});
}

TEST_CASE("Names keeps bytes of value 0") {
  Pairing bench;
  bench.Request(Query(7).Question("a\\000b", kA).Wire());
  bench.Response(AResponse(7));
  CHECK(bench.host.Last().strings.at("Names") == std::string("a\0b", 3));
}

TEST_CASE("an empty name, an empty summary and no signature leave no string") {
  Pairing bench;
  bench.Request(Query(7).Question(".", kA).Wire());
  bench.Response(Response(7).Question(".", kA).Wire());
  CHECK(bench.host.Last().extended);
  CHECK(bench.host.Last().strings.empty());
}

TEST_CASE("signatures are counted in the record") {
  Pairing bench;
  bench.Request(AQuery(7));
  bench.Response(Rrsigs(7, 12));
  CHECK(bench.host.Last().strings == Strings{{"Names", "aa.bb"}, {"NumRRSIGRecords", "12"}});
}

TEST_CASE("a query that asked for DNSSEC is told of no signatures explicitly") {
  Pairing bench(kDnssec);
  bench.Request(kDnssecQuery);
  bench.Response(Rrsigs(7, 0));
  CHECK(bench.host.Last().strings == Strings{{"Names", "aa.bb"}, {"NumRRSIGRecords", "0"}});
}

TEST_CASE("a query that asked for DNSSEC is told of its signatures") {
  Pairing bench(kDnssec);
  bench.Request(kDnssecQuery);
  bench.Response(Rrsigs(7, 2));
  CHECK(bench.host.Last().strings.at("NumRRSIGRecords") == "2");
}

TEST_CASE("a query that did not ask for DNSSEC is not told of no signatures") {
  Pairing bench(kDnssec);
  bench.Request(AQuery(7));
  bench.Response(Rrsigs(7, 0));
  CHECK_FALSE(bench.host.Last().strings.contains("NumRRSIGRecords"));
}

TEST_CASE("signatures are not told of when no details are wanted") {
  Pairing bench(kDnssec);
  bench.host.want_details = false;
  bench.Request(kDnssecQuery);
  bench.Response(Rrsigs(7, 2));
  CHECK(bench.host.Last().extended);
  CHECK(bench.host.Last().strings.empty());
}

TEST_CASE("while the host looks at the end record the query is still open") {
  for (const std::string& message : {AResponse(7), MalformedResponse(7)}) {
    Pairing bench;
    bench.Request(AQuery(7));
    size_t open = 0;
    bench.host.on_record = [&] { open = bench.Open(); };
    bench.Response(message);
    CHECK(open == 1);
    CHECK(bench.Open() == 0);
  }
}

TEST_CASE("the end record is destroyed after its query was erased") {
  for (const std::string& message : {AResponse(7), MalformedResponse(7)}) {
    Pairing bench;
    bench.Request(AQuery(7));
    size_t open = 99;
    WatchingSink sink([&] { open = bench.Open(); });
    bench.parser.request_sink = &sink;
    bench.Response(message);
    CHECK(open == 0);
  }
}

TEST_CASE("a sink that throws on an end record leaves the query open") {
  for (const std::string& message : {AResponse(7), MalformedResponse(7)}) {
    Pairing bench;
    bench.Request(AQuery(7), 100);
    bench.host.on_record = [] { throw std::runtime_error("the host refuses"); };
    CHECK_THROWS_AS(bench.Response(message), const std::runtime_error&);
    CHECK(bench.Open() == 1);
    bench.host.on_record = nullptr;
    bench.Response(message, 300);
    CHECK(bench.host.Last().request_id == 1);
    CHECK(bench.host.Last().response_time == 200);
    CHECK(bench.Open() == 0);
  }
}

TEST_CASE("a host that throws on a mapping leaves the query open and the mapping uncounted") {
  Pairing bench;
  bench.Request(AQuery(7));
  bench.Forget();
  const std::string message =
      Response(7).Question("aa.bb", kA).Answer("aa.bb", A("192.0.2.1")).Answer("aa.bb", A("192.0.2.2")).Wire();
  bench.host.on_mapping = [&] {
    if (bench.host.mappings.size() == 2) throw std::runtime_error("the host refuses");
  };
  CHECK_THROWS_AS(bench.Down(message), const std::runtime_error&);
  CHECK(bench.Open() == 1);
  CHECK(bench.host.records.empty());
  CHECK(bench.parser.injected_mappings == 1);
  bench.host.on_mapping = nullptr;
  CHECK(bench.Response(message) == 1);
  CHECK(bench.host.records.size() == 1);
  CHECK(bench.parser.injected_mappings == 3);
}

TEST_CASE("no other query is touched by a response") {
  Pairing bench;
  bench.Request(AQuery(6));
  bench.Request(AQuery(7));
  bench.Request(AQuery(8));
  bench.Response(AResponse(7));
  REQUIRE(bench.Open() == 2);
  CHECK(bench.parser.open_queries.begin()->first.qid == 6);
  CHECK(bench.parser.open_queries.rbegin()->first.qid == 8);
}

TEST_CASE("a response moves neither the mark nor the next number") {
  Pairing bench;
  bench.Request(AQuery(7));
  bench.Response(AResponse(7));
  CHECK(bench.parser.max_open_queries_seen == 1);
  CHECK(bench.parser.next_request_id == 2);
}
