// Domain names and character strings as they lie in messages (RFC 1035 3.3 and 4.1.4).

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "dns-parser/dns_parser.h"
#include "dns-parser/trace.h"

namespace {

constexpr int kLabelTypeMask = 0xC0;
constexpr int kOrdinaryLabel = 0x00;
constexpr int kPointer = 0xC0;
constexpr int kPointerTargetMask = 0x3FFF;
constexpr int kDeepestPointer = 15;  // depths 0 to 15: sixteen pointers are followed, the 17th is refused

uint64_t At(int offset) { return static_cast<uint64_t>(offset); }

ssize_t Size(const IOVec& packet) { return static_cast<ssize_t>(packet.GetLength()); }

// Moves *offset past the ordinary labels that stand there whole, with the next length byte behind them, and appends
// them. In the message a run of labels looks as it will in the text, with lengths where the dots go: one copy.
void AppendLabels(const IOVec& packet, int* offset, std::string* name) {
  if (!packet.ok) return;
  const auto* bytes = reinterpret_cast<const uint8_t*>(packet.buffer.data);
  const size_t first = At(*offset);
  size_t end = first;
  while (end < packet.GetLength() && bytes[end] != 0 && (bytes[end] & kLabelTypeMask) == kOrdinaryLabel &&
         end + bytes[end] + 1 < packet.GetLength()) {
    end += size_t{bytes[end]} + 1;
  }
  if (end == first) return;
  const size_t text = name->size();
  name->append(packet.buffer.data + first + 1, end - first - 1);
  for (size_t label = first + bytes[first] + 1; label < end; label += size_t{bytes[label]} + 1) {
    (*name)[text + label - first - 1] = '.';
  }
  *offset = static_cast<int>(end);
}

}  // namespace

int DNSParser::GetName(const IOVec& packet, int* offset, std::string* name, int depth) const {
  name->clear();
  return AppendName(packet, offset, name, depth);
}

// Appends the name at *offset behind what `name` already holds, as if that were not there.
int DNSParser::AppendName(const IOVec& packet, int* offset, std::string* name, int depth) const {
  const size_t start = name->size();
  AppendLabels(packet, offset, name);
  // What is left is the end of the name, or what is wrong with it.
  for (;;) {
    uint8_t length;
    packet.GetBytes(&length, At((*offset)++), sizeof length);
    if (!packet.ok) {
      DNS_LOG(kLogDropped, "GetName offset exceeds packet size: %d > %zd", *offset, Size(packet));
      return kRanOut;
    }
    if (length == 0) return kDecoded;

    // The dot comes before the label type is known, on purpose: labels that end in a pointer to the root keep it.
    if (name->size() > start) name->push_back('.');

    const int label_type = length & kLabelTypeMask;
    if (label_type == kPointer) return AppendPointedName(packet, offset, name, depth);
    if (label_type != kOrdinaryLabel) {
      DNS_LOG(kLogDropped, "GetName unknown length-high-bit mask: 0x%02x", label_type);
      return kMalformed;
    }
    const size_t end = name->size();
    name->resize(end + length);
    packet.GetBytes(name->data() + end, At(*offset), length);
    if (!packet.ok) {
      DNS_LOG(kLogDropped, "GetName length exceeds packet size: len=%d ofs=%d buffer=%zd", length, *offset,
              Size(packet));
      return kRanOut;
    }
    *offset += length;
  }
}

// *offset stands at the second byte of a pointer. The only loop test is for a pointer to itself: longer cycles end
// at the depth limit.
int DNSParser::AppendPointedName(const IOVec& packet, int* offset, std::string* name, int depth) const {
  const int target = packet.GetBE16(At(*offset - 1)) & kPointerTargetMask;
  if (!packet.ok) {
    DNS_LOG(kLogDropped, "GetName offset exceeds packet size: %d > %zd", *offset, Size(packet));
    return kRanOut;
  }
  if (depth > kDeepestPointer) {
    DNS_LOG(kLogDropped, "GetName recursion limit reached");
    return kMalformed;
  }
  if (target == *offset - 1) {
    DNS_LOG(kLogDropped, "GetName compression pointer loop");
    return kMalformed;
  }
  if (target < kHeaderSize) {
    DNS_LOG(kLogDropped, "GetName compression pointer within header region");
    return kMalformed;
  }
  const size_t end = name->size();
  int pointed = target;
  if (const int failure = AppendName(packet, &pointed, name, depth + 1)) {
    name->resize(end);
    return failure;
  }
  ++*offset;
  return kDecoded;
}

int DNSParser::GetString(const IOVec& packet, int* offset, std::string* text) const {
  uint8_t length;
  packet.GetBytes(&length, At((*offset)++), sizeof length);
  if (!packet.ok) {
    DNS_LOG(kLogDropped, "GetString offset exceeds packet size: %d > %zd", *offset, Size(packet));
    return kRanOut;
  }
  text->assign(length, ' ');
  packet.GetBytes(text->data(), At(*offset), length);
  if (!packet.ok) return kRanOut;
  *offset += length;
  return kDecoded;
}
