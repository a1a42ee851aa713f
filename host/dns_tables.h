#pragma once

#include <cstdint>

// One row of a code table. A table ends with the first row whose name is null.
struct DnsTableEntry {
  int32_t code;
  const char* name;
  const char* description;  // null where the row has none
};

// Exported by the library. Record types and classes (RFC 1035 3.2 and successors) in the contract's order.
#pragma GCC visibility push(default)
extern "C++" const DnsTableEntry dns_types[50];
extern "C++" const DnsTableEntry dns_classes[7];
#pragma GCC visibility pop
