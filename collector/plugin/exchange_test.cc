#include "collector/plugin/exchange.h"

#include <doctest/doctest.h>

#include <limits>
#include <string>

namespace plugin {

TEST_CASE("a status has the name that records show") {
  CHECK(std::string(StatusName(Status::kAnswered)) == "answered");
  CHECK(std::string(StatusName(Status::kTimeout)) == "timeout");
  CHECK(std::string(StatusName(Status::kMalformed)) == "malformed");
  CHECK(std::string(StatusName(Status::kOpen)) == "open");
  CHECK(std::string(StatusName(static_cast<Status>(kStatusCount))) == "unknown");
}

TEST_CASE("a duration ends where 64 bits do, whatever clocks say") {
  constexpr int64_t kFirst = std::numeric_limits<int64_t>::min();
  constexpr int64_t kLast = std::numeric_limits<int64_t>::max();
  Exchange exchange;
  const auto duration = [&](int64_t query, int64_t response) {
    exchange.query_time_ns = query;
    exchange.response_time_ns = response;
    return exchange.DurationNs();
  };
  CHECK(duration(10, 2010) == 2000);
  CHECK(duration(2010, 10) == -2000);
  CHECK(duration(-1, kLast - 1) == kLast);
  CHECK(duration(-1, kLast) == kLast);
  CHECK(duration(1, kFirst + 1) == kFirst);
  CHECK(duration(1, kFirst) == kFirst);
}

}  // namespace plugin
