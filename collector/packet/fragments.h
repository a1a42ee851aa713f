#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <vector>

#include "collector/packet/address.h"
#include "collector/packet/bytes.h"
#include "collector/packet/datagram.h"
#include "collector/packet/decoder.h"

namespace packet {

// What the fragments of one packet have in common (RFC 791 3.2, RFC 8200 4.5), and the tags and tunnels they came
// in: other networks behind other tags may use the same addresses.
struct FragmentKey {
  Address source;
  Address destination;
  uint32_t id = 0;
  uint8_t protocol = 0;  // IPv4; 0 for IPv6, where the fragments need not agree on it
  Encapsulation encapsulation;

  friend auto operator<=>(const FragmentKey&, const FragmentKey&) = default;
};

struct Fragment {
  uint32_t offset = 0;   // of the first byte in the packet's payload; a multiple of eight
  bool more = false;     // others follow behind this one
  uint8_t protocol = 0;  // of the payload, as this fragment has it
  Bytes bytes;           // captured fewer than nominal where the capture cut it
};

// The payload of a packet put together, or as much of one that was given up as lies before its first gap. Valid
// until the next call that delivers one, and across other calls.
struct Reassembled {
  int64_t time_ns = 0;  // of the fragment that arrived first
  FragmentKey key;
  uint8_t protocol = 0;     // as the fragment at offset 0 has it
  Bytes payload;            // with a readable byte behind it
  bool open_ended = false;  // the last fragment never came: the nominal size is at least this
};

// Fragments that wait for the rest of their packets. The oldest packet makes room for new ones.
//
// Overlaps: IPv4 keeps the bytes that came first, as most receivers do; an IPv6 packet whose fragments contradict
// each other is given up altogether (RFC 5722), also what still arrives of it.
class Fragments {
 public:
  explicit Fragments(const FragmentLimits& fragment_limits) : limits(fragment_limits) {}

  // Keeps a copy. True when this one completes its packet, which is then in `packet`. The fragment's bytes may lie
  // in the packet delivered last.
  bool Add(const FragmentKey& key, const Fragment& fragment, int64_t time_ns, Reassembled* packet);

  // Before each frame: forgets given-up packets that nobody took, and gives up what is too old.
  void Advance(int64_t now_ns) {
    if (!IsIdle()) [[unlikely]]
      ExpireUntil(now_ns);
  }

  // Nothing waits, and nothing is there to be taken.
  bool IsIdle() const { return waiting.empty() && given_up.empty(); }
  bool HasGivenUp() const { return !given_up.empty(); }

  // Gives up all that waits.
  void ExpireAll();

  // The next packet that was given up and whose beginning is there. False when there is none.
  bool TakeGivenUp(Reassembled* packet);

  size_t Held() const { return held; }

  FragmentCounts counts;

 private:
  // Bytes that no other piece of the packet has; sorted by offset. The data lie in the assembly's `bytes`.
  struct Piece {
    uint32_t offset;
    uint32_t nominal;
    uint32_t captured;
    uint32_t begin;

    uint32_t End() const { return offset + nominal; }
  };

  struct Assembly {
    FragmentKey key;
    int64_t begun_ns = 0;
    uint32_t fragments = 0;  // that joined; each is counted once, when the assembly ends
    uint32_t covered = 0;    // sum of the pieces' sizes
    uint32_t total = 0;      // by the last fragment; 0 until it came
    uint8_t protocol = 0;
    bool refused = false;  // contradicted itself: a tombstone without data
    std::vector<Piece> pieces;
    std::vector<uint8_t> bytes;
  };
  using Assemblies = std::list<Assembly>;

  // How a fragment goes with what is there.
  enum class Fit {
    kFits,
    kNothingNew,
    kDiffers,     // where it overlaps, its bytes are others
    kImpossible,  // it ends where the packet cannot
  };

  Assemblies::iterator FindOrBegin(const FragmentKey& key, int64_t now_ns);
  static Fit Compare(const Assembly& assembly, const Fragment& fragment);
  static bool Differs(const Assembly& assembly, const Piece& piece, const Fragment& fragment, uint32_t from,
                      uint32_t to);
  void Contradict(Assemblies::iterator assembly);
  void Count(Assembly* assembly, Fit fit);
  void Keep(Assembly* assembly, const Fragment& fragment);
  Piece KeepBytes(Assembly* assembly, const Fragment& fragment, uint32_t from, uint32_t to);
  void Complete(Assemblies::iterator assembly, Reassembled* packet);
  void Deliver(const Assembly& assembly, Reassembled* packet);
  void Release(Assembly* assembly);
  void GiveUp(Assemblies::iterator assembly, uint64_t* count);
  bool MakeRoom(size_t cost, const Assembly* keep);
  bool IsOverdue(const Assembly& assembly, int64_t now_ns) const;
  void ExpireUntil(int64_t now_ns);

  FragmentLimits limits;
  Assemblies waiting;                                 // in order of their first fragments
  Assemblies given_up;                                // with their beginning there, for TakeGivenUp
  std::map<FragmentKey, Assemblies::iterator> index;  // of those waiting
  size_t held = 0;                                    // fragments
  size_t used = 0;                                    // bytes, of those waiting
  std::vector<uint8_t> buffer;                        // of the packet delivered last
};

}  // namespace packet
