#pragma once

#include <cstdint>
#include <string>

// The host's table of callbacks, handed to get_parser_default and kept by the parser for its whole life.
//
// The host owns the table and may append entries of its own. The parser neither writes to it nor frees it.
// All callbacks are called synchronously, on the thread that entered the library.
struct CollectorExports {
  // The host's current verbosity. Read anew before every message: the host may change it at any time.
  // A message of level L is produced only when *log_level >= L.
  const int* log_level;

  // printf-style message sink. 2: anomalies and refusals, 3: initialisation, 4: dropped packets and
  // expiry, 5: debug traces. Messages carry no trailing newline.
  void (*log)(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

  // Debug switch, asked before each level-5 message, after the level test, with "dns-parser.cc".
  bool (*is_debug_enabled)(const std::string& source_file);

  void* reserved_4;  // never called by the parser
  void* reserved_5;  // never called by the parser

  // True when the host wants the extra strings of an ExtendedEndRequest ("Names", "Response",
  // "NumRRSIGRecords"). Asked each time the parser decides whether to build or attach them.
  bool (*want_extended_details)();

  // One resolved name. `query_name` is the question's name, or null when the mapping comes from a reverse
  // (".in-addr.arpa") answer. The address lies in memory in network order, first octet first. Both texts
  // are valid during the call only.
  void (*inject_dns_mapping)(const char* query_name, const char* name, uint32_t ipv4);

  void* reserved_8;  // never called by the parser

  // The context the host is working in. Responses of flows with the same context_id inject no mappings,
  // so that a host is not fed with its own lookups.
  uint32_t (*get_current_context_id)();
};
