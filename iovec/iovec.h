#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "util/check.h"

// Bounded, read-only views over packet bytes. Nothing here copies or owns the packet: views and blocks point into
// the caller's memory, which must outlive them. A view is used by one thread at a time. Offsets and counts are in
// bytes; their sums are plain 64-bit sums, without a guard against wrapping, everywhere.

struct CompoundIOVec;

// One contiguous run of bytes, not owned.
struct FlatBuffer {
  uint64_t length = 0;
  const char* data = nullptr;

  // Assigns the n bytes at `off` to `out`. False, with `out` untouched, when they are not all there.
  bool CopyTo(std::string* out, uint64_t off, uint64_t n) const;

  // Empties `out` and makes it a view of the n bytes at `off`: one block that points into this buffer. False, with
  // `out` empty, when they are not all there.
  bool CopyTo(CompoundIOVec* out, uint64_t off, uint64_t n) const;

  // Assigns the bytes from `off` up to, not including, the next `delim` to `out`. False, with `out` untouched, when
  // there is no delimiter.
  bool GetDelimitedString(std::string* out, uint64_t off, char delim) const;
};

// An ordered list of blocks that together are one string of bytes.
struct CompoundBuffer {
  // One block. The bytes are not owned; `len` may be 0.
  struct IOEnt {
    const char* data;
    uint64_t len;
  };
  using BlockIterator = std::vector<IOEnt>::const_iterator;

  uint64_t length = 0;  // the sum of the blocks' lengths
  std::vector<IOEnt> data;

  // Shortens the buffer to `new_len` bytes; a longer or equal length changes nothing. The block that the cut falls
  // into stays even when nothing of it is left, on purpose: a buffer that had blocks keeps one, so that FindBlock's
  // precondition survives Truncate(0).
  void Truncate(uint64_t new_len);

  // The block that holds the byte at `*off`; `*off` becomes the offset inside it. The end of the list when the
  // offset lies at or beyond the end. Fatal when there are no blocks.
  BlockIterator FindBlock(uint64_t* off) const;

  // Copies the n bytes at `off` to `dst`. False when the blocks run out; what there was has then been copied. Zero
  // bytes can always be copied; otherwise fatal when there are no blocks, as in the functions below.
  bool GetBytes(void* dst, uint64_t off, uint64_t n) const;

  // The same into `out`, which is emptied first, even when the copy then fails.
  bool CopyTo(std::string* out, uint64_t off, uint64_t n) const;

  // Empties `out` and makes it a view of the n bytes at `off`, with blocks that point into the same memory. False
  // when the blocks run out; `out` then holds those there were.
  bool CopyTo(CompoundIOVec* out, uint64_t off, uint64_t n) const;

  // The bytes from `off` up to, not including, the next `delim`. False with `out` untouched when `off` lies at or
  // beyond the end, and with the whole rest in `out` when there is no delimiter.
  bool GetDelimitedString(std::string* out, uint64_t off, char delim) const;
};

// The view over a CompoundBuffer. Between operations GetLength() equals nominal_len.
struct CompoundIOVec {
  std::string unused;  // part of the layout that all views share; never read or written
  uint64_t nominal_len = 0;
  CompoundBuffer buffer;

  uint64_t GetLength() const { return buffer.length; }

  // Makes the view empty.
  void Reset();

  // Adds a block at the end. Fatal when GetLength() and nominal_len then differ.
  void Append(CompoundBuffer::IOEnt block);

  // The same for the next block of a copy of several: fatal, too, when they differ already.
  void AppendCopied(CompoundBuffer::IOEnt block);
};

