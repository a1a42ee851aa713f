#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "collector/capture/filter.h"
#include "collector/capture/source.h"
#include "collector/cli/look_ahead.h"
#include "collector/cli/share.h"
#include "collector/cli/whereabouts.h"
#include "collector/flow/flow_table.h"
#include "collector/output/account.h"
#include "collector/packet/decoder.h"
#include "collector/plugin/session.h"

namespace cli {

struct PipelineSettings {
  std::string filter;  // libpcap's language, "" for none
  flow::Settings flow;
  plugin::SessionSettings session;
  bool follow_wall_clock = false;  // where the source pauses, time goes on
  Share share;                     // of the conversations: the others are passed over
};

// From frames to exchanges: filter, decoder, flow table and parser in a row.
class Pipeline {
 public:
  // Throws capture::FilterError when the filter expression is wrong. Library and listener must outlive the
  // pipeline.
  Pipeline(const PipelineSettings& settings, const plugin::Library& library, plugin::ExchangeListener* listener);

  // Takes everything the source has. Asks `go_on` every now and then, and stops early when it says no.
  void Run(capture::Source* source, const std::function<bool()>& go_on);

  // The input has ended, and what is open comes out.
  bool finishing() const { return input_ended; }

  // Says from now on in `place` which packet is in hand, and ends where it says. It must outlive the pipeline.
  void Publish(Whereabouts* place) { whereabouts = place; }

  // The input has ended: what is still open comes out.
  void Finish();

  uint64_t packets() const { return account.packets; }

  // Where everything went so far. The exchanges delivered and shown are for the listener to fill in.
  output::Account Account();

 private:
  void Handle(const capture::Frame& frame);
  void AdvanceTime(int64_t now_ns);
  void Deliver();
  void DeliverExpired() {
    if (decoder.HasExpired()) [[unlikely]]
      DeliverEachExpired();
  }
  void DeliverEachExpired();

  std::unique_ptr<capture::Filter> filter;
  packet::Decoder decoder;
  plugin::Session session;
  flow::FlowTable flows;
  LookAhead look_ahead;
  packet::Datagram datagram;
  output::Account account;
  bool follow_wall_clock;
  Share share;
  bool input_ended = false;
  Whereabouts* whereabouts = nullptr;
};

}  // namespace cli
