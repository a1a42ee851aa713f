#include "collector/packet/fragments.h"

#include <algorithm>
#include <cstring>

namespace packet {
namespace {

constexpr size_t kLargestPacket = 65535;
constexpr size_t kPieceOverhead = 32;  // so that tiny fragments are not free

uint32_t End(const Fragment& fragment) { return fragment.offset + fragment.bytes.nominal; }

}  // namespace

bool Fragments::Add(const FragmentKey& key, const Fragment& fragment, int64_t time_ns, Reassembled* packet) {
  ++counts.fragments;
  const auto assembly = FindOrBegin(key, time_ns);
  if (assembly->refused) {
    ++counts.inconsistent;
    return false;
  }
  const Fit fit = Compare(*assembly, fragment);
  if (fit == Fit::kImpossible || (fit == Fit::kDiffers && key.source.version == 6)) {
    Contradict(assembly);
    return false;
  }
  if (fit == Fit::kNothingNew) {
    ++counts.repeated;
    return false;
  }
  if (assembly->pieces.size() >= limits.max_pieces ||
      !MakeRoom(fragment.bytes.captured + kPieceOverhead, &*assembly)) {
    ++counts.dropped;
    GiveUp(assembly, &counts.dropped);
    return false;
  }
  Count(&*assembly, fit);
  Keep(&*assembly, fragment);
  if (assembly->covered != assembly->total) return false;
  Complete(assembly, packet);
  return true;
}

Fragments::Assemblies::iterator Fragments::FindOrBegin(const FragmentKey& key, int64_t now_ns) {
  const auto found = index.find(key);
  if (found != index.end()) {
    // Times may jump back and forth, so that an old packet need not be at the front.
    if (!IsOverdue(*found->second, now_ns)) return found->second;
    GiveUp(found->second, &counts.expired);
  }
  if (waiting.size() >= limits.max_packets) GiveUp(waiting.begin(), &counts.dropped);
  waiting.emplace_back();
  const auto assembly = std::prev(waiting.end());
  assembly->key = key;
  assembly->begun_ns = now_ns;
  index.emplace(key, assembly);
  return assembly;
}

Fragments::Fit Fragments::Compare(const Assembly& assembly, const Fragment& fragment) {
  const uint32_t end = End(fragment);
  if (assembly.total != 0) {
    if (fragment.more ? end >= assembly.total : end != assembly.total) return Fit::kImpossible;
  } else if (!fragment.more && !assembly.pieces.empty() && assembly.pieces.back().End() > end) {
    return Fit::kImpossible;
  }
  uint32_t fresh = fragment.bytes.nominal;
  bool differs = false;
  for (const Piece& piece : assembly.pieces) {
    const uint32_t from = std::max(piece.offset, fragment.offset);
    const uint32_t to = std::min(piece.End(), end);
    if (from >= to) continue;
    fresh -= to - from;
    differs = differs || Differs(assembly, piece, fragment, from, to);
  }
  if (differs) return Fit::kDiffers;
  const bool brings_total = !fragment.more && assembly.total == 0;
  return fresh == 0 && !brings_total ? Fit::kNothingNew : Fit::kFits;
}

// Compares those bytes that neither side lost to the capture.
bool Fragments::Differs(const Assembly& assembly, const Piece& piece, const Fragment& fragment, uint32_t from,
                        uint32_t to) {
  to = std::min({to, piece.offset + piece.captured, fragment.offset + fragment.bytes.captured});
  if (from >= to) return false;
  const uint8_t* known = assembly.bytes.data() + piece.begin + (from - piece.offset);
  return std::memcmp(known, fragment.bytes.data + (from - fragment.offset), to - from) != 0;
}

// A fragment of IPv4 is dropped and what came first stays; a packet of IPv6 is not to be trusted any more.
void Fragments::Contradict(Assemblies::iterator assembly) {
  ++counts.inconsistent;
  if (assembly->key.source.version == 4) return;
  counts.inconsistent += assembly->fragments;
  Release(&*assembly);
  assembly->refused = true;
}

void Fragments::Count(Assembly* assembly, Fit fit) {
  if (fit == Fit::kDiffers) {
    ++counts.inconsistent;
    return;
  }
  ++assembly->fragments;
  ++held;
}

// Keeps what lies in the gaps between the pieces, and only that: the bytes that came first win.
void Fragments::Keep(Assembly* assembly, const Fragment& fragment) {
  const uint32_t end = End(fragment);
  std::vector<Piece>& pieces = assembly->pieces;
  if (fragment.offset == 0 && (pieces.empty() || pieces.front().offset != 0))
    assembly->protocol = fragment.protocol;
  if (!fragment.more) assembly->total = end;
  uint32_t at = fragment.offset;
  for (size_t i = 0; at < end; ++i) {
    while (i < pieces.size() && pieces[i].End() <= at) ++i;
    const uint32_t gap_end = i < pieces.size() ? std::min(end, pieces[i].offset) : end;
    if (at < gap_end) {
      pieces.insert(pieces.begin() + static_cast<std::ptrdiff_t>(i), KeepBytes(assembly, fragment, at, gap_end));
      at = gap_end;
    } else {
      at = pieces[i].End();
    }
  }
}

Fragments::Piece Fragments::KeepBytes(Assembly* assembly, const Fragment& fragment, uint32_t from, uint32_t to) {
  const uint32_t present_end = std::clamp(fragment.offset + fragment.bytes.captured, from, to);
  const uint8_t* data = fragment.bytes.data + (from - fragment.offset);
  const auto begin = static_cast<uint32_t>(assembly->bytes.size());
  if (present_end > from) assembly->bytes.insert(assembly->bytes.end(), data, data + (present_end - from));
  assembly->covered += to - from;
  used += present_end - from + kPieceOverhead;
  return {from, to - from, present_end - from, begin};
}

void Fragments::Complete(Assemblies::iterator assembly, Reassembled* packet) {
  ++counts.reassembled;
  counts.joined += assembly->fragments;
  Deliver(*assembly, packet);
  Release(&*assembly);
  index.erase(assembly->key);
  waiting.erase(assembly);
}

// Puts together what lies before the first gap; bytes that the capture cut away are a gap too.
void Fragments::Deliver(const Assembly& assembly, Reassembled* packet) {
  buffer.resize(kLargestPacket + 1);  // and a readable byte
  uint32_t captured = 0;
  for (const Piece& piece : assembly.pieces) {
    if (piece.offset != captured) break;
    std::copy_n(assembly.bytes.data() + piece.begin, piece.captured, buffer.data() + captured);
    captured += piece.captured;
  }
  const uint32_t nominal = assembly.total != 0 ? assembly.total : assembly.pieces.back().End();
  packet->time_ns = assembly.begun_ns;
  packet->key = assembly.key;
  packet->protocol = assembly.protocol;
  packet->payload = {buffer.data(), captured, nominal};
  packet->open_ended = assembly.total == 0;
}

// Forgets the data, not the packet.
void Fragments::Release(Assembly* assembly) {
  used -= assembly->bytes.size() + assembly->pieces.size() * kPieceOverhead;
  held -= assembly->fragments;
  assembly->fragments = 0;
  assembly->pieces = {};
  assembly->bytes = {};
}

void Fragments::GiveUp(Assemblies::iterator assembly, uint64_t* count) {
  *count += assembly->fragments;
  held -= assembly->fragments;
  used -= assembly->bytes.size() + assembly->pieces.size() * kPieceOverhead;
  index.erase(assembly->key);
  if (!assembly->pieces.empty() && assembly->pieces.front().offset == 0) {
    given_up.splice(given_up.end(), waiting, assembly);
  } else {
    waiting.erase(assembly);
  }
}

// False when there is no room even without all the others.
bool Fragments::MakeRoom(size_t cost, const Assembly* keep) {
  auto oldest = waiting.begin();
  while (used + cost > limits.max_bytes) {
    if (oldest != waiting.end() && &*oldest == keep) ++oldest;
    if (oldest == waiting.end()) return false;
    GiveUp(oldest++, &counts.dropped);
  }
  return true;
}

bool Fragments::IsOverdue(const Assembly& assembly, int64_t now_ns) const {
  const auto now = static_cast<uint64_t>(now_ns);
  const auto begun = static_cast<uint64_t>(assembly.begun_ns);
  const uint64_t distance = now_ns >= assembly.begun_ns ? now - begun : begun - now;
  return distance > static_cast<uint64_t>(limits.max_age_ns);
}

void Fragments::ExpireUntil(int64_t now_ns) {
  given_up.clear();
  while (!waiting.empty() && IsOverdue(waiting.front(), now_ns)) GiveUp(waiting.begin(), &counts.expired);
}

void Fragments::ExpireAll() {
  while (!waiting.empty()) GiveUp(waiting.begin(), &counts.expired);
}

bool Fragments::TakeGivenUp(Reassembled* packet) {
  if (given_up.empty()) return false;
  Deliver(given_up.front(), packet);
  given_up.pop_front();
  return true;
}

}  // namespace packet
