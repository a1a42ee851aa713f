#include "collector/cli/sandbox.h"

#include <fcntl.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>
#include <memory>

namespace cli {
namespace {

// Named, because libseccomp knows the numbers of each architecture. What a kernel or an architecture does not have
// is left out.
constexpr const char* kAllowed[] = {
    // what is open
    "read", "readv", "pread64", "write", "writev", "lseek", "close", "fcntl", "fsync", "fdatasync", "ftruncate",
    "poll", "ppoll", "select", "pselect6", "epoll_wait", "epoll_pwait", "eventfd2", "pipe2", "dup", "dup2", "dup3",
    "recvfrom", "recvmsg", "getsockopt", "setsockopt", "getsockname",
    // what can be looked at
    "fstat", "newfstatat", "stat", "lstat", "statx", "access", "faccessat", "faccessat2", "readlink", "readlinkat",
    "getdents64", "getcwd", "uname", "sysinfo",
    // memory
    "memfd_create", "brk", "mmap", "munmap", "mremap", "mprotect", "madvise", "mincore", "membarrier",
    // time
    "clock_gettime", "clock_getres", "clock_nanosleep", "nanosleep", "gettimeofday", "time", "setitimer",
    // threads and signals
    "futex", "set_robust_list", "rseq", "sched_yield", "sched_getaffinity", "sched_setaffinity", "rt_sigaction",
    "rt_sigprocmask", "rt_sigreturn", "sigaltstack", "restart_syscall", "tgkill", "kill", "wait4", "waitid", "exit",
    "exit_group",
    // the process itself
    "getpid", "gettid", "getppid", "getuid", "geteuid", "getgid", "getegid", "getrlimit", "prlimit64", "getrusage",
    "getrandom", "sched_getscheduler", "getpgrp", "getpgid"};

// Of files that are written to.
constexpr const char* kForFiles[] = {"rename", "renameat", "renameat2", "unlink", "unlinkat"};

#if defined(DNSPAIR_SANITIZE)
// The search for leaks at the end stops the threads as a debugger does.
constexpr const char* kForSanitizers[] = {"ptrace", "prctl", "process_vm_readv", "getdents"};
#endif

// Terminals and interfaces are asked and set by these; none of them types into a terminal (TIOCSTI).
constexpr std::array<unsigned long, 16> kRequests = {TCGETS,
                                                     TCSETS,
                                                     TCSETSW,
                                                     TCSETSF,
                                                     TCFLSH,
                                                     TCXONC,
                                                     TIOCGWINSZ,
                                                     TIOCGPGRP,
                                                     FIONREAD,
                                                     FIONBIO,
                                                     0x8910 /* SIOCGIFNAME */,
                                                     0x8913 /* SIOCGIFFLAGS */,
                                                     0x8914 /* SIOCSIFFLAGS */,
                                                     0x8921 /* SIOCGIFMTU */,
                                                     0x8933 /* SIOCGIFINDEX */,
                                                     0x8946 /* SIOCETHTOOL */};

struct Release {
  void operator()(void* filter) const { seccomp_release(filter); }
};

class Filter {
 public:
  Filter() : filter(seccomp_init(SCMP_ACT_TRAP)) {}

  void Allow(const char* call) { Add(SCMP_ACT_ALLOW, call, 0, {}); }
  // The condition is spelled out: seccomp.h's macros are C, and not all compilers take them in C++.
  void AllowWhere(const char* call, scmp_arg_cmp condition) { Add(SCMP_ACT_ALLOW, call, 1, condition); }
  void Refuse(const char* call, int error) { Add(SCMP_ACT_ERRNO(static_cast<uint32_t>(error)), call, 0, {}); }

  bool Load() {
    // The threads that run already are bound, too.
    return filter != nullptr && good && seccomp_attr_set(filter.get(), SCMP_FLTATR_CTL_TSYNC, 1) == 0 &&
           seccomp_load(filter.get()) == 0;
  }

 private:
  void Add(uint32_t action, const char* call, unsigned conditions, const scmp_arg_cmp& condition) {
    const int number = seccomp_syscall_resolve_name(call);
    if (filter == nullptr || number == __NR_SCMP_ERROR) return;
    const int result = seccomp_rule_add_array(filter.get(), action, number, conditions, &condition);
    good = good && result == 0;
  }

  std::unique_ptr<void, Release> filter;
  bool good = true;
};

void AllowFiles(Filter* filter, bool creates_files) {
  constexpr scmp_datum_t kChanging = O_WRONLY | O_RDWR | O_CREAT | O_TRUNC;
  if (creates_files) {
    for (const char* call : {"open", "openat"}) filter->Allow(call);
    for (const char* call : kForFiles) filter->Allow(call);
    return;
  }
  filter->AllowWhere("open", {1, SCMP_CMP_MASKED_EQ, kChanging, 0});
  filter->AllowWhere("openat", {2, SCMP_CMP_MASKED_EQ, kChanging, 0});
}

void AllowThreads(Filter* filter) {
  // The flags of clone3 lie in memory, where no filter sees them: it does not exist, and clone is used.
  filter->Refuse("clone3", ENOSYS);
  filter->AllowWhere("clone", {0, SCMP_CMP_MASKED_EQ, CLONE_THREAD, CLONE_THREAD});
}

}  // namespace

bool EnterSandbox(const SandboxSettings& settings) {
  Filter filter;
  for (const char* call : kAllowed) filter.Allow(call);
  for (const unsigned long request : kRequests) filter.AllowWhere("ioctl", {1, SCMP_CMP_EQ, request, 0});
#if defined(DNSPAIR_SANITIZE)
  for (const char* call : kForSanitizers) filter.Allow(call);
  filter.AllowWhere("clone", {0, SCMP_CMP_MASKED_EQ, CLONE_UNTRACED, CLONE_UNTRACED});
#endif
  AllowFiles(&filter, settings.creates_files);
  AllowThreads(&filter);
  return filter.Load();
}

}  // namespace cli
