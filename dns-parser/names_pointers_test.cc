#include <doctest/doctest.h>

#include <array>
#include <string>

#include "dns-parser/dns_parser.h"
#include "tests/support/decoding.h"
#include "tests/support/dns_builder.h"

using namespace test;

// Compressed names (RFC 1035 4.1.4): what pointers are followed, and what is said of those that are not.

namespace {

const std::string kTooDeep = Dropped("GetName recursion limit reached", "GetName recursion limit reached");
const std::string kLoop = Dropped("GetName compression pointer loop", "GetName compression pointer loop");
const std::string kIntoHeader =
    Dropped("GetName compression pointer within header region", "GetName compression pointer within header region");

// A chain whose pointers lie from 12 on, each to the one behind it, the last to `end`.
Message ForwardChain(int pointers, const std::string& end) {
  Message message = Query(7);
  for (int i = 0; i < pointers; ++i) message.Bytes(Pointer(message.Here() + 2).Wire());
  return message.Bytes(end);
}

}  // namespace

TEST_CASE("labels that end in a pointer are joined to the name it points to") {
  QuietBench bench;
  Message message = Query(7).Bytes(Name("bb.cc").Wire());
  const int start = static_cast<int>(message.Here());
  message.Bytes(Pointer(12, "mx").Wire()).Bytes("rest");
  CHECK(NameAt(bench, message.Wire(), start) == Decoded{kDecoded, start + 5, "mx.bb.cc"});
  CHECK(Log(bench.host).empty());
}

TEST_CASE("a name that is a pointer alone has no dot in front") {
  const QuietBench bench;
  const std::string message = Query(7).Bytes(Name("bb.cc").Wire()).Bytes(Pointer(12).Wire()).Bytes("rest").Wire();
  CHECK(NameAt(bench, message, 19) == Decoded{kDecoded, 21, "bb.cc"});
}

TEST_CASE("a pointer may lead into the middle of a name, and to a name that ends in a pointer") {
  const QuietBench bench;
  const std::string message = Query(7)
                                  .Bytes(Name("aa.bb.cc").Wire())   // 12
                                  .Bytes(Pointer(15, "dd").Wire())  // 22: dd.bb.cc
                                  .Bytes(Pointer(22, "ee").Wire())  // 27: ee.dd.bb.cc
                                  .Wire();
  CHECK(NameAt(bench, message, 22) == Decoded{kDecoded, 27, "dd.bb.cc"});
  CHECK(NameAt(bench, message, 27) == Decoded{kDecoded, 32, "ee.dd.bb.cc"});
}

TEST_CASE("labels that end in a pointer to the root keep the dot") {
  const QuietBench bench;
  const std::string message = Query(7)
                                  .Bytes(Name(".").Wire())             // 12
                                  .Bytes(Pointer(12, "mx").Wire())     // 13: mx.
                                  .Bytes(Pointer(13, "aa.bb").Wire())  // 18: aa.bb.mx.
                                  .Bytes(Pointer(12).Wire())           // 26: the root
                                  .Wire();
  CHECK(NameAt(bench, message, 13) == Decoded{kDecoded, 18, "mx."});
  CHECK(NameAt(bench, message, 18) == Decoded{kDecoded, 26, "aa.bb.mx."});
  CHECK(NameAt(bench, message, 26) == Decoded{kDecoded, 28, ""});
}

TEST_CASE("there is one dot between labels and pointers, however many pointers there are") {
  const QuietBench bench;
  const std::string message = Query(7)
                                  .Bytes(Name("aa.bb").Wire())        // 12
                                  .Bytes(Pointer(12).Wire())          // 19
                                  .Bytes(Pointer(19).Wire())          // 21
                                  .Bytes(Pointer(21, "cc").Wire())    // 23: cc.aa.bb
                                  .Bytes(Pointer(23, "d\\.").Wire())  // 28: the dot in the label is no joining dot
                                  .Wire();
  CHECK(NameAt(bench, message, 23) == Decoded{kDecoded, 28, "cc.aa.bb"});
  CHECK(NameAt(bench, message, 28) == Decoded{kDecoded, 33, "d..cc.aa.bb"});
}

TEST_CASE("a pointer ends its name, whatever follows it") {
  const QuietBench bench;
  const std::string message =
      Query(7).Bytes(Name("aa").Wire()).Bytes(Pointer(12, "bb").Wire()).Bytes(Name("cc").Wire()).Wire();
  CHECK(NameAt(bench, message, 16) == Decoded{kDecoded, 21, "bb.aa"});
}

TEST_CASE("a pointer forward is followed") {
  const QuietBench bench;
  const std::string message = Query(7).Bytes(Pointer(20, "mx").Wire()).Bytes("...").Bytes(Name("bb").Wire()).Wire();
  CHECK(NameAt(bench, message, 12) == Decoded{kDecoded, 17, "mx.bb"});
}

