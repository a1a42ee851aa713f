#include "collector/cli/worker_link.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <system_error>
#include <utility>

namespace cli {
namespace {

constexpr size_t kStatusRoom = 4096;
constexpr int kPatienceMs = 200;

void Close(int* descriptor) {
  if (*descriptor >= 0) close(std::exchange(*descriptor, -1));
}

// Whole or not at all: what is written is smaller than what a pipe takes in one piece.
template <typename T>
bool WriteTo(int descriptor, const T& value) {
  ssize_t count;
  do {
    count = write(descriptor, &value, sizeof value);
  } while (count < 0 && errno == EINTR);
  return count == static_cast<ssize_t>(sizeof value);
}

template <typename T>
bool ReadFrom(int descriptor, T* value) {
  ssize_t count;
  do {
    count = read(descriptor, value, sizeof *value);
  } while (count < 0 && errno == EINTR);
  return count == static_cast<ssize_t>(sizeof *value);
}

}  // namespace

WorkerLink::WorkerLink() {
  void* memory =
      mmap(nullptr, kStatusRoom + kChunk * kChunks, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "memory for a worker");
  shared_status = new (memory) Status{};
  chunks = static_cast<char*>(memory) + kStatusRoom;
  if (pipe2(filled, O_CLOEXEC) != 0 || pipe2(emptied, O_CLOEXEC) != 0) {
    const int error = errno;
    for (int& end : filled) Close(&end);
    munmap(memory, kStatusRoom + kChunk * kChunks);
    throw std::system_error(error, std::generic_category(), "pipes for a worker");
  }
}

WorkerLink::~WorkerLink() {
  for (int& end : filled) Close(&end);
  for (int& end : emptied) Close(&end);
  munmap(shared_status, kStatusRoom + kChunk * kChunks);
}

// ---- the worker's side

void WorkerLink::BecomeSender() {
  Close(&filled[0]);
  Close(&emptied[1]);
}

void WorkerLink::Send(const RecordPlace& place, std::string_view text) {
  const Head sent{place, static_cast<uint32_t>(text.size())};
  Put(&sent, sizeof sent);
  Put(text.data(), text.size());
}

void WorkerLink::Put(const void* bytes, size_t size) {
  const char* from = static_cast<const char*>(bytes);
  while (size > 0 && !is_broken) {
    if (!has_chunk) Take();
    const size_t count = std::min(size, kChunk - written);
    std::memcpy(chunks + writing * kChunk + written, from, count);
    written += count;
    from += count;
    size -= count;
    if (written == kChunk) Flush(0);
  }
}

// A free chunk; waits for one.
void WorkerLink::Take() {
  if (fresh < kChunks) {
    writing = fresh++;
  } else if (!ReadFrom(emptied[0], &writing)) {
    is_broken = true;
  }
  has_chunk = true;
  written = 0;
}

void WorkerLink::Flush(uint64_t packet) {
  const bool empty = !has_chunk || written == 0;
  const Token token{writing, empty ? 0 : static_cast<uint32_t>(written), packet};
  if (!is_broken && !WriteTo(filled[1], token)) is_broken = true;
  if (!empty) has_chunk = false;
}

void WorkerLink::SendReport(std::string_view report) {
  RecordPlace place;
  place.packet = kReport;
  Send(place, report);
  Flush(0);
}

// ---- the other side

void WorkerLink::BecomeReceiver() {
  Close(&filled[1]);
  Close(&emptied[0]);
}

void WorkerLink::Next() {
  if (current_state == State::kReported || current_state == State::kLost) return;
  current_state = State::kNothing;
  Parse();
}

void WorkerLink::Receive() {
  if (current_state != State::kNothing) return;
  pollfd waiting{filled[0], POLLIN, 0};
  if (poll(&waiting, 1, kPatienceMs) <= 0) return;  // a signal may have come just before the wait began
  Token token;
  if (!ReadFrom(filled[0], &token)) {
    current_state = State::kLost;
    return;
  }
  passed_packet = std::max(passed_packet, token.packet);
  if (token.size == 0) return;
  reading = token.chunk;
  used = 0;
  available = token.size;
  Parse();
}

// True when all of `size` bytes behind those of `to` that are there already were at hand.
bool WorkerLink::Copy(void* to, size_t size) {
  const size_t count = std::min(size - head_got, available - used);
  std::memcpy(static_cast<char*>(to) + head_got, chunks + reading * kChunk + used, count);
  used += count;
  head_got += count;
  return head_got == size;
}

// The next record out of the chunk in hand, if it is there as a whole.
void WorkerLink::Parse() {
  if (!assembling) {
    if (!Copy(&head, sizeof head)) return GiveBack();
    head_got = 0;
    const size_t at_hand = available - used;
    if (at_hand >= head.size) {
      current_text = {chunks + reading * kChunk + used, head.size};
      used += head.size;
      current_state = head.place.packet == kReport ? State::kReported : State::kRecord;
      return;
    }
    assembling = true;
    assembled.clear();
  }
  const size_t count = std::min(available - used, head.size - assembled.size());
  assembled.append(chunks + reading * kChunk + used, count);
  used += count;
  if (assembled.size() < head.size) return GiveBack();
  assembling = false;
  current_text = assembled;
  current_state = head.place.packet == kReport ? State::kReported : State::kRecord;
}

// All of the chunk has been used, and no text points into it.
void WorkerLink::GiveBack() {
  if (available > 0) WriteTo(emptied[1], reading);
  used = available = 0;
}

}  // namespace cli
