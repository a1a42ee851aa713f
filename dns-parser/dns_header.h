#pragma once

#include <arpa/inet.h>

#include <cstddef>
#include <cstdint>

#include "iovec/iovec.h"

// The fixed header of a DNS message (RFC 1035 4.1.1), decoded. The bit fields lie as on the wire, so that bytes
// 2 and 3 are taken as they are; the identifier and the counters are in host byte order.
struct DnsHeader {
  uint16_t qid;
  uint8_t recursion_desired : 1;
  uint8_t truncated : 1;
  uint8_t authoritative : 1;
  uint8_t opcode : 4;
  uint8_t response : 1;
  uint8_t rcode : 4;
  uint8_t reserved_flags : 3;
  uint8_t recursion_available : 1;
  uint16_t num_questions;
  uint16_t num_answers;
  uint16_t num_authorities;
  uint16_t num_resources;
};
static_assert(sizeof(DnsHeader) == 12);
static_assert(offsetof(DnsHeader, num_questions) == 4);
static_assert(offsetof(DnsHeader, num_resources) == 10);

// The first question or record starts right behind the header.
inline constexpr int kHeaderSize = 12;

// Reads the header at the start of the message. False when the view holds fewer than 12 bytes (and is in a mode
// that reports by its ok flag); the result is then unspecified.
inline bool ReadHeader(const IOVec& message, DnsHeader* header) {
  message.GetBytes(header, 0, sizeof *header);
  if (!message.ok) return false;
  for (uint16_t* field : {&header->qid, &header->num_questions, &header->num_answers, &header->num_authorities,
                          &header->num_resources}) {
    *field = ntohs(*field);
  }
  return true;
}

// Opcodes (RFC 1035 4.1.1, RFC 1996, RFC 2136). Queries and inverse queries are paired; status, notify, update
// and the unassigned 3 are let pass; anything above is not DNS as we know it.
inline constexpr int kOpcodeInverseQuery = 1;
inline constexpr int kOpcodeUpdate = 5;
