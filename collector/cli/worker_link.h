#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "collector/cli/pipeline.h"
#include "collector/cli/record_order.h"

namespace cli {

// How records come from a worker to the process that merges them: through chunks of memory that both see, of which
// two pipes say who may use them. A pipe's end is how each learns that the other is gone.
//
// Made before the fork; then the worker calls BecomeSender and the other side BecomeReceiver.
class WorkerLink {
 public:
  // What the worker is doing, for the other side to look at at any time.
  struct Status {
    Whereabouts whereabouts;
    std::atomic<uint64_t> bytes_read;
    std::atomic<uint64_t> bytes_total;
  };

  WorkerLink();  // throws std::system_error
  ~WorkerLink();
  WorkerLink(const WorkerLink&) = delete;
  WorkerLink& operator=(const WorkerLink&) = delete;

  Status& status() { return *shared_status; }

  // ---- the worker's side
  void BecomeSender();
  // Records have to come in their order.
  void Send(const RecordPlace& place, std::string_view text);
  // Hands on what has been sent so far. No record that is sent later ends at this packet or before.
  void Flush(uint64_t packet);
  // The last thing that is sent: how it went.
  void SendReport(std::string_view report);
  // The other side is gone.
  bool broken() const { return is_broken; }

  // ---- the other side
  void BecomeReceiver();

  enum class State : uint8_t {
    kNothing,   // yet: Receive
    kRecord,    // place() and text()
    kReported,  // the worker has ended well; text() is its report
    kLost,      // the worker ended without a report
  };
  State state() const { return current_state; }
  const RecordPlace& place() const { return head.place; }
  std::string_view text() const { return current_text; }
  // Where State is kNothing, what is to come lies behind this packet.
  uint64_t passed() const { return passed_packet; }

  // Goes on behind the record. It is kNothing until Receive has been called where the next one is not at hand.
  void Next();
  // Waits for the worker, but not for long: the caller has other things to look after.
  void Receive();

 private:
  static constexpr size_t kChunk = size_t{1} << 17;
  static constexpr uint32_t kChunks = 6;
  static constexpr uint64_t kReport = UINT64_MAX;  // as a packet

  struct Head {
    RecordPlace place;
    uint32_t size = 0;  // of the text behind it
  };
  struct Token {
    uint32_t chunk;
    uint32_t size;
    uint64_t packet;
  };

  void Put(const void* bytes, size_t size);
  void Take();
  bool Copy(void* to, size_t size);
  void Parse();
  void GiveBack();

  Status* shared_status = nullptr;
  char* chunks = nullptr;
  int filled[2] = {-1, -1};   // tokens of chunks that hold something
  int emptied[2] = {-1, -1};  // numbers of chunks that are free again

  // The worker's side.
  uint32_t writing = 0;
  bool has_chunk = false;
  size_t written = 0;
  uint32_t fresh = 0;  // chunks never used yet
  bool is_broken = false;

  // The other side: the chunk in hand, and what of it has been used.
  uint32_t reading = 0;
  size_t used = 0;
  size_t available = 0;
  Head head;
  size_t head_got = 0;
  std::string assembled;  // a text that does not lie in one chunk
  bool assembling = false;
  std::string_view current_text;
  uint64_t passed_packet = 0;
  State current_state = State::kNothing;
};

}  // namespace cli
