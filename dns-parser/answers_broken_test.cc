#include <doctest/doctest.h>

#include <string>
#include <vector>

#include "dns-parser/dns_parser.h"
#include "tests/support/death.h"
#include "tests/support/decoding.h"
#include "tests/support/dns_builder.h"

using namespace test;

// Answers that are cut short or malformed: where the walk ends, with what result, and what stands.

namespace {

// Where the parts of one answer end in the message, and what is known once it has been read.
struct Part {
  int start = 0;  // its owner
  int fixed = 0;  // behind the owner
  int data = 0;
  int needed = 0;  // behind what its reader reads of the data
  Data record{0};
  std::string summary;
  size_t mappings = 0;
  int rrsigs = 0;
};

// An answer of each kind, behind a question, without compression; and what each adds.
struct Rich {
  Message message = Response(7).Question("aa.bb", kA);
  std::vector<Part> parts;

  Rich() {
    Add("aa.bb", Cname("cc.dd"), 7, "CNAME[aa.bb => cc.dd]", 0);
    Add("cc.dd", Rrsig(kCname, "dd"), 0, "", 0);
    Add("cc.dd", A("192.0.2.1"), 4, ", [cc.dd => 192.0.2.1]", 1);
    Add("cc.dd", Mx(10, "mx"), 6, ", MX[cc.dd => mx]", 0);
    Add("cc.dd", Txt("hello", "unread"), 6, "TXT[cc.dd => hello]", 0);
    Add("cc.dd", Soa("aa", "bb"), 0, "", 0);
    Add("cc.dd", Aaaa("2001:db8::1"), 16, "[cc.dd => 2001:db8::1]", 0);
    Add("cc.dd", Rdata(kHttps, "unread"), 0, "", 0);
    Add("4.3.2.1.in-addr.arpa", Ptr("ee"), 4, ", PTR[4.3.2.1.in-addr.arpa => ee]", 1);
    Add("cc.dd", Rrsig(kA, "dd"), 0, "", 0);
  }

  int Count() const { return static_cast<int>(parts.size()); }

 private:
  void Add(const Name& owner, const Data& record, int read, const std::string& entry, size_t mappings) {
    Part part = parts.empty() ? Part{} : parts.back();
    part.start = static_cast<int>(message.Here());
    part.fixed = part.start + static_cast<int>(owner.Wire().size());
    part.data = part.fixed + 10;
    part.needed = part.data + read;
    part.record = record;
    part.summary += entry;
    part.mappings += mappings;
    part.rrsigs += record.type == kRrsig ? 1 : 0;
    parts.push_back(part);
    message.Answer(owner, record);
  }
};

// What the reader of the field that is cut off logs: nothing but for names and the lengths of strings.
std::string LogOfCut(QuietBench* bench, const std::string& prefix, const Part& part) {
  const int size = static_cast<int>(prefix.size());
  bench->host.lines.clear();
  if (size < part.fixed) {
    NameAt(*bench, prefix, part.start);
  } else if (size >= part.data && part.record.type == kTxt) {
    StringAt(*bench, prefix, part.data);
  } else if (size >= part.data && (part.record.type == kCname || part.record.type == kPtr)) {
    NameAt(*bench, prefix, part.data);
  } else if (size >= part.data && part.record.type == kMx) {
    NameAt(*bench, prefix, part.data + 2);
  }
  return Log(bench->host);
}

// Checks one prefix: the walk ends in the first answer that it needs more of, and what came before stands.
void CheckPrefix(const Rich& rich, const std::string& prefix) {
  CAPTURE(prefix.size());
  const int size = static_cast<int>(prefix.size());
  QuietBench bench;
  std::string summary;
  int rrsigs = 0;
  const int start = rich.parts.front().start;
  const IOVec view = View(prefix);
  const int result = bench.parser.ParseResponse(&summary, &rrsigs, view, start, rich.Count(), true, "aa.bb");
  const std::string log = Log(bench.host);

  size_t cut = 0;
  while (cut < rich.parts.size() && rich.parts[cut].needed <= size) ++cut;
  const bool whole = cut == rich.parts.size();
  const Part before = cut == 0 ? Part{} : rich.parts[cut - 1];
  CHECK(result == (whole ? kDecoded : kRanOut));
  CHECK(view.ok == whole);
  CHECK(summary == before.summary);
  CHECK(rrsigs == before.rrsigs);
  CHECK(bench.host.mappings.size() == before.mappings);
  CHECK(bench.parser.injected_mappings == static_cast<int64_t>(before.mappings));
  CHECK(log == (whole ? "" : LogOfCut(&bench, prefix, rich.parts[cut])));
}

// Walks two answers, a good one and then `record`.
struct Outcome {
  int result = -1;
  std::string summary;
  std::string log;
};
Outcome WalkBehindGoodOne(const Record& record) {
  QuietBench bench;
  const std::string bytes = Response(7).Answer("aa", A("192.0.2.1")).Answer(record).Wire();
  Outcome outcome;
  outcome.result = bench.parser.ParseResponse(&outcome.summary, nullptr, View(bytes), 12, 3, true, "");
  outcome.log = Log(bench.host);
  CHECK(bench.host.mappings.size() == 1);
  return outcome;
}

const std::string kUnknownLabel =
    Dropped("GetName unknown length-high-bit mask: 0x%02x", "GetName unknown length-high-bit mask: 0x40");

}  // namespace

