#include <doctest/doctest.h>

#include <map>
#include <string>

#include "dns-parser/incoming.h"
#include "tests/support/death.h"
#include "tests/support/pairing.h"

using namespace test;

// Zone transfers (RFC 5936): ended by their first message, never listed.

namespace {

using Strings = std::map<std::string, std::string>;

const Config kShown = With("enable_axfr", "true");

// A parser with a transfer under way, whose host has forgotten about it.
struct Transfer : Pairing {
  explicit Transfer(const Config& config) : Pairing(config) {
    Request(Query(7).Question("aa.bb", kAxfr).Wire());
    Forget();
  }
};

Message Zone(int answers) {
  Message message = Response(7).Question("aa.bb", kAxfr);
  for (int i = 0; i < answers; ++i) message.Answer("h.aa.bb", A("192.0.2.1"));
  return message;
}

}  // namespace

TEST_CASE("a zone transfer that nobody wants to see ends its query unread") {
  Transfer bench({});
  CHECK(bench.Response(Zone(2).Answer(RawName("\x80"), A("192.0.2.1")).Wire()) == 1);
  CHECK(Calls(bench.host) == "details? end");
  CHECK(bench.host.Last().extended);
  CHECK(bench.host.Last().result_code == 0);
  CHECK(bench.host.Last().strings == Strings{{"Names", "aa.bb"}});
  CHECK(bench.host.mappings.empty());
  CHECK(bench.Open() == 0);
}

TEST_CASE("a zone transfer is summarised by its number of answers, and maps nothing") {
  Transfer bench(kShown);
  CHECK(bench.Response(Zone(57).Wire()) == 1);
  CHECK(bench.host.Last().strings == Strings{{"Names", "aa.bb"}, {"Response", "57 records"}});
  CHECK(bench.host.mappings.empty());
  CHECK(bench.parser.injected_mappings == 0);
  CHECK(bench.Open() == 0);
}

TEST_CASE("a shown transfer asks about details, the context, details for the number and details again") {
  Transfer bench(kShown);
  bench.Response(Zone(1).Wire());
  CHECK(Calls(bench.host) == "details? context? details? details? end");
}

TEST_CASE("a shown transfer without details has no strings") {
  Transfer bench(kShown);
  bench.host.want_details = false;
  CHECK(bench.Response(Zone(1).Wire()) == 1);
  CHECK(Calls(bench.host) == "details? context? details? details? end");
  CHECK(bench.host.Last().strings.empty());
}

TEST_CASE("a transfer's signatures are counted when it is shown") {
  Transfer bench(kShown);
  bench.Response(Zone(0).Answer("aa.bb", Rrsig(kA, "bb")).Wire());
  CHECK(bench.host.Last().strings.at("NumRRSIGRecords") == "1");
  CHECK(bench.host.Last().strings.at("Response") == "1 records");
}

TEST_CASE("a transfer of no answers is summarised as such") {
  Transfer bench(kShown);
  bench.Response(Zone(0).Wire());
  CHECK(bench.host.Last().strings.at("Response") == "0 records");
}

TEST_CASE("the number of answers has no sign and is the header's") {
  Transfer bench(kShown);
  CHECK(bench.Response(Zone(1).AnswerCount(65535).Wire()) == 0);
  CHECK(bench.host.Last().strings.at("Response") == "65535 records");
  CHECK(bench.host.Last().extended);
}

TEST_CASE("a cut transfer is excused and summarised") {
  Transfer bench(kShown);
  const std::string message = Zone(9).Wire();
  CHECK(bench.ResponseCut(message, 60, message.size()) == 1);
  CHECK(bench.host.Last().strings.at("Response") == "9 records");
}

TEST_CASE("a transfer with a malformed answer is a malformed response when it is shown") {
  Transfer bench(kShown);
  CHECK(bench.Response(Zone(2).Answer(RawName("\x80"), A("192.0.2.1")).Wire()) == 0);
  CHECK(bench.host.Last().result_code == -2);
  CHECK_FALSE(bench.host.Last().extended);
  CHECK(Calls(bench.host) == "details? context? log end");
}

