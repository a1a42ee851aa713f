#include <doctest/doctest.h>

#include <array>
#include <string>

#include "dns-parser/dns_parser.h"
#include "tests/support/death.h"
#include "tests/support/decoding.h"
#include "tests/support/dns_builder.h"

using namespace test;

// Names without compression: what they read as, and what is said when they cannot be read. Pointers are in
// names_pointers_test.cc.

namespace {

constexpr int kStart = 12;  // behind the header
const std::string kUnknownLabel = "GetName unknown length-high-bit mask: 0x%02x";

// A message that holds a name and nothing else.
std::string MessageOf(const Name& name) { return Query(7).Bytes(name.Wire()).Wire(); }

// The text of a name that can be read, having checked that it was read to its end without a word.
std::string TextOf(const Name& name) {
  QuietBench bench(5);
  const std::string message = MessageOf(name);
  const Decoded decoded = NameAt(bench, message, kStart);
  CHECK(decoded.result == kDecoded);
  CHECK(decoded.offset == static_cast<int>(message.size()));
  CHECK(Log(bench.host).empty());
  CHECK(bench.host.debug_files.empty());
  return decoded.text;
}

}  // namespace

TEST_CASE("the decoders' results have fixed values") {
  CHECK(kDecoded == 0);
  CHECK(kMalformed == 1);
  CHECK(kRanOut == 2);
}

TEST_CASE("the root is an empty name one byte long") {
  const QuietBench bench;
  const std::string message = MessageOf(".");
  REQUIRE(message.size() == 13);
  CHECK(NameAt(bench, message, 12) == Decoded{kDecoded, 13, ""});
}

TEST_CASE("labels are joined by single dots, without one at the end") {
  CHECK(TextOf("aa") == "aa");
  CHECK(TextOf("aa.bb.cc") == "aa.bb.cc");
  CHECK(TextOf("a.bb.ccc.dddd.e") == "a.bb.ccc.dddd.e");
}

TEST_CASE("a label has up to 63 bytes") {
  const std::string longest(63, 'x');
  CHECK(TextOf(longest) == longest);
  CHECK(TextOf(longest + ".y." + longest) == longest + ".y." + longest);
}

TEST_CASE("a name may be longer than 255 bytes") {
  std::string text = "first";
  for (int i = 0; i < 100; ++i) text += ".label" + std::to_string(i);
  CHECK(TextOf(text) == text);
}

TEST_CASE("label bytes come back unchanged, whatever they are") {
  Name name;
  std::string text;
  for (int byte = 0; byte < 256; byte += 32) {
    std::string label;
    for (int i = 0; i < 32; ++i) label += static_cast<char>(byte + i);
    name.labels.push_back(label);
    text += (text.empty() ? "" : ".") + label;
  }
  CHECK(TextOf(name) == text);
}

TEST_CASE("capitals stay capitals, and a dot or a zero byte inside a label is not escaped") {
  CHECK(TextOf("Ab.cD") == "Ab.cD");
  CHECK(TextOf("a\\.b.c") == "a.b.c");
  CHECK(TextOf("a\\..\\.\\..b") == "a.....b");
  CHECK(TextOf("a\\000b") == std::string("a\0b", 3));
  CHECK(TextOf("a\\\\b.c d") == "a\\b.c d");
}

TEST_CASE("a name is read where the offset stands, and the offset ends right behind it") {
  const QuietBench bench;
  const std::string message = Query(7).Question("aa.bb", kA).Bytes(Name("cc").Wire()).Bytes("rest").Wire();
  CHECK(NameAt(bench, message, 12) == Decoded{kDecoded, 19, "aa.bb"});
  CHECK(NameAt(bench, message, 15) == Decoded{kDecoded, 19, "bb"});
  CHECK(NameAt(bench, message, 23) == Decoded{kDecoded, 27, "cc"});
}

TEST_CASE("a name may start in the header") {
  const QuietBench bench;
  CHECK(NameAt(bench, Query(0x0161).Flags(0).Wire(), 0) == Decoded{kDecoded, 3, "a"});
}

