#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/timestamp.h"

class ParserFlow;
class RequestVisitor;

// An extra attribute that a host may hang on a record during the sink call. The record owns it.
class KeyValueItem {
 public:
  virtual ~KeyValueItem() = default;
  virtual void Visit(RequestVisitor* visitor) = 0;
};
using KeyValueList = std::vector<std::unique_ptr<KeyValueItem>>;

// Request::spec_id of every DNS record, and the id of the DNS metric specification.
inline constexpr int32_t kDnsSpecId = 1;

// EndRequest::result_code beside the response codes 0 to 15 (RFC 1035 4.1.1).
inline constexpr int32_t kResultTimedOut = -1;         // no response came in time
inline constexpr int32_t kResultMalformedAnswer = -2;  // the answer section could not be decoded
inline constexpr int32_t kNoResultCode = std::numeric_limits<int32_t>::max();  // suppresses the attribute

// What all records share. Records are local objects of the parser: the flow and the pattern are borrowed and,
// like the record itself, valid only until the sink returns.
class Request {
 public:
  Request() = default;
  virtual ~Request();
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;

  // The list of extra attributes, or null when there is none.
  virtual KeyValueList* GetKeyValueListIfExisting();

  int32_t spec_id = 0;
  int32_t request_id = 0;  // shared by the begin and the end record of one query
  std::unique_ptr<KeyValueList> key_values;
  const ParserFlow* flow = nullptr;
};

// A query was recorded.
class BeginRequest : public Request {
 public:
  ~BeginRequest() override;

  const char* request_pattern = nullptr;  // what was asked, for example "A - IPv4 address lookup"
  Timestamp<1000000> start_time;          // when the query was seen
};

// An exchange ended: by a response (measured) or by expiry.
class EndRequest : public Request {
 public:
  // Identifiers of parts of a larger exchange and their counts; the two grow in step.
  struct Stitching {
    std::vector<std::string> ids;
    std::vector<int> counts;
  };

  // Releases extra_items before the stitching block; the host's items may count on that order.
  ~EndRequest() override;

  // Appends a copy of the id, and the count. Creates the stitching block when there is none.
  virtual void AddFbsId(const std::string& id, int count);

  // Presents the record's attributes in the contract's order.
  virtual void Visit(RequestVisitor* visitor) const;

  virtual int GetNumErrors() const;

  const char* request_pattern = nullptr;
  TimeDelta<1000000> response_time;           // for an expired query, the configured time-out
  Timestamp<1000000> start_time;              // when the query was seen
  int64_t bytes_request = 0;                  // nominal length of the query message
  int64_t bytes_response = 0;                 // nominal length of the response message, 0 for an expired query
  int32_t result_code = 0;                    // 0 to 15, or one of the kResult constants
  uint8_t num_errors = 0;                     // 1 unless the exchange succeeded
  std::unique_ptr<KeyValueList> extra_items;  // only destroyed, never visited
  std::unique_ptr<Stitching> stitching;

 private:
  void VisitClient(RequestVisitor* visitor) const;
  void VisitStitching(RequestVisitor* visitor) const;
  void VisitKeyValues(RequestVisitor* visitor) const;
};

// The usual end record: with extra texts, visited in byte order of their keys.
class ExtendedEndRequest : public EndRequest {
 public:
  ~ExtendedEndRequest() override;

  void Visit(RequestVisitor* visitor) const override;

  // Stores a copy; a later value for the same key replaces the earlier one.
  void AddString(const std::string& key, const std::string& value);

  std::map<std::string, std::string> strings;
};
