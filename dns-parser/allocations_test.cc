#include "tests/faults/allocations.h"

#include <doctest/doctest.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <map>
#include <string>

#include "tests/support/pairing.h"

using namespace test;

// The parser keeps the memory of one message for the next: traffic like the traffic before costs no allocation, and
// what a huge message needed is given back.

namespace {

// A host that allocates nothing itself.
class LeanHost : public IRequestSink {
 public:
  LeanHost() {
    table.log_level = &level;
    table.log = Log;
    table.is_debug_enabled = [](const std::string&) { return false; };
    table.want_extended_details = [] { return true; };
    table.inject_dns_mapping = [](const char*, const char*, uint32_t) {};
    table.get_current_context_id = [] { return uint32_t{0}; };
  }
  void OnBeginRequest(const BeginRequest*) override {}
  void OnEndRequest(const EndRequest* request) override {
    ++ended;
    if (const auto* extended = dynamic_cast<const ExtendedEndRequest*>(request))
      strings += extended->strings.size();
  }

  CollectorExports table{};
  int level = 4;
  size_t ended = 0;
  size_t strings = 0;

 private:
  __attribute__((format(printf, 2, 3))) static void Log(int, const char*, ...) {}
};

struct LeanBench {
  LeanBench() : parser(&host.table, With("enable_dnssec", "1")) { parser.request_sink = &host; }

  void Ask(const std::string& message, int64_t now = 0) {
    const int size = static_cast<int>(message.size());
    parser.HandleRequest(&flow, {now}, message.data(), size, size);
  }
  void Answer(const std::string& message) {
    const int size = static_cast<int>(message.size());
    parser.HandleResponse(&flow, {0}, message.data(), size, size);
  }

  LeanHost host;
  ParserFlow flow = MakeFlow();
  DNSParser parser;
};

// How many allocations `work` makes.
template <typename Work>
long Cost(Work work) {
  const long before = faults::Allocations();
  work();
  return faults::Allocations() - before;
}

const std::string kName = "a-label-too-long-for-a-short-string.example";

Message Asked(unsigned id, uint16_t type = kA, uint16_t question_class = kIn) {
  return Query(id).Question(kName, type, question_class);
}

// A response with every answer that makes a text, but for those whose formatting is not the parser's.
std::string Answered(unsigned id) {
  return Response(id)
      .Question(kName, kA)
      .Answer(kName, Cname("target." + kName))
      .Answer("target." + kName, A("192.0.2.1"))
      .Answer(kName, Mx(5, "mail." + kName))
      .Answer(kName, Txt("a text that is too long for a short string"))
      .Answer(kName, Rrsig(kA, kName))
      .Wire();
}

// A name of `labels` labels of 63 bytes: 64 bytes of text for each, less one.
Name LongName(size_t labels) {
  Name name;
  name.labels.assign(labels, std::string(63, 'x'));
  return name;
}

}  // namespace

TEST_CASE("an exchange like those before it allocates nothing") {
  LeanBench bench;
  const std::string query = Asked(7).Additional(Opt({.dnssec_ok = true})).Wire();
  const std::string response = Answered(7);
  const auto exchange = [&] {
    bench.Ask(query);
    bench.Answer(response);
  };
  for (int i = 0; i < 5; ++i) exchange();
  CHECK(Cost(exchange) == 0);
  CHECK(bench.host.ended == 6);
  CHECK(bench.host.strings == 18);  // the names, the summary and the number of signatures
}

TEST_CASE("queries that expire leave their memory to later ones") {
  LeanBench bench;
  const std::string first = Asked(1).Wire();
  const std::string second = Asked(2, kTxt).Wire();
  const auto expire = [&] {
    bench.Ask(first, 0);
    bench.Ask(second, 0);
    bench.parser.Heartbeat({5000001});
  };
  for (int i = 0; i < 5; ++i) expire();
  CHECK(Cost(expire) == 0);
  CHECK(bench.parser.timed_out_requests == 12);
}

TEST_CASE("a query that repeats an open one allocates nothing") {
  LeanBench bench;
  const std::string query = Asked(7).Wire();
  for (int i = 0; i < 5; ++i) bench.Ask(query);
  CHECK(Cost([&] { bench.Ask(query); }) == 0);
  CHECK(bench.parser.open_queries.size() == 1);
}

TEST_CASE("a malformed answer and an unsolicited response allocate nothing") {
  LeanBench bench;
  const std::string query = Asked(7).Wire();
  const std::string malformed =
      Response(7).Question(kName, kA).Answer(kName, A("192.0.2.1")).Answer(RawName("\x80"), A("192.0.2.1")).Wire();
  const auto exchange = [&] {
    bench.Ask(query);
    bench.Answer(malformed);
    bench.Answer(malformed);
  };
  for (int i = 0; i < 5; ++i) exchange();
  CHECK(Cost(exchange) == 0);
  CHECK(bench.parser.unsolicited_responses == 6);
}

