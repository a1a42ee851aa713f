#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace output {

// A file descriptor with a large buffer in front of it. Whatever reaches the file is made of whole records, so
// that a run that is killed leaves no half line behind.
//
// The first error ends the writing: later records are taken and thrown away, and whoever feeds the buffer looks
// at Good() from time to time.
class Buffer {
 public:
  // Writes to a descriptor that stays open. `name` is what messages call it.
  Buffer(int descriptor, std::string name, size_t capacity = size_t{1} << 18);

  // Creates the file, or empties the one that is there. Throws std::runtime_error "path: reason".
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

  // Writes out what is there and opens the file at the path again, after somebody moved it away. What is there by
  // then is kept and written behind. True when the file is empty. Nothing happens to a descriptor that is not ours.
  bool Reopen();

  // Writes out what is there. Close also closes a file of its own; Problem() may come with it.
  void Flush();
  void Close();

  // What is there and was not written out yet.
  std::string_view Held() const { return {memory.get(), static_cast<size_t>(free - memory.get())}; }
  void Drop() { free = memory.get(); }

  // False after an error or once the reader of a pipe is gone.
  bool Good() const { return good; }

  // "name: No space left on device", or empty: a closed pipe is no problem but a reader that has enough.
  const std::string& Problem() const { return problem; }

 private:
  static constexpr size_t kSmallest = size_t{1} << 14;

  void MakeRoom(size_t bytes);
  void Grow(size_t bytes);
  void Fail(int error);
  bool WaitWritable() const;

  int fd = -1;
  bool owned = false;
  bool in_memory = false;
  bool good = true;
  std::string name;
  std::string problem;
  size_t size = 0;
  std::unique_ptr<char[]> memory;
  char* free = nullptr;
  char* limit = nullptr;
};

}  // namespace output
