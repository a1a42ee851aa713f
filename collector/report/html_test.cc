#include "collector/report/html.h"

#include <doctest/doctest.h>

#include <stdexcept>

namespace report {
namespace {

TEST_CASE("nothing that means something to HTML is left") {
  CHECK(Escaped("<img src=x onerror='a(\"&\")'>") == "&lt;img src=x onerror=&#39;a(&quot;&amp;&quot;)&#39;&gt;");
  CHECK(Escaped("</script><!--") == "&lt;/script&gt;&lt;!--");
}

TEST_CASE("letters of all languages stay") { CHECK(Escaped("Bücher, 日本, 🦆") == "Bücher, 日本, 🦆"); }

TEST_CASE("bytes that are no UTF-8 are shown as numbers") {
  CHECK(Escaped("\xff") == "\\255");
  CHECK(Escaped("\xc3") == "\\195");           // cut short
  CHECK(Escaped("\xc3(") == "\\195(");         // continued by what continues nothing
  CHECK(Escaped("\xc0\xbc") == "\\192\\188");  // a "<" in more bytes than it needs
  CHECK(Escaped("\xe0\x80\xbc") == "\\224\\128\\188");
  CHECK(Escaped("\xed\xa0\x80") == "\\237\\160\\128");  // half of a surrogate pair
  CHECK(Escaped("\xf4\x90\x80\x80") == "\\244\\144\\128\\128");
  CHECK(Escaped("\xf8\x88\x80\x80\x80").substr(0, 4) == "\\248");
}

TEST_CASE("characters without a shape cannot change how others look") {
  CHECK(Escaped("\n\x7f") == "\\010\\127");
  CHECK(Escaped(std::string_view("\0", 1)) == "\\000");
  CHECK(Escaped("\u2028\u2029") == "\\226\\128\\168\\226\\128\\169");
  CHECK(Escaped("\u202egnp.exe") == "\\226\\128\\174gnp.exe");  // written from right to left
  CHECK(Escaped("\u0085") == "\\194\\133");
  CHECK(Escaped("\ufeff") == "\\239\\187\\191");
}

TEST_CASE("a table names its rows and columns, and what numbers sort by") {
  Table table("What <it> is", {{"Name", Table::Align::kText, "name"}, {"Count"}});
  CHECK(table.empty());
  table.Row({{"a"}, {"1 000", "1000"}}, " class=\"x\"");
  CHECK_FALSE(table.empty());
  CHECK(table.Html(" id=\"t\"") ==
        "<table id=\"t\"><caption>What &lt;it&gt; is</caption><thead><tr><th scope=\"col\">Name</th>"
        "<th scope=\"col\" class=\"n\">Count</th></tr></thead><tbody>\n"
        "<tr class=\"x\"><th scope=\"row\" class=\"name\">a</th><td class=\"n\" data-v=\"1000\">1 000</td></tr>\n"
        "</tbody></table>");
}

TEST_CASE("values take the places of their names and are not searched for names themselves") {
  CHECK(Filled("a {{x}} b {{y}} {{x}}", {{"x", "{{y}}"}, {"y", "2"}}) == "a {{y}} b 2 {{y}}");
}

TEST_CASE("a page and its values have to fit") {
  CHECK_THROWS_AS(Filled("{{x}}", {}), std::logic_error);
  CHECK_THROWS_AS(Filled("{{x", {{"x", "1"}}), std::logic_error);
  CHECK_THROWS_AS(Filled("", {{"x", "1"}}), std::logic_error);
}

}  // namespace
}  // namespace report
