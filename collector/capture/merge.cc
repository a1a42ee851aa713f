#include <algorithm>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "collector/capture/open.h"

namespace capture {
namespace {

constexpr size_t kBatchSize = 64;

class Merge final : public Source {
 public:
  explicit Merge(std::vector<std::unique_ptr<Source>> merged);

  ReadState Read(std::span<const Frame>* frames) override;
  const std::vector<std::string>& Problems() const override { return problems; }
  uint64_t BytesRead() const override;
  uint64_t BytesTotal() const override;

 private:
  // A source and what it has delivered but we have not.
  struct Stream {
    std::unique_ptr<Source> source;
    std::span<const Frame> frames;
    size_t problems_seen = 0;
  };

  // A source's next frame.
  struct Head {
    int64_t time_ns;
    size_t stream;
    bool operator<(const Head& other) const {
      return time_ns != other.time_ns ? time_ns < other.time_ns : stream < other.stream;
    }
  };

  bool Refill();
  void NoteProblems(Stream* stream);
  void SinkFirst();

  std::vector<Stream> streams;
  std::vector<size_t> dry;  // streams whose next frame is not known
  std::vector<Head> heads;  // the others, a heap: the smallest first
  std::vector<Frame> batch;
  std::vector<std::string> problems;
};

Merge::Merge(std::vector<std::unique_ptr<Source>> merged) {
  for (auto& source : merged) {
    dry.push_back(streams.size());
    streams.push_back({std::move(source), {}, 0});
    NoteProblems(&streams.back());
  }
  batch.reserve(kBatchSize);
}

// A stream that runs dry ends the batch: its next frame may come before all others, and asking for it would take
// away the bytes of those already in the batch.
ReadState Merge::Read(std::span<const Frame>* frames) {
  batch.clear();
  const bool idle = Refill();
  while (!heads.empty() && batch.size() < kBatchSize) {
    Stream& stream = streams[heads.front().stream];
    batch.push_back(stream.frames.front());
    stream.frames = stream.frames.subspan(1);
    if (stream.frames.empty()) {
      dry.push_back(heads.front().stream);
      heads.front() = heads.back();
      heads.pop_back();
      if (!heads.empty()) SinkFirst();
      break;
    }
    heads.front().time_ns = stream.frames.front().time_ns;
    SinkFirst();
  }
  *frames = batch;
  if (!batch.empty()) return ReadState::kFrames;
  return idle ? ReadState::kIdle : ReadState::kEnd;
}

// Asks the dry streams for more. Returns whether one of them has nothing only for now.
bool Merge::Refill() {
  const std::vector<size_t> asked = std::exchange(dry, {});
  for (const size_t index : asked) {
    Stream& stream = streams[index];
    const ReadState state = stream.source->Read(&stream.frames);
    NoteProblems(&stream);
    if (state == ReadState::kIdle) dry.push_back(index);
    if (state != ReadState::kFrames) continue;
    heads.push_back({stream.frames.front().time_ns, index});
    std::push_heap(heads.begin(), heads.end(), [](const Head& a, const Head& b) { return b < a; });
  }
  return !dry.empty();
}

void Merge::NoteProblems(Stream* stream) {
  const std::vector<std::string>& all = stream->source->Problems();
  for (; stream->problems_seen < all.size(); ++stream->problems_seen) {
    problems.push_back(all[stream->problems_seen]);
  }
}

// Restores the heap after its first head has changed. In files that follow one another in time the first stays
// first, and this costs two comparisons.
void Merge::SinkFirst() {
  const Head sinking = heads.front();
  size_t at = 0;
  for (;;) {
    size_t child = 2 * at + 1;
    if (child >= heads.size()) break;
    if (child + 1 < heads.size() && heads[child + 1] < heads[child]) ++child;
    if (!(heads[child] < sinking)) break;
    heads[at] = heads[child];
    at = child;
  }
  heads[at] = sinking;
}

uint64_t Merge::BytesRead() const {
  uint64_t sum = 0;
  for (const Stream& stream : streams) sum += stream.source->BytesRead();
  return sum;
}

// Unknown as soon as one part is. A source that failed has no size, but is no part either.
uint64_t Merge::BytesTotal() const {
  uint64_t sum = 0;
  for (const Stream& stream : streams) {
    const uint64_t total = stream.source->BytesTotal();
    if (total == 0 && stream.problems_seen == 0) return 0;
    sum += total;
  }
  return sum;
}

}  // namespace

std::unique_ptr<Source> MergeByTime(std::vector<std::unique_ptr<Source>> sources) {
  if (sources.size() == 1) return std::move(sources.front());
  return std::make_unique<Merge>(std::move(sources));
}

}  // namespace capture
