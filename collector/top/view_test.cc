#include "collector/top/view.h"

#include <doctest/doctest.h>

#include <set>
#include <string>

namespace top {
namespace {

TEST_CASE("w goes through all windows and comes back") {
  View view;
  std::set<std::string> seen;
  for (size_t i = 0; i < kWindows; ++i) {
    seen.insert(WindowText(view.window));
    CHECK(Press(&view, 'w'));
  }
  CHECK(seen.size() == kWindows);
  CHECK(view.window == Window::kMinute);
}

TEST_CASE("o goes through all orders and comes back") {
  View view;
  CHECK(Press(&view, 'o'));
  CHECK(view.order == Order::kFailing);
  CHECK(Press(&view, 'o'));
  CHECK(view.order == Order::kSlowest);
  CHECK(Press(&view, 'o'));
  CHECK(view.order == Order::kBusiest);
}

TEST_CASE("lists are chosen one after the other or by their letter") {
  View view;
  for (const Lists lists : {Lists::kNames, Lists::kClients, Lists::kServers, Lists::kAll}) {
    CHECK(Press(&view, '\t'));
    CHECK(view.lists == lists);
  }
  CHECK(Press(&view, 's'));
  CHECK(view.lists == Lists::kServers);
  CHECK(Press(&view, 'c'));
  CHECK(view.lists == Lists::kClients);
  CHECK(Press(&view, 'n'));
  CHECK(view.lists == Lists::kNames);
  CHECK(Press(&view, 'a'));
  CHECK(view.lists == Lists::kAll);
}

TEST_CASE("any key takes the help away and does nothing else; q leaves even then") {
  View view;
  CHECK(Press(&view, '?'));
  CHECK(view.help);
  CHECK(Press(&view, 'o'));
  CHECK_FALSE(view.help);
  CHECK(view.order == Order::kBusiest);
  CHECK(Press(&view, 'h'));
  CHECK(Press(&view, 'q'));
  CHECK(view.quit);
}

TEST_CASE("a key without a meaning changes nothing") {
  View view;
  CHECK_FALSE(Press(&view, 'z'));
  CHECK_FALSE(Press(&view, 27));
  CHECK_FALSE(view.quit);
}

}  // namespace
}  // namespace top
