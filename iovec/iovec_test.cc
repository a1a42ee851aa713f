#include "iovec/iovec.h"

#include <doctest/doctest.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <exception>
#include <string>
#include <type_traits>

#include "tests/support/death.h"

using test::ChildResult;
using test::FatalLine;
using test::RunInChild;

namespace {

const std::string kBytes = "\x01\x02\xfe\xff\x80";

// A view of all of `bytes`, which must outlive it, in the given mode.
IOVec ViewOf(const std::string& bytes, int mode) {
  const int length = static_cast<int>(bytes.size());
  IOVec view(bytes.data(), length, length);
  view.underflow_mode = mode;
  return view;
}

// What `n` bytes of destination hold after a read into them.
std::string Read(const IOVec& view, uint64_t off, size_t n) {
  std::string destination(n, '#');
  view.GetBytes(destination.data(), off, n);
  return destination;
}

}  // namespace

TEST_CASE("the underflow modes have fixed values") {
  CHECK(static_cast<int>(IOVec::ABORT) == 0);
  CHECK(static_cast<int>(IOVec::THROW) == 1);
  CHECK(static_cast<int>(IOVec::FLAG) == 2);
  CHECK(std::is_same_v<decltype(IOVec::underflow_mode), int>);
}

TEST_CASE("a new view knows both lengths, aborts on underflow and is ok") {
  const IOVec view(kBytes.data(), 3, 5);
  CHECK(view.GetLength() == 3);
  CHECK(view.nominal_len == 5);
  CHECK(view.buffer.data == kBytes.data());
  CHECK(view.underflow_mode == IOVec::ABORT);
  CHECK(view.ok);
}

TEST_CASE("a view may be empty, and as long as its message") {
  CHECK(IOVec(kBytes.data(), 0, 0).GetLength() == 0);
  CHECK(IOVec(kBytes.data(), 5, 5).GetLength() == 5);
}

TEST_CASE("a view longer than its message is fatal") {
  const std::string line = "{ERROR}-iovec.h:82: failed condition: nomlen >= len\n";
  CHECK(FatalLine([] { IOVec(kBytes.data(), 5, 4); }) == line);
  CHECK(FatalLine([] { IOVec(kBytes.data(), 0, -1); }) == line);
  CHECK(FatalLine([] { IOVec(kBytes.data(), -1, -2); }) == line);  // tested before the sign
}

TEST_CASE("a view of negative length is fatal") {
  const std::string line = "{ERROR}-iovec.h:83: failed condition: len >= 0\n";
  CHECK(FatalLine([] { IOVec(kBytes.data(), -1, 5); }) == line);
  CHECK(FatalLine([] { IOVec(kBytes.data(), -1, -1); }) == line);
  CHECK(FatalLine([] { IOVec(kBytes.data(), INT_MIN, INT_MAX); }) == line);
}

TEST_CASE("reads inside the captured bytes copy them") {
  const IOVec view = ViewOf(kBytes, IOVec::ABORT);
  for (size_t off = 0; off <= kBytes.size(); ++off) {
    for (size_t n = 0; off + n <= kBytes.size(); ++n) CHECK(Read(view, off, n) == kBytes.substr(off, n));
  }
}

TEST_CASE("numbers are read big-endian, without a sign") {
  const IOVec view = ViewOf(kBytes, IOVec::ABORT);
  CHECK(view.GetBE16(0) == 0x0102);
  CHECK(view.GetBE16(3) == 0xff80);
  CHECK(view.GetBE32(0) == 0x0102feff);
  CHECK(view.GetBE32(1) == 0x02feff80);
}

TEST_CASE("a read that ends at the captured length succeeds, one byte further fails") {
  const IOVec view = ViewOf(kBytes, IOVec::FLAG);
  CHECK(view.GetBE32(1) == 0x02feff80);
  CHECK(view.ok);
  CHECK(view.GetBE32(2) == 0xaaaaaaaa);
  CHECK_FALSE(view.ok);
}

TEST_CASE("what was not captured cannot be read though the message is longer") {
  IOVec view(kBytes.data(), 3, 5);
  view.underflow_mode = IOVec::FLAG;
  CHECK(Read(view, 0, 3) == kBytes.substr(0, 3));
  CHECK(view.ok);
  Read(view, 3, 1);
  CHECK_FALSE(view.ok);
}

