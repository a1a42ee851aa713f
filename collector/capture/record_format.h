#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <utility>

#include "collector/capture/source.h"

namespace capture {

// What stands at the front of some bytes of a capture file.
struct Record {
  enum class Kind : uint8_t {
    kFrame,       // a frame
    kOther,       // something without a frame; maybe longer than the bytes at hand
    kIncomplete,  // more bytes must be at hand before it can be told
    kCorrupt,     // nonsense; the format says what in Problem()
  };
  Kind kind = Kind::kIncomplete;
  // kFrame, kOther: the bytes it takes up. kIncomplete: how many must be at hand, which is bounded.
  uint64_t length = 0;
};

// A kind of capture file: cuts its bytes into records, in order.
class RecordFormat {
 public:
  virtual ~RecordFormat() = default;

  // Looks at the front of `bytes`, which is `offset` bytes into the file. For a frame sets everything in *frame
  // but its source; frame->data points into `bytes`. After kFrame and kOther the next call must be for what
  // follows; after kIncomplete for the same place with more bytes; after kCorrupt there must be none.
  virtual Record Next(std::span<const uint8_t> bytes, uint64_t offset, Frame* frame) = 0;

  // Where the record begins that Next looked at last. A file that ends there ends well.
  uint64_t RecordBegin() const { return begin; }

  const std::string& Problem() const { return problem; }

 protected:
  static Record Incomplete(uint64_t needed) { return {Record::Kind::kIncomplete, needed}; }
  static Record Other(uint64_t length) { return {Record::Kind::kOther, length}; }
  Record Corrupt(std::string what) {
    problem = std::move(what);
    return {Record::Kind::kCorrupt, 0};
  }

  uint64_t begin = 0;

 private:
  std::string problem;
};

}  // namespace capture
