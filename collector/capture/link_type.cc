#include "collector/capture/link_type.h"

#include <pcap/pcap.h>

namespace capture {
namespace {

constexpr uint16_t kLinkTypeRaw = 101;

struct Numbers {
  uint16_t link_type;
  int dlt;
};

// All other types have one number in both worlds.
constexpr Numbers kDiffering[] = {
    {100, DLT_ATM_RFC1483}, {kLinkTypeRaw, DLT_RAW}, {102, DLT_SLIP_BSDOS},
    {103, DLT_PPP_BSDOS},   {106, DLT_ATM_CLIP},     {246, DLT_PFSYNC},
};

}  // namespace

uint16_t LinkTypeOfFile(uint16_t written) {
  constexpr uint16_t kDltRaw = 12;
  constexpr uint16_t kOpenBsdDltRaw = 14;
  return written == kDltRaw || written == kOpenBsdDltRaw ? kLinkTypeRaw : written;
}

int DltOfLinkType(uint16_t link_type) {
  for (const Numbers& numbers : kDiffering) {
    if (numbers.link_type == link_type) return numbers.dlt;
  }
  return link_type;
}

std::string LinkTypeName(uint16_t link_type) {
  const char* name = pcap_datalink_val_to_name(DltOfLinkType(link_type));
  return name != nullptr ? name : "LINKTYPE_" + std::to_string(link_type);
}

}  // namespace capture
