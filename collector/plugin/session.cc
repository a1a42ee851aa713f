#include "collector/plugin/session.h"

#include <algorithm>
#include <limits>

#include "collector/plugin/exports.h"
#include "collector/plugin/packet_clock.h"
#include "collector/plugin/pairing.h"

namespace plugin {
namespace {

// Later than any packet, with room for the parser's arithmetic.
constexpr Microtime kFarFuture{std::numeric_limits<int64_t>::max() / 2};

constexpr int kLevelBelowExpiry = 3;

}  // namespace

struct Session::State {
  State(const Library& plug_in, const SessionSettings& settings, ExchangeListener* listener)
      : library(plug_in),
        pairing(listener),
        exports(settings.log_level, settings.log_line, &pairing),
        parser(library.Create(0, exports.table(), settings.args)) {
    exports.SetDetails(listener->WantsDetails());
    parser->request_sink = &pairing;
    pairing.SetParser(parser);
  }
  ~State() { library.Destroy(parser); }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  std::string ParserHealth() const {
    const char* line = parser->GetHealthEvent();
    return line != nullptr ? line : "";
  }

  const Library& library;
  Pairing pairing;
  Exports exports;
  ITimedProtocolParser* parser;
  flow::FlowTable* flows = nullptr;
  PacketClock clock;
  bool finished = false;
  std::string last_health;
};

Session::Session(const Library& library, const SessionSettings& settings, ExchangeListener* listener)
    : state(std::make_unique<State>(library, settings, listener)) {}

Session::~Session() = default;

void Session::Attach(flow::FlowTable* table) {
  state->flows = table;
  state->pairing.SetFlows(table);
}

void Session::AdvanceTime(int64_t now_ns) {
  if (!state->clock.Advance(now_ns)) return;
  const int64_t grid = state->clock.grid_ns();
  // After a silence the grid moves by many seconds at once, and answers that came in time may still wait.
  if (state->flows != nullptr) state->flows->GiveUpGaps(grid);
  state->pairing.Expire(ToMicrotime(grid), Status::kTimeout);
  if (state->flows != nullptr) state->flows->Tick(grid);
}

void Session::Prefetch(const flow::Flow& flow) const { state->pairing.Prefetch(flow); }

void Session::OnNewFlow(flow::Flow* flow) {
  state->parser->HandleNewStream(&flow->descriptor, &flow->stream_state);
}

void Session::OnMessage(const flow::Message& message) { state->pairing.Handle(message); }

void Session::OnEndOfFlow(flow::Flow* flow) {
  state->parser->HandleEndOfStream(&flow->descriptor, &flow->stream_state);
}

void Session::Finish() {
  if (state->finished) return;
  state->finished = true;
  if (state->clock.started()) state->pairing.Expire(ToMicrotime(state->clock.latest_ns()), Status::kTimeout);
  state->last_health = state->ParserHealth();
  // What the parser would say now of queries that are too old is not true.
  const int level = state->exports.level();
  state->exports.SetLevel(std::min(level, kLevelBelowExpiry));
  state->pairing.Expire(kFarFuture, Status::kOpen);
  state->exports.SetLevel(level);
  state->pairing.ReportForgotten();
}

std::string Session::Health() { return state->finished ? state->last_health : state->ParserHealth(); }

const MessageCounts& Session::counts() const { return state->pairing.counts(); }

uint64_t Session::ClockStepsBack() const { return state->clock.steps_back(); }

}  // namespace plugin
