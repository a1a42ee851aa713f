#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "collector/output/buffer.h"

namespace output {

struct RotationSettings {
  std::string name;     // of the files; strftime puts the UTC time at which each begins into it
  uint64_t bytes = 0;   // a file that has as many is full; 0 for no end of this kind
  int64_t seconds = 0;  // files end at each multiple of these since 1970; 0 as above
};

// One output in several files. A file is called NAME.part until it is whole, and no file that is there already is
// ever touched: where NAME or NAME.part is taken, "-1" or a higher number goes before NAME's extension.
class Rotation {
 public:
  explicit Rotation(RotationSettings settings) : wanted(std::move(settings)) {}

  // Makes the first file. Throws std::runtime_error "path: reason".
  std::unique_ptr<Buffer> Begin(int64_t now_ns);

  bool IsFull(const Buffer& buffer) const { return wanted.bytes > 0 && buffer.bytes() >= wanted.bytes; }
  bool IsOver(int64_t now_ns) const { return wanted.seconds > 0 && now_ns / kSecond >= end; }

  // Ends the file at hand, which then has its name, and makes the next one. False, with the buffer's problem set,
  // when either cannot be done.
  bool Next(Buffer* buffer, int64_t now_ns);

  // Ends the last one. After an error of the buffer it keeps its ".part".
  void Finish(Buffer* buffer);

 private:
  static constexpr int64_t kSecond = 1000000000;

  int Create(int64_t now_ns);

  RotationSettings wanted;
  std::string base;  // NAME of the file at hand, without a number
  std::string name;  // with it
  int64_t end = 0;   // of the file at hand, in seconds since 1970
};

}  // namespace output