TEST_CASE("a read of no bytes succeeds at the end and fails behind it") {
  const IOVec view = ViewOf(kBytes, IOVec::FLAG);
  Read(view, 5, 0);
  CHECK(view.ok);
  Read(view, 6, 0);
  CHECK_FALSE(view.ok);
}

TEST_CASE("a failed read fills the whole destination with 0xaa and copies nothing") {
  const IOVec view = ViewOf(kBytes, IOVec::FLAG);
  CHECK(Read(view, 3, 4) == "\xaa\xaa\xaa\xaa");
  CHECK(Read(view, 100, 3) == "\xaa\xaa\xaa");
  CHECK(view.GetBE16(4) == 0xaaaa);
  CHECK(view.GetBE32(4) == 0xaaaaaaaa);
}

TEST_CASE("a failed read touches nothing behind the destination") {
  const IOVec view = ViewOf(kBytes, IOVec::FLAG);
  std::string destination(6, '#');
  view.GetBytes(destination.data() + 1, 4, 4);
  CHECK(destination == "#\xaa\xaa\xaa\xaa#");
}

TEST_CASE("the flag stays down until the owner puts it up again, through a const view too") {
  const IOVec view = ViewOf(kBytes, IOVec::FLAG);
  CHECK(view.GetBE16(4) == 0xaaaa);
  CHECK(view.GetBE16(0) == 0x0102);
  CHECK_FALSE(view.ok);
  view.ok = true;
  CHECK(view.GetBE16(0) == 0x0102);
  CHECK(view.ok);
}

TEST_CASE("a read past the end in ABORT mode is fatal") {
  CHECK(FatalLine([] { ViewOf(kBytes, IOVec::ABORT).GetBE16(4); }) ==
        "{ERROR}-iovec.h:162: should not be reached\n");
}

TEST_CASE("a read past the end in a mode there is not is fatal") {
  const std::string line = "{ERROR}-iovec.h:165: should not be reached\n";
  CHECK(FatalLine([] { ViewOf(kBytes, 3).GetBE16(4); }) == line);
  CHECK(FatalLine([] { ViewOf(kBytes, -1).GetBE16(4); }) == line);
}

TEST_CASE("a mode there is not does no harm while reads succeed") { CHECK(ViewOf(kBytes, 3).GetBE16(0) == 0x0102); }

TEST_CASE("a read past the end in THROW mode throws by value, with the destination filled") {
  const IOVec view = ViewOf(kBytes, IOVec::THROW);
  std::string destination(3, '#');
  CHECK_THROWS_AS(view.GetBytes(destination.data(), 4, 3), BaseIOVec<FlatBuffer>::UnderflowException);
  CHECK(destination == "\xaa\xaa\xaa");
  CHECK_THROWS_AS(view.GetBE16(4), IOVec::UnderflowException);
  CHECK_THROWS_AS(view.GetBE32(2), IOVec::UnderflowException);
  CHECK(view.ok);
}

TEST_CASE("the thrown object is empty and has no base") {
  CHECK(std::is_empty_v<IOVec::UnderflowException>);
  CHECK_FALSE(std::is_base_of_v<std::exception, IOVec::UnderflowException>);
  CHECK_FALSE(std::is_polymorphic_v<IOVec::UnderflowException>);
}

TEST_CASE("the destination is filled before ABORT mode ends the process") {
  const ChildResult child = RunInChild([] {
    static unsigned char destination[2] = {1, 2};
    signal(SIGABRT, [](int) { _exit(destination[0] == 0xaa && destination[1] == 0xaa ? 7 : 8); });
    ViewOf(kBytes, IOVec::ABORT).GetBytes(destination, 4, 2);
  });
  CHECK(child.ExitCode() == 7);
}

TEST_CASE("offset and count are summed without a guard against wrapping") {
  // A view that starts inside a buffer: an offset of -1 then names the byte in front of it.
  IOVec view(kBytes.data() + 2, 3, 3);
  view.underflow_mode = IOVec::FLAG;
  CHECK(Read(view, UINT64_MAX, 2) == kBytes.substr(1, 2));
  CHECK(view.ok);
  CHECK(view.GetBE16(UINT64_MAX) == 0x02fe);
  CHECK(view.GetBE32(UINT64_MAX) == 0x02feff80);
  CHECK(view.ok);
  Read(view, UINT64_MAX - 1, 1);  // -1 in all: a very large sum
  CHECK_FALSE(view.ok);
}
