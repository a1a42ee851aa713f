#include "util/stack_guard.h"

#include <cstdio>
#include <cstdlib>

// Compiled without the stack protector (CMakeLists.txt): the handler must not call itself.
void __stack_chk_fail() {
  constexpr char kText[] = "stack-protector: Kernel stack is corrupted";
  [[maybe_unused]] const size_t written = fwrite(kText, 1, sizeof kText - 1, stderr);
  abort();
}
