#include "collector/capture/read_ahead_stream.h"

#include <pthread.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <system_error>
#include <utility>

namespace capture {
namespace {

constexpr size_t kBlockBytes = 262144;

// Signals are for the threads that handle them; only faults must arrive where they happen.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    for (const int fault : {SIGBUS, SIGFPE, SIGILL, SIGSEGV}) sigdelset(&all, fault);
    pthread_sigmask(SIG_BLOCK, &all, &before);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before{};
};

}  // namespace

ReadAheadStream::ReadAheadStream(std::unique_ptr<ByteStream> byte_stream)
    : stream(std::move(byte_stream)), total(stream->BytesTotal()) {}

ReadAheadStream::~ReadAheadStream() {
  if (!thread.joinable()) return;
  {
    const std::lock_guard lock(mutex);
    stopping = true;
  }
  changed.notify_all();
  thread.join();
}

// The first bytes are read without a thread: for a file that waits for its turn in a merge they are all that is
// asked for.
size_t ReadAheadStream::Read(uint8_t* buffer, size_t size) {
  if (std::exchange(first_read, false)) return ReadHere(buffer, size);
  if (!thread.joinable() && !StartThread()) return ReadHere(buffer, size);
  const Block* block = WaitForBlock();
  if (block->failure) std::rethrow_exception(block->failure);
  const size_t count = std::min(size, block->filled - delivered);
  if (count == 0) return 0;
  std::memcpy(buffer, block->bytes.data() + delivered, count);
  bytes_read = block->bytes_read;
  delivered += count;
  if (delivered == block->filled) ReleaseBlock();
  return count;
}

size_t ReadAheadStream::ReadHere(uint8_t* buffer, size_t size) {
  const size_t count = stream->Read(buffer, size);
  bytes_read = stream->BytesRead();
  return count;
}

// False where the system has no thread left: it goes without.
bool ReadAheadStream::StartThread() {
  const SignalsBlocked blocked;
  try {
    thread = std::thread(&ReadAheadStream::FillBlocks, this);
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

void ReadAheadStream::FillBlocks() {
  for (;;) {
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return stopping || filled - released < blocks.size(); });
    if (stopping) return;
    Block& block = blocks[filled % blocks.size()];
    lock.unlock();
    Fill(&block);
    const bool ended = block.filled == 0;
    lock.lock();
    ++filled;
    lock.unlock();
    changed.notify_all();
    if (ended) return;
  }
}

// What fails, fails like an end: nothing is read behind it.
void ReadAheadStream::Fill(Block* block) {
  block->filled = 0;
  try {
    block->bytes.resize(kBlockBytes);
    block->filled = stream->Read(block->bytes.data(), block->bytes.size());
    block->bytes_read = stream->BytesRead();
  } catch (...) {
    block->failure = std::current_exception();
  }
}

const ReadAheadStream::Block* ReadAheadStream::WaitForBlock() {
  std::unique_lock lock(mutex);
  changed.wait(lock, [this] { return filled > released; });
  return &blocks[released % blocks.size()];
}

void ReadAheadStream::ReleaseBlock() {
  delivered = 0;
  {
    const std::lock_guard lock(mutex);
    ++released;
  }
  changed.notify_all();
}

}  // namespace capture
