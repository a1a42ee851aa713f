#include "collector/cli/record_order.h"

#include <algorithm>

namespace cli {
namespace {

uint8_t* PutNumber(uint8_t* out, uint16_t number) {
  *out++ = static_cast<uint8_t>(number >> 8);
  *out++ = static_cast<uint8_t>(number);
  return out;
}

uint8_t* PutEndpoint(uint8_t* out, const packet::Address& address, uint16_t port) {
  *out++ = address.version;
  return PutNumber(std::copy(address.octets.begin(), address.octets.end(), out), port);
}

}  // namespace

RecordPlace PlaceOf(uint64_t packet, const plugin::Exchange& exchange) {
  RecordPlace place;
  place.packet = packet;
  uint8_t* out = PutEndpoint(place.tie.data(), *exchange.client, exchange.client_port);
  out = PutEndpoint(out, *exchange.server, exchange.server_port);
  *out++ = exchange.transport;
  PutNumber(out, exchange.dns_id);
  return place;
}

}  // namespace cli
