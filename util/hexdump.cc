#include "util/hexdump.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr int kRow = 16;

void print_as_text(const char* data, int count) {
  for (int i = 0; i < count; ++i) putchar(data[i] >= 0x20 && data[i] <= 0x7e ? data[i] : '.');
}

// Twice the length and the NUL, cut to 32 bits and widened with its sign. Lengths that do not fit thereby ask for
// more memory than there is, and end in the malloc-failure line instead of in a short buffer.
size_t hex_text_size(int len) { return static_cast<size_t>(static_cast<int32_t>(int64_t{len} * 2 + 1)); }

}  // namespace

int print_hexdump(const char* data, int len) {
  printf("Packet size: %d bytes\n", len);
  for (int i = 0; i < len; ++i) {
    printf("%02x ", static_cast<unsigned>(static_cast<unsigned char>(data[i])));
    if (i % kRow != kRow - 1) continue;
    print_as_text(data + (i - (kRow - 1)), kRow);
    putchar('\n');
  }
  const int rest = len % kRow;
  if (rest != 0) {
    for (int i = rest; i < kRow; ++i) printf("   ");
    if (rest > 0) print_as_text(data + (len - rest), rest);
  }
  return putchar('\n');
}

void _log_blob(void (*log)(int level, const char* format, ...), int level, const unsigned char* data, int len) {
  char* text = static_cast<char*>(malloc(hex_text_size(len)));
  if (text == nullptr) {
    log(level, "_log_blob: malloc failed. errno=%d", errno);
    return;
  }
  constexpr char kDigits[] = "0123456789abcdef";
  char* out = text;
  for (int i = 0; i < len; ++i) {
    *out++ = kDigits[data[i] >> 4];
    *out++ = kDigits[data[i] & 0xf];
  }
  *out = '\0';
  log(level, "%s", text);
  free(text);
}
