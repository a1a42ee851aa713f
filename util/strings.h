#pragma once

#include <cstddef>
#include <string>
#include <vector>

// Helpers for byte strings. None of them looks at a locale.

#pragma GCC visibility push(default)

// The value of a hexadecimal digit of either case, or -1.
int hex_to_int(char digit);

// printf into a string. The result is cut to 1023 bytes without a word, on purpose: it is meant for short texts,
// and a long one must not cost more than one buffer.
std::string string_printf(const char* format, ...) __attribute__((format(printf, 1, 2)));

// A NUL-terminated copy of the bytes from `begin` up to `end`, as they are: nothing tests that they are UTF-8. The
// caller gives it back with free. Null when there is no memory.
extern "C" char* extract_utf8(const char* begin, const char* end);

// Where to cut `str` to at most `len` bytes without splitting a UTF-8 character: `len`, or the start of the
// character that a cut at `len` would split. Bytes that are no UTF-8 are cut at `len`. Fatal unless str.length() >
// len.
size_t truncate_utf8(const std::string& str, size_t len);

// `str` without the leading and trailing bytes that occur in `strip`.
std::string string_trim(const std::string& str, const char* strip);

// The texts between separators, each byte of `separators` being one. With `skip_empty`, empty texts are left out. A
// `limit` other than 0 is the most elements returned; the last of them is then the whole rest, separators included.
// An empty text has no elements.
std::vector<std::string> string_split(const char* text, const char* separators, bool skip_empty,
                                      unsigned int limit);

// The same for the text up to its first NUL byte.
std::vector<std::string> string_split(const std::string& text, const char* separators, bool skip_empty,
                                      unsigned int limit);

#pragma GCC visibility pop