TEST_CASE("all fourteen low bits of a pointer are its target, and no more") {
  const QuietBench bench;
  for (const unsigned target : {0x0010U, 0x0020U, 0x0040U, 0x0080U, 0x0100U, 0x0200U, 0x0400U, 0x0800U, 0x1000U,
                                0x2000U, 0x3ff8U, 0x3fffU}) {
    CAPTURE(target);
    Message message = Query(7).Bytes(Pointer(target).Wire());
    message.Bytes(std::string(target - message.Here(), '\0')).Bytes(Name("aa").Wire());
    CHECK(NameAt(bench, message.Wire(), 12) == Decoded{kDecoded, 14, "aa"});
  }
}

TEST_CASE("a chain of sixteen pointers is followed") {
  QuietBench bench;
  CHECK(NameAt(bench, PointerChain(16).Wire(), 16 + 2 * 15) == Decoded{kDecoded, 48, "aa"});
  CHECK(NameAt(bench, ForwardChain(16, Name("aa").Wire()).Wire(), 12) == Decoded{kDecoded, 14, "aa"});
  CHECK(Log(bench.host).empty());
}

TEST_CASE("the seventeenth pointer of a chain is malformed") {
  QuietBench bench;
  CHECK(NameAt(bench, PointerChain(17).Wire(), 16 + 2 * 16) == Decoded{kMalformed, 49, ""});
  CHECK(NameAt(bench, ForwardChain(17, Name("aa").Wire()).Wire(), 12) == Decoded{kMalformed, 13, ""});
  CHECK(Log(bench.host) == kTooDeep + kTooDeep);
}

TEST_CASE("the depth counts the pointers followed before") {
  QuietBench bench;
  const std::string message = PointerChain(2).Wire();
  CHECK(NameAt(bench, message, 16, 15) == Decoded{kDecoded, 18, "aa"});
  CHECK(NameAt(bench, message, 18, 14) == Decoded{kDecoded, 20, "aa"});
  CHECK(Log(bench.host).empty());
  CHECK(NameAt(bench, message, 16, 16) == Decoded{kMalformed, 17, ""});
  CHECK(NameAt(bench, message, 18, 15) == Decoded{kMalformed, 19, ""});
  CHECK(Log(bench.host) == kTooDeep + kTooDeep);
}

TEST_CASE("labels between pointers do not count against the limit") {
  const QuietBench bench;
  Message message = Query(7).Bytes(Name("z").Wire());
  unsigned target = 12;
  std::string text = "z";
  for (int i = 0; i < 16; ++i) {
    const unsigned here = message.Here();
    message.Bytes(Pointer(target, "a.b").Wire());
    text = "a.b." + text;
    target = here;
  }
  const int end = static_cast<int>(message.Here());
  CHECK(NameAt(bench, message.Wire(), static_cast<int>(target)) == Decoded{kDecoded, end, text});
}

TEST_CASE("a pointer to itself is malformed") {
  QuietBench bench;
  const std::string message = Query(7).Bytes("padding.").Bytes(Pointer(20).Wire()).Wire();
  CHECK(NameAt(bench, message, 20) == Decoded{kMalformed, 21, ""});
  CHECK(Log(bench.host) == kLoop);
}

TEST_CASE("a pointer to itself behind a label is malformed, and the dot stays") {
  QuietBench bench;
  const std::string message = Query(7).Bytes(Pointer(15, "mx").Wire()).Wire();
  CHECK(NameAt(bench, message, 12) == Decoded{kMalformed, 16, "mx."});
  CHECK(Log(bench.host) == kLoop);
}

TEST_CASE("longer cycles end at the depth limit, with one message") {
  QuietBench bench;
  const std::string two = Query(7).Bytes(Pointer(14).Wire()).Bytes(Pointer(12).Wire()).Wire();
  CHECK(NameAt(bench, two, 12) == Decoded{kMalformed, 13, ""});
  CHECK(NameAt(bench, two, 14) == Decoded{kMalformed, 15, ""});
  // A pointer to the labels before it is not a pointer to itself.
  const std::string label = Query(7).Bytes(Pointer(12, "aa").Wire()).Wire();
  CHECK(NameAt(bench, label, 12) == Decoded{kMalformed, 16, "aa."});
  CHECK(Log(bench.host) == kTooDeep + kTooDeep + kTooDeep);
}

TEST_CASE("a pointer into the header is malformed") {
  for (unsigned target = 0; target < 12; ++target) {
    CAPTURE(target);
    QuietBench bench;
    CHECK(NameAt(bench, Query(7).Bytes(Pointer(target).Wire()).Wire(), 12) == Decoded{kMalformed, 13, ""});
    CHECK(Log(bench.host) == kIntoHeader);
  }
}

