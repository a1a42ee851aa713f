#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "collector/capture/source.h"

namespace capture {

// Opens a capture file, "-" being standard input: pcap (micro- and nanoseconds, both byte orders) or pcapng,
// plain or compressed with gzip or zstd, recognised by content. Frames carry `number` as their source. A file
// that is missing, unreadable or no capture gives a source with a problem and no frames; it never throws for
// what a file holds.
std::unique_ptr<Source> OpenFile(const std::string& path, uint32_t number);

// Delivers the frames of all sources by time (ties: the lower number first). Each source keeps its own order:
// a frame is never held back behind an earlier one of its own file.
std::unique_ptr<Source> MergeByTime(std::vector<std::unique_ptr<Source>> sources);

}  // namespace capture