TEST_CASE("a transfer that was refused by the server is summarised all the same") {
  Transfer bench(kShown);
  CHECK(bench.Response(Zone(0).Rcode(5).Wire()) == 1);
  CHECK(bench.host.Last().result_code == 5);
  CHECK(bench.host.Last().strings.at("Response") == "0 records");
  CHECK(Calls(bench.host) == "details? details? end");
}

TEST_CASE("a refused transfer that is not shown has no summary") {
  Transfer bench({});
  CHECK(bench.Response(Zone(0).Rcode(5).Wire()) == 1);
  CHECK(bench.host.Last().result_code == 5);
  CHECK_FALSE(bench.host.Last().strings.contains("Response"));
}

TEST_CASE("a transfer is known by any of its questions") {
  for (const bool first : {true, false}) {
    Transfer bench(kShown);
    Message message = Response(7);
    message.Question("aa", first ? kAxfr : kA).Question("bb", first ? kA : kAxfr);
    CHECK(bench.Response(message.Answer("aa", A("192.0.2.1")).Wire()) == 1);
    CHECK(bench.host.Last().strings.at("Response") == "1 records");
    CHECK(bench.host.mappings.empty());
  }
}

TEST_CASE("a transfer whose second question is missing is summarised, and its end is early") {
  Transfer bench(kShown);
  CHECK(bench.Response(Response(7).Question("aa", kAxfr).Counts(2, 4, 0, 0).Wire()) == 0);
  CHECK(bench.host.Last().strings.at("Response") == "4 records");
  Transfer hidden({});
  CHECK(hidden.Response(Response(7).Question("aa", kAxfr).Counts(2, 4, 0, 0).Wire()) == 0);
  CHECK_FALSE(hidden.host.Last().strings.contains("Response"));
}

TEST_CASE("a question that lacks its class does not make a transfer") {
  Transfer bench(kShown);
  const std::string message = Zone(0).AnswerCount(3).Wire();
  CHECK(bench.ResponseCut(message, message.size() - 1, message.size() - 1) == 0);
  CHECK(bench.host.Last().strings == Strings{{"Names", "aa.bb"}});
}

TEST_CASE("it is the response's question that makes a transfer, not the query's") {
  Transfer asked(kShown);
  asked.Response(Response(7).Question("aa.bb", kA).Answer("aa.bb", A("192.0.2.1")).Wire());
  CHECK(asked.host.Last().strings.at("Response") == "[aa.bb => 192.0.2.1]");
  Pairing answered(kShown);
  answered.Request(AQuery(7));
  answered.Response(Zone(1).Wire());
  CHECK(answered.host.Last().strings.at("Response") == "1 records");
}

TEST_CASE("an incremental transfer is a response like any other") {
  for (const Config& config : {Config(), kShown}) {
    Transfer bench(config);
    CHECK(bench.Response(Response(7).Question("aa.bb", kIxfr).Answer("h", A("192.0.2.1")).Wire()) == 1);
    CHECK(bench.host.Last().strings.at("Response") == "[h => 192.0.2.1]");
    CHECK(bench.host.mappings.size() == 1);
  }
}

TEST_CASE("a shown transfer about the root, or with several questions, is warned about; a hidden one is not") {
  Transfer shown(kShown);
  shown.Response(Response(7).Question(".", kAxfr).Wire());
  CHECK(shown.host.Texts(2).size() == 1);
  Transfer hidden({});
  hidden.Response(Response(7).Question(".", kAxfr).Wire());
  CHECK(hidden.host.Texts(2).empty());
}

TEST_CASE("the later messages of a transfer are unsolicited") {
  Transfer bench({});
  bench.Response(Zone(1).Wire());
  CHECK(bench.Response(Zone(1).Wire()) == 1);
  CHECK(bench.Response(Response(7).Answer("h.aa.bb", A("192.0.2.1")).Wire()) == 1);
  CHECK(bench.host.records.size() == 1);
  CHECK(bench.parser.unsolicited_responses == 2);
}

TEST_CASE("a summary that lists answers of a transfer would be fatal, and says which check failed") {
  CHECK(FatalLine([] { check(false, kNothingListed); }) ==
        "{ERROR}-dns-parser.cc:502: failed condition: response.empty()\n");
}
