#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/dns_builder.h"
#include "tests/support/packet_builder.h"
#include "tests/support/pcap_writer.h"

// Builds captures out of conversations:
//
//   Capture capture;
//   capture.Udp(0, kClient, kServer, Query(7).Question("a.example", kA));
//   capture.Udp(20 * kMs, kServer, kClient, Response(7).Question("a.example", kA));
//
// Times are nanoseconds since kStart, a whole second.
namespace test {

inline constexpr int64_t kMs = 1'000'000;
inline constexpr int64_t kSec = 1'000'000'000;
inline constexpr int64_t kStart = 1'700'000'000 * kSec;

struct Endpoint {
  std::string address;
  uint16_t port;
};

inline const Endpoint kClient{"192.0.2.1", 40000};
inline const Endpoint kServer{"192.0.2.53", 53};
inline const Endpoint kClient6{"2001:db8::1", 40000};
inline const Endpoint kServer6{"2001:db8::53", 53};

inline test::Packet WithIp(test::Packet below, const Endpoint& from, const Endpoint& to) {
  const bool is_ipv6 = from.address.find(':') != std::string::npos;
  return is_ipv6 ? below.Ipv6(from.address, to.address) : below.Ipv4(from.address, to.address);
}

inline test::Packet UdpPacket(const test::Packet& below, const Endpoint& from, const Endpoint& to,
                              const test::Message& message) {
  return WithIp(below, from, to).Udp(from.port, to.port).Payload(test::ToBytes(message.Wire()));
}

struct TimedFrame {
  int64_t time_ns;  // since the Unix epoch
  std::string bytes;
  uint32_t wire;
};

class Capture {
 public:
  // A frame of which only `most` bytes were captured.
  Capture& Frame(int64_t at_ns, const test::Bytes& bytes, size_t most = SIZE_MAX) {
    std::string text(bytes.begin(), bytes.end());
    const auto wire = static_cast<uint32_t>(text.size());
    frames.push_back({kStart + at_ns, text.substr(0, most), wire});
    return *this;
  }
  Capture& Packet(int64_t at_ns, const test::Packet& packet) { return Frame(at_ns, packet.Frame()); }

  Capture& Udp(int64_t at_ns, const Endpoint& from, const Endpoint& to, const test::Message& message) {
    return Packet(at_ns, UdpPacket(test::Ethernet(), from, to, message));
  }

  // A frame without DNS in it, which moves the clock.
  Capture& Nothing(int64_t at_ns) { return Packet(at_ns, test::Ethernet().Type(0x0806).Text("who has")); }

  std::string Pcap() const { return Pcap(0, frames.size()); }

  // The frames [first, last) as a file of their own.
  std::string Pcap(size_t first, size_t last) const {
    PcapWriter writer({.magic = kPcapNanoseconds});
    for (size_t i = first; i < last; ++i) writer.Frame(frames[i].time_ns, frames[i].bytes, frames[i].wire);
    return writer.Bytes();
  }

  std::string Pcapng() const {
    PcapngWriter writer;
    writer.Section().Interface({.resolution = uint8_t{9}});
    for (const TimedFrame& frame : frames) {
      writer.Enhanced(0, static_cast<uint64_t>(frame.time_ns), frame.bytes, frame.wire);
    }
    return writer.Bytes();
  }

  std::vector<TimedFrame> frames;
};

// The packets of one TCP connection, each side's sequence numbers counted.
class Connection {
 public:
  Connection(Endpoint one, Endpoint other) : client(std::move(one)), server(std::move(other)) {}

  test::Packet ClientSyn() { return Segment(true, "", test::kSyn); }
  test::Packet ServerSyn() { return Segment(false, "", test::kSyn | test::kAck); }
  test::Packet Client(const std::string& bytes, uint8_t flags = test::kAck) { return Segment(true, bytes, flags); }
  test::Packet Server(const std::string& bytes, uint8_t flags = test::kAck) { return Segment(false, bytes, flags); }

  // A segment that is as if it had been sent, but for the capture.
  void Lose(bool from_client, size_t bytes) { Next(from_client) += static_cast<uint32_t>(bytes); }

  // One byte that the other side has seen already, as a keep-alive probe sends (RFC 9293 3.8.4).
  test::Packet KeepAlive(bool from_client) {
    const uint32_t next = Next(from_client);
    test::Packet probe = Build(from_client, std::string(1, '\0'), test::kAck, next - 1);
    return probe;
  }

 private:
  uint32_t& Next(bool from_client) { return from_client ? client_next : server_next; }

  test::Packet Segment(bool from_client, const std::string& bytes, int flags) {
    uint32_t& next = Next(from_client);
    test::Packet packet = Build(from_client, bytes, static_cast<uint8_t>(flags), next);
    const bool counts_one = (flags & (test::kSyn | test::kFin)) != 0;
    next += static_cast<uint32_t>(bytes.size()) + (counts_one ? 1 : 0);
    return packet;
  }

  test::Packet Build(bool from_client, const std::string& bytes, uint8_t flags, uint32_t sequence) const {
    const Endpoint& from = from_client ? client : server;
    const Endpoint& to = from_client ? server : client;
    return WithIp(test::Ethernet(), from, to)
        .Tcp(from.port, to.port, {.sequence = sequence, .flags = flags})
        .Payload(test::ToBytes(bytes));
  }

  Endpoint client;
  Endpoint server;
  uint32_t client_next = 4'294'967'290;  // runs over the end of the sequence numbers soon
  uint32_t server_next = 77;
};

}  // namespace test
