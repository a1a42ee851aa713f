#include "collector/capture/bus_guard.h"

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <mutex>

namespace capture {

// Regions are read by a signal handler at any moment. So they are never freed, only used again.
struct BusGuard::Region {
  std::atomic<uintptr_t> begin = 0;
  std::atomic<uintptr_t> end = 0;  // 0: unused
  std::atomic<size_t> first_fault = kNoFault;
  Region* next = nullptr;
};

namespace {

std::atomic<BusGuard::Region*> regions = nullptr;
std::mutex regions_in_change;
struct sigaction previous_action;
uintptr_t page_size = 0;

BusGuard::Region* FindRegion(uintptr_t address) {
  for (BusGuard::Region* region = regions; region != nullptr; region = region->next) {
    if (address >= region->begin && address < region->end) return region;
  }
  return nullptr;
}

// mmap is not on POSIX's list of what a handler may call; on Linux it is a bare system call.
bool ReplacePage(uintptr_t page) {
  const int saved_errno = errno;
  void* replaced =
      mmap(reinterpret_cast<void*>(page), page_size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
  errno = saved_errno;
  return replaced != MAP_FAILED;
}

void NoteFault(BusGuard::Region* region, size_t offset) {
  size_t first = region->first_fault;
  while (offset < first && !region->first_fault.compare_exchange_weak(first, offset)) {
  }
}

// The fault is not ours. Without a handler the default action ends the process as if we were not there: a fault
// happens again as soon as this handler returns, a signal from outside has to be sent again.
void PassOn(int signal, siginfo_t* info, void* context) {
  if ((previous_action.sa_flags & SA_SIGINFO) != 0) {
    previous_action.sa_sigaction(signal, info, context);
  } else if (previous_action.sa_handler != SIG_DFL && previous_action.sa_handler != SIG_IGN) {
    previous_action.sa_handler(signal);
  } else {
    const bool from_outside = info->si_code <= 0;
    if (from_outside && previous_action.sa_handler == SIG_IGN) return;
    sigaction(signal, &previous_action, nullptr);
    if (from_outside) raise(signal);
  }
}

void OnBusError(int signal, siginfo_t* info, void* context) {
  const auto address = reinterpret_cast<uintptr_t>(info->si_addr);
  BusGuard::Region* region = info->si_code > 0 ? FindRegion(address) : nullptr;
  const uintptr_t page = address & ~(page_size - 1);
  if (region == nullptr || !ReplacePage(page)) return PassOn(signal, info, context);
  NoteFault(region, page - region->begin);
}

void InstallHandler() {
  page_size = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  struct sigaction action {};
  action.sa_sigaction = OnBusError;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  sigemptyset(&action.sa_mask);
  sigaction(SIGBUS, &action, &previous_action);
}

BusGuard::Region* UnusedRegion() {
  for (BusGuard::Region* region = regions; region != nullptr; region = region->next) {
    if (region->end == 0) return region;
  }
  auto* region = new BusGuard::Region;
  region->next = regions;
  regions = region;
  return region;
}

}  // namespace

BusGuard::BusGuard(const void* memory, size_t size) {
  static std::once_flag installed;
  std::call_once(installed, InstallHandler);
  const std::lock_guard lock(regions_in_change);
  region = UnusedRegion();
  region->first_fault = kNoFault;
  region->begin = reinterpret_cast<uintptr_t>(memory);
  region->end = region->begin + size;
}

BusGuard::~BusGuard() {
  const std::lock_guard lock(regions_in_change);
  region->end = 0;
}

size_t BusGuard::FirstFault() const { return region->first_fault; }

}  // namespace capture
