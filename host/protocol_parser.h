#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "host/timestamp.h"

class IRequestSink;
class ParserFlow;
class RequestMetricSpecification;
struct CollectorExports;

// The version of this interface. A library that reports another one must not be used.
inline constexpr int kParserApiVersion = 5;

// What a host calls. One parser must never be entered from two threads at once, and calls are serialised
// across all parsers of one library: they share static text buffers. Neither a callback nor the sink may call
// into the parser that is calling it: the record and the texts in its hands would change. The library starts no
// threads, and lets exceptions (its own out-of-memory, or anything a callback throws) pass through to the caller.
class IProtocolParser {
 public:
  // Returns 1. Opening and closing a stream needs no action: the parser keeps nothing per stream.
  virtual int HandleNewStream(const ParserFlow* flow, void** stream_state) = 0;

  // One chunk of a flow's payload, queries to the server and responses to the client.
  //
  // `snap_length` bytes are present at `data`; `nominal_length` bytes were on the wire (snap_length is less
  // where the capture was cut; a negative length is a fatal error of the host). Over UDP a chunk is one
  // datagram. Over TCP it is the start of a message or several whole ones, each behind its two-byte length
  // (RFC 1035 4.2.2).
  //
  // Returns the number of bytes consumed; 0 on TCP when no message is complete yet (call again with the same
  // bytes and more); -1 when the data could not be used. The result can exceed nominal_length on TCP when
  // the capture lost the end of a message.
  //
  // One byte behind the captured data must be readable: a TCP message whose capture lacks exactly its last
  // byte is decoded as if that byte were there.
  virtual int HandleDataClientToServer(const ParserFlow* flow, Timestamp<1000000> now, const char* data,
                                       int snap_length, int nominal_length, long unused, void** stream_state) = 0;
  virtual int HandleDataServerToClient(const ParserFlow* flow, Timestamp<1000000> now, const char* data,
                                       int snap_length, int nominal_length, long unused, void** stream_state) = 0;

  virtual void HandleEndOfStream(const ParserFlow* flow, void** stream_state) = 0;

  virtual ~IProtocolParser() = default;

  // Expires old queries by the wall clock. A host that reads captures calls the timed form instead.
  virtual void Heartbeat() {}

  // One line of counters since the last call, or null when the parser has none. The text is valid until the
  // next call on any parser of the library.
  virtual const char* GetHealthEvent() { return nullptr; }

  // How this parser's end records are grouped. The same object for every parser of the library.
  virtual const RequestMetricSpecification* GetRequestMetricSpec() const = 0;

  virtual int GetFlags() const = 0;

  IProtocolParser() = default;
  IProtocolParser(const IProtocolParser&) = delete;
  IProtocolParser& operator=(const IProtocolParser&) = delete;

  uint64_t host_handle = 0;                        // the host's own word, never read by the parser
  const CollectorExports* host_exports = nullptr;  // for the host, never read by the parser
  IRequestSink* request_sink = nullptr;  // filled in by the host before it feeds data; never tested for null
};

// The parser that this library makes: it can also be driven by the host's own clock. Adds the last slot of
// the virtual table and nothing to the layout.
class ITimedProtocolParser : public IProtocolParser {
 public:
  using IProtocolParser::Heartbeat;

  // Expires every query that was seen more than the configured time-out before `now`.
  virtual void Heartbeat(Timestamp<1000000> now) = 0;
};

// The library's entry points. A host looks them up by name with dlsym.
extern "C" {
#pragma GCC visibility push(default)

// Returns kParserApiVersion.
int get_api_version();

// Makes a parser. The table must outlive it; the map is copied. Keys: "max_open_requests" (65536),
// "enable_dnssec" (false), "enable_axfr" (false), "request_timeout_s" (5); others are ignored.
// The result is an ITimedProtocolParser. Throws what the constructor throws (out of memory).
IProtocolParser* get_parser_default(uint64_t host_handle, const CollectorExports* exports,
                                    const std::map<std::string, std::string>& args);

// Destroys a parser made by get_parser_default; open queries are dropped silently. Null is ignored.
void destroy_parser_default(IProtocolParser* parser);

#pragma GCC visibility pop
}
