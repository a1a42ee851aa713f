#pragma once

#include <cstddef>
#include <string>

// Percent-decoding of form-encoded text: '+' is a blank, '%' and two hexadecimal digits are a byte. A '%' without
// two digits ends the decoding, on purpose: it and what follows are dropped without an error, so that a text cut in
// the middle of an escape still gives what stands before.

#pragma GCC visibility push(default)

// Decodes exactly `length` bytes, NUL bytes included, and appends to `out`.
void url_decode(const char* text, size_t length, std::string* out);

// Decodes up to the NUL and appends to `out`.
void url_decode(const char* text, std::string* out);

// Decodes up to the NUL.
std::string url_decode(const char* text);

// Decodes up to the first NUL byte in `text`.
std::string url_decode(const std::string& text);

#pragma GCC visibility pop
