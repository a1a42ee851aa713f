#include <doctest/doctest.h>

#include <map>
#include <string>
#include <vector>

#include "tests/support/pairing.h"

using namespace test;

// When answers are read, what the host is asked about them, and how reading them can end. What each type of record
// yields is in the tests of the answers.

namespace {

using Strings = std::map<std::string, std::string>;

// A parser with query 7 open, whose host has forgotten about it.
struct Asked : Pairing {
  explicit Asked(const Config& config = {}) : Pairing(config) {
    Request(AQuery(7));
    Forget();
  }
};

Message TwoAddresses() {
  return Response(7).Question("aa.bb", kA).Answer("aa.bb", A("192.0.2.1")).Answer("cc", A("192.0.2.2"));
}

}  // namespace

TEST_CASE("answers are summarised and their addresses mapped to the question's name") {
  Asked bench;
  CHECK(bench.Response(TwoAddresses().Wire()) == 1);
  CHECK(bench.host.Last().strings ==
        Strings{{"Names", "aa.bb"}, {"Response", "[aa.bb => 192.0.2.1], [cc => 192.0.2.2]"}});
  CHECK(bench.host.mappings ==
        std::vector<RecordingHost::Mapping>{{"aa.bb", "aa.bb", "192.0.2.1"}, {"aa.bb", "cc", "192.0.2.2"}});
  CHECK(Counters(bench.parser) == "inj:2 mor:1");
}

TEST_CASE("the host is asked about details, then the context, and about details again") {
  Asked bench;
  bench.Response(TwoAddresses().Wire());
  CHECK(Calls(bench.host) == "details? context? inject inject details? end");
}

TEST_CASE("the host is asked the same when it wants no details and works in the flow's context") {
  Asked bench;
  bench.host.want_details = false;
  bench.host.context_id = 1;
  bench.Response(TwoAddresses().Wire());
  CHECK(Calls(bench.host) == "details? context? details? end");
}

TEST_CASE("the host is asked even when there is no answer") {
  Asked bench;
  bench.Response(Response(7).Question("aa.bb", kA).Wire());
  CHECK(Calls(bench.host) == "details? context? details? end");
}

TEST_CASE("a malformed answer is not asked about again") {
  Asked bench;
  bench.Response(Response(7).Question("aa.bb", kA).Answer(RawName("\x80"), A("192.0.2.1")).Wire());
  CHECK(Calls(bench.host) == "details? context? log end");
}

TEST_CASE("without details no summary is made, but addresses are mapped") {
  Asked bench;
  bench.host.want_details = false;
  CHECK(bench.Response(TwoAddresses().Wire()) == 1);
  CHECK(bench.host.Last().extended);
  CHECK(bench.host.Last().strings.empty());
  CHECK(bench.host.mappings.size() == 2);
}

TEST_CASE("details wanted only at the end hold no summary") {
  Asked bench;
  bench.host.want_details = false;
  bench.host.on_mapping = [&] { bench.host.want_details = true; };
  bench.Response(TwoAddresses().Wire());
  CHECK(bench.host.Last().strings == Strings{{"Names", "aa.bb"}});
}

TEST_CASE("details wanted only at the start are not attached") {
  Asked bench;
  bench.host.on_mapping = [&] { bench.host.want_details = false; };
  bench.Response(TwoAddresses().Wire());
  CHECK(bench.host.Last().strings.empty());
}

TEST_CASE("a response in the host's own context is recorded but maps nothing") {
  Asked bench;
  bench.flow.context_id = 0xffffffff;
  bench.host.context_id = 0xffffffff;
  CHECK(bench.Response(TwoAddresses().Wire()) == 1);
  CHECK(bench.host.mappings.empty());
  CHECK(bench.host.Last().strings.at("Response") == "[aa.bb => 192.0.2.1], [cc => 192.0.2.2]");
  CHECK(bench.parser.injected_mappings == 0);
}

TEST_CASE("the context is that of the response's flow, not of the query's") {
  Asked bench;
  bench.flow.context_id = 5;
  bench.host.context_id = 5;
  bench.Response(TwoAddresses().Wire());
  CHECK(bench.host.mappings.empty());
  bench.Request(AQuery(7));
  bench.flow.context_id = 6;
  bench.Response(TwoAddresses().Wire());
  CHECK(bench.host.mappings.size() == 2);
}

TEST_CASE("an error response's answers are not read and nothing is mapped") {
  Asked bench;
  CHECK(bench.Response(TwoAddresses().Rcode(3).Wire()) == 1);
  CHECK(bench.host.Last().result_code == 3);
  CHECK(bench.host.Last().num_errors == 1);
  CHECK(bench.host.Last().strings == Strings{{"Names", "aa.bb"}});
  CHECK(bench.host.mappings.empty());
  CHECK(Calls(bench.host) == "details? end");
}

