#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace capture {

// Bytes that come one after the other.
class ByteStream {
 public:
  virtual ~ByteStream() = default;

  // Waits for bytes and puts what has arrived, at most `size` (more than 0), into the buffer. 0 at the end.
  virtual size_t Read(uint8_t* buffer, size_t size) = 0;

  // After the end: why it came before its time, "" where it did not.
  virtual std::string Damage() const = 0;

  // How many bytes of the file underneath were read; and its size, 0 where it is unknown.
  virtual uint64_t BytesRead() const = 0;
  virtual uint64_t BytesTotal() const = 0;
};

// What a file descriptor gives: a file, a pipe. Owns it.
class DescriptorStream final : public ByteStream {
 public:
  // `file_size` bytes are read, what the file grows by meanwhile is left. 0: as many as there are, and waiting for
  // them ends when reading is stopped; a file has nothing to wait for.
  DescriptorStream(int owned_descriptor, uint64_t file_size) : descriptor(owned_descriptor), total(file_size) {}
  ~DescriptorStream() override;
  DescriptorStream(const DescriptorStream&) = delete;
  DescriptorStream& operator=(const DescriptorStream&) = delete;

  size_t Read(uint8_t* buffer, size_t size) override;
  std::string Damage() const override;
  uint64_t BytesRead() const override { return bytes_read; }
  uint64_t BytesTotal() const override { return total; }

 private:
  int descriptor;
  int error = 0;  // errno of the read that failed
  bool ended = false;
  uint64_t bytes_read = 0;
  uint64_t total;
};

// Bytes that were taken from a stream to look at them, and then the rest of the stream.
class PrefixedStream final : public ByteStream {
 public:
  PrefixedStream(std::vector<uint8_t> taken, std::unique_ptr<ByteStream> rest)
      : prefix(std::move(taken)), stream(std::move(rest)) {}

  size_t Read(uint8_t* buffer, size_t size) override;
  std::string Damage() const override { return stream->Damage(); }
  uint64_t BytesRead() const override { return stream->BytesRead(); }
  uint64_t BytesTotal() const override { return stream->BytesTotal(); }

 private:
  std::vector<uint8_t> prefix;
  size_t delivered = 0;  // of the prefix
  std::unique_ptr<ByteStream> stream;
};

}  // namespace capture
