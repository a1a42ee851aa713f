#pragma once

#pragma GCC visibility push(default)
extern "C" {
// Where a smashed stack ends: one text on standard error, without a newline, then abort. The library defines this
// itself, so that its own failures say so whatever C library the host runs on.
[[noreturn]] void __stack_chk_fail();
}
#pragma GCC visibility pop
