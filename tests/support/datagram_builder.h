#pragma once

#include <arpa/inet.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "collector/packet/datagram.h"

// Datagrams and segments as the packet decoder hands them on:
//
//   UdpDatagram("192.0.2.1", 4000, "192.0.2.53", 53).Payload(Query(7).Question("aa.bb", kA).Wire()).At(kSecond)
//   TcpSegment("2001:db8::1", 4000, "2001:db8::53", 53).Flags(packet::kTcpSyn).Sequence(99)
namespace test {

inline constexpr int64_t kMillisecond = 1'000'000;
inline constexpr int64_t kSecond = 1'000'000'000;

inline packet::Address ToAddress(const std::string& text) {
  packet::Address address;
  address.version = text.find(':') == std::string::npos ? 4 : 6;
  const int family = address.version == 4 ? AF_INET : AF_INET6;
  if (inet_pton(family, text.c_str(), address.octets.data()) != 1)
    throw std::invalid_argument("no address: " + text);
  return address;
}

class DatagramBuilder {
 public:
  DatagramBuilder(uint8_t transport, const std::string& source, uint16_t source_port,
                  const std::string& destination, uint16_t destination_port) {
    datagram.transport = transport;
    datagram.source = ToAddress(source);
    datagram.source_port = source_port;
    datagram.destination = ToAddress(destination);
    datagram.destination_port = destination_port;
  }

  // The payload lies in a heap block of its own with exactly one byte behind it, so that a read further on shows
  // under a memory checker.
  DatagramBuilder& Payload(std::string_view bytes) {
    payload = std::make_shared<uint8_t[]>(bytes.size() + 1);
    for (size_t i = 0; i < bytes.size(); ++i)
      payload[static_cast<std::ptrdiff_t>(i)] = static_cast<uint8_t>(bytes[i]);
    datagram.captured = datagram.nominal = static_cast<uint32_t>(bytes.size());
    datagram.payload = payload.get();
    return *this;
  }

  // Only so many bytes of the payload were captured.
  DatagramBuilder& Captured(uint32_t size) {
    const std::string all(reinterpret_cast<const char*>(datagram.payload), datagram.captured);
    const uint32_t nominal = datagram.nominal;
    Payload(std::string_view(all).substr(0, size));
    datagram.nominal = nominal;
    return *this;
  }

  DatagramBuilder& At(int64_t time_ns) {
    datagram.time_ns = time_ns;
    return *this;
  }
  DatagramBuilder& Flags(unsigned flags) {
    datagram.tcp_flags = static_cast<uint8_t>(flags);
    return *this;
  }
  DatagramBuilder& Sequence(uint32_t sequence) {
    datagram.tcp_sequence = sequence;
    return *this;
  }
  DatagramBuilder& Vlan(uint16_t tag) {
    datagram.encapsulation.vlan[datagram.encapsulation.vlan_count++] = tag;
    return *this;
  }
  DatagramBuilder& Tunnel(packet::Tunnel tunnel, uint32_t id = 0) {
    datagram.encapsulation.tunnel = tunnel;
    datagram.encapsulation.tunnel_id = id;
    return *this;
  }

  const packet::Datagram& Get() const { return datagram; }
  operator const packet::Datagram&() const { return datagram; }  // NOLINT(google-explicit-constructor)

 private:
  packet::Datagram datagram;
  std::shared_ptr<uint8_t[]> payload;
};

inline DatagramBuilder UdpDatagram(const std::string& source, uint16_t source_port, const std::string& destination,
                                   uint16_t destination_port) {
  return {17, source, source_port, destination, destination_port};
}

inline DatagramBuilder TcpSegment(const std::string& source, uint16_t source_port, const std::string& destination,
                                  uint16_t destination_port) {
  return {6, source, source_port, destination, destination_port};
}

}  // namespace test
