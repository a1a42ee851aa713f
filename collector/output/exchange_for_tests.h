#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "collector/plugin/exchange.h"

// Exchanges for the tests of writers: all the texts and addresses that an Exchange points at, in one place.
namespace output {

inline packet::Address Ipv4(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
  packet::Address address;
  address.version = 4;
  address.octets = {a, b, c, d};
  return address;
}

inline packet::Address Ipv6(const std::array<uint16_t, 8>& groups) {
  packet::Address address;
  address.version = 6;
  for (size_t i = 0; i < groups.size(); ++i) {
    address.octets[2 * i] = static_cast<uint8_t>(groups[i] >> 8);
    address.octets[2 * i + 1] = static_cast<uint8_t>(groups[i]);
  }
  return address;
}

// One question as on the wire. A dot in `name` separates labels.
inline std::string Question(std::string_view name, uint16_t type, uint16_t number_of_class = 1) {
  std::string wire;
  while (!name.empty()) {
    const std::string_view label = name.substr(0, name.find('.'));
    wire += static_cast<char>(label.size());
    wire += label;
    name.remove_prefix(std::min(name.size(), label.size() + 1));
  }
  wire += '\0';
  for (const uint16_t code : {type, number_of_class}) {
    wire += static_cast<char>(code >> 8);
    wire += static_cast<char>(code & 0xff);
  }
  return wire;
}

// An answered query for the A record of www.example.com; tests change what they are about.
struct ExchangeForTests : plugin::Exchange {
  ExchangeForTests() {
    client = &client_address;
    server = &server_address;
    encapsulation = &tags;
    question = question_bytes;
    question_count = 1;
    answers = "A=192.0.2.80";
    pattern = "A - IPv4 address lookup";
    has_response = true;
    query_time_ns = 1700000000123456789;
    response_time_ns = 1700000000125691358;
    rtt_us = 2234;
    client_port = 40000;
    server_port = 53;
    transport = 17;
    dns_id = 4660;
    query_flags = 0x0120;
    response_flags = 0x8180;
    bytes_query = 33;
    bytes_response = 49;
  }
  ExchangeForTests(const ExchangeForTests&) = delete;
  ExchangeForTests& operator=(const ExchangeForTests&) = delete;

  void Ask(const std::string& wire) {
    question_bytes = wire;
    question = question_bytes;
  }

  // A response message to the one question.
  void Respond(const std::string& message) {
    response_bytes = message;
    response = response_bytes;
    response_records = 12 + question_bytes.size();
  }

  void TimeOut() {
    status = plugin::Status::kTimeout;
    has_response = false;
    response_time_ns = 0;
    result_code = -1;
    rtt_us = 5000000;
    bytes_response = 0;
    answers = {};
  }

  packet::Address client_address = Ipv4(192, 0, 2, 1);
  packet::Address server_address = Ipv4(198, 51, 100, 53);
  packet::Encapsulation tags;
  std::string response_bytes;
  std::string question_bytes = Question("www.example.com", 1);
};

}  // namespace output
