#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "collector/capture/source.h"
#include "collector/cli/options.h"
#include "collector/cli/pipeline.h"
#include "collector/output/account.h"
#include "collector/output/buffer.h"
#include "collector/output/client_mask.h"

// What a run is made of, whether it has workers or not.
namespace cli {

// Throws UsageError when two of captures, records and account are one file. Nothing is open yet then.
void RefuseSharedFiles(const Options& options);

// -o and --account. Throw std::runtime_error for a file that cannot be written. Null for an account that nobody
// asked for.
std::unique_ptr<output::Buffer> OpenOutput(const Options& options);
std::unique_ptr<output::Buffer> OpenAccount(const Options& options);

// All captures in one. Files that cannot be read are among its problems.
std::unique_ptr<capture::Source> OpenSources(const std::vector<std::string>& files);

PipelineSettings SettingsFrom(const Options& options);

// What hides the clients, where --mask-clients asks for it. Throws UsageError.
std::optional<output::ClientMask> MaskFrom(const Options& options);

// How a run ended.
struct Ending {
  const Options& options;
  const output::Account& account;
  const std::vector<std::string>& problems;  // of the input
  output::Buffer* buffer;
  output::Buffer* account_buffer;  // null when nobody asked for it
};

// Every input failed at once: there is nothing to write, and an older file of records is worth more.
bool NothingRead(const output::Account& account, const std::vector<std::string>& problems);

// Tells it on standard error, and writes the account.
void Report(const Ending& ending);

int ExitCode(const Ending& ending);

}  // namespace cli
