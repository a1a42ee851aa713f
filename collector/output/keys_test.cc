#include "collector/output/keys.h"

#include <doctest/doctest.h>

#include "collector/output/exchange_for_tests.h"

namespace output {
namespace {

TEST_CASE("an address is its own key and comes back from it") {
  const packet::Address four = Ipv4(192, 0, 2, 1);
  const packet::Address six = Ipv6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1});
  CHECK(AddressKey(four).size() == 4);
  CHECK(AddressOfKey(AddressKey(four)) == "192.0.2.1");
  CHECK(AddressOfKey(AddressKey(six)) == "2001:db8::1");
}

TEST_CASE("letter case is folded and nothing else is") {
  std::string folded = "something longer than the name that comes";
  FoldName("\x03WwW\x02@[", &folded);
  CHECK(folded == "\x03www\x02@[");
}

}  // namespace
}  // namespace output
