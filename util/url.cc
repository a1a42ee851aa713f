#include "util/url.h"

#include <cstring>

#include "util/strings.h"

void url_decode(const char* text, size_t length, std::string* out) {
  for (size_t i = 0; i < length; ++i) {
    if (text[i] == '+') {
      out->push_back(' ');
    } else if (text[i] != '%') {
      out->push_back(text[i]);
    } else {
      if (length - i < 3) return;
      const int high = hex_to_int(text[i + 1]);
      const int low = hex_to_int(text[i + 2]);
      if (high < 0 || low < 0) return;
      out->push_back(static_cast<char>(high * 16 + low));
      i += 2;
    }
  }
}

void url_decode(const char* text, std::string* out) { url_decode(text, strlen(text), out); }

std::string url_decode(const char* text) {
  std::string decoded;
  url_decode(text, &decoded);
  return decoded;
}

std::string url_decode(const std::string& text) { return url_decode(text.c_str()); }
