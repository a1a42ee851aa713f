#pragma once

#include <string>
#include <vector>

#include "tests/support/decode_frame.h"

// Frames with IP fragments of one answer, for the tests of what becomes of them.

namespace test {

inline constexpr int64_t kSecond = 1'000'000'000;

// A message in which every byte tells its place.
inline Bytes Message(size_t size) {
  Bytes message(size);
  for (size_t i = 0; i < size; ++i) message[i] = static_cast<uint8_t>(i * 7 + i / 256);
  return message;
}

inline std::string Text(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

inline Bytes Slice(const Bytes& bytes, size_t from, size_t to) {
  return {bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.begin() + static_cast<std::ptrdiff_t>(to)};
}

inline Packet Answer4(const Bytes& message) {
  return Ethernet().Ipv4(kServer4, kClient4).Udp(53, 40000).Payload(message);
}
inline Packet Answer6(const Bytes& message) {
  return Ethernet().Ipv6(kServer6, kClient6).Udp(53, 40000).Payload(message);
}

// One fragment with content of our own: `offset` and the bytes count from the UDP header.
inline Bytes Piece4(uint32_t id, size_t offset, bool more, const Bytes& bytes) {
  return Ethernet()
      .Ipv4(kServer4, kClient4)
      .FragmentOf(static_cast<uint16_t>(id), offset, more)
      .Type(17)
      .Payload(bytes)
      .Frame();
}
inline Bytes Piece6(uint32_t id, size_t offset, bool more, const Bytes& bytes) {
  return Ethernet().Ipv6(kServer6, kClient6).FragmentHeader(id, offset, more).Type(17).Payload(bytes).Frame();
}

// The UDP datagram of an answer, to cut pieces from.
inline Bytes UdpBytes(const Bytes& message) {
  const Bytes frame = Answer4(message).Frame();
  return Slice(frame, 34, frame.size());
}

// Whether every fragment that arrived is counted once.
inline bool AddsUp(const packet::Decoder& decoder) {
  const packet::FragmentCounts& c = decoder.fragments();
  return c.fragments == c.joined + c.repeated + c.inconsistent + c.expired + c.dropped + decoder.FragmentsHeld();
}

}  // namespace test