// The fatal checks of the views. The numbers name the checks; they stay when code moves.
inline constexpr CheckSite kFitsNominal{"iovec.h", 82, "nomlen >= len"};
inline constexpr CheckSite kLengthNotNegative{"iovec.h", 83, "len >= 0"};
inline constexpr CheckSite kLengthsAgreeBefore{"iovec.h", 192, "GetLength() == nominal_len"};
inline constexpr CheckSite kLengthsAgreeAfter{"iovec.h", 195, "GetLength() == nominal_len"};
inline constexpr int kAbortModeLine = 162;    // not_reached: a read past the end in ABORT mode
inline constexpr int kUnknownModeLine = 165;  // not_reached: a read past the end in a mode there is not

// The view that the decoders read through: the captured bytes of one message, how long it was on the wire, and what
// a read past the captured bytes does.
template <typename Buffer>
struct BaseIOVec {
  // Thrown by value for a read past the captured bytes in THROW mode.
  class UnderflowException {};

  // What a read past the captured bytes does. In each mode the destination is first filled with 0xAA, so that
  // nothing left over in it passes for packet bytes.
  enum UnderflowMode : int {
    ABORT = 0,  // fatal
    THROW = 1,  // throws UnderflowException
    FLAG = 2    // clears `ok` and returns
  };

  std::string unused;    // part of the layout that all views share; never read or written
  uint64_t nominal_len;  // length on the wire; may exceed what was captured
  Buffer buffer;         // the captured bytes
  int underflow_mode = ABORT;
  // True until a read in FLAG mode runs past the captured bytes; stays false until the owner sets it again. Mutable
  // because decoders hold the view const.
  mutable bool ok = true;

  // Views `len` captured bytes of a message of `nomlen` bytes, in ABORT mode. Fatal when more was captured than the
  // message has, and when `len` is negative.
  BaseIOVec(const char* data, int len, int nomlen)
      : nominal_len(static_cast<uint64_t>(nomlen)), buffer{static_cast<uint64_t>(len), data} {
    check(nomlen >= len, kFitsNominal);
    check(len >= 0, kLengthNotNegative);
  }

  // The number of captured bytes.
  uint64_t GetLength() const { return buffer.length; }

  // Copies the n bytes at `off` to `dst`: all of them, or none and what underflow_mode says.
  void GetBytes(void* dst, uint64_t off, uint64_t n) const {
    if (off + n <= buffer.length) [[likely]] {
      std::memcpy(dst, At(off), n);
    } else {
      Underflow(dst, n);
    }
  }

  // The big-endian numbers at `off`. After a failed read in FLAG mode they are 0xAAAA and 0xAAAAAAAA, which a
  // packet may hold too: test `ok`, not the value. They read in place: a copy on the stack would cost each caller a
  // guard.
  uint16_t GetBE16(uint64_t off) const {
    if (off + 2 > buffer.length) [[unlikely]]
      return MissingNumber<uint16_t>();
    const unsigned char* bytes = At(off);
    return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
  }
  uint32_t GetBE32(uint64_t off) const {
    if (off + 4 > buffer.length) [[unlikely]]
      return MissingNumber<uint32_t>();
    const unsigned char* bytes = At(off);
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | uint32_t{bytes[3]};
  }

 private:
  const unsigned char* At(uint64_t off) const {
    return reinterpret_cast<const unsigned char*>(buffer.data + static_cast<std::ptrdiff_t>(off));
  }

  // Failed reads are out of line, so that the reads above stay small enough to be inlined.
  template <typename Number>
  [[gnu::cold, gnu::noinline]] Number MissingNumber() const {
    Number filled;
    Underflow(&filled, sizeof filled);
    return filled;
  }

  [[gnu::cold, gnu::noinline]] void Underflow(void* dst, uint64_t n) const {
    std::memset(dst, 0xAA, n);
    switch (underflow_mode) {
      case ABORT:
        not_reached("iovec.h", kAbortModeLine);
      case THROW:
        throw UnderflowException();
      case FLAG:
        ok = false;
        return;
      default:
        not_reached("iovec.h", kUnknownModeLine);
    }
  }
};

using IOVec = BaseIOVec<FlatBuffer>;
