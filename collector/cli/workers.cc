#include "collector/cli/workers.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <memory>
#include <optional>
#include <system_error>
#include <vector>

#include "collector/cli/interrupt.h"
#include "collector/cli/last_words.h"
#include "collector/cli/plugin_path.h"
#include "collector/cli/progress.h"
#include "collector/cli/run_parts.h"
#include "collector/cli/usage_error.h"
#include "collector/cli/worker.h"
#include "collector/cli/worker_link.h"
#include "collector/cli/worker_report.h"

namespace cli {
namespace {

// How many packets workers still read when they are to stop, so that all of them can be told before they get there.
constexpr uint64_t kPacketsToStopIn = 4096;

// A file that several processes can read, each from its begin. What does not exist is told by whoever opens it.
bool CanBeShared(const std::string& path) {
  struct stat status {};
  if (path == "-") return false;
  return stat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode) || S_ISDIR(status.st_mode);
}

void RefuseWhatCannotBeShared(const Options& options) {
  if (ChooseFormat(options) == "table") throw UsageError("--workers: a table is written by one process only");
  if (options.sandbox == "on") throw UsageError("--workers: the sandbox allows no new processes");
  if (!options.rotate_size.empty()) throw UsageError("--workers: they write one file, and -C asks for several");
  if (options.workers == 1) return;
  for (const std::string& file : options.files) {
    if (!CanBeShared(file)) {
      throw UsageError("--workers: '" + file + "' can be read only once, so it has to be one worker");
    }
  }
}

// The processes, and what they send, merged.
class WorkerRun {
 public:
  WorkerRun(const Options& given, Consumer* writer)
      : options(given),
        consumer(writer),
        mask(MaskFrom(given)),
        library(given.plugin.empty() ? FindPlugin() : given.plugin),
        settings(SettingsFrom(given)),
        progress(!given.quiet && !WritesToTerminal(given)) {
    plugin::ExchangeListener* const nobody = writer;
    const Pipeline trial(settings, library, nobody);  // whether a worker will be able to begin
    buffer = OpenOutput(given);
    account_buffer = OpenAccount(given);
  }

  int Execute() {
    for (uint32_t i = 0; i < options.workers; ++i) links.push_back(std::make_unique<WorkerLink>());
    for (uint32_t i = 0; i < options.workers; ++i) processes.push_back(Begin(i));
    for (const auto& link : links) link->BecomeReceiver();
    consumer->Begin(buffer.get());
    Merge();
    progress.Clear();
    consumer->EndFile();
    return Reap() ? End() : EndWithLosses();
  }

 private:
  pid_t Begin(uint32_t number) {
    const pid_t process = fork();
    if (process < 0) throw std::system_error(errno, std::generic_category(), "a worker process");
    if (process > 0) return process;
    // The parent's buffers and objects are not ours to end: this process leaves without looking back.
    try {
      Work(number);
    } catch (const std::exception& error) {
      PrintProblem(error.what());
      _exit(kRuntimeError);
    } catch (...) {
      PrintProblem("the plug-in threw an exception of an unknown kind");
      _exit(kRuntimeError);
    }
    _exit(0);
  }

  void Work(uint32_t number) {
    PrepareWorkerSignals();
    PrepareLastWords(&options.files);
    // Ends of other workers' pipes that stay open would hide that somebody is gone.
    std::unique_ptr<WorkerLink> link = std::move(links[number]);
    links.clear();
    link->BecomeSender();
    settings.share = {number, options.workers};
    Worker(options, consumer, link.get()).Run(settings, library);
  }

  void Merge() {
    while (WorkerLink* const next = Earliest()) {
      const std::string_view record = next->text();
      buffer->Commit(std::copy(record.begin(), record.end(), buffer->Room(record.size())));
      next->Next();
    }
  }

  // The link whose record comes next. Null when there are no more.
  WorkerLink* Earliest() {
    for (;;) {
      WorkerLink* first = nullptr;
      for (const auto& link : links) {
        if (link->state() != WorkerLink::State::kRecord) continue;
        if (first == nullptr || link->place() < first->place()) first = link.get();
      }
      WorkerLink* const awaited = Awaited(first);
      if (awaited == nullptr) return first;
      awaited->Receive();
      LookUp();
    }
  }

