#pragma once

#include <cstddef>
#include <cstdint>

namespace flow {

// What a direction of a connection carries.
enum class Expected : uint8_t { kQueries, kResponses, kEither };

// As much of a message over TCP (RFC 1035 4.2.2) as it takes to judge it: its length and its header.
inline constexpr size_t kPrefixAndHeader = 14;

// Whether the bytes could be the beginning of a message with its length in front. `present` is at least
// kPrefixAndHeader; what is there of the question and of the message behind is looked at too. Strict, because it
// decides where a message begins in a stream whose beginning was not seen: a rare message that is refused here
// (a query without a question, an opcode of the future) costs the bytes up to the next one.
bool IsPlausibleStart(const uint8_t* data, size_t present, Expected expected);

}  // namespace flow
