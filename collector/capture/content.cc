#include "collector/capture/content.h"

#include "collector/capture/pcap_format.h"
#include "collector/capture/pcapng_format.h"

namespace capture {
namespace {

// RFC 1952 2.3.1
bool IsGzip(const uint8_t* bytes) { return bytes[0] == 0x1f && bytes[1] == 0x8b; }

// RFC 8878 3.1: a frame, or one of the sixteen kinds of skippable ones, with which some tools begin.
bool IsZstd(const uint8_t* bytes) {
  if (bytes[1] == 0xb5) return bytes[0] == 0x28 && bytes[2] == 0x2f && bytes[3] == 0xfd;
  return (bytes[0] & 0xf0) == 0x50 && bytes[1] == 0x2a && bytes[2] == 0x4d && bytes[3] == 0x18;
}

}  // namespace

Content ContentOf(std::span<const uint8_t> first_bytes) {
  if (first_bytes.size() < kContentBytes) return Content::kUnknown;
  const uint8_t* bytes = first_bytes.data();
  if (PcapFormat::Recognises(bytes)) return Content::kPcap;
  if (PcapngFormat::Recognises(bytes)) return Content::kPcapng;
  if (IsGzip(bytes)) return Content::kGzip;
  if (IsZstd(bytes)) return Content::kZstd;
  return Content::kUnknown;
}

}  // namespace capture