TEST_CASE("a pointer right behind the header is followed") {
  QuietBench bench;
  CHECK(NameAt(bench, Query(7).Bytes(Name("aa").Wire()).Bytes(Pointer(12).Wire()).Wire(), 16) ==
        Decoded{kDecoded, 18, "aa"});
  CHECK(Log(bench.host).empty());
}

TEST_CASE("a pointer without its second byte has run out at that byte") {
  QuietBench bench;
  CHECK(NameAt(bench, Query(7).Bytes("\xc0").Wire(), 12) == Decoded{kRanOut, 13, ""});
  CHECK(NameAt(bench, Query(7).Bytes("\2mx\xc0").Wire(), 12) == Decoded{kRanOut, 16, "mx."});
  CHECK(Log(bench.host) == NameRanOut(13, 13) + NameRanOut(16, 16));
}

TEST_CASE("a missing second byte is noticed before the depth") {
  QuietBench bench;
  CHECK(NameAt(bench, ForwardChain(16, "\xc0").Wire(), 12) == Decoded{kRanOut, 13, ""});
  CHECK(Log(bench.host) == NameRanOut(12 + 2 * 16 + 1, 12 + 2 * 16 + 1));
}

TEST_CASE("the depth is noticed before a loop or a target in the header") {
  QuietBench bench;
  CHECK(NameAt(bench, Query(7).Bytes(Pointer(12).Wire()).Wire(), 12, 16) == Decoded{kMalformed, 13, ""});
  CHECK(NameAt(bench, Query(7).Bytes(Pointer(5).Wire()).Wire(), 12, 16) == Decoded{kMalformed, 13, ""});
  CHECK(Log(bench.host) == kTooDeep + kTooDeep);
}

TEST_CASE("a loop is noticed before a target in the header") {
  QuietBench bench;
  const std::string message = Query(7).QuestionCount(0xc004).Wire();  // the count, at 4, points at itself
  CHECK(NameAt(bench, message, 4) == Decoded{kMalformed, 5, ""});
  CHECK(Log(bench.host) == kLoop);
}

TEST_CASE("a failure behind a pointer is handed on, and the labels before the pointer stay") {
  QuietBench bench;
  const std::string malformed = Query(7).Bytes(Pointer(20, "mx").Wire()).Bytes("...\2bb\x41").Wire();
  CHECK(NameAt(bench, malformed, 12) == Decoded{kMalformed, 16, "mx."});
  CHECK(Log(bench.host) ==
        Dropped("GetName unknown length-high-bit mask: 0x%02x", "GetName unknown length-high-bit mask: 0x40"));
  bench.host.lines.clear();
  const std::string cut = Query(7).Bytes(Pointer(20, "mx").Wire()).Bytes("...\2bb\5c").Wire();
  CHECK(NameAt(bench, cut, 12) == Decoded{kRanOut, 16, "mx."});
  CHECK(Log(bench.host) == LabelRanOut(5, 24, 25));
}

TEST_CASE("each prefix of a name with a pointer forward says where it ran out") {
  struct Row {
    Decoded decoded;
    std::string log;
  };
  const std::string message = Query(7).Bytes(Pointer(17, "mx").Wire()).Bytes(Name("aa.bb").Wire()).Wire();
  const std::array kRows = {
      Row{{kRanOut, 16, "mx."}, NameRanOut(16, 16)},  // the pointer's second byte
      Row{{kRanOut, 16, "mx."}, NameRanOut(18, 17)},  // what it points to
      Row{{kRanOut, 16, "mx."}, LabelRanOut(2, 18, 18)},
      Row{{kRanOut, 16, "mx."}, LabelRanOut(2, 18, 19)},
      Row{{kRanOut, 16, "mx."}, NameRanOut(21, 20)},
      Row{{kRanOut, 16, "mx."}, LabelRanOut(2, 21, 21)},
      Row{{kRanOut, 16, "mx."}, LabelRanOut(2, 21, 22)},
      Row{{kRanOut, 16, "mx."}, NameRanOut(24, 23)},
      Row{{kDecoded, 17, "mx.aa.bb"}, ""},
  };
  REQUIRE(message.size() == 16 + kRows.size() - 1);
  for (size_t i = 0; i < kRows.size(); ++i) {
    CAPTURE(i);
    QuietBench bench;
    CHECK(NameAt(bench, Prefix(message, 16 + i), 12) == kRows[i].decoded);
    CHECK(Log(bench.host) == kRows[i].log);
  }
}

TEST_CASE("messages about pointers have level 4") {
  const std::array kBroken = {RawName("\xc0"), Pointer(12), Pointer(5), Pointer(12, "aa")};
  for (const Name& name : kBroken) {
    for (const int level : {3, 4}) {
      QuietBench bench(level);
      NameAt(bench, Query(7).Bytes(name.Wire()).Wire(), 12);
      CHECK(bench.host.Texts(4).size() == (level >= 4 ? 1 : 0));
      CHECK(bench.host.lines.size() == bench.host.Texts(4).size());
    }
  }
}
