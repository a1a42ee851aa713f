#include "collector/capture/mapped_file.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace capture {
namespace {

// Pages that are asked for many at a time cost less than faults one by one: a sixth of the time that reading a
// cached file takes. A multiple of any page's size.
constexpr size_t kPopulate = 4 << 20;

// Where that begins. A merge looks at the first frames of many files, and reads them much later.
constexpr size_t kPopulateFrom = 65536;

}  // namespace

// One page more than the file is reserved and stays zero, so that something readable lies behind the last byte
// even of a file that fills its last page.
std::unique_ptr<MappedFile> MappedFile::Map(int descriptor, size_t size) {
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const size_t pages = (size + page - 1) / page * page;
  const size_t reserved = pages + page;
  void* memory = mmap(nullptr, reserved, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED) return nullptr;
  if (mmap(memory, pages, PROT_READ, MAP_PRIVATE | MAP_FIXED, descriptor, 0) == MAP_FAILED) {
    munmap(memory, reserved);
    return nullptr;
  }
  madvise(memory, pages, MADV_SEQUENTIAL);  // advice: a refusal changes nothing
  return std::unique_ptr<MappedFile>(new MappedFile(descriptor, static_cast<uint8_t*>(memory), size, reserved));
}

MappedFile::MappedFile(int owned_descriptor, uint8_t* mapped, size_t size, size_t reserved_size)
    : descriptor(owned_descriptor),
      memory(mapped),
      size_at_open(size),
      reserved(reserved_size),
      true_end(size),
      end(size),
      populate_at(kPopulateFrom),
      guard(std::in_place, mapped, reserved_size) {}

MappedFile::~MappedFile() {
  guard.reset();
  munmap(memory, reserved);
  close(descriptor);
}

// An older kernel refuses, and pages that are gone are left to the guard: nothing depends on success.
void MappedFile::Populate() {
  const size_t count = std::min(kPopulate, size_at_open - populated);
  if (count > 0) madvise(memory + populated, count, MADV_POPULATE_READ);
  populated += count;
  populate_at = populated < size_at_open ? populated - kPopulate / 2 : size_at_open;
}

// A file cut within a page reads as zeros there without any fault, so its size is asked for every time.
bool MappedFile::Shrank() {
  struct stat status {};
  size_t size = size_at_open;
  if (fstat(descriptor, &status) == 0) size = std::min(size, static_cast<size_t>(status.st_size));
  const size_t fault = guard->FirstFault();
  if (size >= true_end && fault >= true_end) return false;
  unreadable = fault < size;
  true_end = std::min({true_end, size, fault});
  end = std::max(true_end, position);
  return true;
}

std::string MappedFile::Damage() const {
  if (true_end == size_at_open) return {};
  return unreadable ? "the file cannot be read any further" : "the file became shorter while it was read";
}

}  // namespace capture
