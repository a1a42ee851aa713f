#include <doctest/doctest.h>

#include <new>
#include <string>
#include <vector>

#include "tests/faults/allocations.h"
#include "tests/faults/plain_host.h"
#include "tests/faults/scenes.h"

using faults::AnotherExchange;
using faults::kConfig;
using faults::PlainHost;
using faults::Scene;
using faults::Scenes;

// Memory runs out at every single allocation that the library makes: once each time, as it happens to a host that
// frees something and goes on.

namespace {

// Every record of the scene when nothing fails, up to the exchange behind it.
std::vector<std::string> Untroubled(const Scene& scene, int log_level) {
  PlainHost host;
  host.log_level = log_level;
  host.Create(kConfig);
  host.Make(scene.before);
  host.Make(scene.call);
  host.Make(AnotherExchange());
  return host.records;
}

// Fails the nth allocation of the scene's call. False when the call came to its end without it.
bool FailsAt(const Scene& scene, int log_level, long nth, const std::vector<std::string>& untroubled) {
  PlainHost host;
  host.log_level = log_level;
  host.Create(kConfig);
  host.Make(scene.before);
  faults::FailAllocation(nth);
  bool failed = false;
  try {
    host.Make(scene.call);
  } catch (const std::bad_alloc&) {
    failed = true;
  }
  faults::FailAllocation(0);
  if (!failed) return false;
  host.Make(scene.call);
  host.Make(AnotherExchange());
  CHECK(host.records == untroubled);
  return true;
}

// Returns how many allocations the scene's call makes.
long CheckScene(const Scene& scene, int log_level) {
  INFO(std::string(scene.name));
  CAPTURE(log_level);
  const auto untroubled = Untroubled(scene, log_level);
  for (long nth = 1;; ++nth) {
    CAPTURE(nth);
    const long before = faults::LiveBlocks();
    const bool failed = FailsAt(scene, log_level, nth, untroubled);
    CHECK(faults::LiveBlocks() == before);
    if (!failed) return nth - 1;
  }
}

// The library's allocations come to this program's operator, or nothing of this would be a test.
void CheckScenes(int log_level) {
  long failures = 0;
  for (const Scene& scene : Scenes()) failures += CheckScene(scene, log_level);
  CHECK(failures > 50);
}

}  // namespace

TEST_CASE("a call that runs out of memory throws, loses nothing and can be made again") { CheckScenes(4); }

TEST_CASE("a call that runs out of memory while it is traced throws, loses nothing and can be made again") {
  CheckScenes(5);
}

TEST_CASE("a parser that memory does not suffice for is not made, and leaves nothing behind") {
  PlainHost host;
  host.Create(kConfig);  // whatever the process allocates once
  host.Destroy();
  const long before = faults::LiveBlocks();
  long nth = 1;
  for (;; ++nth) {
    faults::FailAllocation(nth);
    bool failed = false;
    try {
      host.Create(kConfig);
    } catch (const std::bad_alloc&) {
      failed = true;
    }
    faults::FailAllocation(0);
    if (!failed) break;
    CHECK(faults::LiveBlocks() == before);
  }
  CHECK(nth > 3);
  host.Make(AnotherExchange());
  CHECK(host.ended == 1);
  host.Destroy();
}

TEST_CASE("destruction and the health line need no memory") {
  PlainHost host;
  host.Create(kConfig);
  for (unsigned id = 0; id < 100; ++id) host.Make(faults::UdpQuery(test::RichQuery(id)));
  faults::FailAllocation(1);
  host.Health();
  host.Destroy();
  const long needed = faults::Allocations();
  faults::FailAllocation(0);
  CHECK(needed == 0);
}
