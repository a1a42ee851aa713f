#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "collector/capture/byte_stream.h"
#include "collector/capture/file_reader.h"
#include "collector/capture/source.h"

// What a source delivers, copied, for tests to compare.
namespace test {

struct CapturedFrame {
  int64_t time_ns = 0;
  std::string bytes;
  uint32_t wire = 0;
  uint64_t offset = 0;
  uint32_t source = 0;
  uint16_t link_type = 0;

  friend bool operator==(const CapturedFrame&, const CapturedFrame&) = default;
};

struct Captured {
  std::vector<CapturedFrame> frames;
  std::vector<std::string> problems;

  std::vector<std::string> Bytes() const {
    std::vector<std::string> all;
    for (const CapturedFrame& frame : frames) all.push_back(frame.bytes);
    return all;
  }
  std::vector<int64_t> Times() const {
    std::vector<int64_t> all;
    for (const CapturedFrame& frame : frames) all.push_back(frame.time_ns);
    return all;
  }
};

inline CapturedFrame Copy(const capture::Frame& frame) {
  // The byte behind is the source's promise; reading it shows that it is kept.
  [[maybe_unused]] const volatile uint8_t behind = frame.data[frame.captured];
  if (frame.wire < frame.captured) throw std::logic_error("captured more than there was on the wire");
  std::string bytes(frame.captured, '\0');
  std::memcpy(bytes.data(), frame.data, frame.captured);
  return {frame.time_ns, std::move(bytes), frame.wire, frame.offset, frame.source, frame.link_type};
}

// Reads some batches, fewer at the end. All frames of a batch are copied after the whole batch was delivered.
inline Captured ReadSome(capture::Source* source, size_t batches) {
  Captured captured;
  std::span<const capture::Frame> frames;
  for (; batches > 0 && source->Read(&frames) == capture::ReadState::kFrames; --batches) {
    if (frames.empty()) throw std::logic_error("a batch without frames");
    for (const capture::Frame& frame : frames) captured.frames.push_back(Copy(frame));
  }
  captured.problems = source->Problems();
  return captured;
}

// Reads to the end.
inline Captured ReadAll(capture::Source* source) { return ReadSome(source, SIZE_MAX); }

// Bytes in memory that arrive in pieces: of `piece` bytes each, the first one of `first`.
class PiecewiseStream final : public capture::ByteStream {
 public:
  explicit PiecewiseStream(std::string all, size_t piece_size = SIZE_MAX, size_t first_size = 0)
      : bytes(std::move(all)), piece(piece_size), next(first_size == 0 ? piece_size : first_size) {}

  size_t Read(uint8_t* buffer, size_t size) override {
    const size_t count = std::min({size, next, bytes.size() - at});
    std::memcpy(buffer, bytes.data() + at, count);
    at += count;
    next = piece;
    return count;
  }
  std::string Damage() const override { return damage; }
  uint64_t BytesRead() const override { return at; }
  uint64_t BytesTotal() const override { return 0; }

  std::string damage;  // to be reported at the end

 private:
  std::string bytes;
  size_t at = 0;
  size_t piece;
  size_t next;
};

// Reads a capture, given as bytes, through a stream. Problems begin with "file:".
inline Captured ReadBytes(std::string bytes, size_t piece = SIZE_MAX, size_t first = 0) {
  auto stream = std::make_unique<PiecewiseStream>(std::move(bytes), piece, first);
  capture::FileReader reader("file", 0, std::move(stream));
  return ReadAll(&reader);
}

}  // namespace test
