#pragma once

#include "host/collector_exports.h"

// How the parser talks to the host's log. Every message starts with the parser's prefix. Level-5 messages also
// carry a file and a line, and all of the parser's files trace under one name: log filters match on
// "[dns-parser.cc:755]".

inline constexpr char kLogPrefix[] = "[dns]-";
inline constexpr char kTraceFile[] = "dns-parser.cc";

inline constexpr int kLogAnomaly = 2;
inline constexpr int kLogStart = 3;
inline constexpr int kLogDropped = 4;
inline constexpr int kLogTrace = 5;

// The number in a trace's head. A number stays with its message when code moves.
enum class TraceSite : int {
  kTcpFrame = 118,
  kRequest = 153,
  kResponse = 346,
  kUnsolicited = 389,
  kDumpHeader = 525,
  kDumpQuestion = 546,
  kMapping = 612,
  kAaaaAnswer = 640,
  kReverseMapping = 671,
  kDumpOpt = 718,
  kDumpRecord = 722,
  kDumpName = 732,
  kDumpTxt = 739,
  kDumpHinfo = 746,
  kDumpMx = 755,
  kDumpSrv = 773,
  kDumpSoa = 801,
  kDumpA = 808,
  kDumpAaaa = 816,
};

// The level is read anew each time: the host may change it whenever it likes.
inline bool LogEnabled(const CollectorExports& host, int level) { return *host.log_level >= level; }

// Apart, so that the question that every message asks is one comparison in place.
[[gnu::cold, gnu::noinline]] inline bool FileTraced(const CollectorExports& host) {
  return host.is_debug_enabled(kTraceFile);
}
inline bool TraceEnabled(const CollectorExports& host) { return LogEnabled(host, kLogTrace) && FileTraced(host); }

// For members of DNSParser, whose `exports` they use. The compiler checks arguments against the format.
#define DNS_LOG(level, format, ...)                                            \
  do {                                                                         \
    if (LogEnabled(*exports, level)) {                                         \
      exports->log(level, "%s" format, kLogPrefix __VA_OPT__(, ) __VA_ARGS__); \
    }                                                                          \
  } while (false)

#define DNS_TRACE(site, format, ...)                                                              \
  do {                                                                                            \
    if (TraceEnabled(*exports)) {                                                                 \
      exports->log(kLogTrace, "[%s:%d]-%s" format, kTraceFile, static_cast<int>(TraceSite::site), \
                   kLogPrefix __VA_OPT__(, ) __VA_ARGS__);                                        \
    }                                                                                             \
  } while (false)