TEST_CASE("a name without pointers is read at any depth") {
  const QuietBench bench;
  CHECK(NameAt(bench, MessageOf("aa"), 12, 100) == Decoded{kDecoded, 16, "aa"});
}

TEST_CASE("a reserved label type is malformed, and its two bits are shown") {
  for (int byte = 0x40; byte < 0xc0; ++byte) {
    CAPTURE(byte);
    QuietBench bench;
    const std::string message = MessageOf(RawName(U8(static_cast<unsigned>(byte)) + std::string(255, 'x')));
    CHECK(NameAt(bench, message, kStart) == Decoded{kMalformed, 13, ""});
    const std::string mask = byte < 0x80 ? "0x40" : "0x80";
    CHECK(Log(bench.host) == Dropped(kUnknownLabel, "GetName unknown length-high-bit mask: " + mask));
  }
}

TEST_CASE("a reserved label type behind a label leaves the dot, on purpose") {
  QuietBench bench;
  Name name("aa.bb");
  name.ending = "\x41";
  CHECK(NameAt(bench, MessageOf(name), kStart) == Decoded{kMalformed, 19, "aa.bb."});
  CHECK(Log(bench.host) == Dropped(kUnknownLabel, "GetName unknown length-high-bit mask: 0x40"));
}

TEST_CASE("a name that starts behind the captured bytes has run out") {
  QuietBench bench;
  const std::string message = Query(7).Wire();
  CHECK(NameAt(bench, message, 12) == Decoded{kRanOut, 13, ""});
  CHECK(NameAt(bench, message, 5000) == Decoded{kRanOut, 5001, ""});
  CHECK(Log(bench.host) == NameRanOut(13, 12) + NameRanOut(5001, 12));
}

TEST_CASE("a label that runs past the captured bytes has run out at its first byte") {
  QuietBench bench;
  const std::string message = MessageOf(RawName("\2aa\77bb"));
  const Decoded decoded = NameAt(bench, message, kStart);
  CHECK(decoded.result == kRanOut);
  CHECK(decoded.offset == 16);
  CHECK(decoded.text.substr(0, 3) == "aa.");
  CHECK(Log(bench.host) == LabelRanOut(63, 16, 18));
}

TEST_CASE("a label is read whole when it ends with the captured bytes, the end of the name is not") {
  QuietBench bench;
  CHECK(NameAt(bench, MessageOf(RawName("\2aa")), kStart) == Decoded{kRanOut, 16, "aa"});
  CHECK(Log(bench.host) == NameRanOut(16, 15));
}

TEST_CASE("the labels before a missing end come back unchanged too") {
  const QuietBench bench;
  CHECK(NameAt(bench, MessageOf(RawName("\2Aa\2B.\1c")), kStart) == Decoded{kRanOut, 21, "Aa.B..c"});
  CHECK(NameAt(bench, MessageOf(RawName("\2B.")), kStart) == Decoded{kRanOut, 16, "B."});
  CHECK(NameAt(bench, MessageOf(RawName("\2B.\2C.\x41")), kStart) == Decoded{kMalformed, 19, "B..C.."});
}

TEST_CASE("each prefix of a name says where it ran out") {
  struct Row {
    int offset;
    std::string log;
    std::string text;  // as far as it is promised
  };
  const std::array kRows = {
      Row{13, NameRanOut(13, 12), ""},        Row{13, LabelRanOut(2, 13, 13), ""},
      Row{13, LabelRanOut(2, 13, 14), ""},    Row{16, NameRanOut(16, 15), "aa"},
      Row{16, LabelRanOut(2, 16, 16), "aa."}, Row{16, LabelRanOut(2, 16, 17), "aa."},
      Row{19, NameRanOut(19, 18), "aa.bb"},
  };
  const std::string message = MessageOf("aa.bb");
  for (size_t length = 0; length < 12; ++length) {
    QuietBench bench;
    CHECK(NameAt(bench, Prefix(message, length), kStart) == Decoded{kRanOut, 13, ""});
    CHECK(Log(bench.host) == NameRanOut(13, length));
  }
  for (size_t i = 0; i < kRows.size(); ++i) {
    CAPTURE(i);
    QuietBench bench;
    const Decoded decoded = NameAt(bench, Prefix(message, 12 + i), kStart);
    CHECK(decoded.result == kRanOut);
    CHECK(decoded.offset == kRows[i].offset);
    CHECK(decoded.text.substr(0, kRows[i].text.size()) == kRows[i].text);
    CHECK(Log(bench.host) == kRows[i].log);
  }
  const QuietBench bench;
  CHECK(NameAt(bench, message, kStart) == Decoded{kDecoded, static_cast<int>(message.size()), "aa.bb"});
}

