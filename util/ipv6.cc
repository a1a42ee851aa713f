#include "util/ipv6.h"

#include <charconv>

std::string format_ipv6(const char* address) {
  std::string text;
  bool compressed = false;
  bool in_run = false;
  for (int i = 0; i < 8; ++i) {
    const unsigned high = static_cast<unsigned char>(address[2 * i]);
    const unsigned low = static_cast<unsigned char>(address[2 * i + 1]);
    const unsigned group = high << 8 | low;
    if (group == 0 && in_run) continue;
    if (group == 0 && !compressed) {
      text += ':';
      compressed = in_run = true;
      continue;
    }
    in_run = false;
    if (i != 0) text += ':';
    char digits[4];
    text.append(digits, std::to_chars(digits, digits + sizeof digits, group, 16).ptr);
  }
  return text == ":" ? "::0" : text;
}
