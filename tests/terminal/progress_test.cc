// The bar that reading a capture shows on a terminal.

#include <doctest/doctest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "tests/support/pcap_writer.h"
#include "tests/support/temporary_file.h"
#include "tests/terminal/tmux.h"

namespace test {
namespace {

// A capture that comes through a pipe, as fast as the test wants.
class SlowCapture {
 public:
  SlowCapture() {
    unlink(file.path.c_str());
    REQUIRE(mkfifo(file.path.c_str(), 0600) == 0);
    fd = open(file.path.c_str(), O_RDWR | O_CLOEXEC);  // opened for both, it waits for nobody
    const std::string header = PcapWriter(PcapSettings{}).Bytes();
    PcapWriter writer{PcapSettings{}};
    writer.Frame(1700000000LL * 1000000000, std::string(60, '\0'));
    frame = writer.Bytes().substr(header.size());
    Put(header);
  }
  ~SlowCapture() { End(); }
  SlowCapture(const SlowCapture&) = delete;
  SlowCapture& operator=(const SlowCapture&) = delete;

  // The program looks around when something comes.
  bool Shown(const Tmux& terminal) const {
    return WaitFor([&] {
      Put(frame);
      return terminal.Shows("packets/s");
    });
  }

  void End() {
    if (fd >= 0) close(fd);
    fd = -1;
  }

  TemporaryFile file;

 private:
  void Put(const std::string& bytes) const {
    REQUIRE(write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
  }

  std::string frame;
  int fd = -1;
};

std::string Command(const SlowCapture& capture) {
  return "clear; " DNSPAIR_PROGRAM " summary -o /dev/null " + capture.file.path;
}

}  // namespace

TEST_CASE("the bar is there while a capture is read, and gone with the account behind it") {
  if (!Tmux::Available()) return;
  Tmux terminal;
  SlowCapture capture;
  terminal.Enter(Command(capture));
  CHECK(capture.Shown(terminal));
  CHECK_FALSE(terminal.Shows("exchanges  0"));
  capture.End();
  CHECK(terminal.WaitForText("exchanges  0"));
  CHECK_FALSE(terminal.Shows("packets/s"));
  CHECK(terminal.Damage() == "");
}

TEST_CASE("the bar is gone too when the run is interrupted") {
  if (!Tmux::Available()) return;
  Tmux terminal;
  const SlowCapture capture;
  terminal.Enter(Command(capture));
  CHECK(capture.Shown(terminal));
  terminal.Press("C-c");
  CHECK(terminal.WaitForText("exchanges  0"));
  CHECK_FALSE(terminal.Shows("packets/s"));
  CHECK(terminal.Damage() == "");
}

}  // namespace test
