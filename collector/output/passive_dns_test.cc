#include "collector/output/passive_dns.h"

#include <doctest/doctest.h>

#include <cstring>
#include <nlohmann/json.hpp>

#include "collector/output/written_for_tests.h"

namespace output {
namespace {

constexpr int64_t kSecond = 1000000000;

uint32_t Ip(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
  const uint8_t octets[] = {a, b, c, d};
  uint32_t ipv4;
  std::memcpy(&ipv4, octets, sizeof ipv4);
  return ipv4;
}

std::string Json(const PassiveDns& list) {
  return WrittenBy([&](Buffer* buffer) { WritePassiveDnsJson(list, buffer); });
}

TEST_CASE("a mapping that was seen again is counted, not listed again") {
  PassiveDns list;
  list.Add("www.example", "www.example", Ip(192, 0, 2, 1), 100 * kSecond);
  list.Add("www.example", "www.example", Ip(192, 0, 2, 1), 50 * kSecond + 7);
  list.Add("www.example", "www.example", Ip(192, 0, 2, 1), 75 * kSecond);
  CHECK(Json(list) ==
        R"({"rrname":"www.example","rrtype":"A","rdata":"192.0.2.1","time_first":50,"time_last":100,"count":3})"
        "\n");
}

TEST_CASE("names, questions and addresses that differ are different mappings") {
  PassiveDns list;
  list.Add("a", "a", Ip(192, 0, 2, 1), 0);
  list.Add("b", "a", Ip(192, 0, 2, 1), 0);
  list.Add("a", "b", Ip(192, 0, 2, 1), 0);
  list.Add("a", "a", Ip(192, 0, 2, 2), 0);
  list.Add(nullptr, "a", Ip(192, 0, 2, 1), 0);
  list.Add("", "a", Ip(192, 0, 2, 1), 0);
  CHECK(list.All().size() == 6);
}

TEST_CASE("names and questions that differ in letter case only are the same, and take one place in the list") {
  PassiveDns list(2);
  list.Add("wWw.Example", "MAIL.Example", Ip(192, 0, 2, 1), 0);
  list.Add("www.example", "mail.example", Ip(192, 0, 2, 1), 0);
  list.Add(nullptr, "HOST.example", Ip(192, 0, 2, 1), 0);
  list.Add(nullptr, "host.EXAMPLE", Ip(192, 0, 2, 1), 0);
  CHECK(list.dropped() == 0);
  CHECK(
      Json(list) ==
      R"({"rrname":"1.2.0.192.in-addr.arpa","rrtype":"PTR","rdata":"host.example","time_first":0,"time_last":0,"count":2})"
      "\n"
      R"({"rrname":"mail.example","rrtype":"A","rdata":"192.0.2.1","time_first":0,"time_last":0,"count":2,"question":"www.example"})"
      "\n");
}

TEST_CASE("a name that differs from the question in letter case only is the question") {
  PassiveDns list;
  list.Add("wWw.eXample", "www.example", Ip(192, 0, 2, 1), 0);
  CHECK_FALSE(nlohmann::json::parse(Json(list)).contains("question"));
}

TEST_CASE("only ASCII letters have a case") {
  PassiveDns list;
  list.Add("\xc4[", "\xc4[", Ip(192, 0, 2, 1), 0);
  list.Add("\xe4{", "\xe4{", Ip(192, 0, 2, 1), 0);
  CHECK(list.All().size() == 2);
}

TEST_CASE("the question is told where it is another name") {
  PassiveDns list;
  list.Add("www.example", "cdn.example", Ip(192, 0, 2, 1), 0);
  CHECK(nlohmann::json::parse(Json(list))["question"] == "www.example");
}

TEST_CASE("a reverse mapping is a PTR record") {
  PassiveDns list;
  list.Add(nullptr, "host.example", Ip(192, 0, 2, 7), 3 * kSecond);
  const auto json = nlohmann::json::parse(Json(list));
  CHECK(json["rrname"] == "7.2.0.192.in-addr.arpa");
  CHECK(json["rrtype"] == "PTR");
  CHECK(json["rdata"] == "host.example");
  CHECK(json["time_first"] == 3);
  CHECK_FALSE(json.contains("question"));
}

TEST_CASE("mappings are listed by name, question and address, whatever the order they came in") {
  PassiveDns one, other;
  const auto add = [](PassiveDns* list, int which) {
    if (which == 0) list->Add("b", "b", Ip(192, 0, 2, 2), 0);
    if (which == 1) list->Add("a", "b", Ip(192, 0, 2, 1), 0);
    if (which == 2) list->Add("a", "a", Ip(192, 0, 2, 1), 0);
  };
  for (const int which : {0, 1, 2}) add(&one, which);
  for (const int which : {2, 0, 1}) add(&other, which);
  CHECK(Json(one) == Json(other));
  CHECK(one.All().front()->name == "a");
}

TEST_CASE("a full list counts what it leaves out and goes on counting what it has") {
  PassiveDns list(2);
  list.Add("a", "a", 1, 0);
  list.Add("b", "b", 1, 0);
  list.Add("c", "c", 1, 0);
  list.Add("a", "a", 1, 0);
  CHECK(list.All().size() == 2);
  CHECK(list.dropped() == 1);
  CHECK(list.All().front()->count == 2);
}

TEST_CASE("names with any bytes are printable") {
  PassiveDns list;
  list.Add("q\n", "\xff\"\\", Ip(192, 0, 2, 1), 0);
  const std::string line = Json(list);
  const auto json = nlohmann::json::parse(line);
  CHECK(json["rrname"] == "\\255\"\\\\");
  CHECK(json["question"] == "q\\010");
}

TEST_CASE("instants before 1970 round down") {
  PassiveDns list;
  list.Add("a", "a", 1, -1);
  CHECK(nlohmann::json::parse(Json(list))["time_first"] == -1);
}

TEST_CASE("the table lines up under its header") {
  PassiveDns list;
  list.Add("www.example", "cdn.example", Ip(192, 0, 2, 1), 1700000000 * kSecond);
  list.Add(nullptr, "host.example", Ip(192, 0, 2, 7), 1700000000 * kSecond);
  CHECK(WrittenBy([&](Buffer* buffer) { WritePassiveDnsTable(list, buffer); }) ==
        "NAME         ADDRESS         FIRST SEEN (UTC)    LAST SEEN           COUNT   QUESTION\n"
        "cdn.example  192.0.2.1       2023-11-14 22:13:20 2023-11-14 22:13:20 1       www.example\n"
        "host.example 192.0.2.7       2023-11-14 22:13:20 2023-11-14 22:13:20 1       (reverse)\n");
}

}  // namespace
}  // namespace output
