#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "collector/capture/bus_guard.h"
#include "collector/capture/input.h"

namespace capture {

// A plain file in memory, as long as it was when it was opened. When it becomes shorter while it is read, the
// data end there.
class MappedFile final : public Input {
 public:
  // Maps `size` bytes, more than 0, and owns the descriptor then. Null where the file cannot be mapped; the
  // descriptor stays the caller's.
  static std::unique_ptr<MappedFile> Map(int descriptor, size_t size);

  ~MappedFile() override;
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;

  std::span<const uint8_t> Bytes() const override { return {memory + position, end - position}; }
  void Advance(size_t count) override {
    position += count;
    if (position > populate_at) Populate();
  }
  bool More(size_t) override { return false; }
  bool Shrank() override;
  const uint8_t* TrueEnd() const override { return memory + true_end; }
  std::string Damage() const override;
  uint64_t BytesRead() const override { return position; }
  uint64_t BytesTotal() const override { return size_at_open; }

 private:
  MappedFile(int owned_descriptor, uint8_t* mapped, size_t size, size_t reserved_size);

  void Populate();

  int descriptor;
  uint8_t* memory;
  size_t size_at_open;
  size_t reserved;  // bytes of address space, one page more than the file
  size_t true_end;  // bytes that the file is known to have
  size_t end;       // the same, but never before the position
  size_t position = 0;
  size_t populated = 0;     // bytes whose pages were asked for
  size_t populate_at = 0;   // the position that asks for more
  bool unreadable = false;  // it ends at a page that the disk does not give
  std::optional<BusGuard> guard;
};

}  // namespace capture
