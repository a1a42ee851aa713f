#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace output {

// A file descriptor with a large buffer in front of it. Whatever reaches the file is made of whole records, so
// that a run that is killed leaves no half line behind. Nor does a full disk: a file of the buffer's own is cut
// back to its last whole line.
//
// The first error ends the writing: later records are taken and thrown away, and whoever feeds the buffer looks
// at Good() from time to time.
class Buffer {
 public:
  // Writes to a descriptor that stays open. `name` is what messages call it.
  Buffer(int descriptor, std::string name, size_t capacity = size_t{1} << 18);

  // Creates the file. One that is there is emptied when the first record reaches it, or else when it is closed.
  // Throws std::runtime_error "path: reason".
  explicit Buffer(const std::string& path);

  // Writes nowhere: what is written stays until Drop, in memory that grows as it must.
  Buffer() : Buffer(-1, "", kSmallest) { in_memory = true; }

  ~Buffer();
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;

  // Room for at least `bytes`, where the next record goes. Writes out earlier records when there is none.
  char* Room(size_t bytes) {
    if (static_cast<size_t>(limit - free) < bytes) [[unlikely]]
      MakeRoom(bytes);
    return free;
  }

  // The record that was begun at Room ends here.
  void Commit(char* end) { free = end; }

  void Write(const std::string& record);

  // Closes what is at hand and goes on with another descriptor, which is then the buffer's own.
  void Continue(int descriptor, std::string descriptor_name);

  // What the file at hand has, or will have once it is written out.
  uint64_t bytes() const { return flushed + static_cast<uint64_t>(free - memory.get()); }

  // Writes out what is there and opens the file at the path again, after somebody moved it away. What is there by
  // then is kept and written behind. True when the file is empty. Nothing happens to a descriptor that is not ours.
  bool Reopen();

  // True when the file is no longer at its path. Never of a descriptor that is not ours.
  bool IsMoved() const;

  // Writes out what is there. Close also closes a file of its own; Problem() may come with it.
  void Flush();
  void Close();

  // Writes nothing of what was not written out yet, and leaves a file that is there as it was, unless something has
  // reached it. For a file of its own; what it says is then closed.
  void Abandon();

  // What is there and was not written out yet.
  std::string_view Held() const { return {memory.get(), static_cast<size_t>(free - memory.get())}; }
  void Drop() { free = memory.get(); }

  // Ends the writing for a reason that the owner has found.
  void Fail(const std::string& reason);

  // False after an error or once the reader of a pipe is gone.
  bool Good() const { return good; }

  // "name: No space left on device", or empty: a closed pipe is no problem but a reader that has enough.
  const std::string& Problem() const { return problem; }

 private:
  static constexpr size_t kSmallest = size_t{1} << 14;

  void EmptyOldFile();
  void MakeRoom(size_t bytes);
  void Grow(size_t bytes);
  void Fail(int error);
  void CutToWholeLines(const char* written_end) const;
  bool WaitWritable() const;

  int fd = -1;
  bool owned = false;
  bool in_memory = false;
  bool holds_old = false;  // what was in the file before
  bool good = true;
  std::string name;
  std::string problem;
  uint64_t flushed = 0;
  size_t size = 0;
  std::unique_ptr<char[]> memory;
  char* free = nullptr;
  char* limit = nullptr;
};

}  // namespace output
