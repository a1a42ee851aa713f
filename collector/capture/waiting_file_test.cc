#include "collector/capture/waiting_file.h"

#include <doctest/doctest.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "collector/capture/open.h"
#include "tests/support/captured.h"
#include "tests/support/compress.h"
#include "tests/support/pcap_writer.h"
#include "tests/support/temporary_file.h"

namespace {

using capture::Frame;
using capture::ReadState;
using capture::Source;
using capture::WaitingFile;
using test::Captured;
using test::PcapWriter;

using Lines = std::vector<std::string>;

std::unique_ptr<Source> Reader(const std::string& bytes) {
  return std::make_unique<capture::FileReader>("file", 0, std::make_unique<test::PiecewiseStream>(bytes));
}

// Opens each of these contents in turn, and the last one again and again. Counts the sources that are open.
class Contents {
 public:
  explicit Contents(Lines all) : contents(std::move(all)) {}

  std::unique_ptr<Source> Open() {
    const std::string bytes = contents.front();
    if (contents.size() > 1) contents.erase(contents.begin());
    ++opened;
    return Reader(bytes);
  }
  WaitingFile Waiting() {
    return {"file", 1000, [this] { return Open(); }};
  }

  int opened = 0;

 private:
  Lines contents;
};

std::string Capture(int frames) {
  PcapWriter writer;
  for (int i = 0; i < frames; ++i) writer.Frame(i * 1000, "frame " + std::to_string(i), 100);
  return writer.Bytes();
}

}  // namespace

TEST_CASE("a file that waited delivers what it would have delivered") {
  for (const int frames : {0, 1, 2, 64, 65, 200}) {
    Contents contents({Capture(frames)});
    WaitingFile file = contents.Waiting();
    const Captured captured = test::ReadAll(&file);
    CHECK(captured.frames == test::ReadAll(Reader(Capture(frames)).get()).frames);
    CHECK(captured.problems.empty());
  }
}

TEST_CASE("a file waits behind its first frame and is opened again for the second") {
  Contents contents({Capture(3)});
  WaitingFile file = contents.Waiting();
  std::span<const Frame> frames;
  CHECK(contents.opened == 0);
  REQUIRE(file.Read(&frames) == ReadState::kFrames);
  CHECK(frames.size() == 1);
  CHECK(contents.opened == 1);
  CHECK(test::Copy(frames[0]) == test::CapturedFrame{0, "frame 0", 100, 24, 0, 1});
  CHECK(file.BytesRead() == 0);
  CHECK(file.BytesTotal() == 1000);
  CHECK(file.Problems().empty());
  REQUIRE(file.Read(&frames) == ReadState::kFrames);
  CHECK(contents.opened == 2);
  CHECK(test::Copy(frames[0]).bytes == "frame 1");
}

TEST_CASE("a file that ends before its first frame keeps its problems") {
  Contents contents({"text"});
  WaitingFile file = contents.Waiting();
  CHECK(test::ReadAll(&file).problems.size() == 1);
  CHECK(contents.opened == 1);
}

TEST_CASE("a problem behind the first frame shows once") {
  const std::string whole = Capture(2);
  Contents contents({whole.substr(0, whole.size() - 1)});
  WaitingFile file = contents.Waiting();
  const Captured captured = test::ReadAll(&file);
  CHECK(captured.Bytes() == Lines{"frame 0"});
  CHECK(captured.problems == Lines{"file:47: the file is cut off in the middle of a record"});
}

TEST_CASE("a file that became another one while it waited ends with a problem") {
  const std::string others[] = {PcapWriter().Frame(5000, "frame 0").Bytes(), PcapWriter().Frame(0, "x").Bytes(),
                                Capture(0)};
  for (const std::string& other : others) {
    Contents contents({Capture(3), other});
    WaitingFile file = contents.Waiting();
    const Captured captured = test::ReadAll(&file);
    CHECK(captured.Bytes() == Lines{"frame 0"});
    CHECK(captured.problems == Lines{"file: the file was replaced while it waited for its turn"});
    std::span<const Frame> frames;
    CHECK(file.Read(&frames) == ReadState::kEnd);
  }
}

TEST_CASE("what became unreadable while it waited says so") {
  Contents contents({Capture(3), "text"});
  WaitingFile file = contents.Waiting();
  const Captured captured = test::ReadAll(&file);
  CHECK(captured.frames.size() == 1);
  CHECK(captured.problems.size() == 2);
}

TEST_CASE("a compressed file may lose its name, or be renamed over, while it waits") {
  const test::TemporaryFile file(test::Zstd(Capture(100)));
  const auto source = capture::OpenFile(file.path, 0);
  std::span<const Frame> frames;
  REQUIRE(source->Read(&frames) == ReadState::kFrames);
  REQUIRE(unlink(file.path.c_str()) == 0);
  file.Write("something else");
  const Captured rest = test::ReadAll(source.get());
  CHECK(rest.frames.size() == 99);
  CHECK(rest.problems.empty());
}
