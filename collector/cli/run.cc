#include "collector/cli/run.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "collector/capture/live.h"
#include "collector/capture/open.h"
#include "collector/capture/stop.h"
#include "collector/cli/interrupt.h"
#include "collector/cli/last_words.h"
#include "collector/cli/pipeline.h"
#include "collector/cli/plugin_path.h"
#include "collector/cli/privileges.h"
#include "collector/cli/progress.h"
#include "collector/cli/sandbox.h"
#include "collector/cli/terminal.h"
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

bool SameFile(const std::string& one, const std::string& other) {
  struct stat a {};
  struct stat b {};
  if (stat(one.c_str(), &a) != 0 || stat(other.c_str(), &b) != 0) return false;
  return S_ISREG(a.st_mode) && a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

void RefuseInputs(const Options& options, const char* option, const std::string& path) {
  for (const std::string& file : options.files) {
    if (SameFile(path, file)) throw UsageError(std::string(option) + ": '" + path + "' is one of the captures");
  }
}

std::unique_ptr<output::Buffer> OpenOutput(const Options& options) {
  if (options.output_file.empty()) return std::make_unique<output::Buffer>(STDOUT_FILENO, "standard output");
  RefuseInputs(options, "--output", options.output_file);
  return std::make_unique<output::Buffer>(options.output_file);
}

std::unique_ptr<output::Buffer> OpenAccount(const Options& options) {
  if (options.account_file.empty()) return nullptr;
  RefuseInputs(options, "--account", options.account_file);
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

std::unique_ptr<capture::LiveSource> OpenInterfaces(const Options& options) {
  if (options.interfaces.empty()) return nullptr;
  capture::LiveSettings settings;
  settings.interfaces = options.interfaces;
  settings.snap_length = options.snap_length;
  settings.promiscuous = !options.no_promiscuous;
  settings.buffer_bytes = options.buffer_mib << 20;
  settings.filter = options.filter;
  return std::make_unique<capture::LiveSource>(settings);
}

// Live runs go on for months and read what strangers send: the sandbox is the usual thing for them.
void Confine(const Options& options) {
  const bool asked = options.sandbox == "on";
  const bool usual = options.sandbox.empty() && !options.interfaces.empty();
  if (!asked && !usual) return;
  if (EnterSandbox({.creates_files = !options.output_file.empty()})) return;
  const std::string lack = "this kernel offers no filter of system calls (seccomp)";
  if (asked) throw std::runtime_error("--sandbox on: " + lack);
  PrintProblem("warning: " + lack + "; the run goes on without a sandbox, as with --sandbox off");
}

// Records of live runs are at most this old when they leave the buffer.
constexpr auto kLongestHeld = std::chrono::milliseconds(500);

// Everything that lives for one run.
class Run {
 public:
  Run(const Options& given, Consumer* consumer_of_run)
      : options(given),
        consumer(consumer_of_run),
        library(given.plugin.empty() ? FindPlugin() : given.plugin),
        pipeline(SettingsFrom(given), library, consumer_of_run),
        live(OpenInterfaces(given)),
        files(live != nullptr ? nullptr : OpenSources(given.files)),
        source(live != nullptr ? live.get() : files.get()),
        buffer(OpenOutput(given)),
        account_buffer(OpenAccount(given)),
        flush_often(WritesToTerminal(given) || FromPipe(given)),
        progress(live == nullptr && !given.quiet && !WritesToTerminal(given)) {
    // Whatever needs privileges is open now, and nothing out of a packet has been looked at.
    if (!given.user.empty()) DropPrivileges(given.user);
    Confine(given);
  }

  int Execute() {
    consumer->Begin(buffer.get());
    pipeline.Run(source, [this] { return GoOn(); });
    const bool interrupted = Interrupted();
    // Where reading was stopped, the last read may have met an end that is none of the input's.
    if (!interrupted) problems = source->Problems();
    if (!buffer->Good()) capture::StopReading();  // or a thread that waits for more would keep us
    pipeline.Finish();
    progress.Clear();
    consumer->End();
    consumer->EndFile();
    buffer->Close();

    output::Account account = CurrentAccount();
    account.interrupted = interrupted;
    Report(account);
    return ExitCode(account);
  }

 private:
  static bool FromPipe(const Options& options) {
    return std::find(options.files.begin(), options.files.end(), "-") != options.files.end();
  }

  output::Account CurrentAccount() {
    output::Account account = pipeline.Account();
    account.exchanges = consumer->delivered;
    account.shown = consumer->shown;
    account.input_problems = problems.size();
    if (live != nullptr) account.interfaces = live->Counts();
    return account;
  }

  bool GoOn() {
    if (flush_often) buffer->Flush();
    if (live != nullptr) Serve();
    if (source->Problems().size() > problems.size()) problems = source->Problems();
    if (progress.Due()) {
      progress.Show(
          {.bytes_read = source->BytesRead(), .bytes_total = source->BytesTotal(), .packets = pipeline.packets()});
    }
    return buffer->Good() && !Interrupted() && consumer->GoOn([this] { return CurrentIntake(); });
  }

  Intake CurrentIntake() {
    Intake intake{pipeline.packets(), 0};
    if (live == nullptr) return intake;
    for (const capture::LiveCounts& each : live->Counts())
      intake.dropped += each.dropped + each.dropped_by_interface;
    return intake;
  }

  // What a live run does between packets.
  void Serve() {
    const auto now = std::chrono::steady_clock::now();
    if (now - last_flush >= kLongestHeld) {
      buffer->Flush();
      last_flush = now;
    }
    if (TakeReopenRequest() && buffer->Reopen()) consumer->BeginFile();
    if (!TakeAccountRequest()) return;
    output::Account account = CurrentAccount();
    account.waiting = account.messages.begun - account.exchanges;
    std::fputs(AccountText(account).c_str(), stderr);
  }

  void Report(const output::Account& account) {
    for (const std::string& problem : problems) PrintProblem(problem);
    if (account_buffer != nullptr) {
      account_buffer->Write(AccountJson(account).dump(2) + "\n");
      account_buffer->Close();
      if (!account_buffer->Good()) PrintProblem(account_buffer->Problem());
    }
    if (!buffer->Problem().empty()) PrintProblem(buffer->Problem());
    if (options.quiet) return;
    PrintLine(account.health);
    std::fputs(AccountText(account).c_str(), stderr);
  }

  int ExitCode(const output::Account& account) const {
    if (!buffer->Problem().empty()) return kRuntimeError;
    if (account_buffer != nullptr && !account_buffer->Good()) return kRuntimeError;
    if (account.interrupted && live == nullptr) return kInterruptedRun;  // a live run has no other end
    if (account.input_problems > 0) return kRuntimeError;
    return options.strict && !Losses(account).empty() ? kSomethingLost : 0;
  }

  const Options& options;
  Consumer* consumer;
  plugin::Library library;
  Pipeline pipeline;
  std::unique_ptr<capture::LiveSource> live;  // null for captures
  std::unique_ptr<capture::Source> files;     // null for interfaces
  capture::Source* source;                    // the one of the two
  std::vector<std::string> problems;          // of the input
  std::unique_ptr<output::Buffer> buffer;
  std::unique_ptr<output::Buffer> account_buffer;
  bool flush_often;
  std::chrono::steady_clock::time_point last_flush = std::chrono::steady_clock::now();
  Progress progress;
};

}  // namespace

void PrintProblem(const std::string& text) { PrintLine("dnspair: " + text); }

bool WritesToTerminal(const Options& options) { return options.output_file.empty() && IsTerminal(STDOUT_FILENO); }

std::string ChooseFormat(const Options& options) {
  if (!options.format.empty()) return options.format;
  return WritesToTerminal(options) ? "table" : "json";
}

int RunCaptures(const Options& options, Consumer* consumer) {
  PrepareLastWords(&options.files);
  return Run(options, consumer).Execute();
}

int RunLive(const Options& options, Consumer* consumer) {
  PrepareServiceSignals();
  PrepareLastWords(&options.files);
  return Run(options, consumer).Execute();
}

}  // namespace cli
