#pragma once

#include <cstdint>
#include <optional>

#include "collector/packet/bytes.h"
#include "collector/packet/datagram.h"
#include "collector/packet/decoder.h"
#include "collector/packet/fragments.h"

// The layers of a frame. Each decoder reads its own header, checks it, notes what belongs into the datagram, and
// returns what the next layer's decoder returns. `bytes` begins with the layer's header.

namespace packet {

// One frame on its way down.
struct Walk {
  static constexpr int kMaxLayers = 32;  // type fields, labels, IP headers and their extensions together

  Datagram* datagram;
  Fragments* fragments;
  int layers = 0;
  bool open_ended = false;  // the IP packet at hand may be longer than its bytes say: its last fragment is missing

  // One layer deeper. Every cycle of decoders passes here, which bounds the recursion.
  bool Enter() { return ++layers <= kMaxLayers; }
};

// Remembers the outermost tunnel; those inside it are decoded, not kept.
inline void AddTunnel(Walk& walk, Tunnel tunnel, uint32_t id) {
  Encapsulation& encapsulation = walk.datagram->encapsulation;
  if (encapsulation.tunnel != Tunnel::kNone) return;
  encapsulation.tunnel = tunnel;
  encapsulation.tunnel_id = id;
}

using LayerDecoder = Outcome (*)(Walk& walk, Bytes bytes);

// ---- link_layer.cc, wireless.cc --------------------------------------------------------------------------
// A frame by its LINKTYPE_ value. kUnknownLinkType where there is no decoder for it.
Outcome DecodeLink(Walk& walk, uint16_t link_type, Bytes frame);
Outcome DecodeWifi(Walk& walk, Bytes frame);      // IEEE 802.11
Outcome DecodeRadiotap(Walk& walk, Bytes frame);  // radiotap.org, then 802.11

// ---- ethernet.cc -----------------------------------------------------------------------------------------
Outcome DecodeEthernet(Walk& walk, Bytes frame);
// What stands behind a type field of IEEE 802.3 and its relatives. kNotIp for types that carry no IP.
Outcome DecodeEtherType(Walk& walk, uint16_t type, Bytes payload);
bool IsDecodedEtherType(uint16_t type);
bool LooksLikeEthernet(Bytes frame);         // to those who can only guess: whether its type field is a decoded one
Outcome DecodeLlc(Walk& walk, Bytes frame);  // IEEE 802.2, with SNAP (RFC 1042)

// ---- ppp.cc, mpls.cc -------------------------------------------------------------------------------------
Outcome DecodePpp(Walk& walk, Bytes frame);         // RFC 1661, with or without RFC 1662's address and control
Outcome DecodePppoe(Walk& walk, Bytes frame);       // RFC 2516, session stage
Outcome DecodePppHdlc(Walk& walk, Bytes frame);     // PPP or Cisco's HDLC, whichever it is
Outcome DecodeMpls(Walk& walk, Bytes label_stack);  // RFC 3032, RFC 4448

// ---- ip.cc, ipv6_extensions.cc ---------------------------------------------------------------------------
Outcome DecodeIp(Walk& walk, Bytes packet);    // either version, by the version field
Outcome DecodeIpv4(Walk& walk, Bytes packet);  // RFC 791
Outcome DecodeIpv6(Walk& walk, Bytes packet);  // RFC 8200
// What an IP header or an extension header of either version carries, by its protocol number.
Outcome DecodeProtocol(Walk& walk, uint8_t protocol, Bytes payload);
// Keeps a fragment, and goes on with the packet when it is whole.
Outcome DecodeFragment(Walk& walk, uint32_t id, const Fragment& fragment);
Outcome DecodeExtension(Walk& walk, Bytes header);       // of the common form (RFC 6564)
Outcome DecodeAuthentication(Walk& walk, Bytes header);  // RFC 4302, IPv4 too
Outcome DecodeFragmentHeader(Walk& walk, Bytes header);  // RFC 8200 4.5

// ---- transport.cc ----------------------------------------------------------------------------------------
Outcome DecodeUdp(Walk& walk, Bytes packet);   // RFC 768
Outcome DecodeTcp(Walk& walk, Bytes segment);  // RFC 9293

// ---- tunnels.cc, udp_tunnels.cc --------------------------------------------------------------------------
Outcome DecodeIpv4InIp(Walk& walk, Bytes packet);  // RFC 2003
Outcome DecodeIpv6InIp(Walk& walk, Bytes packet);  // RFC 4213, RFC 2473
Outcome DecodeGre(Walk& walk, Bytes packet);       // RFC 2784, RFC 2890, RFC 2637
Outcome DecodeErspan2(Walk& walk, Bytes packet);
Outcome DecodeErspan3(Walk& walk, Bytes packet);
Outcome DecodeEtherIp(Walk& walk, Bytes packet);   // RFC 3378
Outcome DecodeMplsInIp(Walk& walk, Bytes packet);  // RFC 4023
// The outcome of what the UDP datagram in `walk` carries, where a port of it is a tunnel's. Nothing, and the
// datagram as it was, where the payload does not look like that tunnel, or is cut too short to tell.
std::optional<Outcome> DecodeUdpTunnel(Walk& walk, Bytes payload);

}  // namespace packet
