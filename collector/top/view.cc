#include "collector/top/view.h"

namespace top {
namespace {

// The choice behind the one that is given, and the first behind the last.
template <typename Choice>
Choice Next(Choice choice, size_t choices) {
  return static_cast<Choice>((static_cast<size_t>(choice) + 1) % choices);
}

constexpr size_t kLists = 4;

constexpr Key kKeys[] = {
    {'q', "q", "quit", "leaves; the account of the run is printed then", [](View* view) { view->quit = true; }},
    {'h', "h", "help", "shows this page; any key takes it away", [](View* view) { view->help = true; }},
    {'?', "?", "", "the same", [](View* view) { view->help = true; }},
    {'w', "w", "window", "the time looked at: 10 seconds, 1 minute, 5 minutes, the whole run",
     [](View* view) { view->window = Next(view->window, kWindows); }},
    {'o', "o", "order", "what comes first: the busiest, the failing, the slowest",
     [](View* view) { view->order = Next(view->order, kOrders); }},
    {'\t', "Tab", "list", "all lists in short; names, clients or servers alone",
     [](View* view) { view->lists = Next(view->lists, kLists); }},
    {'a', "a", "", "all lists", [](View* view) { view->lists = Lists::kAll; }},
    {'n', "n", "", "names alone", [](View* view) { view->lists = Lists::kNames; }},
    {'c', "c", "", "clients alone", [](View* view) { view->lists = Lists::kClients; }},
    {'s', "s", "", "servers alone", [](View* view) { view->lists = Lists::kServers; }},
};

constexpr const char* kWindowTexts[kWindows] = {"last 10 seconds", "last minute", "last 5 minutes", "whole run"};
constexpr const char* kOrderTexts[kOrders] = {"busiest first", "failing first", "slowest first"};

}  // namespace

const char* WindowText(Window window) { return kWindowTexts[static_cast<size_t>(window)]; }
const char* OrderText(Order order) { return kOrderTexts[static_cast<size_t>(order)]; }
std::span<const Key> AllKeys() { return kKeys; }

bool Press(View* view, int key) {
  if (view->help && key != 'q') {
    view->help = false;
    return true;
  }
  for (const Key& known : kKeys) {
    if (known.character != key) continue;
    known.press(view);
    return true;
  }
  return false;
}

}  // namespace top
