#pragma once

#include <string>
#include <vector>

#include "tests/support/dns_builder.h"

// Messages that visit as much of the parser as one message can: every record that a decoder looks into,
// compression, several classes, EDNS, and texts too long for a std::string to hold without memory of its own.
namespace test {

inline const std::string kLongLabel = "a-label-that-is-longer-than-short-strings";
inline const std::string kRichName = kLongLabel + ".example";

inline Message RichQuery(unsigned id) {
  return Query(id)
      .Compressed()
      .Question(kRichName, kA)
      .Question("version.bind." + kRichName, kTxt, kChaos)
      .Question("other.example", 4711)
      .Answer("skipped.example", A("192.0.2.9"))
      .Additional(kRichName, Txt("skipped"))
      .Additional(Opt({.dnssec_ok = true}));
}

inline Message RichResponse(unsigned id) {
  return Response(id)
      .Compressed()
      .Question(kRichName, kA)
      .Answer(kRichName, Cname("cc." + kRichName))
      .Answer("cc." + kRichName, A("192.0.2.1"))
      .Answer("cc." + kRichName, Mx(1, "mx." + kRichName))
      .Answer("cc." + kRichName, Txt("a text that is longer than short strings are", "unread"))
      .Answer("4.3.2.1.in-addr.arpa", Ptr("cc." + kRichName))
      .Answer("cc." + kRichName, Aaaa("2001:db8::1"))
      .Answer("cc." + kRichName, Rrsig(kA, "example"))
      .Authority("example", Soa("ns.example", "mail.example"))
      .Authority("example", Ns("ns.example"))
      .Additional("_dns.example", Srv(1, 2, 3, "ns." + kRichName))
      .Additional("example", Rdata(kHinfo, CharacterString("cpu") + CharacterString("os")))
      .Additional(Opt());
}

// Small ones, for tests that change every byte to every value: together they have what a rich one has.
inline std::vector<std::string> SmallQueries() {
  return {
      Query(7).Compressed().Question("aa.bb", kA).Question("cc.aa.bb", kTxt, kChaos).Wire(),
      Query(7).Question("aa.bb", kAaaa).Answer("d", A("192.0.2.9")).Additional(Opt({.dnssec_ok = true})).Wire(),
  };
}

inline std::vector<std::string> SmallResponses() {
  return {
      Response(7)
          .Compressed()
          .Question("aa.bb", kA)
          .Answer("aa.bb", Cname("c.bb"))
          .Answer("c.bb", A("192.0.2.1"))
          .Answer("c.bb", Mx(1, "m.bb"))
          .Wire(),
      Response(7)
          .Compressed()
          .Question("4.3.2.1.in-addr.arpa", kPtr)
          .Answer("4.3.2.1.in-addr.arpa", Ptr("aa.bb"))
          .Answer("a", Txt("hi", "no"))
          .Authority("b", Ns("n.b"))
          .Wire(),
      Response(7)
          .Question("a", kAaaa)
          .Answer("a", Aaaa("2001:db8::1"))
          .Authority("b", Soa("n", "m"))
          .Additional("s", Srv(1, 2, 3, "n"))
          .Additional("h", Rdata(kHinfo, CharacterString("c") + CharacterString("o")))
          .Additional(Opt())
          .Wire(),
  };
}

}  // namespace test
