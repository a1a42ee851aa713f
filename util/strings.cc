#include "util/strings.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "util/check.h"

namespace {

constexpr CheckSite kLongerThanCut{"util.cc", 300, "str.length() > len"};

bool is_continuation(char byte) { return (static_cast<unsigned char>(byte) & 0xc0) == 0x80; }

bool is_lead(char byte) { return static_cast<unsigned char>(byte) >= 0xc0; }

}  // namespace

int hex_to_int(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return -1;
}

std::string string_printf(const char* format, ...) {
  char text[1024] = "";
  va_list arguments;
  va_start(arguments, format);
  [[maybe_unused]] const int wanted = vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return text;
}

char* extract_utf8(const char* begin, const char* end) {
  const size_t length = static_cast<size_t>(end - begin);
  char* copy = static_cast<char*>(malloc(length + 1));
  if (copy == nullptr) return nullptr;
  *std::copy(begin, end, copy) = '\0';
  return copy;
}

size_t truncate_utf8(const std::string& str, size_t len) {
  if (str.length() <= len) {
    check_failed_unprefixed(kLongerThanCut.file, kLongerThanCut.line, kLongerThanCut.condition);
  }
  if (!is_continuation(str[len])) return len;

  // A character has at most three continuation bytes; the fourth look back is one more than is needed, and a run
  // that is longer is no UTF-8.
  const size_t farthest = len - std::min<size_t>(len, 4);
  for (size_t at = len; at-- > farthest;) {
    if (is_continuation(str[at])) continue;
    return is_lead(str[at]) ? at : len;
  }
  return len;
}

std::string string_trim(const std::string& str, const char* strip) {
  const size_t first = str.find_first_not_of(strip);
  if (first == std::string::npos) return {};
  const size_t last = str.find_last_not_of(strip);
  return str.substr(first, last - first + 1);
}

std::vector<std::string> string_split(const char* text, const char* separators, bool skip_empty,
                                      unsigned int limit) {
  std::vector<std::string> tokens;
  if (*text == '\0') return tokens;
  for (;;) {
    if (limit != 0 && tokens.size() == limit - 1) {
      tokens.emplace_back(text);
      return tokens;
    }
    const size_t length = strcspn(text, separators);
    if (length != 0 || !skip_empty) tokens.emplace_back(text, length);
    text += length;
    if (*text == '\0') return tokens;
    ++text;
    // A text that ends in a separator ends in an empty element. This comes before the limit: with skip_empty the
    // rest behind the last separator is nothing to keep, even where one more element would be allowed.
    if (*text != '\0') continue;
    if (!skip_empty) tokens.emplace_back();
    return tokens;
  }
}

std::vector<std::string> string_split(const std::string& text, const char* separators, bool skip_empty,
                                      unsigned int limit) {
  return string_split(text.c_str(), separators, skip_empty, limit);
}
