// TCP reassembly: segments of one true stream in any order come out as its messages; and any segments and datagrams
// of some conversations leave the flow table's books in order.

#include <algorithm>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "collector/flow/flow_table.h"
#include "collector/flow/tcp_stream.h"
#include "fuzz/draw.h"
#include "fuzz/target.h"

namespace fuzz {
namespace {

// ---- one direction -------------------------------------------------------------------------------------------

class Messages : public flow::CutterOutput {
 public:
  Messages() : CutterOutput(&own) {}
  void OnCutMessage(const flow::CutMessage& message) override {
    Must(message.snap == message.nominal, "a stream without a hole has no cut message");
    joined.append(reinterpret_cast<const char*>(message.data), message.snap);
    ++count;
  }
  flow::Expected Expects() const override { return flow::Expected::kEither; }

  flow::Counts own;
  std::string joined;
  size_t count = 0;
};

void SendPart(flow::TcpStream* stream, const std::string& all, uint32_t base, size_t from, size_t size,
              Messages* out) {
  from = std::min(from, all.size());
  const std::string part = all.substr(from, size);
  const Captured block(part);
  const auto length = static_cast<uint32_t>(part.size());
  stream->Data({base + static_cast<uint32_t>(from), block.data(), length, length, 0}, out);
}

// Messages, then segments of them in any order; at the end the whole stream once more, and its FIN.
void RunTrueStream(Draw* input) {
  std::string all;
  const size_t count = input->U8() % 16;
  for (size_t i = 0; i < count; ++i) {
    const std::string_view body = input->Text();
    all += {static_cast<char>(body.size() >> 8), static_cast<char>(body.size())};
    all += body;
  }
  const uint32_t isn = input->U32();
  flow::TcpStream stream;
  Messages out;
  stream.Syn(isn);
  // Fewer than a stream lets wait behind a gap.
  for (size_t i = 0; i < flow::TcpStream::kMostWaiting / 2 && !input->Empty(); ++i) {
    const size_t from = input->U16();
    const size_t size = input->U8();
    SendPart(&stream, all, isn + 1, from, size, &out);
  }
  SendPart(&stream, all, isn + 1, 0, all.size(), &out);
  stream.Fin(isn + 1 + static_cast<uint32_t>(all.size()), 0, &out);
  Must(out.joined == all && out.count == count, "what was sent comes out, in its order and once");
  Must(stream.ended(), "a stream whose bytes are all there has ended");
  Must(stream.Held() == 0, "a stream that has ended holds nothing");
  Must(out.own.tcp_gaps == 0 && out.own.tcp_skipped_bytes == 0 && out.own.tcp_unfinished_messages == 0,
       "nothing is lost of a stream whose bytes are all there");
}

// ---- all conversations ---------------------------------------------------------------------------------------

// Opens and closes queries by their identifiers, as a parser would.
class Listener : public flow::Listener {
 public:
  void OnNewFlow(flow::Flow* flow) override {
    Must(flow->oriented && flow->open_queries == 0, "a new flow knows its client and has no queries");
    Must(live.insert(flow).second, "a flow is announced once");
    ++begun;
  }
  void OnMessage(const flow::Message& message) override {
    Must(live.contains(message.flow), "messages belong to flows that were announced");
    Must(message.snap_length >= 0 && message.snap_length <= message.nominal_length,
         "no more is there than was sent");
    Must(message.nominal_length > 0, "a message has bytes");
    unsigned sum = 0;
    for (int i = 0; i <= message.snap_length; ++i) sum += message.data[i];  // with the readable byte behind
    [[maybe_unused]] const volatile unsigned read = sum;
    ++messages;
    const bool is_tcp = message.flow->descriptor.transport == kTransportTcp;
    const int at = is_tcp ? 2 : 0;
    if (is_tcp && message.snap_length >= 2) {
      Must(message.nominal_length == 2 + (message.data[0] << 8 | message.data[1]), "the length in front is right");
    }
    if (message.snap_length < at + 2) return;
    const std::pair key{message.flow, static_cast<uint16_t>(message.data[at] << 8 | message.data[at + 1])};
    if (message.from_client) {
      if (open.insert(key).second) ++message.flow->open_queries;
    } else if (open.erase(key) == 1) {
      Close(message.flow);
    }
  }
  void OnEndOfFlow(flow::Flow* flow) override {
    Must(flow->open_queries == 0, "a flow with open queries stays");
    Must(live.erase(flow) == 1, "a flow ends once");
  }

  void ExpireAll() {
    for (const auto& [flow, id] : std::exchange(open, {})) Close(flow);
  }

  flow::FlowTable* table = nullptr;
  uint64_t messages = 0;
  uint64_t begun = 0;
  std::set<flow::Flow*> live;

 private:
  void Close(flow::Flow* flow) const {
    --flow->open_queries;
    table->Release(flow);
  }

