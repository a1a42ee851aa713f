#include "collector/packet/layers.h"

namespace packet {
namespace {

// The frame control field (IEEE 802.11 9.2.4.1).
constexpr int kData = 2;             // frame type
constexpr uint8_t kNoDataBit = 0x4;  // of the subtype
constexpr uint8_t kQosBit = 0x8;     // of the subtype
constexpr uint8_t kToDs = 0x01;
constexpr uint8_t kFromDs = 0x02;
constexpr uint8_t kProtected = 0x40;
constexpr uint8_t kOrder = 0x80;

// Only data frames in the clear get here. Two more octets of quality of service, four of HT control.
uint32_t WifiHeader(Bytes frame) {
  const uint8_t flags = frame.U8(1);
  uint32_t size = 24;
  if ((flags & kToDs) != 0 && (flags & kFromDs) != 0) size += 6;  // a fourth address
  if ((frame.U8(0) >> 4 & kQosBit) == 0) return size;
  return size + ((flags & kOrder) != 0 ? 6U : 2U);
}

bool CarriesLlc(Bytes frame) {
  const int type = frame.U8(0) >> 2 & 3;
  const int subtype = frame.U8(0) >> 4;
  return type == kData && (subtype & kNoDataBit) == 0 && (frame.U8(1) & kProtected) == 0;
}

// Several frames in one (A-MSDU); at the end of the addresses stands the quality of service.
bool IsAggregate(Bytes frame, uint32_t header) {
  const bool has_qos = (frame.U8(0) >> 4 & kQosBit) != 0;
  const uint32_t qos_at = header - ((frame.U8(1) & kOrder) != 0 ? 6 : 2);
  return has_qos && (frame.U8(qos_at) & 0x80) != 0;
}

Outcome DecodeWifiFrame(Walk& walk, Bytes frame, bool padded) {
  if (!frame.Has(2)) return frame.Missing(2);
  if ((frame.U8(0) & 3) != 0) return Outcome::kMalformed;  // protocol version
  if (!CarriesLlc(frame)) return Outcome::kNotIp;
  const uint32_t header = WifiHeader(frame);
  const uint32_t size = padded ? (header + 3U) & ~3U : header;
  if (!frame.Has(size)) return frame.Missing(size);
  const bool is_later_fragment = (frame.U8(22) & 0x0f) != 0;
  if (is_later_fragment || IsAggregate(frame, header)) return Outcome::kNotIp;
  return DecodeLlc(walk, frame.From(size));
}

struct RadiotapFields {
  uint32_t begin;    // of the fields, behind all words of presence bits
  uint32_t present;  // the first word
};

// Nothing where the words of presence bits run out of the header.
std::optional<RadiotapFields> FindFields(Bytes header) {
  constexpr uint32_t kAnotherWord = 0x80000000;
  RadiotapFields fields{8, header.LittleU32(4)};
  for (uint32_t word = fields.present; (word & kAnotherWord) != 0; fields.begin += 4) {
    if (!header.Has(fields.begin + 4)) return {};
    word = header.LittleU32(fields.begin);
  }
  return fields;
}

// Whether the adapter padded the 802.11 header to a multiple of four octets.
bool IsPadded(Bytes header, const RadiotapFields& fields) {
  constexpr uint32_t kTimeBit = 1, kFlagsBit = 2;
  constexpr uint8_t kPadded = 0x20;
  const bool has_time = (fields.present & kTimeBit) != 0;
  const uint32_t flags_at = has_time ? (fields.begin + 7) / 8 * 8 + 8 : fields.begin;
  const bool has_flags = (fields.present & kFlagsBit) != 0 && header.Has(flags_at + 1);
  return has_flags && (header.U8(flags_at) & kPadded) != 0;
}

}  // namespace

Outcome DecodeWifi(Walk& walk, Bytes frame) { return DecodeWifiFrame(walk, frame, false); }

Outcome DecodeRadiotap(Walk& walk, Bytes frame) {
  if (!frame.Has(8)) return frame.Missing(8);
  const uint16_t size = frame.LittleU16(2);
  if (frame.U8(0) != 0 || size < 8) return Outcome::kMalformed;  // version
  if (!frame.Has(size)) return frame.Missing(size);
  const Bytes header = frame.First(size);
  const auto fields = FindFields(header);
  if (!fields) return Outcome::kMalformed;
  return DecodeWifiFrame(walk, frame.From(size), IsPadded(header, *fields));
}

}  // namespace packet
