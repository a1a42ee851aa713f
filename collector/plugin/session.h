#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "collector/flow/flow.h"
#include "collector/flow/flow_table.h"
#include "collector/plugin/exchange.h"
#include "collector/plugin/library.h"
#include "collector/plugin/message_counts.h"

namespace plugin {

struct SessionSettings {
  std::map<std::string, std::string> args;                         // configuration keys for the plug-in
  int log_level = 2;                                               // what the plug-in may say
  void (*log_line)(int level, const std::string& line) = nullptr;  // null: nothing is said
};

// One parser and what the host adds to its records. There may be one session at a time in a process (a second one
// throws std::logic_error): the plug-in's callbacks carry no context of their own.
//
// What the listener, the log function or the parser throws passes through. The session can be used on afterwards;
// the message in hand is then counted only if its exchange was complete already.
class Session : public flow::Listener {
 public:
  // The library and the listener must outlive the session.
  Session(const Library& library, const SessionSettings& settings, ExchangeListener* listener);
  ~Session() override;

  // The table that this session listens to; told when a flow's queries have ended.
  void Attach(flow::FlowTable* table);

  // Moves the clock to a packet's time, before the packet is delivered: once a grid second is crossed, messages
  // that waited for lost ones are delivered, the parser's heartbeat expires old queries, and the flow table drops
  // what is idle. All see the last second that was crossed. Packets more than a minute older than the grid take it
  // back with them, other old ones change nothing.
  void AdvanceTime(int64_t now_ns);

  // Asks the cache for what a response of this flow will need. Changes nothing.
  void Prefetch(const flow::Flow& flow) const;

  void OnNewFlow(flow::Flow* flow) override;
  void OnMessage(const flow::Message& message) override;
  void OnEndOfFlow(flow::Flow* flow) override;

  // The end of the input, at the newest packet's time: expires what is too old, then reports what is still open.
  // Once per session.
  void Finish();

  // The parser's health line since the last call. After Finish: as it was before it reported what was open, since
  // the parser knows that as expired.
  std::string Health();

  const MessageCounts& counts() const;
  uint64_t ClockStepsBack() const;  // packets far older than the grid, to which the grid went back

 private:
  struct State;
  std::unique_ptr<State> state;
};

}  // namespace plugin