  std::set<std::pair<flow::Flow*, uint16_t>> open;
};

packet::Address AddressOf(uint8_t version, uint8_t last) {
  packet::Address address;
  address.version = version;
  address.octets[version == 4 ? 3 : 15] = last;
  address.octets[0] = (last & 8) != 0 && version == 4 ? 250 : 32;  // class E needs a surrogate, too
  return address;
}

// A byte says who talks to whom, another one how.
packet::Datagram DrawDatagram(Draw* input) {
  const uint8_t who = input->U8();
  const uint8_t how = input->U8();
  packet::Datagram datagram;
  const uint8_t version = (who & 1) != 0 ? 6 : 4;
  datagram.source = AddressOf(version, 8 + (who >> 1 & 1));
  datagram.destination = AddressOf(version, 10 + (who >> 2 & 1));
  datagram.source_port = (who & 8) != 0 ? 53 : 40000;
  datagram.destination_port = (who & 16) != 0 ? 40000 : (who & 32) != 0 ? 80 : 53;
  if ((who & 64) != 0) std::swap(datagram.source, datagram.destination);
  if ((who & 128) != 0) std::swap(datagram.source_port, datagram.destination_port);
  datagram.transport = (how & 1) != 0 ? kTransportUdp : kTransportTcp;
  datagram.tcp_flags = how >> 1 & 0x17;
  datagram.encapsulation.vlan_count = how >> 6 & 1;
  return datagram;
}

class Table {
 public:
  explicit Table(Draw* input) {
    const uint8_t bits = input->U8();
    settings.max_flows = 1 + (bits & 7);
    settings.max_surrogates = 2 + (bits >> 3 & 7);
    settings.separate_vlans = (bits & 64) != 0;
    if ((bits & 128) != 0) settings.dns_ports.clear();
    settings.max_stream_bytes = 256 + input->U16();
  }

  void Run(Draw* input) {
    flow::FlowTable table(settings, &listener);
    listener.table = &table;
    while (!input->Empty()) {
      Step(input, &table);
      Check(table);
    }
    table.Finish();
    listener.ExpireAll();
    table.Finish();
    Check(table);
    Must(table.size() == 0 && listener.live.empty(), "nothing lives after the end");
    Must(table.StreamBytes() == 0, "nothing is buffered after the end");
    Must(table.SurrogatesInUse() == 0, "no surrogate is in use after the end");
  }

 private:
  void Step(Draw* input, flow::FlowTable* table) {
    packet::Datagram datagram = DrawDatagram(input);
    const uint8_t clock = input->U8();
    now_ns += int64_t{clock & 0x7f} * 50'000'000;
    if ((clock & 0x80) != 0) now_ns -= 1'000'000'000;
    datagram.time_ns = now_ns;
    if (datagram.source_port == 80 || datagram.destination_port == 80) return Tick(clock, table);
    datagram.tcp_sequence = sequence_base + input->U16();
    if ((clock & 0x70) == 0x70) datagram.tcp_sequence = input->U32();
    const uint32_t missing = (clock & 0x0f) == 0x0f ? input->U16() : 0;
    const std::string_view payload = (clock & 1) != 0 ? input->LongText() : input->Text();
    const Captured block(payload);
    datagram.payload = block.data();
    datagram.captured = static_cast<uint32_t>(payload.size());
    datagram.nominal = datagram.captured + missing;
    const flow::Delivery delivery = table->Handle(datagram);
    Must(delivery < flow::Delivery::kCount, "a datagram has a delivery");
    if (delivery == flow::Delivery::kUdpMessage) ++udp_messages;
  }

  void Tick(uint8_t bits, flow::FlowTable* table) {
    table->GiveUpGaps(now_ns);
    if ((bits & 1) != 0) listener.ExpireAll();
    table->Tick(now_ns);
    if ((bits & 2) != 0) now_ns += 70'000'000'000;
  }

  void Check(const flow::FlowTable& table) const {
    const flow::Counts& counts = table.counts();
    Must(counts.udp_messages == udp_messages, "UDP messages are those of UDP datagrams");
    Must(counts.udp_messages + counts.tcp_messages == listener.messages, "every message is counted and handed on");
    Must(counts.flows >= listener.begun, "every flow is counted");
    Must(table.size() <= settings.max_flows, "no more flows live than may");
    Must(listener.live.size() <= table.size(), "announced flows live");
    Must(table.SurrogatesInUse() <= settings.max_surrogates, "no more surrogates are in use than may be");
    Must(table.StreamBytes() <= settings.max_stream_bytes, "no more is buffered than may be");
  }

  static constexpr uint32_t sequence_base = 0xffff8000;  // wraps in the middle
  flow::Settings settings;
  Listener listener;
  uint64_t udp_messages = 0;
  int64_t now_ns = 1'700'000'000'000'000'000;
};

}  // namespace
}  // namespace fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Draw input(data, size);
  if (input.Flag()) {
    fuzz::RunTrueStream(&input);
  } else {
    fuzz::Table table(&input);
    table.Run(&input);
  }
  return 0;
}
