#include <doctest/doctest.h>

#include <string>
#include <vector>

#include "tests/support/pairing.h"

using namespace test;

// Every prefix of good requests: captured whole, where the message is as short as the prefix, and cut, where there
// was more on the wire.

namespace {

// A good request, and where its questions end.
struct Example {
  std::string message;
  size_t questions_end;
};

std::vector<Example> Examples() {
  const auto example = [](const Message& questions, auto add_records) {
    Message whole = questions;
    add_records(&whole);
    return Example{whole.Wire(), questions.Wire().size()};
  };
  const auto nothing = [](Message*) {};
  return {
      example(Query(7).Question("aa.bb", kA), nothing),
      example(Query(7).Question(".", kNs), nothing),
      example(Query(7).Opcode(1).Question("aa.bb", kAaaa, kChaos), nothing),
      example(Query(7).Compressed().Question("aa.bb", kA).Question("xx.aa.bb", kTxt), nothing),
      example(Query(7).Question("aa.bb", kA),
              [](Message* message) { message->Additional(Opt({.dnssec_ok = true, .options = "12345678"})); }),
      example(Query(7).Question("aa.bb", kIxfr),
              [](Message* message) {
                message->Authority("aa.bb", Soa("ns.aa.bb", "root.aa.bb")).Additional("x", A("192.0.2.1"));
              }),
      example(Query(7).Question("aa.bb", kA),
              [](Message* message) {
                message->Answer("aa.bb", Txt("text")).Additional(Opt()).Additional(Opt({.dnssec_ok = true}));
              }),
  };
}

struct Outcome {
  bool used;
  bool recorded;
};

void CheckPrefix(const std::string& message, size_t captured, size_t nominal, const Config& config,
                 const Outcome& expected) {
  CAPTURE(message.size());
  CAPTURE(captured);
  CAPTURE(nominal);
  Pairing bench(config);
  CHECK(bench.RequestCut(message, captured, nominal) == expected.used);
  CHECK(bench.Open() == (expected.recorded ? 1U : 0U));
  CHECK(bench.host.records.size() == bench.Open());
  if (expected.recorded) CHECK(bench.OnlyQuery().request_bytes == static_cast<int>(nominal));
}

}  // namespace

TEST_CASE("the prefixes of a request without the search for DO") {
  for (const Example& example : Examples()) {
    const std::string& message = example.message;
    for (size_t size = 0; size <= message.size(); ++size) {
      const bool complete = size >= example.questions_end;
      CheckPrefix(message, size, size, {}, {complete, complete});
      CheckPrefix(message, size, message.size() + 1, {}, {true, complete});
    }
  }
}

TEST_CASE("the prefixes of a request with the search for DO") {
  for (const Example& example : Examples()) {
    const std::string& message = example.message;
    const bool records = message.size() > example.questions_end;
    for (size_t size = 0; size <= message.size(); ++size) {
      const bool questions = size >= example.questions_end;
      CheckPrefix(message, size, message.size() + 1, With("enable_dnssec", "1"), {true, questions});
      if (!records) CheckPrefix(message, size, size, With("enable_dnssec", "1"), {questions, questions});
      // Right behind the questions the first record is missing altogether.
      if (records && size <= example.questions_end) {
        CheckPrefix(message, size, size, With("enable_dnssec", "1"), {false, false});
      }
    }
    CheckPrefix(message, message.size(), message.size(), With("enable_dnssec", "1"), {true, true});
  }
}

TEST_CASE("the prefixes of a request look the same with every trace on") {
  for (const Example& example : Examples()) {
    const std::string& message = example.message;
    for (size_t size = 0; size <= message.size(); ++size) {
      for (const size_t nominal : {size, message.size() + 1}) {
        CAPTURE(size);
        Pairing bench(With("enable_dnssec", "1"));
        const bool used = bench.RequestCut(message, size, nominal);
        const size_t open = bench.Open();
        bench.parser.open_queries.clear();
        bench.host.level = 5;
        CHECK(bench.RequestCut(message, size, nominal) == used);
        CHECK(bench.Open() == open);
      }
    }
  }
}

TEST_CASE("the prefixes of a request as a datagram are consumed whole or not at all") {
  for (const Example& example : Examples()) {
    const std::string& message = example.message;
    for (size_t size = 0; size <= message.size(); ++size) {
      CAPTURE(size);
      Pairing bench;
      const int length = static_cast<int>(size);
      CHECK(bench.Up(message, length, length) == (size >= example.questions_end ? length : -1));
      CHECK(bench.Up(message, length, 600) == 600);
    }
  }
}
