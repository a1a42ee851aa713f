#include <doctest/doctest.h>
#include <unistd.h>

#include <algorithm>
#include <span>
#include <string>
#include <vector>

#include "collector/capture/open.h"
#include "tests/support/captured.h"
#include "tests/support/compress.h"
#include "tests/support/pcap_writer.h"
#include "tests/support/temporary_file.h"

// Files that become shorter or longer while they are read.

namespace {

using test::Captured;
using test::PcapWriter;
using test::TemporaryFile;

using Lines = std::vector<std::string>;

constexpr size_t kHeader = 24;
constexpr size_t kRecord = 10'000;
constexpr size_t kFrames = 100;
constexpr size_t kSize = kHeader + kFrames * kRecord;

constexpr const char* kShorter = ": the file became shorter while it was read";

// A megabyte: far more than is read at once.
std::string LongCapture() {
  PcapWriter writer;
  for (size_t i = 0; i < kFrames; ++i)
    writer.Frame(static_cast<int64_t>(i) * 1000, std::string(kRecord - 16, static_cast<char>('a' + i % 26)));
  return writer.Bytes();
}

size_t WholeFrames(size_t file_size) { return (file_size - kHeader) / kRecord; }

}  // namespace

TEST_CASE("a file cut before it is read gives what is left") {
  for (const size_t length : {size_t{25'000}, size_t{kHeader + 2 * kRecord}}) {
    const TemporaryFile file(LongCapture());
    const auto source = capture::OpenFile(file.path, 0);
    REQUIRE(truncate(file.path.c_str(), static_cast<off_t>(length)) == 0);
    const Captured captured = test::ReadAll(source.get());
    CHECK(captured.frames.size() == 2);
    CHECK(captured.problems == Lines{file.path + ":" + std::to_string(kHeader + 2 * kRecord) + kShorter});
  }
}

TEST_CASE("a file cut while it is read ends there, with a problem, and what was read stays good") {
  for (const size_t length : {size_t{0}, size_t{30'000}, kSize / 2, kHeader + 90 * kRecord, kSize - 1}) {
    CAPTURE(length);
    const TemporaryFile file(LongCapture());
    const auto source = capture::OpenFile(file.path, 0);
    const size_t before = test::ReadSome(source.get(), 2).frames.size();  // the first frame alone, and a batch
    REQUIRE(truncate(file.path.c_str(), static_cast<off_t>(length)) == 0);
    const Captured rest = test::ReadAll(source.get());
    const size_t read = before + rest.frames.size();
    CHECK(before < 50);
    CHECK(read >= std::max(before, length > kHeader ? WholeFrames(length) : 0));
    CHECK(read < kFrames);
    for (const test::CapturedFrame& frame : rest.frames) CHECK(frame.bytes.find('\0') == std::string::npos);
    CHECK(rest.problems == Lines{file.path + ":" + std::to_string(kHeader + read * kRecord) + kShorter});
  }
}

TEST_CASE("compressed data that become shorter are blamed on the file, not on the compression") {
  for (const std::string& packed : {test::Gzip(LongCapture(), 0), test::Zstd(LongCapture())}) {
    const TemporaryFile file(packed);
    const auto source = capture::OpenFile(file.path, 0);
    test::ReadSome(source.get(), 1);
    REQUIRE(truncate(file.path.c_str(), static_cast<off_t>(packed.size() / 2)) == 0);
    const Captured rest = test::ReadAll(source.get());
    REQUIRE(rest.problems.size() == 1);
    CHECK(rest.problems[0].ends_with(kShorter));
  }
}

TEST_CASE("a pcapng file that becomes shorter blames the cut, not its blocks") {
  test::PcapngWriter writer = test::PcapngWriter().Section().Interface();
  for (uint64_t i = 0; i < 1000; ++i) writer.Enhanced(0, i, std::string(68, 'x'));
  for (const off_t length : {off_t{48 + 5000}, off_t{48 + 5001}, off_t{8192}}) {
    const TemporaryFile file(writer.Bytes());
    const auto source = capture::OpenFile(file.path, 0);
    REQUIRE(truncate(file.path.c_str(), length) == 0);
    const Captured captured = test::ReadAll(source.get());
    CHECK(captured.frames.size() == static_cast<size_t>(length - 48) / 100);
    REQUIRE(captured.problems.size() == 1);
    CHECK(captured.problems[0].ends_with(kShorter));
  }
}

TEST_CASE("what a file grows by while it is read is left for the next time") {
  const TemporaryFile file(PcapWriter().Frame(0, "old").Bytes());
  const auto source = capture::OpenFile(file.path, 0);
  file.Write(PcapWriter().Frame(0, "old").Frame(1, "new").Bytes());
  const Captured captured = test::ReadAll(source.get());
  CHECK(captured.Bytes() == Lines{"old"});
  CHECK(captured.problems.empty());
}

TEST_CASE("progress counts the bytes of a file, to its end") {
  const TemporaryFile file(LongCapture());
  const auto source = capture::OpenFile(file.path, 0);
  CHECK(source->BytesTotal() == kSize);
  CHECK(source->BytesRead() == 0);
  test::ReadSome(source.get(), 2);
  CHECK(source->BytesRead() > 0);
  CHECK(source->BytesRead() < kSize);
  test::ReadAll(source.get());
  CHECK(source->BytesRead() == kSize);
  CHECK(source->BytesTotal() == kSize);
}
