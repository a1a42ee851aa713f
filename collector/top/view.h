#pragma once

#include <cstdint>
#include <span>

#include "collector/top/slice.h"
#include "collector/top/timeline.h"

namespace top {

// What is shown: all lists in short, or one of them at length.
enum class Lists : uint8_t { kAll, kNames, kClients, kServers };

// What the user chose to see.
struct View {
  Window window = Window::kMinute;
  Order order = Order::kBusiest;
  Lists lists = Lists::kAll;
  bool help = false;
  bool quit = false;
};

// Texts for people.
const char* WindowText(Window window);  // "last minute"
const char* OrderText(Order order);     // "busiest first"

// One key and what it does.
struct Key {
  char character;
  const char* name;   // as the help shows it
  const char* brief;  // for the bottom line; "" to leave it out
  const char* help;   // one sentence
  void (*press)(View* view);
};
std::span<const Key> AllKeys();

// Does what belongs to the key. False for a key that means nothing. While the help is shown, any key takes it away.
bool Press(View* view, int key);

}  // namespace top
