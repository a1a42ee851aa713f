// Packets whose times do not run evenly.
#include <doctest/doctest.h>

#include "tests/captures/cases.h"

using namespace test;

namespace {

constexpr int64_t kHour = 3600 * kSec;

}  // namespace

TEST_CASE("packets out of time order pair in the order of the capture") {
  Capture capture;
  capture.Udp(2 * kSec, kClient, kServer, Ask(7)).Nothing(4 * kSec);
  capture.Udp(2 * kSec + kMs, kServer, kClient, Say(7));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered 1000");
  CHECK(result.account["details"]["clock_steps_back"] == 0);
}

TEST_CASE("a packet from the past times nothing out, and neither does its return") {
  Capture capture;
  capture.Udp(50 * kSec, kClient, kServer, Ask(7)).Nothing(5 * kSec).Udp(50 * kSec + kMs, kServer, kClient, Say(7));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered 1000");
}

TEST_CASE("an answer with a time before its query's shows that: its response time is negative") {
  Capture capture;
  capture.Udp(50 * kMs, kClient, kServer, Ask(7)).Udp(48 * kMs, kServer, kClient, Say(7));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered -2000");
}

TEST_CASE("a clock that is set forward times out what was open") {
  Capture capture;
  capture.Udp(0, kClient, kServer, Ask(7)).Udp(kHour, kServer, kClient, Say(7));
  capture.Udp(kHour + kMs, kClient, kServer, Ask(8)).Udp(kHour + 2 * kMs, kServer, kClient, Say(8));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 timeout, 8 answered 1000");
}

TEST_CASE("a clock that is set back is noticed, and time-outs go by the new time") {
  Capture capture;
  capture.Udp(kHour, kClient, kServer, Ask(7)).Udp(kHour + kMs, kServer, kClient, Say(7));
  capture.Udp(0, kClient, kServer, Ask(8)).Nothing(4 * kSec).Nothing(8 * kSec);
  capture.Udp(9 * kSec, kClient, kServer, Ask(8)).Udp(9 * kSec + kMs, kServer, kClient, Say(8));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered 1000, 8 timeout, 8 answered 1000");
  CHECK(result.account["details"]["clock_steps_back"] == 1);
}

TEST_CASE("a query open when the clock is set back stays open until the time has come again") {
  Capture capture;
  capture.Udp(kHour, kClient, kServer, Ask(7)).Nothing(0).Nothing(9 * kSec);
  CHECK(Read(capture).Brief() == "7 open");
  capture.Nothing(kHour + 9 * kSec);
  CHECK(Read(capture).Brief() == "7 timeout");
}

TEST_CASE("times behind 2038 are the times that they are") {
  Capture capture;
  const int64_t far = 4'200'000'000 * kSec - kStart;
  capture.Udp(far, kClient, kServer, Ask(7)).Udp(far + kMs, kServer, kClient, Say(7));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered 1000");
  CHECK(result.records.at(0)["query_ns"] == kStart + far);
}
