#pragma once

#include <cstdint>

// How the input of the message fuzzer is laid out: four bytes of settings, then steps. A step is a byte with its
// kind and flags, its time, and for a message the flow, its shape and its bytes behind a 16-bit length.
namespace fuzz {

enum class MessageStep : uint8_t { kRequest, kResponse, kBoth, kHeartbeat };
inline constexpr uint8_t kStepMask = 3;
inline constexpr uint8_t kAnyTime = 4;  // a time of 64 bits in microseconds, else signed milliseconds from the last

// The shape of a message.
inline constexpr uint8_t kCut = 1;           // behind the bytes: how many of them were captured, 16 bits
inline constexpr uint8_t kOtherNominal = 2;  // the length on the wire, 31 bits, in place of the bytes' own

}  // namespace fuzz