TEST_CASE("an error response with a malformed or a missing answer is used") {
  Asked bench;
  const Message message = Response(7).Rcode(2).Question("aa.bb", kA);
  CHECK(bench.Response(Message(message).Answer(RawName("\x80"), A("192.0.2.1")).Wire()) == 1);
  CHECK(bench.host.Last().result_code == 2);
  bench.Request(AQuery(7));
  CHECK(bench.Response(Message(message).AnswerCount(4).Wire()) == 1);
  CHECK(bench.host.Last().result_code == 2);
}

TEST_CASE("a malformed answer is refused, however much was captured") {
  const std::string message = Response(7).Question("aa.bb", kA).Answer(Pointer(5), A("192.0.2.1")).Wire();
  Asked whole;
  CHECK(whole.Response(message) == 0);
  CHECK(whole.host.Last().result_code == -2);
  Asked cut;
  CHECK(cut.ResponseCut(message, message.size(), 1000) == 0);
  CHECK(cut.host.Last().result_code == -2);
  CHECK(cut.Open() == 0);
}

TEST_CASE("what was mapped before an answer was found malformed stands") {
  Asked bench;
  CHECK(bench.Response(TwoAddresses().Answer(RawName("\x40"), A("192.0.2.3")).Wire()) == 0);
  CHECK(bench.host.mappings.size() == 2);
  CHECK(bench.parser.injected_mappings == 2);
  CHECK_FALSE(bench.host.Last().extended);
}

TEST_CASE("a malformed name in the data of an answer is refused as well") {
  Asked bench;
  CHECK(bench.Response(Response(7).Question("aa.bb", kCname).Answer("aa.bb", Cname(Pointer(2))).Wire()) == 0);
  CHECK(bench.host.Last().result_code == -2);
}

TEST_CASE("answers past the captured bytes end a whole response early, with what was read") {
  Asked bench;
  CHECK(bench.Response(TwoAddresses().AnswerCount(3).Wire()) == 0);
  CHECK(bench.host.Last().extended);
  CHECK(bench.host.Last().result_code == 0);
  CHECK(bench.host.Last().num_errors == 0);
  CHECK(bench.host.Last().strings.at("Response") == "[aa.bb => 192.0.2.1], [cc => 192.0.2.2]");
  CHECK(bench.Open() == 0);
}

TEST_CASE("answers past the captured bytes of a cut response are excused") {
  Asked bench;
  Message message = TwoAddresses();
  for (int i = 0; i < 30; ++i) message.Answer("aa.bb", A("192.0.2.9"));
  const std::string bytes = message.Wire();
  REQUIRE(bytes.size() > 512);
  CHECK(bench.ResponseCut(bytes, 300, 512) == 1);
  CHECK(bench.host.Last().extended);
  CHECK(bench.host.Last().result_code == 0);
  CHECK(bench.host.Last().bytes_response == 512);
  CHECK(bench.host.Last().strings.at("Response").starts_with("[aa.bb => 192.0.2.1], [cc => 192.0.2.2], "));
  CHECK(bench.Open() == 0);
}

TEST_CASE("as many answers are read as the header counts") {
  Asked bench;
  bench.Response(TwoAddresses().AnswerCount(1).Wire());
  CHECK(bench.host.Last().strings.at("Response") == "[aa.bb => 192.0.2.1]");
}

TEST_CASE("authorities and additional records are not walked") {
  Asked bench;
  const std::string message = Response(7)
                                  .Question("aa.bb", kA)
                                  .Answer("aa.bb", A("192.0.2.1"))
                                  .Authority("ns", A("192.0.2.2"))
                                  .Additional(RawName("\x80"), A("192.0.2.3"))
                                  .Counts(1, 1, 9, 9)
                                  .Wire();
  CHECK(bench.Response(message) == 1);
  CHECK(bench.host.mappings.size() == 1);
  CHECK(bench.host.Last().strings.at("Response") == "[aa.bb => 192.0.2.1]");
}

TEST_CASE("signatures among the authorities are not counted") {
  Asked bench;
  bench.Response(Response(7).Question("aa.bb", kA).Authority("aa.bb", Rrsig(kA, "bb")).Wire());
  CHECK_FALSE(bench.host.Last().strings.contains("NumRRSIGRecords"));
}

TEST_CASE("a truncated response is used like any other") {
  Asked bench;
  CHECK(bench.Response(Response(7).Tc().Question("aa.bb", kA).Wire()) == 1);
  CHECK(bench.host.Last().result_code == 0);
  CHECK(bench.Open() == 0);
}
