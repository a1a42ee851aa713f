#include "util/hexdump.h"

#include <doctest/doctest.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/death.h"

using test::ChildResult;
using test::RunInChild;

namespace {

// What print_hexdump prints for `data`. A result other than that of the last putchar is told instead.
std::string Dump(const std::string& data, int len) {
  const ChildResult child = RunInChild([&data, len] {
    if (print_hexdump(data.data(), len) != '\n') fputs("(other result)", stdout);
  });
  return child.ExitCode() == 0 ? child.out : "(died)";
}

std::string Dump(const std::string& data) { return Dump(data, static_cast<int>(data.size())); }

struct LoggedLine {
  int level;
  std::string format;
  std::string text;
};
std::vector<LoggedLine> logged;

__attribute__((format(printf, 2, 3))) void Record(int level, const char* format, ...) {
  char text[1024];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  logged.push_back({level, format, text});
}

// The one line that _log_blob logs.
LoggedLine Logged(int level, const std::string& data, int len) {
  logged.clear();
  _log_blob(Record, level, reinterpret_cast<const unsigned char*>(data.data()), len);
  REQUIRE(logged.size() == 1);
  return logged[0];
}

const std::string kMallocFailed = "_log_blob: malloc failed. errno=" + std::to_string(ENOMEM);

}  // namespace

TEST_CASE("a dump of nothing is the size line and an empty line") { CHECK(Dump("") == "Packet size: 0 bytes\n\n"); }

TEST_CASE("a dump of a full row ends with an empty line") {
  CHECK(Dump("abcdefghijklmnop") ==
        "Packet size: 16 bytes\n"
        "61 62 63 64 65 66 67 68 69 6a 6b 6c 6d 6e 6f 70 abcdefghijklmnop\n"
        "\n");
}

TEST_CASE("a dump of two full rows shows each row's own text") {
  CHECK(Dump("0123456789abcdefABCDEFGHIJKLMNOP") ==
        "Packet size: 32 bytes\n"
        "30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 0123456789abcdef\n"
        "41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50 ABCDEFGHIJKLMNOP\n"
        "\n");
}

TEST_CASE("the last row of a dump is padded to the text column") {
  CHECK(Dump("abcdefghijklmnopq") ==
        "Packet size: 17 bytes\n"
        "61 62 63 64 65 66 67 68 69 6a 6b 6c 6d 6e 6f 70 abcdefghijklmnop\n"
        "71 " +
            std::string(45, ' ') + "q\n");
  CHECK(Dump("abcdefghijklmno") ==
        "Packet size: 15 bytes\n"
        "61 62 63 64 65 66 67 68 69 6a 6b 6c 6d 6e 6f    abcdefghijklmno\n");
}

TEST_CASE("a dump shows bytes outside printable ASCII as dots, and their hex digits in lower case") {
  CHECK(Dump(std::string("\x1f\x20\x7e\x7f\x00\xff\xab", 7)) ==
        "Packet size: 7 bytes\n"
        "1f 20 7e 7f 00 ff ab " +
            std::string(27, ' ') + ". ~....\n");
  CHECK(Dump(std::string("\x1f\x20\x7e\x7f\x00\xff\xab\x80 01234567", 17)).substr(22 + 48, 17) ==
        ". ~..... 0123456\n");
}

TEST_CASE("a dump of a negative length prints padding for its negative remainder, and no byte") {
  CHECK(Dump("abc", -3) == "Packet size: -3 bytes\n" + std::string(3 * 19, ' ') + "\n");
  CHECK(Dump("abc", -16) == "Packet size: -16 bytes\n\n");
}

TEST_CASE("a dump returns the result of its last putchar") {
  const ChildResult child = RunInChild([] {
    // Nothing can be written: an unbuffered stream tells with the character at hand.
    setvbuf(stdout, nullptr, _IONBF, 0);
    close(STDOUT_FILENO);
    _exit(print_hexdump("a", 1) == EOF ? 1 : 2);
  });
  CHECK(child.ExitCode() == 1);
}

TEST_CASE("a blob is logged as one line of lower-case hex at the level given") {
  const LoggedLine line = Logged(5, std::string("\x00\xab\x7f", 3), 3);
  CHECK(line.level == 5);
  CHECK(line.format == "%s");
  CHECK(line.text == "00ab7f");
  CHECK(Logged(2, "\x01", 1).level == 2);
}

TEST_CASE("every byte of a blob shows as two hex digits") {
  std::string bytes;
  std::string expected;
  for (int value = 0; value < 256; ++value) {
    char digits[3];
    snprintf(digits, sizeof digits, "%02x", static_cast<unsigned>(value));
    bytes.push_back(static_cast<char>(value));
    expected += digits;
  }
  CHECK(Logged(5, bytes, 256).text == expected);
}

TEST_CASE("an empty blob is logged as an empty text") {
  const LoggedLine line = Logged(3, "unread", 0);
  CHECK(line.level == 3);
  CHECK(line.format == "%s");
  CHECK(line.text.empty());
}

TEST_CASE("a blob of length -1 asks for more memory than there is, and says so") {
  const LoggedLine line = Logged(4, "", -1);
  CHECK(line.level == 4);
  CHECK(line.format == "_log_blob: malloc failed. errno=%d");
  CHECK(line.text == kMallocFailed);
}

TEST_CASE("the size of a blob's text is narrowed to 32 bits and widened with its sign") {
  CHECK(Logged(4, "", 0x40000000).text == kMallocFailed);  // 2^31 + 1 turns negative
  CHECK(Logged(4, "", INT_MAX).text == kMallocFailed);     // 2^32 - 1 turns into -1
  CHECK(Logged(4, "", INT_MIN).text.empty());              // -2^32 + 1 turns into 1
  CHECK(Logged(4, "", INT_MIN).format == "%s");
}
