#include <doctest/doctest.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "dns-parser/types.h"
#include "tests/support/pairing.h"

using namespace test;

// The parser keeps memory from one message for the next. Nothing of an earlier message may show in a later one.

namespace {

using Strings = std::map<std::string, std::string>;

const std::string kLongName = "a-rather-long-label-that-is-no-short-string.of-a-name.that-is.longer-than-others";

// Leaves its marks in every text that a parser keeps.
void Exercise(Pairing* bench, unsigned id) {
  bench->Request(Query(id).Question(kLongName, kTxt, kChaos).Question("second." + kLongName, kMx).Wire());
  bench->Response(Response(id)
                      .Question(kLongName, kCname)
                      .Answer(kLongName, Cname("target." + kLongName))
                      .Answer("last-owner." + kLongName, Rrsig(kA, "bb"))
                      .Wire());
}

// An exchange about aa.bb with the given response; the strings of its record.
Strings StringsOf(Pairing* bench, const Message& response) {
  bench->Request(AQuery(7));
  bench->Response(response.Wire());
  return bench->host.Last().strings;
}

// What the tables say of a question, given as its class and type.
std::string Described(uint32_t question) {
  const int question_class = static_cast<int>(question >> 16);
  std::string text;
  if (question_class != 1) text = std::string(dns_lookup_description(dns_classes, question_class)) + "/";
  return text + dns_lookup_description(dns_types, static_cast<int>(question & 0xffff));
}

}  // namespace

TEST_CASE("a later query shows nothing of an earlier one") {
  Pairing bench;
  Exercise(&bench, 1);
  bench.Request(AQuery(7));
  CHECK(bench.OnlyQuery().types == "A - IPv4 address lookup");
  CHECK(bench.OnlyQuery().names == "aa.bb");
  CHECK_FALSE(bench.OnlyQuery().dnssec_ok);
  CHECK(bench.host.Last().pattern == "A - IPv4 address lookup");
}

TEST_CASE("a later query shows nothing of an earlier one that could not be read to its end") {
  Pairing bench;
  bench.Request(Query(1).Question(kLongName, kTxt).QuestionCount(2).Wire());
  bench.Request(Query(2).Question(kLongName, kTxt).Bytes("\x05half").QuestionCount(2).Wire());
  bench.Request(AQuery(7));
  CHECK(bench.OnlyQuery().types == "A - IPv4 address lookup");
  CHECK(bench.OnlyQuery().names == "aa.bb");
}

TEST_CASE("a query about the root shows nothing of an earlier name") {
  Pairing bench;
  Exercise(&bench, 1);
  bench.Request(Query(7).Question(".", kNs).Wire());
  CHECK(bench.OnlyQuery().names.empty());
}

TEST_CASE("a query in the place of one that asked for DNSSEC does not ask for it") {
  Pairing bench(With("enable_dnssec", "1"));
  bench.Request(Query(1).Question("aa.bb", kA).Additional(Opt({.dnssec_ok = true})).Wire());
  bench.Response(AResponse(1));
  bench.Request(AQuery(7), 5);
  const DnsQuery& query = bench.OnlyQuery();
  CHECK_FALSE(query.dnssec_ok);
  CHECK(query.start_time.ticks == 5);
  CHECK(query.request_bytes == 23);
  CHECK(query.request_id == 2);
}

TEST_CASE("a query in the place of another has the flow of its own") {
  Pairing bench;
  bench.flow.host_field_5 = 1;
  Exercise(&bench, 1);
  bench.flow.host_field_5 = 2;
  bench.flow.client_side = 0;
  bench.Request(AQuery(7));
  CHECK(bench.parser.open_queries.begin()->first.flow.host_field_5 == 2);
  CHECK(bench.parser.open_queries.begin()->first.flow.client_side == 0);
  CHECK(bench.parser.open_queries.begin()->first.qid == 7);
}

TEST_CASE("a later response's summary and signatures are its own") {
  Pairing bench;
  Exercise(&bench, 1);
  const Strings strings = StringsOf(&bench, Response(7).Question("aa.bb", kA).Answer("aa.bb", A("192.0.2.1")));
  CHECK(strings == Strings{{"Names", "aa.bb"}, {"Response", "[aa.bb => 192.0.2.1]"}});
}

TEST_CASE("a response without answers has no summary after one that had") {
  Pairing bench;
  Exercise(&bench, 1);
  CHECK(StringsOf(&bench, Response(7).Question("aa.bb", kA)) == Strings{{"Names", "aa.bb"}});
}

TEST_CASE("an error response has no summary after a response that had one") {
  Pairing bench;
  Exercise(&bench, 1);
  CHECK(StringsOf(&bench, Response(7).Rcode(3).Question("aa.bb", kA)) == Strings{{"Names", "aa.bb"}});
}

