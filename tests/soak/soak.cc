// Drives the whole host, from frames to exchanges, with generated traffic for as many exchanges as asked for
// (500,000 without an argument), and looks whether memory stays where it is and everything adds up. One line for
// each twentieth of the way; exits with 1 when something is wrong.

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "collector/cli/pipeline.h"
#include "collector/plugin/library.h"
#include "tests/soak/traffic.h"

namespace {

// Counts exchanges and forgets them.
struct Counter : plugin::ExchangeListener {
  void OnExchange(const plugin::Exchange& exchange) override { ++by_status[static_cast<size_t>(exchange.status)]; }
  uint64_t Of(plugin::Status status) const { return by_status[static_cast<size_t>(status)]; }

  uint64_t by_status[plugin::kStatusCount] = {};
};

// Resident memory in KiB.
long Resident() {
  long total = 0;
  long resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

class Watch {
 public:
  Watch(const soak::Traffic& watched, uint64_t whole) : traffic(watched), step(std::max<uint64_t>(whole / 20, 1)) {}

  bool Look() {
    if (traffic.sent.exchanges < next) return true;
    next += step;
    curve.push_back(Resident());
    std::printf("%12llu exchanges  %8ld KiB\n", static_cast<unsigned long long>(traffic.sent.exchanges),
                curve.back());
    std::fflush(stdout);
    return true;
  }

  // After the first third everything that grows with the traffic's rate has grown. A twentieth more is the heap's
  // own unrest; what leaks a byte for each exchange is far above it.
  bool Flat() const {
    const auto warm = curve.begin() + static_cast<long>(curve.size() / 3);
    const long most = *std::max_element(warm, curve.end());
    return most <= *warm + *warm / 20;
  }

 private:
  const soak::Traffic& traffic;
  uint64_t step;
  uint64_t next = 0;
  std::vector<long> curve;
};

int wrong = 0;

void Expect(bool holds, const std::string& what) {
  if (holds) return;
  ++wrong;
  std::printf("WRONG: %s\n", what.c_str());
}

void Judge(const output::Account& account, const soak::Sent& sent, const Counter& counter) {
  using plugin::Status;
  for (const std::string& contradiction : output::Contradictions(account)) Expect(false, contradiction);
  Expect(account.packets == sent.packets(), "packets got lost");
  Expect(account.messages.begun == sent.exchanges + sent.floods, "not every query began an exchange");
  Expect(account.exchanges == account.messages.begun, "not every exchange was delivered");
  Expect(counter.Of(Status::kAnswered) == sent.responses, "not every response ended its exchange");
  Expect(counter.Of(Status::kMalformed) == 0, "a good response was called malformed");
  Expect(counter.Of(Status::kTimeout) + counter.Of(Status::kOpen) == account.messages.begun - sent.responses,
         "not every unanswered query was reported");
  Expect(account.fragments_held <= 65536, "fragments pile up");
}

}  // namespace

int main(int argc, char** argv) {
  const uint64_t exchanges = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 500000;
  const plugin::Library library(DNS_PARSER);
  soak::Traffic traffic(exchanges);
  Counter counter;
  cli::PipelineSettings settings;
  settings.session.args = {{"max_open_requests", "1000000"}};
  cli::Pipeline pipeline(settings, library, &counter);
  Watch watch(traffic, exchanges);
  pipeline.Run(&traffic, [&] { return watch.Look(); });
  pipeline.Finish();
  output::Account account = pipeline.Account();
  for (const uint64_t count : counter.by_status) account.exchanges += count;
  std::printf("%s", output::AccountText(account).c_str());
  Judge(account, traffic.sent, counter);
#if !defined(DNSPAIR_SANITIZE)  // which keeps freed memory for a while
  Expect(watch.Flat(), "memory grows");
#endif
  std::printf("%s\n", wrong == 0 ? "everything adds up" : "not everything adds up");
  return wrong == 0 ? 0 : 1;
}
