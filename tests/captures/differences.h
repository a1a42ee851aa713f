#pragma once

#include <string_view>
#include <vector>

namespace test {

// Why a pair of query and response that tshark reports is not in the records as tshark has it, and what is there
// instead. docs/pairing.md explains each class under "Differences to other tools".
enum class Reason {
  kNotRecorded,  // the query is of a kind that opens no exchange, or cannot be decoded: there is no record
  kTooLate,      // the response came after the time-out: the query's record is a time-out
  kStillOpen,    // the older query with this identifier was still open, and is the one that is answered
  kOwnPacket,    // the response has the time of its own packet, not of the one that filled a gap in front of it
};

struct Difference {
  std::string_view file;  // below the folder of captures
  int frame;              // of the response
  int id;                 // one frame may hold several responses
  Reason reason;
};

const std::vector<Difference>& ExplainedDifferences();

}  // namespace test