TEST_CASE("a response whose question cannot be read has no summary after one that had") {
  Pairing bench;
  Exercise(&bench, 1);
  CHECK(StringsOf(&bench, Response(7).QuestionCount(1)) == Strings{{"Names", "aa.bb"}});
}

TEST_CASE("zone transfers, hidden and shown, follow a response with a summary") {
  Pairing hidden;
  Exercise(&hidden, 1);
  CHECK(StringsOf(&hidden, Response(7).Question("aa.bb", kAxfr)) == Strings{{"Names", "aa.bb"}});
  Pairing shown(With("enable_axfr", "1"));
  Exercise(&shown, 1);
  CHECK(StringsOf(&shown, Response(7).Question("aa.bb", kAxfr)) ==
        Strings{{"Names", "aa.bb"}, {"Response", "0 records"}});
  CHECK(StringsOf(&shown, Response(7).Question("aa.bb", kA)) == Strings{{"Names", "aa.bb"}});
}

TEST_CASE("a malformed answer's beginnings do not show in the next summary") {
  Pairing bench;
  bench.Request(AQuery(1));
  bench.Response(Response(1)
                     .Question("aa.bb", kA)
                     .Answer("seen", A("192.0.2.9"))
                     .Answer(RawName("\x80"), A("192.0.2.9"))
                     .Wire());
  CHECK(bench.host.Last().result_code == -2);
  CHECK(StringsOf(&bench, Response(7).Question("aa.bb", kA)) == Strings{{"Names", "aa.bb"}});
}

TEST_CASE("a response without a question has no name after one that had") {
  Pairing bench;
  Exercise(&bench, 1);
  bench.Forget();
  StringsOf(&bench, Response(7).Answer("aa.bb", A("192.0.2.1")));
  REQUIRE(bench.host.mappings.size() == 1);
  CHECK(bench.host.mappings.at(0).query_name == "");
  REQUIRE(bench.host.Texts(2).size() == 1);
  CHECK(bench.host.Texts(2).at(0).find("#questions=0[]") != std::string::npos);
}

TEST_CASE("the strings of a record are not those of the record before") {
  Pairing bench(With("enable_dnssec", "1"));
  bench.Request(Query(1).Question(kLongName, kA).Additional(Opt({.dnssec_ok = true})).Wire());
  bench.Response(Response(1).Question(kLongName, kA).Answer(kLongName, A("192.0.2.1")).Wire());
  CHECK(bench.host.Last().strings.size() == 3);
  CHECK(StringsOf(&bench, Response(7).Question("aa.bb", kA)) == Strings{{"Names", "aa.bb"}});
  bench.Request(Query(8).Question(".", kNs).Wire(), 0);
  bench.parser.Heartbeat({5000001});
  CHECK(bench.host.Last().strings.empty());
  bench.Request(AQuery(9), 0);
  bench.parser.Heartbeat({5000001});
  CHECK(bench.host.Last().strings == Strings{{"Names", "aa.bb"}});
}

TEST_CASE("strings that a host adds to a record end with it") {
  struct AddingSink : IRequestSink {
    void OnBeginRequest(const BeginRequest*) override {}
    void OnEndRequest(const EndRequest* request) override {
      // The host may fill a record during the call.
      auto* record = const_cast<ExtendedEndRequest*>(dynamic_cast<const ExtendedEndRequest*>(request));
      for (int i = 0; i < 20; ++i) record->AddString("Host" + std::to_string(i), kLongName);
      record->AddString("Names", "of the host");
    }
  };
  Pairing bench;
  AddingSink sink;
  bench.parser.request_sink = &sink;
  Exercise(&bench, 1);
  bench.Request(AQuery(2), 0);
  bench.parser.Heartbeat({5000001});
  bench.parser.request_sink = &bench.host;
  CHECK(StringsOf(&bench, Response(7).Question("aa.bb", kA)) == Strings{{"Names", "aa.bb"}});
}

TEST_CASE("a sink that throws leaves nothing behind in later records") {
  Pairing bench;
  bench.Request(Query(1).Question(kLongName, kA).Wire());
  bench.host.on_record = [] { throw 5; };
  CHECK_THROWS_AS(bench.Response(AResponse(1)), int);
  bench.host.on_record = nullptr;
  CHECK(StringsOf(&bench, Response(7).Question("aa.bb", kA)) == Strings{{"Names", "aa.bb"}});
}

TEST_CASE("a host that throws on a mapping leaves nothing behind in later records") {
  Pairing bench;
  bench.Request(AQuery(1));
  bench.host.on_mapping = [] { throw 5; };
  CHECK_THROWS_AS(bench.Response(AResponse(1)), int);
  bench.host.on_mapping = nullptr;
  CHECK(StringsOf(&bench, Response(7).Question("aa.bb", kA)) == Strings{{"Names", "aa.bb"}});
}

