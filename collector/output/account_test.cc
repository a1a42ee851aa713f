#include "collector/output/account.h"

#include <doctest/doctest.h>

#include <nlohmann/json.hpp>

namespace output {
namespace {

// A run with something of everything, in which all adds up.
Account Whole() {
  Account account;
  for (size_t i = 0; i < Account::kOutcomes; ++i) account.outcomes[i] = i + 1;
  account.outcomes[static_cast<size_t>(packet::Outcome::kDatagram)] = 60;
  account.filtered = 5;
  account.packets = 5;
  for (const uint64_t count : account.outcomes) account.packets += count;
  account.unknown_link_types = {{"USB_LINUX", 2}};

  for (size_t i = 0; i < Account::kDeliveries; ++i) account.deliveries[i] = 2;
  account.deliveries[static_cast<size_t>(flow::Delivery::kUdpMessage)] = 50;
  account.flows.udp_messages = 50;
  account.flows.tcp_messages = 7;

  plugin::MessageCounts& m = account.messages;
  m = {.queries = 30,
       .responses = 27,
       .begun = 20,
       .duplicates = 4,
       .table_full = 3,
       .query_ignored = 2,
       .query_refused = 1,
       .answered = 15,
       .unsolicited = 6,
       .response_ignored = 4,
       .response_refused = 2,
       .timed_out = 3,
       .open_at_end = 2,
       .malformed = 1,
       .retransmits = 3};
  account.exchanges = account.shown = 20;
  account.health = "parser:dns uop:6 zqd:1 mqd:0 ur:6 inj:2 mor:4 or:2 rt:3";
  return account;
}

bool Loses(const Account& account, std::string_view name, uint64_t count) {
  for (const Loss& loss : Losses(account)) {
    if (loss.name == name) return loss.count == count;
  }
  return false;
}

TEST_CASE("a run without a packet adds up and loses nothing") {
  CHECK(Contradictions(Account()).empty());
  CHECK(Losses(Account()).empty());
  CHECK(AccountText(Account()).find("lost       nothing\n") != std::string::npos);
}

TEST_CASE("a whole account adds up") { CHECK(Contradictions(Whole()).empty()); }

TEST_CASE("whatever number is one off is noticed") {
  const auto noticed = [](auto change) {
    Account account = Whole();
    change(account);
    return Contradictions(account).size() > 0;
  };
  CHECK(noticed([](Account& a) { ++a.packets; }));
  CHECK(noticed([](Account& a) { ++a.filtered; }));
  for (size_t i = 0; i < Account::kOutcomes; ++i) CHECK(noticed([i](Account& a) { ++a.outcomes[i]; }));
  for (size_t i = 0; i < Account::kDeliveries; ++i) CHECK(noticed([i](Account& a) { ++a.deliveries[i]; }));
  CHECK(noticed([](Account& a) { ++a.fragments.cut_datagrams; }));
  CHECK(noticed([](Account& a) { ++a.flows.udp_messages; }));
  CHECK(noticed([](Account& a) { ++a.flows.tcp_messages; }));
  CHECK(noticed([](Account& a) { ++a.messages.queries; }));
  CHECK(noticed([](Account& a) { ++a.messages.responses; }));
  CHECK(noticed([](Account& a) { ++a.messages.begun; }));
  CHECK(noticed([](Account& a) { ++a.messages.duplicates; }));
  CHECK(noticed([](Account& a) { ++a.messages.table_full; }));
  CHECK(noticed([](Account& a) { ++a.messages.query_ignored; }));
  CHECK(noticed([](Account& a) { ++a.messages.query_refused; }));
  CHECK(noticed([](Account& a) { ++a.messages.answered; }));
  CHECK(noticed([](Account& a) { ++a.messages.unsolicited; }));
  CHECK(noticed([](Account& a) { ++a.messages.response_ignored; }));
  CHECK(noticed([](Account& a) { ++a.messages.response_refused; }));
  CHECK(noticed([](Account& a) { ++a.messages.timed_out; }));
  CHECK(noticed([](Account& a) { ++a.messages.open_at_end; }));
  CHECK(noticed([](Account& a) { ++a.exchanges; }));
  CHECK(noticed([](Account& a) { ++a.unknown_link_types["USB_LINUX"]; }));
}

TEST_CASE("a contradiction is told in the account itself") {
  Account account = Whole();
  ++account.messages.answered;
  CHECK(AccountText(account).find("WRONG      exchanges and their parts: 20 against 21\n") != std::string::npos);
  CHECK(AccountJson(account)["adds_up"] == false);
}

TEST_CASE("losses are named one by one") {
  const Account account = Whole();
  CHECK(Loses(account, "table_full_queries", 3));
  CHECK(Loses(account, "refused_messages", 3));
  CHECK(Loses(account, "superseded_queries", 1));
  CHECK(Loses(account, "unknown_link_type_packets", 2));
  CHECK(Loses(account, "no_flow_datagrams", 2));
  CHECK(Loses(account, "no_surrogate_datagrams", 2));

  const auto loses = [](auto change) {
    Account lossy;
    change(lossy);
    return Losses(lossy).size() == 1;
  };
  CHECK(loses([](Account& a) { a.input_problems = 1; }));
  CHECK(loses([](Account& a) { a.not_filtered["PPP"] = 1; }));
  CHECK(loses([](Account& a) { a.outcomes[static_cast<size_t>(packet::Outcome::kTruncated)] = 1; }));
  CHECK(loses([](Account& a) { a.outcomes[static_cast<size_t>(packet::Outcome::kMalformed)] = 1; }));
  CHECK(loses([](Account& a) { a.outcomes[static_cast<size_t>(packet::Outcome::kTooDeep)] = 1; }));
  CHECK(loses([](Account& a) { a.fragments.expired = 1; }));
  CHECK(loses([](Account& a) { a.fragments.dropped = 1; }));
  CHECK(loses([](Account& a) { a.fragments.inconsistent = 1; }));
  CHECK(loses([](Account& a) { a.fragments_held = 1; }));
  CHECK(loses([](Account& a) { a.flows.tcp_gaps = 1; }));
  CHECK(loses([](Account& a) { a.flows.tcp_skipped_bytes = 1; }));
  CHECK(loses([](Account& a) { a.flows.tcp_dropped_bytes = 1; }));
  CHECK(loses([](Account& a) { a.flows.tcp_unfinished_messages = 1; }));
  CHECK(loses([](Account& a) { a.messages.cut = 1; }));
}

TEST_CASE("what belongs to ordinary traffic is no loss") {
  Account account;
  account.filtered = 1;
  account.outcomes[static_cast<size_t>(packet::Outcome::kNotIp)] = 1;
  account.deliveries[static_cast<size_t>(flow::Delivery::kNotDnsPort)] = 1;
  account.messages.unsolicited = 1;
  account.messages.timed_out = 1;
  account.messages.duplicates = account.messages.retransmits = 2;
  account.fragments.reassembled = 1;
  CHECK(Losses(account).empty());
}

TEST_CASE("the text shows each total with its parts and leaves zeros out") {
  const std::string text = AccountText(Whole());
  CHECK(text.find("queries    30 = 20 begun + 4 duplicates + 3 table_full + 2 ignored + 1 refused\n") !=
        std::string::npos);
  CHECK(text.find("responses  27 = 15 answered + 6 unsolicited + 4 ignored + 2 refused\n") != std::string::npos);
  CHECK(text.find("exchanges  20 = 15 answered + 3 timeout + 2 open\n") != std::string::npos);
  CHECK(text.find("messages   57 = 50 udp + 7 tcp\n") != std::string::npos);
  CHECK(text.find("link type  2 packets of USB_LINUX are not decoded\n") != std::string::npos);
  CHECK(text.find(" 0 ") == std::string::npos);
  CHECK(text.find("shown") == std::string::npos);
}

TEST_CASE("every detail is told with its own number") {
  Account account;
  uint64_t next = 0;
  account.messages.malformed = ++next;
  account.messages.retransmits = ++next;
  account.messages.question_mismatches = ++next;
  account.messages.cut = ++next;
  account.messages.mappings = ++next;
  account.flows.flows = ++next;
  account.flows.flows_evicted = ++next;
  account.flows.tcp_cut_messages = ++next;
  account.flows.tcp_gaps = ++next;
  account.flows.tcp_skipped_bytes = ++next;
  account.flows.tcp_retransmitted_bytes = ++next;
  account.flows.tcp_dropped_bytes = ++next;
  account.flows.tcp_unfinished_messages = ++next;
  account.flows.tcp_resets = ++next;
  account.fragments.reassembled = ++next;
  account.fragments.cut_datagrams = ++next;
  account.fragments.expired = ++next;
  account.fragments.dropped = ++next;
  account.fragments.inconsistent = ++next;
  account.fragments_held = ++next;
  account.clock_steps_back = ++next;
  const std::string text = AccountText(account);
  CHECK(text.find(
            "details    1 malformed, 2 retransmits, 3 question_mismatches, 4 cut_messages, 5 mappings, 6 flows, "
            "7 flows_evicted, 8 tcp_cut_messages, 9 tcp_gaps, 10 tcp_skipped_bytes, "
            "11 tcp_retransmitted_bytes, 12 tcp_dropped_bytes, 13 tcp_unfinished_messages, 14 tcp_resets, "
            "15 fragments_reassembled, 16 fragments_cut_datagrams, 17 fragments_expired, "
            "18 fragments_dropped, 19 fragments_inconsistent, 20 fragments_held, 21 clock_steps_back\n") !=
        std::string::npos);
  const auto json = AccountJson(account);
  CHECK(json["details"].size() == 21);
  CHECK(json["details"]["malformed"] == 1);
  CHECK(json["details"]["clock_steps_back"] == 21);
  CHECK(AccountText(Account()).find("details") == std::string::npos);
}

TEST_CASE("interfaces and hidden clients are told of in both forms") {
  Account account;
  CHECK(AccountText(account).find("interface") == std::string::npos);
  CHECK(AccountText(account).find("clients") == std::string::npos);
  account.interfaces = {{.interface = "eth0", .received = 3, .dropped = 2, .dropped_by_interface = 1}};
  account.client_mask = ClientMask("24,48");
  const std::string text = AccountText(account);
  CHECK(text.find("interface  eth0: 3 received, 2 dropped by the kernel, 1 by the interface\n") !=
        std::string::npos);
  CHECK(text.find("clients    hidden but for 24 bits of an IPv4 and 48 bits of an IPv6 address\n") !=
        std::string::npos);
  const auto json = AccountJson(account);
  CHECK(json["interfaces"]["eth0"] ==
        nlohmann::ordered_json{{"received", 3}, {"dropped", 2}, {"dropped_by_interface", 1}});
  CHECK(json["client_mask"] == nlohmann::ordered_json{{"ipv4_bits", 24}, {"ipv6_bits", 48}});
}

TEST_CASE("conditions show how many exchanges they left") {
  Account account = Whole();
  account.shown = 4;
  CHECK(AccountText(account).find("shown      4\n") != std::string::npos);
}

TEST_CASE("packets that no filter could judge are told by their link type") {
  Account account = Whole();
  account.not_filtered = {{"PPP", 3}};
  CHECK(AccountText(account).find("filter     3 packets of PPP cannot be filtered and were left out\n") !=
        std::string::npos);
  CHECK(AccountJson(account)["not_filtered"]["PPP"] == 3);
}

TEST_CASE("the JSON form holds the same numbers, zeros included") {
  const auto json = AccountJson(Whole());
  CHECK(json["packets"]["filtered"] == 5);
  CHECK(json["packets"]["total"] == Whole().packets);
  CHECK(json["queries"]["total"] == 30);
  CHECK(json["queries"]["begun"] == 20);
  CHECK(json["responses"]["unsolicited"] == 6);
  CHECK(json["exchanges"]["answered"] == 15);
  CHECK(json["exchanges"]["shown"] == 20);
  CHECK(json["details"]["tcp_gaps"] == 0);
  CHECK(json["lost"]["table_full_queries"] == 3);
  CHECK(json["unknown_link_types"]["USB_LINUX"] == 2);
  CHECK(json["adds_up"] == true);
}

TEST_CASE("the health line's figures stand beside the line") {
  const auto health = AccountJson(Whole())["health"];
  CHECK(health["line"] == Whole().health);
  CHECK(health["figures"].dump() == R"({"uop":6,"zqd":1,"mqd":0,"ur":6,"inj":2,"mor":4,"or":2,"rt":3})");
}

}  // namespace
}  // namespace output
