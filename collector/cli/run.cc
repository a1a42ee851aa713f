#include "collector/cli/run.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "collector/capture/live.h"
#include "collector/capture/open.h"
#include "collector/capture/stop.h"
#include "collector/cli/forwarding.h"
#include "collector/cli/interrupt.h"
#include "collector/cli/last_words.h"
#include "collector/cli/pipeline.h"
#include "collector/cli/plugin_path.h"
#include "collector/cli/privileges.h"
#include "collector/cli/progress.h"
#include "collector/cli/rotate.h"
#include "collector/cli/run_parts.h"
#include "collector/cli/sandbox.h"
#include "collector/cli/terminal.h"
#include "collector/cli/usage_error.h"
#include "collector/cli/wall_clock.h"

namespace cli {
namespace {

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

std::optional<output::Rotation> MakeRotation(const Options& options) {
  std::optional<output::RotationSettings> settings = RotationFrom(options);
  if (!settings) return std::nullopt;
  return output::Rotation(std::move(*settings));
}

// Records of live runs are at most this old when they leave the buffer.
constexpr auto kLongestHeld = std::chrono::milliseconds(500);

// Everything that lives for one run.
class Run {
 public:
  Run(const Options& given, Consumer* consumer_of_run)
      : options(given),
        consumer(consumer_of_run),
        mask(MaskFrom(given)),
        rotation(MakeRotation(given)),
        library(given.plugin.empty() ? FindPlugin() : given.plugin),
        pipeline(SettingsFrom(given), library, FirstListener()),
        live(OpenInterfaces(given)),
        files(live != nullptr ? nullptr : OpenSources(given.files)),
        source(live != nullptr ? live.get() : files.get()),
        buffer(rotation ? nullptr : OpenOutput(given)),
        account_buffer(OpenAccount(given)),
        flush_often(WritesToTerminal(given) || std::ranges::any_of(given.files, IsPipe)),
        progress(live == nullptr && !given.quiet && !WritesToTerminal(given)) {
    // Whatever needs privileges is open now, and nothing out of a packet has been looked at.
    if (!given.user.empty()) DropPrivileges(given.user);
    Confine(given);
    // As all that follow: what the user may not write shows at once, and not with the second file.
    if (rotation) buffer = rotation->Begin(WallClock());
  }

  int Execute() {
    consumer->Begin(buffer.get());
    pipeline.Run(source, [this] { return GoOn(); });
    const bool interrupted = Interrupted();
    // Where reading was stopped, the last read may have met an end that is none of the input's.
    if (!interrupted) problems = source->Problems();
    PrintNews();
    if (!buffer->Good()) capture::StopReading();  // or a thread that waits for more would keep us
    pipeline.Finish();
    progress.Clear();
    output::Account account = CurrentAccount();
    account.interrupted = interrupted;
    consumer->OnAccount(account);
    consumer->End();
    consumer->EndFile();
    if (NothingRead(account, problems)) buffer->Abandon();
    rotation ? rotation->Finish(buffer.get()) : buffer->Close();
    const std::vector<std::string> untold = live != nullptr ? std::vector<std::string>() : problems;
    const Ending ending{options, account, untold, buffer.get(), account_buffer.get()};
    Report(ending);
    return ExitCode(ending);
  }

 private:
  // Somebody may be waiting for what comes through it.
  static bool IsPipe(const std::string& file) {
    std::error_code ignored;
    const auto type = std::filesystem::status(file, ignored).type();
    return file == "-" || type == std::filesystem::file_type::fifo || type == std::filesystem::file_type::character;
  }

  // The consumer, behind what changes the exchanges on their way to it.
  plugin::ExchangeListener* FirstListener() {
    plugin::ExchangeListener* first = consumer;
    if (!options.rotate_size.empty()) first = &size_watch.emplace(first, [this] { LookAtSize(); });
    if (mask) first = &masking.emplace(first, *mask);
    return first;
  }

  void LookAtSize() {
    if (buffer->Good() && rotation->IsFull(*buffer)) NextFile();
  }

  void NextFile() {
    consumer->EndFile();
    if (rotation->Next(buffer.get(), WallClock())) consumer->BeginFile();
  }

  // Whoever asks has moved the file away, or wants it whole.
  void Reopen() {
    if (rotation) return NextFile();
    if (!buffer->IsMoved()) return;
    consumer->EndFile();
    if (buffer->Reopen()) consumer->BeginFile();
  }

  output::Account CurrentAccount() {
    output::Account account = pipeline.Account();
    account.exchanges = consumer->delivered;
    account.shown = consumer->shown;
    account.input_problems = problems.size();
    account.client_mask = mask;
    if (live != nullptr) account.interfaces = live->Counts();
    return account;
  }

  bool GoOn() {
    if (flush_often) buffer->Flush();
    if (live != nullptr) Serve();
    if (TakeAccountRequest()) PrintAccount();
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

  // A live run may go on for months: what happens to its interfaces is told when it happens.
  void PrintNews() {
    if (live == nullptr) return;
    for (const std::string& line : live->TakeNews()) PrintProblem(line);
  }

  // What a live run does between packets.
  void Serve() {
    PrintNews();
    const auto now = std::chrono::steady_clock::now();
    if (now - last_flush >= kLongestHeld) {
      buffer->Flush();
      last_flush = now;
    }
    if (TakeReopenRequest()) Reopen();
    if (rotation && rotation->IsOver(WallClock())) NextFile();
  }

  void PrintAccount() {
    output::Account account = CurrentAccount();
    account.waiting = account.messages.begun - account.exchanges;
    std::fputs(AccountText(account).c_str(), stderr);
  }

  const Options& options;
  Consumer* consumer;
  std::optional<output::ClientMask> mask;
  std::optional<output::Rotation> rotation;
  std::optional<AfterEach> size_watch;  // where files have a size
  std::optional<Masking> masking;       // where there is a mask
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

bool WritesToTerminal(const Options& options) { return options.output_file.empty() && IsTerminal(STDOUT_FILENO); }

std::string ChooseFormat(const Options& options) {
  if (!options.format.empty()) return options.format;
  return WritesToTerminal(options) ? "table" : "json";
}

int RunCaptures(const Options& options, Consumer* consumer) {
  RefuseSharedFiles(options);
  PrepareAccountSignal();
  PrepareLastWords(&options.files);
  return Run(options, consumer).Execute();
}

int RunLive(const Options& options, Consumer* consumer) {
  RefuseSharedFiles(options);
  PrepareAccountSignal();
  PrepareReopenSignal();
  PrepareLastWords(&options.files);
  return Run(options, consumer).Execute();
}

}  // namespace cli