TEST_CASE("huge texts are followed by small ones") {
  Pairing bench;
  Message queries = Query(1);
  Message responses = Response(1);
  for (int i = 0; i < 400; ++i) {
    queries.Question(kLongName, kTxt);
    responses.Answer(kLongName, Txt(std::string(100, 'x')));
  }
  for (int round = 0; round < 3; ++round) {
    bench.Request(queries.Wire());
    CHECK(bench.OnlyQuery().names.size() > 30000);
    bench.Response(responses.Wire());
    CHECK(bench.host.Last().strings.at("Response").size() > 50000);
    CHECK(StringsOf(&bench, Response(7).Question("aa.bb", kA)) == Strings{{"Names", "aa.bb"}});
  }
}

TEST_CASE("the table takes many more queries than were ever put away") {
  Pairing bench({}, 0);
  for (int round = 0; round < 2; ++round) {
    for (unsigned id = 0; id < 3000; ++id) {
      bench.Request(Query(id).Question("n" + std::to_string(id), kA).Wire(), round * 10000000);
    }
    CHECK(bench.Open() == 3000);
    for (const auto& [key, query] : bench.parser.open_queries) {
      if (query.names != "n" + std::to_string(key.qid)) FAIL_CHECK(query.names);
    }
    bench.parser.Heartbeat({round * 10000000 + 5000001});
    CHECK(bench.Open() == 0);
  }
}

TEST_CASE("questions that differ in one bit never take each other's text") {
  Pairing bench({}, 0);
  const auto pattern = [&](const std::vector<uint32_t>& questions) {
    Message message = Query(7);
    for (const uint32_t question : questions) {
      message.Question("a", static_cast<uint16_t>(question), static_cast<uint16_t>(question >> 16));
    }
    bench.Request(message.Wire());
    bench.Response(Response(7).Wire());
    return bench.host.records.at(bench.host.records.size() - 2).pattern;
  };
  for (const uint32_t question : {0x00010001U, 0x0003001cU, 0x00000000U, 0x00ff0041U, 0xffffffffU}) {
    for (unsigned bit = 0; bit < 32; ++bit) {
      const uint32_t other = question ^ 1U << bit;
      CHECK(pattern({question, other, question}) ==
            Described(question) + ", " + Described(other) + ", " + Described(question));
    }
  }
}

TEST_CASE("questions of every kind, asked again and again, keep their texts") {
  Pairing bench({}, 0);
  size_t wrong = 0;
  for (int round = 0; round < 2; ++round) {
    for (const uint32_t question_class : {1U, 3U}) {
      for (uint32_t type = 0; type <= 300; ++type) {
        const uint32_t question = question_class << 16 | type;
        const uint32_t common = 0x00010000U | type * 61;  // falls on the same few again and again
        Message message = Query(7);
        message.Question("a", static_cast<uint16_t>(question), static_cast<uint16_t>(question_class));
        bench.Request(message.Question("a", static_cast<uint16_t>(common)).Wire());
        if (bench.host.Last().pattern != Described(question) + ", " + Described(common)) ++wrong;
        bench.Response(Response(7).Wire());
      }
    }
  }
  CHECK(wrong == 0);
}

TEST_CASE("queries expire whatever was answered or expired before them") {
  Pairing bench;
  bench.Request(AQuery(1), 1000);
  bench.Request(AQuery(2), 500);
  bench.Response(AResponse(2), 600);
  bench.parser.Heartbeat({5001000});
  CHECK(bench.Open() == 1);
  bench.parser.Heartbeat({5001001});
  CHECK(bench.Open() == 0);
  bench.Request(AQuery(3), 100);  // older than anything before
  bench.Request(AQuery(4), 9000000);
  bench.parser.Heartbeat({5000100});
  CHECK(bench.Open() == 2);
  bench.parser.Heartbeat({5000101});
  CHECK(bench.OnlyQuery().request_id == 4);
  bench.parser.Heartbeat({14000001});
  CHECK(bench.Open() == 0);
}

TEST_CASE("a query recorded while the host was told of an expired one expires in its turn") {
  Pairing bench;
  bench.Request(AQuery(5), 0);
  bench.host.on_record = [&] {
    bench.host.on_record = nullptr;
    bench.Request(AQuery(4), 10);
    bench.Request(AQuery(6), 20000000);
  };
  bench.parser.Heartbeat({5000001});
  CHECK(bench.Open() == 2);
  bench.parser.Heartbeat({5000011});
  CHECK(bench.Open() == 1);
  CHECK(bench.parser.timed_out_requests == 2);
}
