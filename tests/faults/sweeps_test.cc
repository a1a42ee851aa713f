#include <doctest/doctest.h>

#include <string>
#include <vector>

#include "tests/faults/plain_host.h"
#include "tests/support/guarded_bytes.h"
#include "tests/support/rich_messages.h"

using namespace test;
using faults::Call;
using faults::PlainHost;

// Good messages with every change that is small enough to try them all: cut at each byte, and each byte replaced by
// each value, from both sides, through the built library. Whatever is made of a broken message, the exchange that
// comes behind it must be told as if nothing had happened.

namespace {

const faults::Config kDnssec = {{"enable_dnssec", "1"}};

std::string Framed(const std::string& message) { return U16(static_cast<unsigned>(message.size())) + message; }

// A parser and what its host was told lately.
struct Bench {
  explicit Bench(int log_level) {
    host.log_level = log_level;
    host.Create(kDnssec);
  }

  // What comes of an ordinary exchange, or of its response alone. A query of the same identity may be open.
  std::vector<std::string> Exchange(const std::string& query, const std::string& response, uint8_t transport) {
    host.records.clear();
    host.mappings.clear();
    host.Feed(Call::kQuery, transport, query.data(), query.size(), query.size());
    host.Feed(Call::kResponse, transport, response.data(), response.size(), response.size());
    std::vector<std::string> told;
    // The numbers of requests move on, and are the only thing that does.
    for (const std::string& record : host.records)
      told.push_back(record.substr(record.find(' ', record.find(' ') + 1)));
    for (const std::string& mapping : host.mappings) told.push_back(mapping);
    return told;
  }

  void Forget() {
    host.Make({Call::kHeartbeat, "", int64_t{1} << 50});
    host.begun = 0;
    host.ended = 0;
    host.records.clear();
    host.mappings.clear();
  }

  PlainHost host;
};

struct Good {
  std::string query = Query(7).Question("aa.bb", kA).Wire();
  std::string response = Response(7).Question("aa.bb", kA).Answer("aa.bb", A("192.0.2.1")).Wire();
};

// One broken message, behind the query that it may answer. Returns what the parser did.
int Try(Bench* bench, Call::What what, uint8_t transport, const char* data, size_t snap, size_t nominal) {
  static const Good good;
  if (what == Call::kResponse) {
    const std::string query = transport == kTransportTcp ? Framed(good.query) : good.query;
    bench->host.Feed(Call::kQuery, transport, query.data(), query.size(), query.size());
  }
  return bench->host.Feed(what, transport, data, snap, nominal);
}

// Every query that was begun, and was no repetition, ends exactly once, and nothing else does.
void CheckAccount(Bench* bench, Call::What what) {
  bench->host.Make({Call::kHeartbeat, "", int64_t{1} << 50});
  CHECK(bench->host.ended == bench->host.begun);
  CHECK(bench->host.ended <= 1);
  if (what == Call::kResponse) CHECK(bench->host.ended == 1);
}

void CheckCuts(Call::What what, const std::string& message, uint8_t transport, int log_level) {
  static const Good good;
  const bool tcp = transport == kTransportTcp;
  const std::string wire = tcp ? Framed(message) : message;
  Bench bench(log_level);
  const auto query = tcp ? Framed(good.query) : good.query;
  const auto response = tcp ? Framed(good.response) : good.response;
  const auto untroubled = bench.Exchange(query, response, transport);
  for (size_t snap = 0; snap <= wire.size(); ++snap) {
    // A capture that lacks exactly the last byte of a message over TCP is read as if it were there.
    const size_t readable = tcp && snap + 1 == wire.size() ? snap + 1 : snap;
    const GuardedBytes bytes(wire.substr(0, readable));
    for (const size_t nominal : {snap, wire.size(), wire.size() + 1}) {
      if (nominal < snap) continue;
      CAPTURE(snap);
      CAPTURE(nominal);
      bench.Forget();
      const int result = Try(&bench, what, transport, bytes.data(), snap, nominal);
      const int all = static_cast<int>(tcp ? wire.size() : nominal);
      CHECK((result == -1 || result == all || (tcp && result == 0)));
      CheckAccount(&bench, what);
      CHECK(bench.Exchange(query, response, transport) == untroubled);
    }
  }
}

// `values` are tried at each place.
void CheckChanges(Call::What what, const std::string& message, const std::vector<unsigned>& values, int log_level) {
  static const Good good;
  Bench bench(log_level);
  const auto untroubled = bench.Exchange(good.query, good.response, kTransportUdp);
  const int size = static_cast<int>(message.size());
  for (size_t at = 0; at < message.size(); ++at) {
    std::string changed = message;
    for (const unsigned value : values) {
      changed[at] = static_cast<char>(value);
      bench.Forget();
      const int result = Try(&bench, what, kTransportUdp, changed.data(), changed.size(), changed.size());
      if (result != -1 && result != size) FAIL_CHECK("consumed " << result << " at " << at << " with " << value);
      bench.host.Make({Call::kHeartbeat, "", int64_t{1} << 50});
      if (bench.host.begun > 1 || bench.host.ended != bench.host.begun)
        FAIL_CHECK("at " << at << " with " << value);
    }
    CAPTURE(at);
    CHECK(bench.Exchange(good.query, good.response, kTransportUdp) == untroubled);
  }
}

std::vector<unsigned> EveryValue() {
  std::vector<unsigned> values;
  for (unsigned value = 0; value < 256; ++value) values.push_back(value);
  return values;
}

// Ends of ranges, label types and lengths: enough for what takes longer.
const std::vector<unsigned> kTellingValues = {0, 1, 2, 0x3f, 0x40, 0x7f, 0x80, 0xbf, 0xc0, 0xff};

void CheckAllCuts(uint8_t transport) {
  for (const int log_level : {4, 5}) {
    for (const std::string& query : SmallQueries()) CheckCuts(Call::kQuery, query, transport, log_level);
    for (const std::string& response : SmallResponses()) CheckCuts(Call::kResponse, response, transport, log_level);
    CheckCuts(Call::kQuery, RichQuery(7).Wire(), transport, log_level);
    CheckCuts(Call::kResponse, RichResponse(7).Wire(), transport, log_level);
  }
}

}  // namespace

TEST_CASE("a datagram cut at any byte is read to the cut, and the next exchange is whole") {
  CheckAllCuts(kTransportUdp);
}

TEST_CASE("a framed message cut at any byte is read to the cut, and the next exchange is whole") {
  CheckAllCuts(kTransportTcp);
}

TEST_CASE("a query with any byte changed to any value is begun once or not, and hurts no other") {
  for (const std::string& query : SmallQueries()) CheckChanges(Call::kQuery, query, EveryValue(), 4);
  for (const std::string& query : SmallQueries()) CheckChanges(Call::kQuery, query, kTellingValues, 5);
}

TEST_CASE("a response with any byte changed to any value ends its query once or not, and hurts no other") {
  for (const std::string& response : SmallResponses()) CheckChanges(Call::kResponse, response, EveryValue(), 4);
  for (const std::string& response : SmallResponses()) CheckChanges(Call::kResponse, response, kTellingValues, 5);
}
