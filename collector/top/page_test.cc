#include "collector/top/page.h"

#include <doctest/doctest.h>

#include <algorithm>

#include "collector/top/exchanges_for_tests.h"

namespace top {
namespace {

Surroundings Around() {
  return {.interfaces = "eth0 eth1", .time_ns = 1700000000123456789, .packets = 4321, .dropped = 0};
}

// 12 exchanges in 6 seconds.
Timeline::Sight SmallSight() {
  Timeline::Sight sight{Slice(100), 6};
  for (int i = 0; i < 8; ++i) Add(&sight.slice, {.name = "www.example.com", .rtt_us = 2000, .client = 1});
  for (int i = 0; i < 2; ++i) Add(&sight.slice, {.name = "no.example.com", .code = 3, .rtt_us = 1500, .client = 2});
  Add(&sight.slice, {.name = "slow.example.com", .rtt_us = 250000, .client = 3});
  Add(&sight.slice, {.name = "silent.example.com", .code = -1, .server = 54, .client = 3});
  return sight;
}

// Lines without the blanks at their ends.
std::string Text(const std::vector<Line>& page) {
  std::string text;
  for (const Line& line : page) text += line.text.substr(0, line.text.find_last_not_of(' ') + 1) + "\n";
  return text;
}

std::string Shown(const View& view, Size size) { return Text(Page(SmallSight(), view, Around(), size)); }

bool Has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

TEST_CASE("the usual terminal shows figures, all lists and the keys") {
  CHECK(Shown({}, {80, 24}) ==
        " dnspair eth0 eth1: last minute, busiest first          2023-11-14 22:13:20 UTC\n"
        "queries/s       2.0 answers/s       1.8 failed       16.7 % timed out     8.3 %\n"
        "p50 ms        2.008 p90 ms        2.008 p99 ms      250.000 max ms      250.000\n"
        "exchanges        12 seconds           6 packets        4321 dropped           0\n"
        "NAMES                 EXCHANGES  FAILED  FAILING NAMES            FAILED TIMEOUT\n"
        "www.example.com               8       0  no.example.com                2       0\n"
        "no.example.com                2       2  silent.example.com            0       1\n"
        "slow.example.com              1       0\n"
        "silent.example.com            1       0\n"
        "\n"
        "\n"
        "CLIENTS               EXCHANGES  FAILED  SLOWEST NAMES         MAX MS    MEAN MS\n"
        "192.0.2.1                     8       0  slow.example.com     250.000    250.000\n"
        "192.0.2.2                     2       2  www.example.com        2.000      2.000\n"
        "192.0.2.3                     2       0  no.example.com         1.500      1.500\n"
        "\n"
        "\n"
        "SERVERS               EXCHANGES  FAILED  FAILING SERVERS          FAILED TIMEOUT\n"
        "198.51.100.53                11       2  198.51.100.53                 2       0\n"
        "198.51.100.54                 1       0  198.51.100.54                 0       1\n"
        "\n"
        "\n"
        "\n"
        " q quit   h help   w window   o order   Tab list\n");
}

TEST_CASE("one list alone shows all that is known") {
  const std::string text = Shown({.order = Order::kFailing, .lists = Lists::kNames}, {80, 24});
  CHECK(Has(text,
            "NAME                              FAILED TIMEOUT EXCHANGES    MEAN MS     MAX MS\n"
            "no.example.com                         2       0         2      1.500      1.500\n"
            "silent.example.com                     0       1         1          -          -\n\n"));
}

TEST_CASE("a tiny terminal shows what fits of the most important, and the keys") {
  CHECK(Shown({}, {20, 5}) ==
        " dnspair eth0 eth1..\n"
        "queries/s       2.0\n"
        "answers/s       1.8\n"
        "failed       16.7 %\n"
        " q quit   h help  ..\n");
}

TEST_CASE("a narrow terminal has the lists below each other, a wide one has more columns") {
  const std::string narrow = Shown({}, {40, 30});
  CHECK(Has(narrow, "NAMES                  EXCHANGES  FAILED\n"));
  CHECK(Has(narrow, "FAILING NAMES             FAILED TIMEOUT\n"));
  const std::string wide = Shown({}, {160, 50});
  CHECK(Has(wide, "EXCHANGES  FAILED TIMEOUT    MEAN MS     MAX MS  FAILING NAMES  "));
}

TEST_CASE("no page is larger than the screen, whatever its size and view") {
  const Timeline::Sight sight = SmallSight();
  for (const Size size : {Size{0, 0},
                          {1, 1},
                          {3, 2},
                          {5, 40},
                          {20, 5},
                          {39, 7},
                          {69, 9},
                          {70, 10},
                          {80, 24},
                          {132, 43},
                          {300, 100},
                          {80, 5},
                          {80, 6}}) {
    for (const Lists lists : {Lists::kAll, Lists::kNames, Lists::kClients, Lists::kServers}) {
      for (const bool help : {false, true}) {
        const auto page = Page(sight, {.lists = lists, .help = help}, Around(), size);
        CHECK(page.size() <= size.height);
        CHECK(std::ranges::all_of(page, [&](const Line& line) { return line.text.size() <= size.width; }));
      }
    }
  }
}

TEST_CASE("no byte of a name or an interface reaches the terminal as a control character") {
  Timeline::Sight sight{Slice(10), 1};
  std::string every;
  for (int i = 0; i < 256; ++i) {
    if (i == '.') continue;
    every = "x";
    every += static_cast<char>(i);
    Add(&sight.slice, {.name = every + "[2J", .code = 3, .rtt_us = i});
  }
  Add(&sight.slice, {.name = "\x1b]0;title\x07\x9b", .code = 3, .rtt_us = 10000});
  Surroundings around = Around();
  around.interfaces = "eth\x1b[0m\n";
  for (const Lists lists : {Lists::kAll, Lists::kNames}) {
    for (const Order order : {Order::kBusiest, Order::kFailing, Order::kSlowest}) {
      const auto page = Page(sight, {.order = order, .lists = lists}, around, {300, 400});
      for (const Line& line : page) {
        CHECK(std::ranges::all_of(line.text, [](char c) { return c >= 0x20 && c < 0x7f; }));
      }
      CHECK(Has(Text(page), "\\027]0;title\\007\\155"));
    }
  }
}

TEST_CASE("dropped packets stand out") {
  Surroundings around = Around();
  around.dropped = 17;
  const auto page = Page(SmallSight(), {}, around, {80, 24});
  CHECK(page[3].look == Look::kAlarm);
  CHECK(Has(page[3].text, "dropped          17"));
  CHECK(Page(SmallSight(), {}, Around(), {80, 24})[3].look == Look::kPlain);
}

TEST_CASE("without exchanges there is no division by zero and no row") {
  const std::string text = Text(Page({Slice(10), 1}, {}, Around(), {80, 24}));
  CHECK(Has(text, "failed            - timed out         -"));
  CHECK(Has(text, "p50 ms            - "));
  CHECK(Has(text, "\nSERVERS               EXCHANGES  FAILED  FAILING SERVERS          FAILED TIMEOUT\n\n"));
}

TEST_CASE("the help names every key") {
  const std::string text = Shown({.help = true}, {80, 24});
  for (const Key& key : AllKeys()) {
    CHECK(Has(text, std::string("  ") + key.name + " "));
    CHECK(Has(text, key.help));
  }
}

}  // namespace
}  // namespace top
