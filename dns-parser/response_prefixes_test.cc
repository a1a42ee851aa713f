#include <doctest/doctest.h>

#include <string>
#include <vector>

#include "tests/support/pairing.h"

using namespace test;

// Every prefix of good responses: captured whole, where the message is as short as the prefix, and cut, where there
// was more on the wire.

namespace {

struct Example {
  std::string message;
  size_t needed;  // as many bytes are read of it
};

// The whole message is read but for what stands behind the answers.
Example Needing(const Message& needed, const Message& all) { return {all.Wire(), needed.Wire().size()}; }

std::vector<Example> Examples() {
  const Message question = Response(7).Question("aa.bb", kA);
  const Message addresses = Response(7)
                                .Compressed()
                                .Question("aa.bb", kA)
                                .Answer("aa.bb", A("192.0.2.1"))
                                .Answer("cc.bb", A("192.0.2.2"));
  const Message chain = Response(7)
                            .Compressed()
                            .Question("aa.bb", kTxt)
                            .Answer("aa.bb", Cname("cc.bb"))
                            .Answer("cc.bb", Mx(5, "mx.bb"))
                            .Answer("cc.bb", Txt("text"))
                            .Answer("cc.bb", Aaaa("2001:db8::1"));
  const Message reverse =
      Response(7).Question("1.2.0.192.in-addr.arpa", kPtr).Answer("1.2.0.192.in-addr.arpa", Ptr("aa.bb"));
  return {
      Needing(question, question),
      Needing(addresses, addresses),
      Needing(addresses, Message(addresses).Authority("bb", Ns("ns.bb")).Additional(Opt())),
      Needing(chain, chain),
      Needing(reverse, reverse),
      Needing(question, Message(question).Rcode(3).Authority("bb", Soa("ns.bb", "root.bb"))),
  };
}

// A parser with query 7 open, whose host has forgotten about it.
struct Asked : Pairing {
  explicit Asked(int log_level = 4) {
    Request(AQuery(7));
    Forget();
    host.level = log_level;
  }
};

void CheckPrefix(const Example& example, size_t captured, size_t nominal) {
  CAPTURE(example.message.size());
  CAPTURE(captured);
  CAPTURE(nominal);
  Asked bench;
  const int result = bench.ResponseCut(example.message, captured, nominal);
  const bool enough = captured >= example.needed;
  CHECK(result == (enough || captured < nominal ? 1 : 0));
  if (captured < 12) {
    CHECK(bench.host.records.empty());
    CHECK(bench.Open() == 1);
    return;
  }
  REQUIRE(bench.host.records.size() == 1);
  CHECK(bench.host.Last().extended);
  CHECK(bench.host.Last().result_code == (static_cast<unsigned char>(example.message[3]) & 0xf));
  CHECK(bench.host.Last().bytes_response == static_cast<int64_t>(nominal));
  CHECK(bench.Open() == 0);
}

}  // namespace

TEST_CASE("the prefixes of a response that was captured whole") {
  for (const Example& example : Examples()) {
    for (size_t size = 0; size <= example.message.size(); ++size) CheckPrefix(example, size, size);
  }
}

TEST_CASE("the prefixes of a response that the capture cut") {
  for (const Example& example : Examples()) {
    for (size_t size = 0; size <= example.message.size(); ++size) {
      CheckPrefix(example, size, example.message.size() + 1);
    }
  }
}

TEST_CASE("the prefixes of a response say no more than the whole, and as much as they have") {
  for (const Example& example : Examples()) {
    Asked whole;
    whole.Response(example.message);
    const auto full = whole.host.Last().strings;
    const std::string summary = full.contains("Response") ? full.at("Response") : "";
    for (size_t size = 12; size <= example.message.size(); ++size) {
      CAPTURE(size);
      Asked bench;
      bench.ResponseCut(example.message, size, example.message.size() + 1);
      const auto& strings = bench.host.Last().strings;
      CHECK(strings.at("Names") == "aa.bb");
      const std::string partial = strings.contains("Response") ? strings.at("Response") : "";
      CHECK(summary.starts_with(partial));
      if (size >= example.needed) CHECK(strings == full);
      CHECK(bench.host.mappings.size() <= whole.host.mappings.size());
    }
  }
}

TEST_CASE("the prefixes of a response look the same with every trace on") {
  for (const Example& example : Examples()) {
    const std::string& message = example.message;
    for (size_t size = 0; size <= message.size(); ++size) {
      for (const size_t nominal : {size, message.size() + 1}) {
        CAPTURE(size);
        Asked quiet;
        Asked traced(5);
        CHECK(traced.ResponseCut(message, size, nominal) == quiet.ResponseCut(message, size, nominal));
        CHECK(traced.Open() == quiet.Open());
      }
    }
  }
}

TEST_CASE("the prefixes of a response as a datagram are consumed whole or not at all") {
  for (const Example& example : Examples()) {
    for (size_t size = 0; size <= example.message.size(); ++size) {
      CAPTURE(size);
      const int length = static_cast<int>(size);
      Asked whole;
      CHECK(whole.Down(example.message, length, length) == (size >= example.needed ? length : -1));
      Asked cut;
      CHECK(cut.Down(example.message, length, 600) == 600);
    }
  }
}
