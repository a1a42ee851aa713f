#include "collector/cli/run_parts.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <optional>
#include <utility>

#include "collector/capture/open.h"
#include "collector/cli/conditions.h"
#include "collector/cli/run.h"
#include "collector/cli/usage_error.h"
#include "collector/output/text.h"

namespace cli {
namespace {

// Messages keep what UTF-8 a file name has; control characters never reach a terminal.
std::string WithoutControls(std::string text) {
  for (char& character : text) {
    if (static_cast<unsigned char>(character) < 0x20 || character == 0x7f) character = '?';
  }
  return text;
}

void PrintLine(const std::string& text) { std::fputs((WithoutControls(text) + "\n").c_str(), stderr); }

// The plug-in's log quotes names out of packets.
void PrintLog(int, const std::string& line) { PrintLine(output::Printable(line)); }

// A regular file, whatever it is called.
using Identity = std::optional<std::pair<dev_t, ino_t>>;

Identity IdentityOf(int result, const struct stat& status) {
  if (result != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  return std::pair(status.st_dev, status.st_ino);
}
Identity IdentityOf(const std::string& path) {
  struct stat status {};
  return IdentityOf(stat(path.c_str(), &status), status);
}
Identity IdentityOf(int descriptor) {
  struct stat status {};
  return IdentityOf(fstat(descriptor, &status), status);
}

bool IsOneOf(const Identity& file, const std::vector<std::string>& captures) {
  return file && std::ranges::any_of(captures, [&](const std::string& each) { return IdentityOf(each) == file; });
}

// Its packets would count twice.
void RefuseRepeatedCaptures(const std::vector<std::string>& captures) {
  std::map<Identity, std::string> seen;
  for (const std::string& file : captures) {
    const Identity identity = IdentityOf(file);
    if (!identity) continue;
    const auto [before, is_new] = seen.try_emplace(identity, file);
    if (is_new) continue;
    const bool same_name = before->second == file;
    throw UsageError("'" + file + "' is named twice" + (same_name ? "" : ", as '" + before->second + "' too"));
  }
}

// Also of files that are not there yet.
bool SamePath(const std::string& one, const std::string& other) {
  std::error_code ignored;
  return std::filesystem::weakly_canonical(one, ignored) == std::filesystem::weakly_canonical(other, ignored);
}

}  // namespace

void PrintProblem(const std::string& text) { PrintLine("dnspair: " + text); }

void RefuseSharedFiles(const Options& options) {
  RefuseRepeatedCaptures(options.files);
  const std::string& output = options.output_file;
  const std::string& account = options.account_file;
  if (IsOneOf(IdentityOf(output), options.files)) {
    throw UsageError("--output: '" + output + "' is one of the captures");
  }
  if (output.empty() && IsOneOf(IdentityOf(STDOUT_FILENO), options.files)) {
    throw UsageError("standard output is one of the captures");
  }
  if (account.empty()) return;
  if (IsOneOf(IdentityOf(account), options.files)) {
    throw UsageError("--account: '" + account + "' is one of the captures");
  }
  const Identity written = IdentityOf(account);
  const bool same = output.empty() ? written && written == IdentityOf(STDOUT_FILENO)
                                   : SamePath(account, output) || (written && written == IdentityOf(output));
  if (same) throw UsageError("--account: '" + account + "' is where the records go");
}

std::unique_ptr<output::Buffer> OpenOutput(const Options& options) {
  if (options.output_file.empty()) return std::make_unique<output::Buffer>(STDOUT_FILENO, "standard output");
  return std::make_unique<output::Buffer>(options.output_file);
}

std::unique_ptr<output::Buffer> OpenAccount(const Options& options) {
  if (options.account_file.empty()) return nullptr;
  return std::make_unique<output::Buffer>(options.account_file);
}

std::unique_ptr<capture::Source> OpenSources(const std::vector<std::string>& files) {
  std::vector<std::unique_ptr<capture::Source>> sources;
  sources.reserve(files.size());
  for (const std::string& file : files) {
    sources.push_back(capture::OpenFile(file, static_cast<uint32_t>(sources.size())));
  }
  if (sources.size() == 1) return std::move(sources.front());
  return capture::MergeByTime(std::move(sources));
}

PipelineSettings SettingsFrom(const Options& options) {
  PipelineSettings settings;
  if (options.interfaces.empty()) settings.filter = options.filter;  // live, it runs in the kernel
  if (!options.ports.empty()) settings.flow.dns_ports = options.ports;
  settings.flow.separate_vlans = options.separate_vlans;
  settings.follow_wall_clock = !options.interfaces.empty();
  std::vector<std::string> unknown;
  settings.session.args = PluginArguments(options.settings, &unknown);
  for (const std::string& key : unknown) {
    PrintProblem("warning: the plug-in may not know the key '" + key + "'; it is passed on");
  }
  constexpr int kEverything = 5;
  constexpr int kWithoutTraces = 4;
  settings.session.log_level = options.verbosity > 1 ? kEverything : options.verbosity == 1 ? kWithoutTraces : 0;
  settings.session.log_line = options.verbosity > 0 ? PrintLog : nullptr;
  return settings;
}

std::optional<output::ClientMask> MaskFrom(const Options& options) {
  if (options.client_mask.empty()) return std::nullopt;
  // The plug-in's log tells of packets, with their addresses.
  if (options.verbosity > 0) throw UsageError("--mask-clients: the plug-in's log (--verbose) would show them");
  return Understand("--mask-clients", [&] { return output::ClientMask(options.client_mask); });
}

bool NothingRead(const output::Account& account, const std::vector<std::string>& problems) {
  return account.packets == 0 && account.interfaces.empty() && !problems.empty();
}

void Report(const Ending& ending) {
  for (const std::string& problem : ending.problems) PrintProblem(problem);
  if (ending.account_buffer != nullptr) {
    ending.account_buffer->Write(AccountJsonText(ending.account));
    ending.account_buffer->Close();
    if (!ending.account_buffer->Good()) PrintProblem(ending.account_buffer->Problem());
  }
  if (!ending.buffer->Problem().empty()) PrintProblem(ending.buffer->Problem());
  if (ending.options.quiet) return;
  // Zeros would only hide the line that says why.
  if (NothingRead(ending.account, ending.problems)) return;
  PrintLine(ending.account.health);
  std::fputs(AccountText(ending.account).c_str(), stderr);
}

int ExitCode(const Ending& ending) {
  const bool live = !ending.options.interfaces.empty();
  if (!ending.buffer->Problem().empty()) return kRuntimeError;
  if (ending.account_buffer != nullptr && !ending.account_buffer->Good()) return kRuntimeError;
  if (ending.account.interrupted && !live) return kInterruptedRun;  // a live run has no other end
  if (ending.account.input_problems > 0) return kRuntimeError;
  return ending.options.strict && !Losses(ending.account).empty() ? kSomethingLost : 0;
}

}  // namespace cli
