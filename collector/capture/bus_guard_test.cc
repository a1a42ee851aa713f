#include "collector/capture/bus_guard.h"

#include <doctest/doctest.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <string>

#include "tests/support/temporary_file.h"

namespace {

using capture::BusGuard;

const auto kPage = static_cast<size_t>(sysconf(_SC_PAGESIZE));

// A mapping of some pages of a file that is then cut to fewer.
class CutMapping {
 public:
  CutMapping(size_t pages, size_t pages_left) : file(std::string(pages * kPage, 'x')), size(pages * kPage) {
    const int descriptor = open(file.path.c_str(), O_RDONLY | O_CLOEXEC);
    memory = static_cast<const char*>(mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor, 0));
    close(descriptor);
    REQUIRE(truncate(file.path.c_str(), static_cast<off_t>(pages_left * kPage)) == 0);
  }
  ~CutMapping() { munmap(const_cast<char*>(memory), size); }
  CutMapping(const CutMapping&) = delete;
  CutMapping& operator=(const CutMapping&) = delete;

  char At(size_t page, size_t byte) const {
    return *static_cast<const volatile char*>(memory + page * kPage + byte);
  }

  test::TemporaryFile file;
  size_t size;
  const char* memory = nullptr;
};

void ExitWith42(int) { _exit(42); }

// The status of this program run anew with one test case, which other runs skip.
int RunAlone(const char* test_case) {
  const pid_t child = fork();
  if (child == 0) {
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(null, STDOUT_FILENO);
    dup2(null, STDERR_FILENO);
    const std::string filter = std::string("--test-case=") + test_case;
    execl("/proc/self/exe", "test", filter.c_str(), "--no-skip", nullptr);
    _exit(1);
  }
  int status = 0;
  REQUIRE(waitpid(child, &status, 0) == child);
  return status;
}

}  // namespace

TEST_CASE("a page that its file has lost reads as zeros") {
  const CutMapping mapping(4, 2);
  const BusGuard guard(mapping.memory, mapping.size);
  CHECK(mapping.At(1, 5) == 'x');
  CHECK(guard.FirstFault() == BusGuard::kNoFault);
  CHECK(mapping.At(3, 7) == 0);
  CHECK(guard.FirstFault() == 3 * kPage);
  CHECK(mapping.At(2, 0) == 0);
  CHECK(guard.FirstFault() == 2 * kPage);
  CHECK(mapping.At(3, 7) == 0);
  CHECK(guard.FirstFault() == 2 * kPage);
  CHECK(mapping.At(1, 5) == 'x');
}

TEST_CASE("guards of several files do not mix up their faults") {
  const CutMapping first(2, 1);
  const CutMapping second(2, 1);
  const BusGuard first_guard(first.memory, first.size);
  const BusGuard second_guard(second.memory, second.size);
  CHECK(second.At(1, 0) == 0);
  CHECK(second_guard.FirstFault() == kPage);
  CHECK(first_guard.FirstFault() == BusGuard::kNoFault);
}

TEST_CASE("a new guard knows nothing of the faults of those before") {
  {
    const CutMapping mapping(1, 0);
    const BusGuard guard(mapping.memory, mapping.size);
    CHECK(mapping.At(0, 0) == 0);
    CHECK(guard.FirstFault() == 0);
  }
  const CutMapping mapping(1, 0);
  const BusGuard guard(mapping.memory, mapping.size);
  CHECK(guard.FirstFault() == BusGuard::kNoFault);
}

TEST_CASE("alone: the fault goes to the handler that was there before" * doctest::skip()) {
  signal(SIGBUS, ExitWith42);
  const CutMapping guarded(1, 1);
  const CutMapping foreign(1, 0);
  const BusGuard guard(guarded.memory, guarded.size);
  CHECK(foreign.At(0, 0) == 'x');
}

TEST_CASE("a fault outside all guarded memory goes to the handler that was there before") {
  const int status = RunAlone("alone: the fault goes to the handler that was there before");
  CHECK(WIFEXITED(status));
  CHECK(WEXITSTATUS(status) == 42);
}

TEST_CASE("alone: the fault ends the process" * doctest::skip()) {
  signal(SIGBUS, SIG_DFL);
  const CutMapping guarded(1, 1);
  const CutMapping foreign(1, 0);
  const BusGuard guard(guarded.memory, guarded.size);
  CHECK(foreign.At(0, 0) == 'x');
}

TEST_CASE("a fault outside all guarded memory ends a process without a handler") {
  const int status = RunAlone("alone: the fault ends the process");
  CHECK(WIFSIGNALED(status));
  CHECK(WTERMSIG(status) == SIGBUS);
}

TEST_CASE("alone: the sent signal ends the process" * doctest::skip()) {
  signal(SIGBUS, SIG_DFL);
  const CutMapping guarded(1, 1);
  const BusGuard guard(guarded.memory, guarded.size);
  raise(SIGBUS);
}

TEST_CASE("a bus error that another process sends is no fault of ours") {
  const int status = RunAlone("alone: the sent signal ends the process");
  CHECK(WIFSIGNALED(status));
  CHECK(WTERMSIG(status) == SIGBUS);
}
