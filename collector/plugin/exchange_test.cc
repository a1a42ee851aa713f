#include "collector/plugin/exchange.h"

#include <doctest/doctest.h>

#include <string>

namespace plugin {

TEST_CASE("a status has the name that records show") {
  CHECK(std::string(StatusName(Status::kAnswered)) == "answered");
  CHECK(std::string(StatusName(Status::kTimeout)) == "timeout");
  CHECK(std::string(StatusName(Status::kMalformed)) == "malformed");
  CHECK(std::string(StatusName(Status::kOpen)) == "open");
  CHECK(std::string(StatusName(static_cast<Status>(kStatusCount))) == "unknown");
}

}  // namespace plugin