TEST_CASE("texts of up to a kilobyte stay for the next message, longer ones are given back") {
  LeanBench bench;
  const auto exchange_of = [&](size_t labels) {
    return [&bench, query = Query(7).Question(LongName(labels), kA).Wire(),
            response = Response(7).Question(LongName(labels), kA).Wire()] {
      bench.Ask(query);
      bench.Answer(response);
    };
  };
  const auto kilobyte = exchange_of(16);  // 1023 bytes
  for (int i = 0; i < 5; ++i) kilobyte();
  CHECK(Cost(kilobyte) == 0);
  const auto more = exchange_of(17);
  for (int i = 0; i < 5; ++i) more();
  CHECK(Cost(more) > 0);
}

TEST_CASE("what a huge message needed is given back by the next one") {
  LeanBench bench;
  const std::string small_query = Asked(1).Wire();
  const std::string small_response = Answered(1);
  const auto small = [&] {
    bench.Ask(small_query);
    bench.Answer(small_response);
  };
  for (int i = 0; i < 5; ++i) small();
  const size_t before = faults::LiveBytes();
  // Each of its names is longer than all that may stay.
  {
    Message query = Query(7).Question(LongName(400), kA);
    const std::string response = Response(7)
                                     .Question(LongName(400), kA)
                                     .Answer(LongName(160), Cname(LongName(160)))
                                     .Answer(LongName(160), Cname(LongName(160)))
                                     .Wire();
    for (int i = 0; i < 300; ++i) query.Question("a", kA);
    query.Additional(LongName(160), A("192.0.2.1"));
    bench.Ask(query.Wire());
    bench.Answer(response);
    bench.Ask(query.Wire(), 0);
    bench.Ask(query.Wire(), 0);  // the repeated one is put away at once
    bench.parser.Heartbeat({5000001});
  }
  CHECK(bench.host.ended == 7);
  small();
  // Kept for good are at most a few entries with texts of up to a kilobyte.
  CHECK(faults::LiveBytes() < before + 10000);
}

TEST_CASE("a thousand entries are kept for later queries and the others given back") {
  LeanBench bench;
  std::string query = Asked(0).Wire();
  const auto fill = [&](unsigned count) {
    for (unsigned id = 0; id < count; ++id) {
      query.replace(0, 2, U16(id));
      bench.Ask(query, 0);
    }
    bench.parser.Heartbeat({5000001});
  };
  fill(10);
  const size_t empty = faults::LiveBytes();
  fill(1000);
  CHECK(Cost([&] { fill(1000); }) == 0);
  const size_t thousand = faults::LiveBytes();
  fill(5000);
  CHECK(thousand > empty + 1000 * kName.size());
  CHECK(faults::LiveBytes() < empty + 2 * (thousand - empty));
}

#if !defined(DNSPAIR_SANITIZE)  // which surrounds blocks with memory of its own
// The memory of this process, in bytes.
size_t Resident() {
  size_t whole = 0;
  size_t resident = 0;
  std::ifstream("/proc/self/statm") >> whole >> resident;
  return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

TEST_CASE("an open query takes at most 450 bytes of memory") {
  constexpr size_t kQueries = 20000;
  LeanBench bench;
  std::string query = Query(0).Question("a.name.as-long-as-most.example", kAaaa).Wire();
  bench.Ask(query);
  const size_t before = Resident();
  for (size_t id = 1; id <= kQueries; ++id) {
    query.replace(0, 2, U16(static_cast<unsigned>(id)));
    bench.Ask(query);
  }
  REQUIRE(bench.parser.open_queries.size() == kQueries + 1);
  const size_t each = (Resident() - before) / kQueries;
  CHECK(each > sizeof(DnsQuery));
  CHECK(each <= 450);
}
#endif

TEST_CASE("questions asked again find their text, others take the place of one") {
  LabelCache labels;
  const std::string* text = &labels.Label(kTxt, kChaos);
  CHECK(Cost([&] { text = &labels.Label(kTxt, kChaos); }) == 0);
  CHECK(*text == "CH/TXT - Text record");
  for (uint16_t type = 0; type < 1000; ++type) labels.Label(type, kIn);
  CHECK(labels.Label(kTxt, kChaos) == "CH/TXT - Text record");
}

TEST_CASE("a heartbeat that can have nothing to expire does not look at the table") {
  LeanBench bench;
  bench.Ask(Asked(1).Wire(), 100);
  bench.Ask(Asked(2).Wire(), 500);
  bench.Answer(Answered(1));
  bench.parser.Heartbeat({5000100});
  CHECK(bench.parser.earliest_start.ticks == 100);  // not found anew
  bench.parser.Heartbeat({5000101});
  CHECK(bench.parser.earliest_start.ticks == 500);
  bench.parser.Heartbeat({5000501});
  CHECK(bench.parser.earliest_start == DNSParser::kNever);
}
