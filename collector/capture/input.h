#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace capture {

// The bytes of a capture file, uncompressed, seen through a window that moves from its begin to its end.
class Input {
 public:
  virtual ~Input() = default;

  // The bytes at hand, from the window's begin. At least one readable byte lies behind them. Valid until More.
  virtual std::span<const uint8_t> Bytes() const = 0;

  // Moves the window's begin over the first `count` bytes at hand.
  virtual void Advance(size_t count) = 0;

  // Waits until more bytes are at hand than before, and makes room for `needed` of them altogether. False when
  // there are no more.
  virtual bool More(size_t needed) = 0;

  // Whether bytes that were at hand have ceased to exist since the last call; then Bytes() has become shorter, and
  // what was read behind `TrueEnd()` was not the file's.
  virtual bool Shrank() { return false; }
  virtual const uint8_t* TrueEnd() const { return Bytes().data() + Bytes().size(); }

  // Why the bytes end before their time; "" where they do not. Complete once More has returned false.
  virtual std::string Damage() const = 0;

  // How much of the file was read, in bytes of the file as it is stored; and its size, 0 where it is unknown.
  virtual uint64_t BytesRead() const = 0;
  virtual uint64_t BytesTotal() const = 0;
};

}  // namespace capture
