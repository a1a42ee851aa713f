#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "collector/flow/counts.h"
#include "collector/flow/plausible.h"

namespace flow {

// A message with its two-byte length in front, as cut out of a stream.
struct CutMessage {
  const uint8_t* data;  // valid during the call; one readable byte lies behind
  uint32_t snap;        // bytes present, without a hole, from the length on
  uint32_t nominal;     // the message and its length
  int64_t time_ns;      // the latest of the packets that brought it
};

// Who receives one direction's messages.
class CutterOutput {
 public:
  explicit CutterOutput(Counts* shared_counts) : counts(shared_counts) {}
  virtual ~CutterOutput() = default;
  virtual void OnCutMessage(const CutMessage& message) = 0;
  // What this direction carries, as far as it is known by now.
  virtual Expected Expects() const = 0;

  Counts* const counts;
};

// Bytes of a stream, in order. At least one readable byte lies behind them.
struct Piece {
  const uint8_t* data = nullptr;
  uint32_t size = 0;
  bool begins_segment = false;  // the first byte is the first of a TCP segment
  int64_t time_ns = 0;
};

// Cuts one direction of a connection into messages (RFC 1035 4.2.2, RFC 7766 8). A message that lies whole in one
// piece is handed on where it lies; others are put together in a buffer that lives only as long.
//
// Where the beginning is unknown, or a length was lost, the next segment that begins like a message is looked for;
// from then on each message has to look like one, and the search begins anew where one does not.
class MessageCutter {
 public:
  // Forgets everything. `at_boundary`: the next byte is the first of a message.
  void Start(bool at_boundary);

  void Bytes(Piece piece, CutterOutput* output);

  // `size` bytes are missing here, for good.
  void Hole(uint32_t size, CutterOutput* output);

  // What has begun is handed on as it is, and its rest passed over if it comes after all. Whether there was
  // something.
  bool GiveUp(CutterOutput* output);

  // Bytes of memory held.
  size_t Held() const { return buffer.capacity(); }

 private:
  static constexpr uint32_t kPrefix = 2;

  void Skip(Piece* piece);
  void Search(Piece* piece, CutterOutput* output);
  void Probe(Piece* piece, CutterOutput* output);
  void Cut(Piece* piece, CutterOutput* output);
  void Collect(Piece* piece, CutterOutput* output);
  void Append(Piece* piece, uint32_t size);
  bool CompleteHead(Piece* piece, CutterOutput* output);
  bool Believes(const uint8_t* data, uint32_t present, const CutterOutput& output) const;
  void LoseStep(CutterOutput* output, uint64_t skipped);
  void Forget();

  bool searching = true;
  bool trusted = false;  // the stream's beginning was seen, so its lengths are right whatever they say
  uint32_t rest = 0;     // bytes of a message handed on early that are still to be passed over
  // The message that has begun; while searching, the beginning of a segment too short to be judged.
  std::vector<uint8_t> buffer;
  int64_t buffer_time_ns = 0;
};

}  // namespace flow
