#include <doctest/doctest.h>

#include <string>

#include "dns-parser/dns_parser.h"
#include "tests/support/decoding.h"
#include "tests/support/dns_builder.h"
#include "tests/support/guarded_bytes.h"

using namespace test;

// No decoder touches a byte that was not captured. The views below end where readable memory ends.

namespace {

IOVec View(const GuardedBytes& bytes) {
  IOVec view(bytes.data(), bytes.length(), 65535);
  view.underflow_mode = IOVec::FLAG;
  return view;
}

// One record of each kind that a decoder looks into, with and without pointers.
std::string RichMessage() {
  return Response(7)
      .Compressed()
      .Question("aa.bb", kA)
      .Answer("aa.bb", Cname("cc.aa.bb"))
      .Answer("cc.aa.bb", A("192.0.2.1"))
      .Answer("cc.aa.bb", Mx(1, "mx.aa.bb"))
      .Answer("cc.aa.bb", Txt("hello", "unread"))
      .Answer("4.3.2.1.in-addr.arpa", Ptr("cc.aa.bb"))
      .Answer("cc.aa.bb", Rrsig(kA, "aa.bb"))
      .Authority("bb", Soa("ns.bb", "mail.bb"))
      .Authority("bb", Ns("ns.bb"))
      .Additional("ns.bb", Aaaa("2001:db8::1"))
      .Additional("_dns.bb", Srv(1, 2, 3, "ns.bb"))
      .Additional("bb", Rdata(14, CharacterString("cpu") + CharacterString("os")))
      .Additional(Opt())
      .Wire();
}

// A view may have failed before the next decoder looks at it.
void Renew(const IOVec& view) { view.ok = true; }

}  // namespace

TEST_CASE("names and strings read no byte behind the captured ones, wherever they start") {
  const QuietBench bench(0);
  const std::string message = RichMessage();
  for (size_t length = 0; length <= message.size(); ++length) {
    const std::string prefix = Prefix(message, length);
    const GuardedBytes guarded(prefix);
    const IOVec view = View(guarded);
    const IOVec plain = test::View(prefix);
    for (int offset = 0; offset <= guarded.length() + 2; ++offset) {
      const Decoded name = NameAt(bench, view, offset);
      if (name != NameAt(bench, plain, offset)) FAIL("name at " << offset << " of " << length);
      Renew(view);
      Renew(plain);
      const Decoded text = StringAt(bench, view, offset);
      if (text != StringAt(bench, plain, offset)) FAIL("string at " << offset << " of " << length);
      Renew(view);
      Renew(plain);
    }
  }
}

TEST_CASE("the walk over the answers reads no byte behind the captured ones") {
  const QuietBench bench(0);
  const std::string message = RichMessage();
  for (size_t length = 0; length <= message.size(); ++length) {
    CAPTURE(length);
    const std::string prefix = Prefix(message, length);
    const GuardedBytes guarded(prefix);
    std::string summary;
    std::string plain_summary;
    CHECK(bench.parser.ParseResponse(&summary, nullptr, View(guarded), 23, 6, true, "") ==
          bench.parser.ParseResponse(&plain_summary, nullptr, test::View(prefix), 23, 6, true, ""));
    CHECK(summary == plain_summary);
  }
}

TEST_CASE("the dump reads no byte behind the captured ones") {
  const std::string message = RichMessage();
  const auto dump = [](const IOVec& view) {
    const QuietBench bench(5);
    DnsHeader header{};
    if (ReadHeader(view, &header)) bench.parser.DebugDump(header, view);
    return Shown(bench.host);
  };
  for (size_t length = 0; length <= message.size(); ++length) {
    CAPTURE(length);
    const std::string prefix = Prefix(message, length);
    const GuardedBytes guarded(prefix);
    CHECK(dump(View(guarded)) == dump(test::View(prefix)));
  }
}
