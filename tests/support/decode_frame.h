#pragma once

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "collector/packet/decoder.h"
#include "tests/support/packet_builder.h"

namespace test {

// Lists to loop over.
using Numbers = std::initializer_list<uint16_t>;
using Sizes = std::initializer_list<size_t>;

// What a decoder made of a frame, kept beyond the frame's life.
struct Decoded {
  packet::Outcome outcome = packet::Outcome::kCount;
  packet::Datagram datagram;
  std::string payload;  // the captured bytes of it
};

inline std::string PayloadOf(const packet::Datagram& datagram) {
  return {datagram.payload, datagram.payload + datagram.captured};
}

struct FrameFields {
  uint16_t link_type = 1;
  int64_t time_ns = 0;
  uint32_t cut = 0;  // bytes that the capture did not keep
};

// Decodes a copy of the frame that ends where the heap ends, so that a sanitizer sees every read behind it.
inline Decoded DecodeWith(packet::Decoder* decoder, const Bytes& frame, const FrameFields& fields = {}) {
  const size_t captured = frame.size() - fields.cut;
  const std::unique_ptr<uint8_t[]> copy(new uint8_t[captured]);
  std::copy_n(frame.begin(), captured, copy.get());
  capture::Frame captured_frame;
  captured_frame.time_ns = fields.time_ns;
  captured_frame.data = copy.get();
  captured_frame.captured = static_cast<uint32_t>(captured);
  captured_frame.wire = static_cast<uint32_t>(frame.size());
  captured_frame.link_type = fields.link_type;
  Decoded decoded;
  decoded.outcome = decoder->Decode(captured_frame, &decoded.datagram);
  if (decoded.outcome == packet::Outcome::kDatagram) decoded.payload = PayloadOf(decoded.datagram);
  return decoded;
}

inline Decoded Decode(const Bytes& frame, const FrameFields& fields = {}) {
  packet::Decoder decoder;
  return DecodeWith(&decoder, frame, fields);
}

inline Decoded Decode(const Packet& frame, const FrameFields& fields = {}) { return Decode(frame.Frame(), fields); }

// Two ends of most tests' conversations, and networks for tunnels between them.
inline constexpr const char* kClient4 = "192.0.2.1";
inline constexpr const char* kServer4 = "192.0.2.53";
inline constexpr const char* kClient6 = "2001:db8::1";
inline constexpr const char* kServer6 = "2001:db8::53";
inline constexpr const char* kTunnel4From = "198.51.100.1";
inline constexpr const char* kTunnel4To = "198.51.100.2";
inline constexpr const char* kTunnel6From = "2001:db8:ffff::1";
inline constexpr const char* kTunnel6To = "2001:db8:ffff::2";

// A query of 5 bytes from the client's port 40000 to the server's port 53, behind what the packet has so far.
inline Packet Query4(Packet packet) { return packet.Ipv4(kClient4, kServer4).Udp(40000, 53).Text("query"); }
inline Packet Query6(Packet packet) { return packet.Ipv6(kClient6, kServer6).Udp(40000, 53).Text("query"); }

inline bool IsQuery(const Decoded& decoded, const char* client, const char* server) {
  const packet::Datagram& datagram = decoded.datagram;
  return decoded.outcome == packet::Outcome::kDatagram && ToText(datagram.source) == client &&
         ToText(datagram.destination) == server && datagram.source_port == 40000 &&
         datagram.destination_port == 53 && datagram.transport == 17 && decoded.payload == "query" &&
         datagram.nominal == 5;
}
inline bool IsQuery4(const Decoded& decoded) { return IsQuery(decoded, kClient4, kServer4); }
inline bool IsQuery6(const Decoded& decoded) { return IsQuery(decoded, kClient6, kServer6); }

}  // namespace test
