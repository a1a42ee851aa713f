#pragma once

#pragma GCC visibility push(default)
extern "C" {
// Prints a hex and text dump of `len` bytes to standard output: a line with the size, then 16 bytes a row. A last
// full row is followed by an empty line, on purpose: every dump ends the same way. A negative `len` prints no
// bytes. Returns the result of the last putchar.
int print_hexdump(const char* data, int len);

// Logs `len` bytes through `log` at `level` as one line of lower-case hex, handed over as "%s". A `len` of 0 or
// below logs an empty text, unless its buffer cannot be had: then one line says so and nothing else is logged.
void _log_blob(void (*log)(int level, const char* format, ...), int level, const unsigned char* data, int len);
}
#pragma GCC visibility pop
