#pragma once

#include <cstdint>
#include <string>

namespace capture {

// Link types have two numberings: LINKTYPE_ in files, the same everywhere, and DLT_ in libpcap, which differs
// between systems for a few old types. Frames carry LINKTYPE_ values.
// https://www.tcpdump.org/linktypes.html

// The value that a file means: old tools wrote their system's DLT_RAW (12 or 14) where 101 belongs.
uint16_t LinkTypeOfFile(uint16_t written);

// libpcap's number on this system.
int DltOfLinkType(uint16_t link_type);

// libpcap's short name ("EN10MB"), or "LINKTYPE_<number>" where it has none.
std::string LinkTypeName(uint16_t link_type);

}  // namespace capture
