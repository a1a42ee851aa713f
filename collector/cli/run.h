#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "collector/cli/options.h"
#include "collector/output/buffer.h"
#include "collector/plugin/exchange.h"

namespace output {
struct Account;
}

namespace cli {

// Exit codes beside 0 and the shell's 130 for an interrupted run.
inline constexpr int kRuntimeError = 1;
inline constexpr int kWrongUsage = 2;
inline constexpr int kSomethingLost = 3;
inline constexpr int kInterruptedRun = 130;

// What has come into a run so far.
struct Intake {
  uint64_t packets = 0;
  uint64_t dropped = 0;  // before they came, by the kernel or an interface
};

// What a command does with exchanges.
class Consumer : public plugin::ExchangeListener {
 public:
  // Everything else is known to work, the output is open, and the input begins. The buffer outlives the run.
  virtual void Begin(output::Buffer* buffer) = 0;

  // Called between packets, in live runs at least several times a second. False ends the run.
  virtual bool GoOn(const std::function<Intake()>& /*intake*/) { return true; }

  // The output is a new, empty file.
  virtual void BeginFile() {}

  // The output's file is about to be finished; another may follow. After End comes the last one.
  virtual void EndFile() {}

  // The input has ended, and this is where everything went.
  virtual void OnAccount(const output::Account& /*account*/) {}

  // After that: what was collected is written.
  virtual void End() {}

  uint64_t delivered = 0;  // exchanges seen
  uint64_t shown = 0;      // of these, those that went into the output
};

// True when records appear on a terminal while they are found.
bool WritesToTerminal(const Options& options);

// The format asked for, or the usual one of the output at hand.
std::string ChooseFormat(const Options& options);

// Reads the captures, hands their exchanges to the consumer, and reports on standard error. Returns the exit code.
// Throws UsageError and std::runtime_error for what keeps the run from beginning; no output file is touched then.
int RunCaptures(const Options& options, Consumer* consumer);

// The same with frames as they arrive on interfaces, until a signal ends it or every interface is gone.
int RunLive(const Options& options, Consumer* consumer);

// One line on standard error, "dnspair: ...", without control characters.
void PrintProblem(const std::string& text);

}  // namespace cli
