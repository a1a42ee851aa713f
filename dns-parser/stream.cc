// From what the host delivers to whole messages: one a datagram, or framed by their length on a stream
// (RFC 1035 4.2). Nothing is kept between calls; an unfinished message stays with the host.

#include "dns-parser/dns_parser.h"
#include "dns-parser/trace.h"
#include "host/parser_flow.h"

namespace {

constexpr int kPrefixSize = 2;
constexpr int kUnusable = -1;
constexpr int kCallAgain = 0;

}  // namespace

int DNSParser::HandleDataClientToServer(const ParserFlow* flow, Timestamp<1000000> now, const char* data,
                                        int snap_length, int nominal_length, long /*unused*/,
                                        void** /*stream_state*/) {
  return HandleData(flow, now, data, snap_length, nominal_length, true);
}

int DNSParser::HandleDataServerToClient(const ParserFlow* flow, Timestamp<1000000> now, const char* data,
                                        int snap_length, int nominal_length, long /*unused*/,
                                        void** /*stream_state*/) {
  return HandleData(flow, now, data, snap_length, nominal_length, false);
}

int DNSParser::HandleData(const ParserFlow* flow, Timestamp<1000000> now, const char* data, int snap_length,
                          int nominal_length, bool is_request) {
  if (snap_length > nominal_length) return kUnusable;
  switch (flow->transport) {
    case kTransportUdp:
      return HandleMessage(flow, now, data, snap_length, nominal_length, is_request) ? nominal_length : kUnusable;
    case kTransportTcp:
      return HandleTCPStream(flow, now, data, snap_length, nominal_length, is_request);
    default:
      DNS_LOG(kLogAnomaly, "Unknown transport %d for DNS traffic", flow->transport);
      return kUnusable;
  }
}

int DNSParser::HandleTCPStream(const ParserFlow* flow, Timestamp<1000000> now, const char* data, int snap_length,
                               int nominal_length, bool is_request) {
  int consumed = 0;
  for (;;) {
    const int frame = HandleTCPFrame(flow, now, data, snap_length, nominal_length, is_request);
    if (frame < 0) return frame;  // what earlier frames consumed is not reported
    consumed += frame;
    nominal_length -= frame;
    if (frame == kCallAgain || nominal_length <= 0) return consumed;
    snap_length = snap_length > frame ? snap_length - frame : 0;
    data += frame;
  }
}

int DNSParser::HandleTCPFrame(const ParserFlow* flow, Timestamp<1000000> now, const char* data, int snap_length,
                              int nominal_length, bool is_request) {
  if (nominal_length < kPrefixSize) return kCallAgain;
  if (snap_length < kPrefixSize) return kUnusable;
  const int size = static_cast<unsigned char>(data[0]) << 8 | static_cast<unsigned char>(data[1]);
  DNS_TRACE(kTcpFrame, "Handle TCP %s frame with size=%d (have %d)", is_request ? "request" : "response", size,
            nominal_length - kPrefixSize);

  const bool nothing_lost = snap_length == nominal_length;
  if (nominal_length < size + kPrefixSize && nothing_lost) return kCallAgain;

  // A capture that lost bytes is not waited for: what is there is handled, and the whole frame counts as consumed
  // even where that exceeds this call. The comparison leaves the prefix out on purpose: a capture that lacks only
  // the message's last byte hands on the full length, and hosts keep a readable byte behind their data.
  const int captured = snap_length > size ? size : snap_length - kPrefixSize;
  const bool used = HandleMessage(flow, now, data + kPrefixSize, captured, size, is_request);
  return used ? size + kPrefixSize : kUnusable;
}

bool DNSParser::HandleMessage(const ParserFlow* flow, Timestamp<1000000> now, const char* data, int snap_length,
                              int nominal_length, bool is_request) {
  if (is_request) return HandleRequest(flow, now, data, snap_length, nominal_length);
  return HandleResponse(flow, now, data, snap_length, nominal_length) != 0;
}
