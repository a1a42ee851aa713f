#include "collector/capture/mapped_file.h"

#include <doctest/doctest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "collector/capture/open.h"
#include "tests/support/captured.h"
#include "tests/support/pcap_writer.h"
#include "tests/support/temporary_file.h"

namespace {

using test::Captured;
using test::PcapWriter;
using test::TemporaryFile;

using Lines = std::vector<std::string>;

const auto kPage = static_cast<size_t>(sysconf(_SC_PAGESIZE));
constexpr size_t kHeader = 24;
constexpr size_t kRecord = 16;  // before each frame's bytes

// 1000 frames of 84 bytes: records of 100, some 25 pages.
std::string LongCapture() {
  PcapWriter writer;
  for (int i = 0; i < 1000; ++i)
    writer.Frame(1'000'000'000 + i * 1000, std::string(84, static_cast<char>('a' + i % 26)));
  return writer.Bytes();
}

// Reads a batch, cuts the file, and reads the rest. `*before` is how many frames the batch had.
Captured ReadWhileCut(size_t size_left, size_t* before) {
  const TemporaryFile file(LongCapture());
  const auto source = capture::OpenFile(file.path, 0);
  std::span<const capture::Frame> frames;
  REQUIRE(source->Read(&frames) == capture::ReadState::kFrames);
  *before = frames.size();
  REQUIRE(truncate(file.path.c_str(), static_cast<off_t>(size_left)) == 0);
  for (const capture::Frame& frame : frames) test::Copy(frame);  // what is lost reads as something
  return test::ReadAll(source.get());
}

size_t WholeFrames(size_t file_size) { return (file_size - kHeader) / 100; }

}  // namespace

TEST_CASE("a byte can be read behind the last frame of a file that ends with its page") {
  for (const size_t pages : {size_t{1}, size_t{2}, size_t{16}}) {
    const std::string frame(pages * kPage - kHeader - kRecord, 'x');
    const TemporaryFile file(PcapWriter().Frame(0, frame).Bytes());
    struct stat status {};
    REQUIRE(stat(file.path.c_str(), &status) == 0);
    REQUIRE(static_cast<size_t>(status.st_size) == pages * kPage);
    const Captured captured = test::ReadAll(capture::OpenFile(file.path, 0).get());  // reads it
    CHECK(captured.Bytes() == Lines{frame});
    CHECK(captured.problems.empty());
  }
}

TEST_CASE("the byte behind a mapped file belongs to nothing else") {
  const TemporaryFile file(std::string(kPage, 'x'));
  std::vector<std::unique_ptr<capture::MappedFile>> files;  // neighbours in memory
  for (int i = 0; i < 4; ++i) {
    files.push_back(capture::MappedFile::Map(open(file.path.c_str(), O_RDONLY | O_CLOEXEC), kPage));
    REQUIRE(files.back() != nullptr);
  }
  for (const auto& mapped : files) CHECK(mapped->Bytes().data()[kPage] == 0);
}

TEST_CASE("a page that cannot be read although the file has it ends the data") {
  const TemporaryFile file(std::string(4 * kPage, 'x'));
  const auto mapped = capture::MappedFile::Map(open(file.path.c_str(), O_RDONLY | O_CLOEXEC), 4 * kPage);
  REQUIRE(mapped != nullptr);
  CHECK_FALSE(mapped->Shrank());
  CHECK(mapped->Damage().empty());
  // Only for a moment: what is left looks as after a fault of the disk.
  REQUIRE(truncate(file.path.c_str(), static_cast<off_t>(kPage)) == 0);
  const volatile uint8_t lost = mapped->Bytes()[2 * kPage];
  CHECK(lost == 0);
  REQUIRE(truncate(file.path.c_str(), static_cast<off_t>(4 * kPage)) == 0);
  CHECK(mapped->Shrank());
  CHECK(mapped->Bytes().size() == 2 * kPage);
  CHECK(mapped->TrueEnd() == mapped->Bytes().data() + 2 * kPage);
  CHECK(mapped->Damage() == "the file cannot be read any further");
  CHECK_FALSE(mapped->Shrank());
}

TEST_CASE("a file cut while it is read ends there, with a problem") {
  const size_t lengths[] = {64 * 100 + kHeader, 7000, 2 * kPage, 2 * kPage + 1, 50'000, 99'999};
  for (const size_t length : lengths) {
    CAPTURE(length);
    size_t before = 0;
    const Captured rest = ReadWhileCut(length, &before);
    CHECK(before + rest.frames.size() == WholeFrames(length));
    for (const auto& frame : rest.frames) CHECK(frame.bytes.find('\0') == std::string::npos);
    REQUIRE(rest.problems.size() == 1);
    const size_t place = kHeader + WholeFrames(length) * 100;
    CHECK(rest.problems[0].find(":" + std::to_string(place) + ": the file became shorter while it was read") !=
          std::string::npos);
  }
}

TEST_CASE("a file cut before what was already delivered ends at once") {
  for (const size_t length : {size_t{0}, size_t{1}, size_t{24}, size_t{3000}}) {
    CAPTURE(length);
    size_t before = 0;
    const Captured rest = ReadWhileCut(length, &before);
    CHECK(rest.frames.empty());
    REQUIRE(rest.problems.size() == 1);
    CHECK(rest.problems[0].find("the file became shorter while it was read") != std::string::npos);
  }
}

TEST_CASE("a file cut before the first batch gives what is left") {
  const TemporaryFile file(LongCapture());
  const auto source = capture::OpenFile(file.path, 0);
  REQUIRE(truncate(file.path.c_str(), 1024) == 0);
  const Captured captured = test::ReadAll(source.get());
  CHECK(captured.frames.size() == 10);
  CHECK(captured.problems == Lines{file.path + ":1024: the file became shorter while it was read"});
}

TEST_CASE("a pcapng file cut while it is read blames the cut, not its blocks") {
  test::PcapngWriter writer = test::PcapngWriter().Section().Interface();
  for (uint64_t i = 0; i < 1000; ++i) writer.Enhanced(0, i, std::string(68, 'x'));
  for (const off_t length : {off_t{48 + 5000}, off_t{48 + 5001}, off_t{8192}}) {
    const TemporaryFile file(writer.Bytes());
    const auto source = capture::OpenFile(file.path, 0);
    REQUIRE(truncate(file.path.c_str(), length) == 0);
    const Captured captured = test::ReadAll(source.get());
    CHECK(captured.frames.size() == static_cast<size_t>(length - 48) / 100);
    REQUIRE(captured.problems.size() == 1);
    CHECK(captured.problems[0].find("the file became shorter while it was read") != std::string::npos);
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

TEST_CASE("progress counts the bytes of a mapped file") {
  const std::string bytes = LongCapture();
  const TemporaryFile file(bytes);
  const auto source = capture::OpenFile(file.path, 0);
  CHECK(source->BytesTotal() == bytes.size());
  CHECK(source->BytesRead() == 0);
  std::span<const capture::Frame> frames;
  source->Read(&frames);
  CHECK(source->BytesRead() == kHeader + frames.size() * 100);
  test::ReadAll(source.get());
  CHECK(source->BytesRead() == bytes.size());
  CHECK(source->BytesTotal() == bytes.size());
}
