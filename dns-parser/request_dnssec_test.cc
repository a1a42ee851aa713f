#include <doctest/doctest.h>

#include <string>
#include <vector>

#include "tests/support/pairing.h"

using namespace test;

// The search for the DO bit (RFC 3225) of a request's OPT record (RFC 6891).

namespace {

const Config kOn = With("enable_dnssec", "true");

const Record kPlainOpt = Opt();
const Record kDoOpt = Opt({.dnssec_ok = true});

Message Asking() { return Query(7).Question("aa.bb", kA); }

// An OPT record with a TTL of the test's own.
Record OptWith(uint32_t ttl) { return {".", Rdata(kOpt), ttl, 1232}; }

// How a message fares with the search switched on: "refused", "unrecorded", "recorded" or "recorded with DO".
std::string Fate(const std::string& message, size_t captured, size_t nominal, const Config& config = kOn) {
  Pairing bench(config);
  const bool used = bench.RequestCut(message, captured, nominal);
  CHECK(bench.Open() == bench.host.records.size());
  if (!used && bench.Open() != 0) return "refused and recorded";
  if (!used) return "refused";
  if (bench.Open() == 0) return "unrecorded";
  return bench.OnlyQuery().dnssec_ok ? "recorded with DO" : "recorded";
}

std::string Whole(const Message& message, const Config& config = kOn) {
  const std::string bytes = message.Wire();
  return Fate(bytes, bytes.size(), bytes.size(), config);
}

// The same bytes, but the message went on behind them.
std::string Cut(const Message& message, const Config& config = kOn) {
  const std::string bytes = message.Wire();
  return Fate(bytes, bytes.size(), bytes.size() + 1, config);
}

const Name kMalformedName = RawName("\x80");

}  // namespace

TEST_CASE("an OPT record with the DO bit is found") {
  CHECK(Whole(Asking().Additional(kDoOpt)) == "recorded with DO");
}

TEST_CASE("an OPT record without the DO bit is not taken for one") {
  CHECK(Whole(Asking().Additional(kPlainOpt)) == "recorded");
}

TEST_CASE("the DO bit is bit 15 of the TTL and no other") {
  CHECK(Whole(Asking().Additional(OptWith(0x00008000))) == "recorded with DO");
  CHECK(Whole(Asking().Additional(OptWith(0xffffffff))) == "recorded with DO");
  CHECK(Whole(Asking().Additional(OptWith(0))) == "recorded");
  CHECK(Whole(Asking().Additional(OptWith(0xffff7fff))) == "recorded");
}

TEST_CASE("the DO bit counts in an OPT record alone") {
  CHECK(Whole(Asking().Additional(".", Rdata(42), 0x8000)) == "recorded");
  CHECK(Whole(Asking().Additional(".", Rdata(40), 0x8000)) == "recorded");
  CHECK(Whole(Asking().Additional("aa.bb", A("192.0.2.1"), 0x8000)) == "recorded");
  CHECK(Whole(Asking().Additional(".", Rdata(41 + 256), 0x8000)) == "recorded");
}

TEST_CASE("a request without additional records does not ask for DNSSEC") { CHECK(Whole(Asking()) == "recorded"); }

TEST_CASE("the bit is not looked for when the search is switched off") {
  CHECK(Whole(Asking().Additional(kDoOpt), {}) == "recorded");
  CHECK(Whole(Asking().Additional(kMalformedName, Rdata(kOpt)), {}) == "recorded");
  CHECK(Whole(Asking().AnswerCount(5), {}) == "recorded");
}

TEST_CASE("answers and authorities are skipped by their lengths") {
  const Message message = Asking()
                              .Answer("aa.bb", A("192.0.2.1"))
                              .Answer("bb", Txt("some text"))
                              .Authority("bb", Soa("ns.bb", "root.bb"))
                              .Authority("bb", Rdata(kTxt))
                              .Additional(kDoOpt);
  CHECK(Whole(message) == "recorded with DO");
}

TEST_CASE("compressed owners are skipped too") {
  const Message message = Query(7)
                              .Compressed()
                              .Question("aa.bb", kA)
                              .Answer("aa.bb", A("192.0.2.1"))
                              .Authority("bb", Ns("ns.bb"))
                              .Additional(kDoOpt);
  CHECK(Whole(message) == "recorded with DO");
}

TEST_CASE("an OPT record among the answers or the authorities does not count") {
  CHECK(Whole(Asking().Answer(kDoOpt)) == "recorded");
  CHECK(Whole(Asking().Authority(kDoOpt)) == "recorded");
  CHECK(Whole(Asking().Answer(kDoOpt).Authority(kDoOpt).Additional(kPlainOpt)) == "recorded");
}

TEST_CASE("the search goes over records that are no OPT record, and over those without the bit") {
  const Message message = Asking()
                              .Additional("aa.bb", A("192.0.2.1"))
                              .Additional(kPlainOpt)
                              .Additional("x", Txt("y"))
                              .Additional(kDoOpt);
  CHECK(Whole(message) == "recorded with DO");
}

TEST_CASE("the search goes no further than the additional count") {
  CHECK(Whole(Asking().Additional(kPlainOpt).Additional(kDoOpt).AdditionalCount(1)) == "recorded");
  CHECK(Whole(Asking().Additional(kDoOpt).AdditionalCount(0)) == "recorded");
}