  // A worker that may still send something that comes before.
  WorkerLink* Awaited(const WorkerLink* first) const {
    for (const auto& link : links) {
      if (link->state() != WorkerLink::State::kNothing) continue;
      if (first == nullptr || link->passed() < first->place().packet) return link.get();
    }
    return nullptr;
  }

  // Between what the workers send.
  void LookUp() {
    if (options.workers == 1) buffer->Flush();
    if (Interrupted() || !buffer->Good()) Stop();
    if (!progress.Due()) return;
    const WorkerLink::Status& status = links.front()->status();
    progress.Show(
        {.bytes_read = status.bytes_read, .bytes_total = status.bytes_total, .packets = status.whereabouts.packet});
  }

  // Workers end soon, all behind the same packet, and are listened to until then.
  void Stop() {
    if (stopped) return;
    stopped = true;
    if (processes.size() == 1) {  // which may wait for input that never comes
      kill(processes.front(), SIGUSR2);
      return;
    }
    uint64_t last;
    do {
      last = Farthest() + kPacketsToStopIn;
      for (const auto& link : links) link->status().whereabouts.last = last;
    } while (Farthest() + 1 >= last);
    for (const auto& link : links) link->status().whereabouts.agreed = true;
  }

  uint64_t Farthest() const {
    uint64_t farthest = 0;
    for (const auto& link : links) farthest = std::max(farthest, link->status().whereabouts.packet.load());
    return farthest;
  }

  // False when one of the workers was lost.
  bool Reap() {
    bool all = true;
    for (size_t i = 0; i < processes.size(); ++i) {
      int status = 0;
      while (waitpid(processes[i], &status, 0) < 0 && errno == EINTR) {
      }
      if (links[i]->state() == WorkerLink::State::kReported) continue;
      all = false;
      const std::string how = WIFSIGNALED(status) ? "was killed by signal " + std::to_string(WTERMSIG(status))
                                                  : "ended with exit code " + std::to_string(WEXITSTATUS(status));
      PrintProblem("worker " + std::to_string(i + 1) + " of " + std::to_string(processes.size()) + " " + how +
                   PlaceOfLoss(*links[i]) + "; the records that it had not sent are missing");
    }
    return all;
  }

  std::string PlaceOfLoss(WorkerLink& link) const {
    const Whereabouts& whereabouts = link.status().whereabouts;
    if (whereabouts.packet == 0) return " before its first packet";
    const std::string& file = options.files[std::min<size_t>(whereabouts.source, options.files.size() - 1)];
    return " at packet " + std::to_string(whereabouts.packet) + " of the input, in " +
           (file == "-" ? "standard input" : file);
  }

  int End() {
    output::Account account;
    std::vector<std::string> problems;
    for (const auto& link : links) {
      const WorkerReport report = Unpack(link->text());
      AddAccount(&account, report.account);
      if (problems.empty()) problems = report.problems;  // all have read the same
    }
    account.interrupted = Interrupted();
    account.client_mask = mask;
    if (NothingRead(account, problems)) buffer->Abandon();
    buffer->Close();
    const Ending ending{options, account, problems, buffer.get(), account_buffer.get()};
    Report(ending);
    return ExitCode(ending);
  }

  // Without an account: what the lost worker did is not in it.
  int EndWithLosses() {
    buffer->Close();
    if (!buffer->Problem().empty()) PrintProblem(buffer->Problem());
    return kRuntimeError;
  }

  const Options& options;
  Consumer* consumer;
  std::optional<output::ClientMask> mask;
  plugin::Library library;
  PipelineSettings settings;
  std::unique_ptr<output::Buffer> buffer;
  std::unique_ptr<output::Buffer> account_buffer;
  Progress progress;
  std::vector<std::unique_ptr<WorkerLink>> links;
  std::vector<pid_t> processes;
  bool stopped = false;
};

}  // namespace

int RunWorkers(const Options& options, Consumer* consumer) {
  RefuseWhatCannotBeShared(options);
  RefuseSharedFiles(options);
  PrepareAccountSignal();  // which ends nobody, although there is no account before all have sent theirs
  return WorkerRun(options, consumer).Execute();
}

}  // namespace cli
