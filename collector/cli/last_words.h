#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "collector/capture/source.h"

namespace cli {

// Where a run stands, for what is said when it dies.
struct Position {
  uint64_t packets = 0;                   // read so far, the one at work included
  const capture::Frame* frame = nullptr;  // the one at work, null between frames
};
extern Position position;

// From here on a fatal signal (an abort of the plug-in, a crash, a system call that the sandbox does not allow)
// says on standard error which packet was at work, and then ends the process as it would have. `files` are the
// inputs by their number; they must outlive the run, and are empty for a live one.
void PrepareLastWords(const std::vector<std::string>* files);

}  // namespace cli
