#pragma once

#include "collector/cli/options.h"
#include "collector/cli/run.h"

namespace cli {

// RunCaptures with several processes: each reads all captures and handles its share of the conversations with a
// plug-in of its own. Records come in one order whatever the number of workers: by the packet that ended their
// exchange, then by client, server, transport and identifier; open ones last. Standard input and pipes can only be
// read by one worker.
//
// A worker that dies costs its records and the account, and makes the exit code kRuntimeError.
int RunWorkers(const Options& options, Consumer* consumer);

}  // namespace cli
