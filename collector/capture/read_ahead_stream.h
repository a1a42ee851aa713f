#pragma once

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "collector/capture/byte_stream.h"

namespace capture {

// Reads a stream a few blocks ahead in a thread of its own, so that unpacking goes on beside what is done with the
// bytes. Destruction waits for the read under way: a stream that may wait for ever, as a pipe does, is not for it.
// What the stream throws in the thread, Read throws where the bytes would have come.
class ReadAheadStream final : public ByteStream {
 public:
  explicit ReadAheadStream(std::unique_ptr<ByteStream> byte_stream);
  ~ReadAheadStream() override;
  ReadAheadStream(const ReadAheadStream&) = delete;
  ReadAheadStream& operator=(const ReadAheadStream&) = delete;

  size_t Read(uint8_t* buffer, size_t size) override;
  std::string Damage() const override { return stream->Damage(); }
  uint64_t BytesRead() const override { return bytes_read; }
  uint64_t BytesTotal() const override { return total; }

 private:
  struct Block {
    std::vector<uint8_t> bytes;
    size_t filled = 0;        // 0: the end
    uint64_t bytes_read = 0;  // what the stream said after it
    std::exception_ptr failure;
  };

  size_t ReadHere(uint8_t* buffer, size_t size);
  bool StartThread();
  void FillBlocks();
  void Fill(Block* block);
  const Block* WaitForBlock();
  void ReleaseBlock();

  std::unique_ptr<ByteStream> stream;  // the thread's, while it runs
  uint64_t total;
  uint64_t bytes_read = 0;
  bool first_read = true;
  std::thread thread;
  size_t delivered = 0;  // of the block at the front

  std::mutex mutex;  // for all below but the blocks' insides, which belong to one side at a time
  std::condition_variable changed;
  std::array<Block, 3> blocks;
  size_t filled = 0;    // blocks ever filled
  size_t released = 0;  // blocks ever used up
  bool stopping = false;
};

}  // namespace capture
