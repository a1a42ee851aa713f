#include "collector/cli/plugin_path.h"

#include <doctest/doctest.h>

namespace cli {
namespace {

TEST_CASE("the plug-in is looked for beside the program, in its build tree, and where it gets installed") {
  const auto places = PluginPlaces("/build/collector");
  REQUIRE(places.size() == 4);
  CHECK(places[0] == "/build/collector/libdns-parser.so");
  CHECK(places[1] == "/build/collector/../dns-parser/libdns-parser.so");
  CHECK(places[2].starts_with("/build/collector/../"));
  CHECK(places[3].starts_with("/"));
  for (const std::string& place : places) CHECK(place.ends_with("/libdns-parser.so"));
}

}  // namespace
}  // namespace cli
