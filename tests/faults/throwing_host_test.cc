#include <doctest/doctest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tests/faults/plain_host.h"
#include "tests/faults/scenes.h"

using namespace test;
using faults::AnotherExchange;
using faults::Call;
using faults::Callback;
using faults::kConfig;
using faults::PlainHost;
using faults::Scene;
using faults::Scenes;
using faults::UdpQuery;
using faults::UdpResponse;

// A host throws out of each callback that a call makes, once each time. What was done before it stays done, what
// comes behind it has not happened, and the call can be made again.

namespace {

struct Thrown {};

// A host whose nth callback in the scene's call throws; none does for 0.
struct Attempt {
  Attempt(const Scene& scene, int log_level, int nth) {
    host.log_level = log_level;
    host.Create(kConfig);
    host.Make(scene.before);
    host.Health();
    host.records.clear();
    host.counts.clear();
    host.on_callback = [this, nth](Callback callback) {
      last = callback;
      if (++calls == nth) throw Thrown();
    };
    try {
      host.Make(scene.call);
    } catch (const Thrown&) {
      thrown = true;
    }
    host.on_callback = nullptr;
  }

  // Callbacks of a kind that came to their end.
  int Returned(Callback callback) { return host.counts[callback] - (thrown && last == callback ? 1 : 0); }

  PlainHost host;
  int calls = 0;
  Callback last = Callback::kLog;
  bool thrown = false;
};

std::vector<std::string> Untroubled(const Scene& scene, int log_level) {
  Attempt whole(scene, log_level, 0);
  whole.host.Make(AnotherExchange());
  return whole.host.records;
}

std::string HealthLine(int multi, int mappings, int most_open, int open, int timed_out) {
  char line[200];
  std::snprintf(line, sizeof line, "parser:dns uop:0 zqd:0 mqd:%d ur:0 inj:%d mor:%d or:%d rt:%d", multi, mappings,
                most_open, open, timed_out);
  return line;
}

// What the parser must know after the throw. Queries are open from just before they are announced until just after
// their end is; a mapping counts once the host has it.
std::string ExpectedHealth(const Scene& scene, Attempt* attempt) {
  if (scene.call.what == Call::kQuery) {
    const bool announced = attempt->host.counts[Callback::kBegin] == 1;
    const bool repeated = !scene.before.empty() && scene.before.back().bytes == scene.call.bytes;
    const int open = announced || repeated ? 1 : 0;
    return HealthLine(announced ? 1 : 0, 0, open, open, 0);
  }
  if (scene.call.what == Call::kResponse) return HealthLine(0, attempt->Returned(Callback::kMapping), 1, 1, 0);
  const int gone = attempt->Returned(Callback::kEnd);
  return HealthLine(0, 0, 3, 3 - gone, gone);
}

void CheckScene(const Scene& scene, int log_level) {
  INFO(std::string(scene.name));
  CAPTURE(log_level);
  const auto untroubled = Untroubled(scene, log_level);
  const int calls = Attempt(scene, log_level, 0).calls;
  CHECK(calls > 0);
  for (int nth = 1; nth <= calls; ++nth) {
    CAPTURE(nth);
    Attempt attempt(scene, log_level, nth);
    CHECK(attempt.thrown);
    CHECK(attempt.host.Health() == ExpectedHealth(scene, &attempt));
    attempt.host.Make(scene.call);
    attempt.host.Make(AnotherExchange());
    CHECK(attempt.host.records == untroubled);
  }
}

}  // namespace

TEST_CASE("whatever callback throws, the exception passes, nothing is half done, and the call can be made again") {
  for (const Scene& scene : Scenes()) CheckScene(scene, 4);
}

TEST_CASE("whatever callback throws while traces are on, nothing is half done, and the call can be made again") {
  for (const Scene& scene : Scenes()) CheckScene(scene, 5);
}

TEST_CASE("what is counted before it is logged is counted even when the log throws") {
  const Scene unknown = {"an unknown opcode", {}, UdpQuery(RichQuery(7).Opcode(9))};
  Attempt opcode(unknown, 4, 1);
  CHECK(opcode.thrown);
  CHECK(opcode.host.Health() == std::string("parser:dns uop:1 zqd:0 mqd:0 ur:0 inj:0 mor:0 or:0 rt:0"));
  const Scene blank = {"no question", {}, UdpQuery(Query(7))};
  Attempt question(blank, 4, 1);
  CHECK(question.thrown);
  CHECK(question.host.Health() == std::string("parser:dns uop:0 zqd:1 mqd:0 ur:0 inj:0 mor:0 or:0 rt:0"));
}

TEST_CASE("an unsolicited response is counted once its trace is written") {
  const Scene unsolicited = {"nobody asked", {}, UdpResponse(Response(7))};
  const int calls = Attempt(unsolicited, 5, 0).calls;
  for (int nth = 1; nth <= calls; ++nth) {
    Attempt attempt(unsolicited, 5, nth);
    CHECK(attempt.host.Health() == HealthLine(0, 0, 0, 0, 0));
    attempt.host.Make(unsolicited.call);
    CHECK(attempt.host.Health() == std::string("parser:dns uop:0 zqd:0 mqd:0 ur:1 inj:0 mor:0 or:0 rt:0"));
  }
}

TEST_CASE("a log that throws at the parser's first line makes no parser, and the next one works") {
  PlainHost host;
  host.on_callback = [](Callback) { throw Thrown(); };
  CHECK_THROWS_AS(host.Create(kConfig), Thrown);
  host.on_callback = nullptr;
  host.Create(kConfig);
  host.Make(AnotherExchange());
  CHECK(host.ended == 1);
}
