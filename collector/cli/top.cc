#include <unistd.h>

#include <chrono>
#include <memory>

#include "collector/cli/commands.h"
#include "collector/cli/conditions.h"
#include "collector/cli/run.h"
#include "collector/cli/terminal.h"
#include "collector/cli/usage_error.h"
#include "collector/cli/wall_clock.h"
#include "collector/top/curses_screen.h"
#include "collector/top/page.h"
#include "collector/top/timeline.h"

namespace cli {
namespace {

// Since some moment; never set back.
int64_t SteadyTime() {
  return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Shows what exchanges come, and hands them on to who writes them, if anybody does.
class TopScreen : public Consumer {
 public:
  TopScreen(const Options& given, Consumer* writer)
      : where(ParseConditions(given)), records(writer), timeline(SteadyTime()) {
    for (const std::string& name : given.interfaces) {
      around.interfaces.append(around.interfaces.empty() ? "" : " ").append(name);
    }
  }

  void Begin(output::Buffer* buffer) override {
    if (records != nullptr) records->Begin(buffer);
    screen = std::make_unique<top::CursesScreen>(WantsColours(STDOUT_FILENO));
  }

  void BeginFile() override {
    if (records != nullptr) records->BeginFile();
  }

  void EndFile() override {
    if (records != nullptr) records->EndFile();
  }

  void OnExchange(const plugin::Exchange& exchange) override {
    ++delivered;
    if (records != nullptr) records->OnExchange(exchange);
    if (!where.Holds(exchange)) return;
    ++shown;
    timeline.Add(exchange);
  }

  bool WantsDetails() const override {
    return where.LooksAtDetails() || (records != nullptr && records->WantsDetails());
  }

  bool GoOn(const std::function<Intake()>& intake) override {
    const int64_t now = SteadyTime();
    timeline.Advance(now);
    if (now < next_look) return true;
    next_look = now + kBetweenLooks;
    const bool changed = TakeKeys();
    if (view.quit || screen->Gone()) return false;
    if (changed || now >= next_page) {
      next_page = now + kBetweenPages;
      Show(intake());
    }
    return true;
  }

  void End() override {
    screen.reset();
    if (records != nullptr) records->End();
  }

 private:
  static constexpr int64_t kBetweenLooks = 50'000'000;
  static constexpr int64_t kBetweenPages = 1'000'000'000;

  // True when there is something else to show.
  bool TakeKeys() {
    bool changed = false;
    for (int key = screen->NextKey(); key != top::CursesScreen::kNone; key = screen->NextKey()) {
      if (key == top::CursesScreen::kOther || top::Press(&view, key)) changed = true;
    }
    return changed;
  }

  void Show(const Intake& intake) {
    around.time_ns = WallClock();
    around.packets = intake.packets;
    around.dropped = intake.dropped;
    screen->Draw(top::Page(timeline.Look(view.window), view, around, screen->size()));
  }

  output::Where where;
  Consumer* records;  // may be null
  top::Timeline timeline;
  top::View view;
  top::Surroundings around;
  std::unique_ptr<top::CursesScreen> screen;
  int64_t next_look = 0;
  int64_t next_page = 0;
};

}  // namespace

int RunTop(const Options& options, Consumer* records) {
  if (!IsTerminal(STDOUT_FILENO) || !IsTerminal(STDIN_FILENO)) {
    throw UsageError("--top: standard input and output have to be a terminal; leave it out to get records");
  }
  TopScreen screen(options, records);
  return RunLive(options, &screen);
}

}  // namespace cli
