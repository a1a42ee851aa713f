#include "util/stack_guard.h"

#include <doctest/doctest.h>

#include "tests/support/death.h"

using test::ChildResult;
using test::RunInChild;

TEST_CASE("a smashed stack is named on standard error, without a newline, and aborts") {
  const ChildResult child = RunInChild([] { __stack_chk_fail(); });
  CHECK(child.Aborted());
  CHECK(child.err == "stack-protector: Kernel stack is corrupted");
  CHECK(child.err.size() == 42);
  CHECK(child.out.empty());
}
