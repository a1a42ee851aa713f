// Names and character strings alone, held against a second reading that is slow and simple.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "dns-parser/dns_parser.h"
#include "fuzz/draw.h"
#include "fuzz/recording_sink.h"
#include "fuzz/target.h"

namespace fuzz {
namespace {

struct Reading {
  int result;
  int end;           // behind the item, where it was decoded
  std::string text;  // the same
};

std::optional<uint8_t> ByteAt(std::string_view packet, size_t at) {
  if (at >= packet.size()) return {};
  return static_cast<uint8_t>(packet[at]);
}

// RFC 1035 4.1.4, one byte after the other, for at most 16 pointers.
Reading ReadName(std::string_view packet, size_t at, int pointers) {
  std::string text;
  for (;;) {
    const std::optional<uint8_t> length = ByteAt(packet, at);
    if (!length) return {kRanOut, 0, ""};
    if (*length == 0) return {kDecoded, static_cast<int>(at) + 1, text};
    if (!text.empty()) text += '.';
    if (*length >= 0xc0) {
      const std::optional<uint8_t> low = ByteAt(packet, at + 1);
      if (!low) return {kRanOut, 0, ""};
      const size_t target = (*length & 0x3fU) << 8U | *low;
      if (pointers == 16 || target == at || target < 12) return {kMalformed, 0, ""};
      Reading pointed = ReadName(packet, target, pointers + 1);
      if (pointed.result != kDecoded) return pointed;
      return {kDecoded, static_cast<int>(at) + 2, text + pointed.text};
    }
    if (*length > 63) return {kMalformed, 0, ""};
    if (at + 1 + *length > packet.size()) return {kRanOut, 0, ""};
    text += packet.substr(at + 1, *length);
    at += 1U + *length;
  }
}

Reading ReadString(std::string_view packet, size_t at) {
  const std::optional<uint8_t> length = ByteAt(packet, at);
  if (!length || at + 1 + *length > packet.size()) return {kRanOut, 0, ""};
  return {kDecoded, static_cast<int>(at) + 1 + *length, std::string(packet.substr(at + 1, *length))};
}

void Compare(const Reading& expected, int result, int offset, const std::string& text) {
  Must(result == expected.result, "both readings agree whether it can be read");
  if (result != kDecoded) return;
  Must(offset == expected.end, "both readings agree where it ends");
  Must(text == expected.text, "both readings agree what it says");
}

void Read(Draw* input) {
  Host::log_level = 4;
  const Host host;
  const DNSParser parser(&host.table, {});
  const int start = input->U16() & 0x3fff;
  const int missing = input->U8();  // bytes that the capture did not keep
  const std::string_view packet = input->Rest();
  const Captured block(packet);
  const auto* data = reinterpret_cast<const char*>(block.data());
  const int size = static_cast<int>(packet.size());

  IOVec view(data, size, size + missing);
  view.underflow_mode = IOVec::FLAG;
  int offset = start;
  std::string text = "left over";
  int result = parser.GetName(view, &offset, &text, 0);
  Compare(ReadName(packet, static_cast<size_t>(start), 0), result, offset, text);
  Must(view.ok == (result != kRanOut), "the view tells whether its bytes have run out");

  view.ok = true;
  offset = start;
  result = parser.GetString(view, &offset, &text);
  Compare(ReadString(packet, static_cast<size_t>(start)), result, offset, text);
}

}  // namespace
}  // namespace fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Draw input(data, size);
  fuzz::Read(&input);
  return 0;
}
