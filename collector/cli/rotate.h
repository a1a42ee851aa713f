#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "collector/cli/options.h"
#include "collector/output/rotation.h"

namespace cli {

// What -C and -G ask for; nothing when neither is there. Throws UsageError.
std::optional<output::RotationSettings> RotationFrom(const Options& options);

// "10" is ten million bytes; a K, M or G behind it, of either case, makes it a number of KiB, MiB or GiB. Throws
// UsageError.
uint64_t ParseFileSize(const std::string& text);

}  // namespace cli
