#include <doctest/doctest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "collector/capture/open.h"
#include "tests/support/captured.h"

namespace {

using capture::Frame;
using capture::MergeByTime;
using capture::ReadState;
using capture::Source;
using test::Captured;

using Times = std::vector<int64_t>;
using Lines = std::vector<std::string>;

// Delivers one-byte frames at given times, in batches, and takes each batch's bytes away before the next.
class Scripted final : public Source {
 public:
  Scripted(uint32_t source_number, Times frame_times, size_t batch_size)
      : number(source_number), times(std::move(frame_times)), batch(batch_size) {}

  ReadState Read(std::span<const Frame>* delivered) override {
    std::fill(bytes.begin(), bytes.end(), '!');
    *delivered = {};
    if (idle > 0) return --idle, ReadState::kIdle;
    if (next == times.size()) {
      if (!last_words.empty()) problems.push_back(std::exchange(last_words, {}));
      return ReadState::kEnd;
    }
    const size_t count = std::min(batch, times.size() - next);
    bytes.assign(count + 1, static_cast<uint8_t>('a' + number));
    frames.assign(count, Frame{});
    for (size_t i = 0; i < count; ++i) {
      frames[i].time_ns = times[next + i];
      frames[i].data = &bytes[i];
      frames[i].captured = frames[i].wire = 1;
      frames[i].offset = next + i;
      frames[i].source = number;
    }
    next += count;
    *delivered = frames;
    return ReadState::kFrames;
  }
  const std::vector<std::string>& Problems() const override { return problems; }
  uint64_t BytesRead() const override { return next; }
  uint64_t BytesTotal() const override { return total; }

  std::vector<std::string> problems;
  std::string last_words;  // a problem that shows at the end
  uint64_t total = 1;
  int idle = 0;  // so many times nothing arrives

 private:
  uint32_t number;
  Times times;
  size_t batch;
  size_t next = 0;
  std::vector<uint8_t> bytes;
  std::vector<Frame> frames;
};

std::unique_ptr<Source> Merged(const std::vector<Times>& all, size_t batch) {
  std::vector<std::unique_ptr<Source>> sources;
  for (const Times& times : all) {
    sources.push_back(std::make_unique<Scripted>(static_cast<uint32_t>(sources.size()), times, batch));
  }
  return MergeByTime(std::move(sources));
}

// "a0 b0 a1": the source's letter as its bytes show it, and the frame's number in it.
std::string Order(const std::vector<Times>& all, size_t batch = 64) {
  std::string order;
  for (const auto& frame : test::ReadAll(Merged(all, batch).get()).frames) {
    order += (order.empty() ? "" : " ") + frame.bytes + std::to_string(frame.offset);
  }
  return order;
}

}  // namespace

TEST_CASE("frames of several sources come by time") {
  for (const size_t batch : {size_t{1}, size_t{2}, size_t{64}}) {
    CHECK(Order({{1, 4, 5}, {2, 3, 6}}, batch) == "a0 b0 b1 a1 a2 b2");
    CHECK(Order({{7}, {5}, {6}}, batch) == "b0 c0 a0");
    CHECK(Order({{-5}, {-6, 1}}, batch) == "b0 a0 b1");
  }
}

TEST_CASE("at one time the lower number comes first") {
  for (const size_t batch : {size_t{1}, size_t{2}, size_t{64}}) {
    CHECK(Order({{5, 5}, {5, 5}, {5}}, batch) == "a0 a1 b0 b1 c0");
    CHECK(Order({{6}, {5, 6}, {5}}, batch) == "b0 c0 a0 b1");
  }
}

TEST_CASE("each source keeps its own order, and an earlier frame is not held back behind a later one") {
  for (const size_t batch : {size_t{1}, size_t{2}, size_t{64}}) {
    CHECK(Order({{10, 5, 20}, {7, 12}}, batch) == "b0 a0 a1 b1 a2");
  }
}

