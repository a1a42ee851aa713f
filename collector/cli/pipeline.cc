#include "collector/cli/pipeline.h"

#include "collector/cli/last_words.h"
#include "collector/cli/wall_clock.h"

namespace cli {
namespace {

// Frames that the kernel still holds are at most this old: the wall clock must not overtake them.
constexpr int64_t kKernelDelay = 500'000'000;

}  // namespace

Pipeline::Pipeline(const PipelineSettings& settings, const plugin::Library& library,
                   plugin::ExchangeListener* listener)
    : filter(settings.filter.empty() ? nullptr : std::make_unique<capture::Filter>(settings.filter)),
      session(library, settings.session, listener),
      flows(settings.flow, &session),
      look_ahead(&flows, &session),
      follow_wall_clock(settings.follow_wall_clock),
      share(settings.share) {
  session.Attach(&flows);
}

void Pipeline::Run(capture::Source* source, const std::function<bool()>& go_on) {
  std::span<const capture::Frame> frames;
  while (go_on()) {
    const capture::ReadState state = source->Read(&frames);
    if (state == capture::ReadState::kEnd) return;
    if (state == capture::ReadState::kIdle && follow_wall_clock) AdvanceTime(WallClock() - kKernelDelay);
    if (state == capture::ReadState::kIdle) continue;
    look_ahead.Begin(frames);
    for (size_t i = 0; i < frames.size(); ++i) {
      if (whereabouts != nullptr && whereabouts->EndsBehind(account.packets)) return;
      look_ahead.Step(i);
      Handle(frames[i]);
    }
    position.frame = nullptr;
  }
}

void Pipeline::Handle(const capture::Frame& frame) {
  position = {++account.packets, &frame};
  if (whereabouts != nullptr) {
    whereabouts->packet.store(account.packets, std::memory_order_relaxed);
    whereabouts->source.store(frame.source, std::memory_order_relaxed);
  }
  // Every packet moves the clock, even one that is then left out: an old query must never pair with a new answer.
  AdvanceTime(frame.time_ns);
  if (filter != nullptr && !filter->Matches(frame)) {
    ++account.filtered;
    return;
  }
  const packet::Outcome outcome = decoder.Decode(frame, &datagram);
  ++account.outcomes[static_cast<size_t>(outcome)];
  if (outcome == packet::Outcome::kDatagram) Deliver();
  DeliverExpired();
}

void Pipeline::AdvanceTime(int64_t now_ns) {
  // What came of a packet in fragments is older than this: its query may be about to time out.
  decoder.Advance(now_ns);
  DeliverExpired();
  session.AdvanceTime(now_ns);
}

void Pipeline::Deliver() {
  if (share.workers > 1 && !IsOurs(share, datagram)) return;
  ++account.deliveries[static_cast<size_t>(flows.Handle(datagram))];
}

// Datagrams whose last fragments never came: they are cut, but they are there.
void Pipeline::DeliverEachExpired() {
  while (decoder.TakeExpired(&datagram)) Deliver();
}

void Pipeline::Finish() {
  input_ended = true;
  decoder.Flush();
  DeliverExpired();
  // What is left in streams goes first, so that it can still be answered or time out.
  flows.Finish();
  session.Finish();
}

output::Account Pipeline::Account() {
  output::Account result = account;
  if (filter != nullptr) result.not_filtered = filter->NotFiltered();
  result.unknown_link_types = decoder.UnknownLinkTypes();
  result.fragments = decoder.fragments();
  result.fragments_held = decoder.FragmentsHeld();
  result.flows = flows.counts();
  result.messages = session.counts();
  result.clock_steps_back = session.ClockStepsBack();
  result.health = session.Health();
  return result;
}

}  // namespace cli
