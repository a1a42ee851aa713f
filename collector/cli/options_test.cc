#include "collector/cli/options.h"

#include <doctest/doctest.h>

#include "collector/cli/usage_error.h"

namespace cli {
namespace {

using Arguments = std::map<std::string, std::string>;

TEST_CASE("keys and values are passed on as they are") {
  std::vector<std::string> unknown;
  CHECK(PluginArguments(
            {"max_open_requests=010", "enable_dnssec=Yes", "enable_axfr=0", "request_timeout_s=2147483647"},
            &unknown) == Arguments{{"max_open_requests", "010"},
                                   {"enable_dnssec", "Yes"},
                                   {"enable_axfr", "0"},
                                   {"request_timeout_s", "2147483647"}});
  CHECK(unknown.empty());
}

TEST_CASE("a later value replaces an earlier one") {
  std::vector<std::string> unknown;
  CHECK(PluginArguments({"enable_axfr=true", "enable_axfr=false"}, &unknown) ==
        Arguments{{"enable_axfr", "false"}});
}

TEST_CASE("keys that no plug-in of this interface knows are named and passed on") {
  std::vector<std::string> unknown;
  CHECK(PluginArguments({"colour=", "shape=a=b", "enable_axfr=true"}, &unknown) ==
        Arguments{{"colour", ""}, {"shape", "a=b"}, {"enable_axfr", "true"}});
  CHECK(unknown == std::vector<std::string>{"colour", "shape"});
}

TEST_CASE("values that the plug-in would take for something else are wrong usage") {
  std::vector<std::string> unknown;
  for (const std::string key : {"max_open_requests=", "request_timeout_s="}) {
    for (const char* value : {"", "-1", "1.5", "2x", "abc", " 1", "2147483648", "99999999999"}) {
      CAPTURE(value);
      CHECK_THROWS_AS(PluginArguments({key + value}, &unknown), UsageError);
    }
  }
  for (const std::string key : {"enable_dnssec=", "enable_axfr="}) {
    for (const char* value : {"", "2", "abc", "truee", "y"}) {
      CAPTURE(value);
      CHECK_THROWS_AS(PluginArguments({key + value}, &unknown), UsageError);
    }
  }
  CHECK_THROWS_WITH(PluginArguments({"request_timeout_s=2x"}, &unknown),
                    "--set: request_timeout_s takes a number from 0 to 2147483647, and not '2x'");
  CHECK_THROWS_WITH(PluginArguments({"enable_axfr=abc"}, &unknown),
                    "--set: enable_axfr takes true, yes, on or 1, or false, no, off or 0, and not 'abc'");
}

TEST_CASE("what has no key is wrong usage") {
  std::vector<std::string> unknown;
  CHECK_THROWS_AS(PluginArguments({"key"}, &unknown), UsageError);
  CHECK_THROWS_AS(PluginArguments({"=value"}, &unknown), UsageError);
}

}  // namespace
}  // namespace cli
