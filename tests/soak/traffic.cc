#include "tests/soak/traffic.h"

#include <algorithm>

#include "tests/support/dns_builder.h"
#include "tests/support/packet_builder.h"

namespace soak {
namespace {

constexpr int64_t kShortestRun = 1000 * int64_t{1000000000};  // nanoseconds: idle TCP streams are kept for 300 s
constexpr int64_t kClosest = 40000;                           // exchanges to each other
constexpr uint64_t kResponseLater = 50;                       // exchanges between a query and its response
constexpr uint64_t kBatch = 128;                              // exchanges

std::string ToText(const test::Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

std::string Bytes(const test::Packet& packet) { return ToText(packet.Frame()); }

std::string Udp(const char* from, uint16_t from_port, const char* to, uint16_t to_port,
                const std::string& payload) {
  return Bytes(test::Packet().Ethernet().Ipv4(from, to).Udp(from_port, to_port).Payload(test::ToBytes(payload)));
}

// A frame that is made once. What differs is written over it: behind Ethernet, IPv4 and UDP without options.
constexpr size_t kSourceAddress = 14 + 12;
constexpr size_t kDestinationAddress = 14 + 16;
constexpr size_t kSourcePort = 14 + 20;
constexpr size_t kDestinationPort = 14 + 22;
constexpr size_t kIpId = 14 + 4;
constexpr size_t kMessage = 14 + 20 + 8;
constexpr size_t kNameDigits = kMessage + 12 + 2;  // "n", then eight digits

void Set(std::string* frame, size_t at, uint64_t value, int size) {
  for (int i = size - 1; i >= 0; --i, value >>= 8U)
    (*frame)[at + static_cast<size_t>(i)] = static_cast<char>(value);
}

void SetName(std::string* frame, uint64_t number) {
  for (size_t digit = 0; digit < 8; ++digit, number >>= 4U) {
    (*frame)[kNameDigits + 7 - digit] = "0123456789abcdef"[number & 0xfU];
  }
}

// Who asks the nth question. The same client, port and identifier come again after 16 million exchanges; the same
// client and port after 400,000.
uint32_t ClientOf(uint64_t number) { return static_cast<uint32_t>(0x0a000000U + number % 4096); }
uint16_t PortOf(uint64_t number) { return static_cast<uint16_t>(20000 + number / 4096 % 100); }
uint16_t IdOf(uint64_t number) { return static_cast<uint16_t>(number / 409600 * 7919); }

}  // namespace

Traffic::Traffic(uint64_t exchanges)
    : wanted(exchanges), between_ns(std::max(kClosest, kShortestRun / static_cast<int64_t>(exchanges))) {}

capture::ReadState Traffic::Read(std::span<const capture::Frame>* batch) {
  bytes.clear();
  frames.clear();
  for (uint64_t i = 0; i < kBatch && sent.exchanges < wanted; ++i) Exchange();
  if (frames.empty()) return capture::ReadState::kEnd;
  bytes.push_back(0);  // the readable byte behind the last frame
  for (capture::Frame& frame : frames) frame.data = bytes.data() + frame.offset;
  *batch = frames;
  return capture::ReadState::kFrames;
}

void Traffic::Exchange() {
  static std::string query =
      Udp("10.0.0.1", 1, "192.0.2.53", 53, test::Query(1).Question("n00000000.example", test::kA).Wire());
  const uint64_t number = sent.exchanges++;
  now_ns += between_ns;
  Set(&query, kSourceAddress, ClientOf(number), 4);
  Set(&query, kSourcePort, PortOf(number), 2);
  Set(&query, kMessage, IdOf(number), 2);
  SetName(&query, number);
  Put(query);
  if (number >= kResponseLater && (number - kResponseLater) % 10 != 0) Respond(number - kResponseLater);
  if (number % 20 == 0) Hostile();
}

void Traffic::Respond(uint64_t number) {
  static std::string response = Udp("192.0.2.53", 53, "10.0.0.1", 1,
                                    test::Response(1)
                                        .Compressed()
                                        .Question("n00000000.example", test::kA)
                                        .Answer("n00000000.example", test::A("198.51.100.7"))
                                        .Wire());
  ++sent.responses;
  Set(&response, kDestinationAddress, ClientOf(number), 4);
  Set(&response, kDestinationPort, PortOf(number), 2);
  Set(&response, kMessage, IdOf(number), 2);
  SetName(&response, number);
  Put(response);
}

void Traffic::Hostile() {
  static std::string flood =
      Udp("203.0.113.1", 4000, "192.0.2.53", 53, test::Query(1).Question("n00000000.flood", test::kA).Wire());
  static std::string fragment = ToText(test::Packet()
                                           .Ethernet()
                                           .Ipv4("203.0.113.2", "192.0.2.53")
                                           .Udp(4000, 53)
                                           .Payload(test::Bytes(3000))
                                           .Fragments(1400, 1)
                                           .front());
  static const std::string rubbish = Udp("203.0.113.3", 4000, "192.0.2.53", 53, std::string(40, '\xa5'));
  const uint64_t number = hostile++;
  switch (number % 4) {
    case 0:
      ++sent.floods;
      Set(&flood, kMessage, number / 4, 2);
      SetName(&flood, number);
      return Put(flood);
    case 1:
      ++sent.fragments;
      Set(&fragment, kIpId, number / 4, 2);
      return Put(fragment);
    case 2:
      ++sent.rubbish;
      return Put(rubbish);
    default:
      return OpenStream();
  }
}

// A connection that promises a message and sends its beginning.
void Traffic::OpenStream() {
  static std::string syn =
      Bytes(test::Packet().Ethernet().Ipv4("203.0.113.4", "192.0.2.53").Tcp(1, 53, {.sequence = 0, .flags = 2}));
  static std::string data = Bytes(test::Packet()
                                      .Ethernet()
                                      .Ipv4("203.0.113.4", "192.0.2.53")
                                      .Tcp(1, 53, {.sequence = 1, .flags = 0x18})
                                      .Payload(test::ToBytes(test::U16(500) + std::string(100, '\1'))));
  ++sent.streams;
  for (std::string* frame : {&syn, &data}) {
    Set(frame, kSourceAddress, 0xcb007200U + sent.streams / 60000 % 256, 4);
    Set(frame, kSourcePort, 1024 + sent.streams % 60000, 2);
    Put(*frame);
  }
}

void Traffic::Put(const std::string& frame) {
  const auto size = static_cast<uint32_t>(frame.size());
  frames.push_back({.time_ns = now_ns, .captured = size, .wire = size, .offset = bytes.size(), .link_type = 1});
  bytes.insert(bytes.end(), frame.begin(), frame.end());
}

}  // namespace soak
