#include "collector/cli/options.h"

#include <doctest/doctest.h>

#include "collector/cli/usage_error.h"

namespace cli {
namespace {

using Arguments = std::map<std::string, std::string>;

TEST_CASE("keys and values are passed on as they are") {
  std::vector<std::string> unknown;
  CHECK(PluginArguments({"max_open_requests=10", "enable_dnssec=true", "enable_axfr=", "request_timeout_s=a=b"},
                        &unknown) == Arguments{{"max_open_requests", "10"},
                                               {"enable_dnssec", "true"},
                                               {"enable_axfr", ""},
                                               {"request_timeout_s", "a=b"}});
  CHECK(unknown.empty());
}

TEST_CASE("a later value replaces an earlier one") {
  std::vector<std::string> unknown;
  CHECK(PluginArguments({"enable_axfr=true", "enable_axfr=false"}, &unknown) ==
        Arguments{{"enable_axfr", "false"}});
}

TEST_CASE("keys that no plug-in of this interface knows are named and passed on") {
  std::vector<std::string> unknown;
  CHECK(PluginArguments({"colour=red", "enable_axfr=true"}, &unknown).size() == 2);
  CHECK(unknown == std::vector<std::string>{"colour"});
}

TEST_CASE("what has no key is wrong usage") {
  std::vector<std::string> unknown;
  CHECK_THROWS_AS(PluginArguments({"key"}, &unknown), UsageError);
  CHECK_THROWS_AS(PluginArguments({"=value"}, &unknown), UsageError);
}

}  // namespace
}  // namespace cli
