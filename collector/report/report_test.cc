#include "collector/report/report.h"

#include <doctest/doctest.h>

#include "collector/output/exchange_for_tests.h"
#include "collector/report/page_files.h"

namespace report {
namespace {

bool Has(const std::string& text, std::string_view part) { return text.find(part) != text.npos; }

size_t CountOf(const std::string& text, std::string_view part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != text.npos; at = text.find(part, at + 1)) ++count;
  return count;
}

Report ReportOf(const std::string& name, int answers, int timeouts) {
  Report report;
  for (int i = 0; i < answers + timeouts; ++i) {
    output::ExchangeForTests exchange;
    exchange.Ask(output::Question(name, 1));
    exchange.query_time_ns += i * int64_t{100'000'000};
    if (i >= answers) exchange.TimeOut();
    report.Add(exchange);
  }
  return report;
}

TEST_CASE("a page can be made of nothing") {
  const std::string page = Report().Html({.title = "", .version = "1", .files = {"empty.pcap"}});
  CHECK(Has(page, "<title>DNS report: empty.pcap</title>"));
  CHECK(Has(page, "There are no DNS exchanges in it."));
  CHECK(Has(page, "There is nothing to complain about."));
  CHECK_FALSE(Has(page, "nan"));
}

TEST_CASE("the page is called after its captures, without their folders") {
  const Report report;
  CHECK(Has(report.Html({.title = "", .version = "1", .files = {"/home/me/one.pcap", "two.pcap", "-"}}),
            "<h1>DNS report: one.pcap and 2 more</h1>"));
  const std::string page = report.Html({.title = "", .version = "1", .files = {"/home/me/one.pcap", "-"}});
  CHECK(Has(page, "Read: one.pcap, standard input."));
  CHECK_FALSE(Has(page, "/home"));
  CHECK(Has(report.Html({.title = "Mine & yours", .version = "1", .files = {"x"}}), "<h1>Mine &amp; yours</h1>"));
}

TEST_CASE("a page tells losses in words, and that reading was stopped") {
  const auto page = [](std::vector<output::Loss> losses, bool interrupted) {
    return Report().Html(
        {.title = "", .version = "1", .files = {"x"}, .losses = std::move(losses), .interrupted = interrupted});
  };
  CHECK(Has(page({{"cut_messages", 12}, {"tcp_gaps", 1}}, false),
            "<p>Lost on the way to this page: cut messages 12, tcp gaps 1.</p>"));
  CHECK(
      Has(page({}, true), "<p>Reading was stopped before the end. Nothing was lost on the way to this page.</p>"));
}

TEST_CASE("titles, file names and names out of packets are text and never markup") {
  const std::string hostile = "<img src=x onerror=alert(1)></script><!--";
  const std::string page =
      ReportOf(hostile, 3, 2).Html({.title = "", .version = "1", .files = {hostile, "\xff\u2028"}});
  CHECK_FALSE(Has(page, "<img"));
  CHECK_FALSE(Has(page, "<!--"));
  CHECK_FALSE(Has(page, "\u2028"));
  CHECK(CountOf(page, "</script>") == 1);
  CHECK(CountOf(page, "&lt;img src=x onerror=alert(1)&gt;") > 5);
}

TEST_CASE("the page asks for nothing from anywhere") {
  const std::string page = ReportOf("www.example", 5, 1).Html({.title = "", .version = "1", .files = {"x"}});
  CHECK(Has(page, "default-src 'none'"));
  CHECK(Has(page, std::string("script-src '") + std::string(PageScriptHash()) + "'"));
  CHECK_FALSE(Has(page, "://www.w3.org/1999"));
  for (const char* reference : {"src=", "url(", "@import", "<link", "http-equiv=\"refresh\"", "href=\"http"}) {
    CHECK_MESSAGE(!Has(page, reference), reference);
  }
  CHECK_FALSE(Has(page, " style="));  // inline styles would be refused
}

TEST_CASE("time-outs stand apart from response times") {
  const std::string page = ReportOf("www.example", 6, 2).Html({.title = "", .version = "1", .files = {"x"}});
  CHECK(Has(page, R"(<data data-key="timeout" value="2">)"));
  CHECK(Has(page, R"(<data data-key="answered" value="6">)"));
  CHECK(Has(page, "2 of 8 queries"));
  CHECK(CountOf(page, "<tr class=\"timeout\">") == 2);
  CHECK(CountOf(page, "<tr class=\"slow\">") == 6);
}

TEST_CASE("the same capture gives the same page") {
  const Labels labels{.title = "", .version = "1", .files = {"x"}};
  CHECK(ReportOf("www.example", 6, 2).Html(labels) == ReportOf("www.example", 6, 2).Html(labels));
}

TEST_CASE("a page of a hundred thousand names is of bounded size") {
  Report report;
  for (int i = 0; i < 100000; ++i) {
    output::ExchangeForTests exchange;
    exchange.Ask(output::Question("n" + std::to_string(i), 1));
    exchange.query_time_ns += i * int64_t{1'000'000'000};
    report.Add(exchange);
  }
  CHECK(report.Html({.title = "", .version = "1", .files = {"x"}}).size() < 300000);
}

}  // namespace
}  // namespace report