TEST_CASE("each prefix of a response yields the answers it holds, and then has run out") {
  const Rich rich;
  const std::string message = rich.message.Wire();
  for (size_t length = 0; length <= message.size(); ++length) CheckPrefix(rich, Prefix(message, length));
}

TEST_CASE("the data of a record that no reader reads may be missing at the end") {
  const Rich rich;
  const Part& last = rich.parts.back();
  REQUIRE(last.record.type == kRrsig);
  const QuietBench bench;
  const std::string prefix = Prefix(rich.message.Wire(), static_cast<size_t>(last.data));
  int rrsigs = 0;
  CHECK(bench.parser.ParseResponse(nullptr, &rrsigs, View(prefix), rich.parts.front().start, rich.Count(), true,
                                   "") == kDecoded);
  CHECK(rrsigs == 2);
}

TEST_CASE("more answers announced than there are have run out, and those there are stand") {
  QuietBench bench;
  const std::string bytes = Response(7).Answer("aa", A("192.0.2.1")).Wire();
  std::string summary;
  CHECK(bench.parser.ParseResponse(&summary, nullptr, View(bytes), 12, 2, true, "") == kRanOut);
  CHECK(summary == "[aa => 192.0.2.1]");
  CHECK(bench.host.mappings.size() == 1);
  CHECK(Log(bench.host) == NameRanOut(31, 30));
}

TEST_CASE("a record length past the captured bytes runs out at the next record") {
  QuietBench bench;
  const std::string bytes = Response(7).Answer("aa", A("192.0.2.1").RdLength(65535)).Wire();
  CHECK(bench.parser.ParseResponse(nullptr, nullptr, View(bytes), 12, 1, false, "") == kDecoded);
  CHECK(bench.parser.ParseResponse(nullptr, nullptr, View(bytes), 12, 2, false, "") == kRanOut);
  CHECK(Log(bench.host) == NameRanOut(26 + 65535 + 1, bytes.size()));
}

TEST_CASE("a malformed owner ends the walk as malformed, and what came before stands") {
  const Outcome outcome = WalkBehindGoodOne({RawName("\x41"), A("192.0.2.2")});
  CHECK(outcome.result == kMalformed);
  CHECK(outcome.summary == "[aa => 192.0.2.1]");
  CHECK(outcome.log == kUnknownLabel);
}

TEST_CASE("a malformed target ends the walk as malformed, and what came before stands") {
  for (const Data& data : {Cname(RawName("\x41")), Ptr(RawName("\x41")), Mx(1, RawName("\x41"))}) {
    CAPTURE(data.type);
    const Outcome outcome = WalkBehindGoodOne({"4.3.2.1.in-addr.arpa", data});
    CHECK(outcome.result == kMalformed);
    CHECK(outcome.summary == "[aa => 192.0.2.1]");
    CHECK(outcome.log == kUnknownLabel);
  }
}

TEST_CASE("a malformed name in a record that is skipped does not matter") {
  QuietBench bench;
  const std::string bytes = Response(7)
                                .Answer("aa", Ns(RawName("\x41")))
                                .Answer("aa", Soa(RawName("\x41"), RawName("\x41")))
                                .Answer("aa", Cname(RawName("\x41")), 300, kChaos)
                                .Wire();
  CHECK(bench.parser.ParseResponse(nullptr, nullptr, View(bytes), 12, 3, true, "") == kDecoded);
  CHECK(Log(bench.host).empty());
}

TEST_CASE("a walk through a view that has failed before has run out at its first name") {
  QuietBench bench;
  const std::string bytes = Response(7).Answer("aa", A("192.0.2.1")).Wire();
  const IOVec view = View(bytes);
  view.ok = false;
  CHECK(bench.parser.ParseResponse(nullptr, nullptr, view, 12, 1, true, "") == kRanOut);
  CHECK(Log(bench.host) == NameRanOut(13, bytes.size()));
  CHECK(bench.host.mappings.empty());
}

TEST_CASE("in throwing mode what is cut off throws through the walk, and what came before stands") {
  QuietBench bench;
  std::string bytes = Response(7).Answer("aa", A("192.0.2.1")).Answer("aa", A("192.0.2.2")).Wire();
  bytes.pop_back();
  IOVec view = View(bytes);
  view.underflow_mode = IOVec::THROW;
  std::string summary;
  CHECK_THROWS_AS(bench.parser.ParseResponse(&summary, nullptr, view, 12, 2, true, ""),
                  const IOVec::UnderflowException&);
  CHECK(summary == "[aa => 192.0.2.1]");
  CHECK(bench.host.mappings.size() == 1);
  CHECK(Log(bench.host).empty());
}

TEST_CASE("in aborting mode what is cut off is fatal") {
  const std::string bytes = Response(7).Answer("aa", Rdata(kA, "abc")).Wire();
  CHECK(FatalLine([&] {
          const QuietBench bench;
          IOVec view = View(bytes);
          view.underflow_mode = IOVec::ABORT;
          bench.parser.ParseResponse(nullptr, nullptr, view, 12, 1, false, "");
        }) == "{ERROR}-iovec.h:162: should not be reached\n");
}
