#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <typeinfo>

#include "host/requests.h"

namespace plugin {

// What the host shows of an end record. The texts point into the record and are valid as long as it is.
struct RecordView {
  int32_t request_id = 0;
  int32_t result_code = 0;
  int64_t response_time_us = 0;
  int64_t bytes_query = 0;
  int64_t bytes_response = 0;
  std::string_view pattern;
  std::string_view answers;  // the "Response" text; it may hold zero bytes
  int rrsigs = 0;            // "NumRRSIGRecords"
  bool rrsigs_known = false;
};

// Reads end records. The extra strings are read where they lie and not through a visit, which passes C strings and
// would cut the answers at a zero byte.
class RecordReader {
 public:
  RecordView Read(const EndRequest& record);

 private:
  const ExtendedEndRequest* Extended(const EndRequest& record);

  const std::type_info* extended_type = nullptr;  // the last one that proved to be an ExtendedEndRequest
};

// Keeps a record beyond the call that delivered it. Its texts are buffers that are used again.
class KeptRecord {
 public:
  void Keep(const RecordView& record);
  const RecordView& view() const { return kept; }  // valid until the next Keep

 private:
  RecordView kept;
  std::string pattern;
  std::string answers;
};

}  // namespace plugin