TEST_CASE("empty sources and no sources are no problem") {
  CHECK(Order({{}, {1}, {}}) == "b0");
  CHECK(Order({{}, {}}).empty());
  CHECK(Order({}).empty());
}

TEST_CASE("the bytes of a whole batch are there at the same time") {
  std::mt19937 random(1);
  for (int run = 0; run < 200; ++run) {
    std::vector<Times> all(1 + random() % 6);
    std::vector<int64_t> expected;
    for (Times& times : all) {
      for (size_t i = random() % 100; i > 0; --i) times.push_back(static_cast<int64_t>(random() % 50));
      std::sort(times.begin(), times.end());
      expected.insert(expected.end(), times.begin(), times.end());
    }
    std::stable_sort(expected.begin(), expected.end());
    const Captured captured = test::ReadAll(Merged(all, 1 + random() % 20).get());
    CHECK(captured.Times() == expected);
    bool numbered = true;
    for (const auto& frame : captured.frames) {
      numbered = numbered && frame.bytes == std::string(1, static_cast<char>('a' + frame.source));
    }
    CHECK(numbered);
    CHECK(std::is_sorted(captured.frames.begin(), captured.frames.end(), [](const auto& a, const auto& b) {
      return a.time_ns != b.time_ns ? a.time_ns < b.time_ns : a.source < b.source;
    }));
  }
}

TEST_CASE("one source is not wrapped") {
  std::vector<std::unique_ptr<Source>> sources;
  sources.push_back(std::make_unique<Scripted>(0, Times{1}, 1));
  const Source* alone = sources[0].get();
  CHECK(MergeByTime(std::move(sources)).get() == alone);
}

TEST_CASE("problems of all sources show, those from the begin and those from the end") {
  auto first = std::make_unique<Scripted>(0, Times{1}, 1);
  first->last_words = "first: cut";
  auto second = std::make_unique<Scripted>(1, Times{}, 1);
  second->problems.push_back("second: missing");
  std::vector<std::unique_ptr<Source>> sources;
  sources.push_back(std::move(first));
  sources.push_back(std::move(second));
  const auto merged = MergeByTime(std::move(sources));
  CHECK(merged->Problems() == Lines{"second: missing"});
  const Captured captured = test::ReadAll(merged.get());
  CHECK(captured.frames.size() == 1);
  CHECK(captured.problems == Lines{"second: missing", "first: cut"});
}

TEST_CASE("progress adds up, and is unknown where a part is") {
  const auto merged = [](uint64_t total, bool failed) {
    auto first = std::make_unique<Scripted>(0, Times{1, 2}, 2);
    first->total = 10;
    auto second = std::make_unique<Scripted>(1, Times{3}, 1);
    second->total = total;
    if (failed) second->problems.push_back("missing");
    std::vector<std::unique_ptr<Source>> sources;
    sources.push_back(std::move(first));
    sources.push_back(std::move(second));
    return MergeByTime(std::move(sources));
  };
  CHECK(merged(5, false)->BytesTotal() == 15);
  CHECK(merged(0, false)->BytesTotal() == 0);
  CHECK(merged(0, true)->BytesTotal() == 10);
  const auto whole = merged(5, false);
  test::ReadAll(whole.get());
  CHECK(whole->BytesRead() == 3);
}

TEST_CASE("a source that is idle does not hold up the others") {
  auto live = std::make_unique<Scripted>(0, Times{1}, 1);
  live->idle = 2;
  std::vector<std::unique_ptr<Source>> sources;
  sources.push_back(std::move(live));
  sources.push_back(std::make_unique<Scripted>(1, Times{5}, 1));
  const auto merged = MergeByTime(std::move(sources));
  std::span<const Frame> frames;
  REQUIRE(merged->Read(&frames) == ReadState::kFrames);
  CHECK(frames[0].source == 1);
  CHECK(merged->Read(&frames) == ReadState::kIdle);
  REQUIRE(merged->Read(&frames) == ReadState::kFrames);
  CHECK(frames[0].source == 0);
  CHECK(merged->Read(&frames) == ReadState::kEnd);
}
