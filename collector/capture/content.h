#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace capture {

// What a file is, by its first bytes and never by its name.
enum class Content : uint8_t { kPcap, kPcapng, kGzip, kZstd, kUnknown };

inline constexpr size_t kContentBytes = 4;  // how many first bytes tell

Content ContentOf(std::span<const uint8_t> first_bytes);

}  // namespace capture
