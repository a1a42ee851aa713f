#pragma once

#include "collector/packet/datagram.h"
#include "collector/packet/decoder.h"
#include "fuzz/target.h"

namespace fuzz {

// What every datagram promises.
inline void CheckDatagram(const packet::Datagram& datagram) {
  Must(datagram.captured <= datagram.nominal, "no more is captured than there was");
  Must(datagram.payload != nullptr, "a payload lies somewhere, even an empty one");
  unsigned sum = 0;
  for (size_t i = 0; i <= datagram.captured; ++i) sum += datagram.payload[i];  // with the readable byte behind
  [[maybe_unused]] const volatile unsigned read = sum;
  Must(datagram.transport == 6 || datagram.transport == 17, "a datagram is TCP's or UDP's");
  Must(datagram.source.version == 4 || datagram.source.version == 6, "an address has a version");
  Must(datagram.source.version == datagram.destination.version, "both addresses have the same version");
  Must(datagram.encapsulation.vlan_count <= packet::Encapsulation::kMaxTags, "no more tags are kept than fit");
  const char* tunnel = packet::TunnelName(datagram.encapsulation.tunnel);
  Must(tunnel != nullptr, "a tunnel has a name");
  Must(datagram.encapsulation.tunnel != packet::Tunnel::kNone || datagram.encapsulation.tunnel_id == 0,
       "there is no identifier without a tunnel");
}

inline void CheckFragmentCounts(const packet::Decoder& decoder) {
  const packet::FragmentCounts& c = decoder.fragments();
  Must(c.fragments == c.joined + c.repeated + c.inconsistent + c.expired + c.dropped + decoder.FragmentsHeld(),
       "every fragment is counted once");
  Must(c.joined >= c.reassembled, "a packet is put together of fragments");
}

}  // namespace fuzz