TEST_CASE("what was not captured of a longer message cannot be read") {
  QuietBench bench;
  const std::string message = MessageOf("aa.bb");
  IOVec view(message.data(), 17, static_cast<int>(message.size()));
  view.underflow_mode = IOVec::FLAG;
  CHECK(NameAt(bench, view, kStart).result == kRanOut);
  CHECK(Log(bench.host) == LabelRanOut(2, 16, 17));
}

TEST_CASE("a name is not read through a view that has failed before") {
  QuietBench bench;
  const std::string message = MessageOf("aa.bb");
  const IOVec view = View(message);
  view.ok = false;
  CHECK(NameAt(bench, view, kStart) == Decoded{kRanOut, 13, ""});
  CHECK(Log(bench.host) == NameRanOut(13, message.size()));
  CHECK_FALSE(view.ok);
}

TEST_CASE("a name that runs out takes the view's flag down, a malformed one leaves it up") {
  const QuietBench bench;
  const std::string cut = MessageOf(RawName("\2a"));
  const IOVec cut_view = View(cut);
  CHECK(NameAt(bench, cut_view, kStart).result == kRanOut);
  CHECK_FALSE(cut_view.ok);
  const std::string malformed = MessageOf(RawName("\x41"));
  const IOVec malformed_view = View(malformed);
  CHECK(NameAt(bench, malformed_view, kStart).result == kMalformed);
  CHECK(malformed_view.ok);
}

TEST_CASE("in throwing mode a name that runs out throws through the decoder, without a message") {
  QuietBench bench;
  const std::string message = MessageOf("aa.bb");
  for (size_t length = 12; length < message.size(); ++length) {
    const std::string prefix = Prefix(message, length);
    IOVec view = View(prefix);
    view.underflow_mode = IOVec::THROW;
    CHECK_THROWS_AS(NameAt(bench, view, kStart), const IOVec::UnderflowException&);
  }
  IOVec view = View(message);
  view.underflow_mode = IOVec::THROW;
  CHECK(NameAt(bench, view, kStart) == Decoded{kDecoded, 19, "aa.bb"});
  CHECK(Log(bench.host).empty());
}

TEST_CASE("in aborting mode a name that runs out is fatal") {
  const std::string message = MessageOf(RawName("\2a"));
  CHECK(FatalLine([&] {
          const QuietBench bench;
          IOVec view = View(message);
          view.underflow_mode = IOVec::ABORT;
          NameAt(bench, view, kStart);
        }) == "{ERROR}-iovec.h:162: should not be reached\n");
}

TEST_CASE("messages about names have level 4 and ask for no debug switch") {
  const std::array kBroken = {RawName(""), RawName("\2a"), RawName("\x41"), RawName("\x81")};
  for (const Name& name : kBroken) {
    for (const int level : {-1, 0, 3, 4, 5, 100}) {
      CAPTURE(level);
      QuietBench bench(level);
      bench.host.debug_enabled = false;
      NameAt(bench, MessageOf(name), kStart);
      CHECK(bench.host.Texts(4).size() == (level >= 4 ? 1 : 0));
      CHECK(bench.host.lines.size() == bench.host.Texts(4).size());
      CHECK(bench.host.debug_files.empty());
    }
  }
}
