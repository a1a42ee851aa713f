#include <doctest/doctest.h>

#include <string>

#include "dns-parser/dns_parser.h"
#include "tests/support/death.h"
#include "tests/support/decoding.h"
#include "tests/support/dns_builder.h"

using namespace test;

// Character strings (RFC 1035 3.3), as DNSParser::GetString reads them.

namespace {

constexpr int kStart = 12;

std::string MessageOf(const std::string& bytes) { return Query(7).Bytes(bytes).Wire(); }

}  // namespace

TEST_CASE("a character string is its bytes without the length, and replaces what was there") {
  QuietBench bench(5);
  const std::string message = MessageOf(CharacterString("hello") + "rest");
  CHECK(StringAt(bench, message, kStart) == Decoded{kDecoded, 18, "hello"});
  CHECK(Log(bench.host).empty());
}

TEST_CASE("an empty character string is read, at the very end too") {
  const QuietBench bench;
  CHECK(StringAt(bench, MessageOf(CharacterString("") + "rest"), kStart) == Decoded{kDecoded, 13, ""});
  CHECK(StringAt(bench, MessageOf(CharacterString("")), kStart) == Decoded{kDecoded, 13, ""});
}

TEST_CASE("a character string has up to 255 bytes and no types") {
  const QuietBench bench;
  for (const size_t length : {63U, 64U, 65U, 127U, 128U, 192U, 255U}) {
    CAPTURE(length);
    const std::string text(length, 'x');
    const int end = kStart + 1 + static_cast<int>(length);
    CHECK(StringAt(bench, MessageOf(CharacterString(text)), kStart) == Decoded{kDecoded, end, text});
  }
}

TEST_CASE("the bytes of a character string come back unchanged, whatever they are") {
  const QuietBench bench;
  std::string text;
  for (int byte = 0; byte < 255; ++byte) text += static_cast<char>(byte);
  CHECK(StringAt(bench, MessageOf(CharacterString(text)), kStart) == Decoded{kDecoded, 268, text});
  CHECK(StringAt(bench, MessageOf(CharacterString("\xff")), kStart) == Decoded{kDecoded, 14, "\xff"});
}

TEST_CASE("a character string that starts behind the captured bytes has run out, which is logged") {
  QuietBench bench;
  CHECK(StringAt(bench, MessageOf(""), 12) == Decoded{kRanOut, 13, "left over"});
  CHECK(StringAt(bench, MessageOf(""), 5000) == Decoded{kRanOut, 5001, "left over"});
  CHECK(Log(bench.host) == StringRanOut(13, 12) + StringRanOut(5001, 12));
}

TEST_CASE("a character string that runs past the captured bytes has run out silently") {
  QuietBench bench(5);
  const Decoded decoded = StringAt(bench, MessageOf("\5hell"), kStart);
  CHECK(decoded.result == kRanOut);
  CHECK(decoded.offset == 13);
  CHECK(decoded.text.size() == 5);
  CHECK(Log(bench.host).empty());
}

TEST_CASE("each prefix of a character string has run out, the whole has not") {
  const std::string message = MessageOf(CharacterString("hello"));
  for (size_t length = 0; length < message.size(); ++length) {
    CAPTURE(length);
    QuietBench bench;
    const Decoded decoded = StringAt(bench, Prefix(message, length), kStart);
    CHECK(decoded.result == kRanOut);
    CHECK(decoded.offset == 13);
    CHECK(Log(bench.host) == (length <= 12 ? StringRanOut(13, length) : ""));
  }
  const QuietBench bench;
  CHECK(StringAt(bench, message, kStart) == Decoded{kDecoded, 18, "hello"});
}

TEST_CASE("a character string is not read through a view that has failed before") {
  QuietBench bench;
  const std::string message = MessageOf(CharacterString("hello"));
  const IOVec view = View(message);
  view.ok = false;
  CHECK(StringAt(bench, view, kStart) == Decoded{kRanOut, 13, "left over"});
  CHECK(Log(bench.host) == StringRanOut(13, message.size()));
}

TEST_CASE("a character string that runs out takes the view's flag down") {
  const QuietBench bench;
  const std::string message = MessageOf("\5hell");
  const IOVec view = View(message);
  CHECK(StringAt(bench, view, kStart).result == kRanOut);
  CHECK_FALSE(view.ok);
}

TEST_CASE("in throwing mode a character string that runs out throws through the decoder") {
  QuietBench bench;
  for (const std::string bytes : {"", "\5hell"}) {
    const std::string message = MessageOf(bytes);
    IOVec view = View(message);
    view.underflow_mode = IOVec::THROW;
    CHECK_THROWS_AS(StringAt(bench, view, kStart), const IOVec::UnderflowException&);
  }
  CHECK(Log(bench.host).empty());
}

TEST_CASE("in aborting mode a character string that runs out is fatal") {
  const std::string message = MessageOf("\5hell");
  CHECK(FatalLine([&] {
          const QuietBench bench;
          IOVec view = View(message);
          view.underflow_mode = IOVec::ABORT;
          StringAt(bench, view, kStart);
        }) == "{ERROR}-iovec.h:162: should not be reached\n");
}

TEST_CASE("the message about character strings has level 4 and asks for no debug switch") {
  for (const int level : {-1, 3, 4, 5}) {
    CAPTURE(level);
    QuietBench bench(level);
    bench.host.debug_enabled = false;
    StringAt(bench, MessageOf(""), kStart);
    CHECK(Log(bench.host) == (level >= 4 ? StringRanOut(13, 12) : ""));
    CHECK(bench.host.debug_files.empty());
  }
}