TEST_CASE("the search ends at the first DO bit: what follows is not read") {
  CHECK(Whole(Asking().Additional(kDoOpt).Additional(kMalformedName, Rdata(kOpt))) == "recorded with DO");
  CHECK(Whole(Asking().Additional(kDoOpt).AdditionalCount(9)) == "recorded with DO");
}

TEST_CASE("an OPT record whose data alone runs past the end still counts") {
  Record opt = kDoOpt;
  opt.data.RdLength(65535);
  CHECK(Whole(Asking().Additional(opt)) == "recorded with DO");
  CHECK(Cut(Asking().Additional(opt)) == "recorded with DO");
}

TEST_CASE("the last record's data may run past the end") {
  Record record = {"aa.bb", A("192.0.2.1")};
  record.data.RdLength(5);
  CHECK(Whole(Asking().Answer(record)) == "recorded");
  CHECK(Whole(Asking().Additional(record)) == "recorded");
}

TEST_CASE("a record behind data that runs past the end is out of reach") {
  Record record = {"aa.bb", A("192.0.2.1")};
  record.data.RdLength(1000);
  CHECK(Whole(Asking().Answer(record).Additional(kDoOpt)) == "refused");
  CHECK(Cut(Asking().Answer(record).Additional(kDoOpt)) == "recorded");
  CHECK(Whole(Asking().Additional(record).Additional(kDoOpt)) == "refused");
  CHECK(Cut(Asking().Additional(record).Additional(kDoOpt)) == "recorded");
}

TEST_CASE("a malformed owner is refused, however much was captured") {
  for (const Message& message :
       {Asking().Answer(kMalformedName, A("192.0.2.1")), Asking().Authority(kMalformedName, A("192.0.2.1")),
        Asking().Additional(kMalformedName, A("192.0.2.1")),
        Asking().Additional(kPlainOpt).Additional(kMalformedName, A("192.0.2.1"))}) {
    CHECK(Whole(message) == "refused");
    CHECK(Cut(message) == "refused");
  }
}

TEST_CASE("answers and authorities are skipped even when nothing is additional") {
  CHECK(Whole(Asking().Answer(kMalformedName, A("192.0.2.1"))) == "refused");
  CHECK(Whole(Asking().AnswerCount(1)) == "refused");
  CHECK(Whole(Asking().AuthorityCount(1)) == "refused");
  CHECK(Cut(Asking().AnswerCount(1)) == "recorded");
}

TEST_CASE("counts are added without being cut to sixteen bits") {
  CHECK(Whole(Asking().AnswerCount(65535).AuthorityCount(1)) == "refused");
  CHECK(Whole(Asking().AnswerCount(1).AuthorityCount(65535).Bytes(kDoOpt.owner.Wire())) == "refused");
}

TEST_CASE("every field of an additional record must have been captured") {
  const std::string message = Asking().Additional(kDoOpt).Wire();
  REQUIRE(message.size() == 23 + 11);
  for (size_t size = 23; size < message.size(); ++size) {
    CAPTURE(size);
    CHECK(Fate(message, size, size) == "refused");
    CHECK(Fate(message, size, message.size()) == "recorded");
    CHECK(Fate(message, size, size + 1) == "recorded");
  }
  CHECK(Fate(message, message.size(), message.size()) == "recorded with DO");
  CHECK(Fate(message, message.size(), message.size() + 1) == "recorded with DO");
}

TEST_CASE("every field of a skipped record must have been captured, its data need not") {
  const std::string message = Asking().Answer("x", A("192.0.2.1")).Wire();
  REQUIRE(message.size() == 23 + 3 + 10 + 4);
  for (size_t size = 23; size < 36; ++size) {
    CAPTURE(size);
    CHECK(Fate(message, size, size) == "refused");
    CHECK(Fate(message, size, message.size()) == "recorded");
  }
  for (size_t size = 36; size <= message.size(); ++size) CHECK(Fate(message, size, size) == "recorded");
}

TEST_CASE("the search says nothing but what the names say") {
  Pairing bench(kOn);
  const std::string message = Asking().Additional(kDoOpt).Wire();
  bench.Request(message);
  bench.RequestCut(message, message.size() - 1, message.size() - 1);
  CHECK(Log(bench.host).empty());
  bench.RequestCut(message, 23, 23);
  CHECK(Log(bench.host) == NameRanOut(24, 23));
}

TEST_CASE("a request that the search refuses moves no counter and no number") {
  Pairing bench(kOn);
  CHECK_FALSE(bench.Request(Asking().AnswerCount(1).Wire()));
  CHECK(Counters(bench.parser).empty());
  CHECK(bench.parser.next_request_id == 1);
}

TEST_CASE("an owner's name may follow sixteen pointers, and no more") {
  for (const unsigned pointers : {16U, 17U}) {
    Message message = Asking();
    const unsigned chain = message.Here() + 2 + 10;  // behind the record
    message.Additional(Pointer(chain), Rdata(kOpt), 0x8000);
    for (unsigned i = 1; i < pointers; ++i) message.Bytes(U16(0xc000U | (chain + 2 * i)));
    message.Bytes("\x01x" + U8(0));
    CHECK(Whole(message) == (pointers == 16 ? "recorded with DO" : "refused"));
  }
}

TEST_CASE("the search works behind several questions") {
  CHECK(Whole(Query(7).Question("aa", kA).Question("bb.cc", kA).Additional(kDoOpt)) == "recorded with DO");
}
