#include "collector/plugin/side_table.h"

#include <doctest/doctest.h>

#include <limits>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "tests/support/dns_builder.h"

namespace plugin {
namespace {

// A question of exactly `size` bytes: labels of one letter, and the last of up to two.
std::string QuestionOf(size_t size, char letter = 'q') {
  std::string name;
  while (name.size() + 5 < size) {
    const size_t label = std::min<size_t>(size - 5 - name.size() - 1, 60);
    name += static_cast<char>(label) + std::string(label, letter);
  }
  return name + std::string(1, '\0') + std::string("\0\1\0\1", 4);
}

Questions AsQuestions(const std::string& bytes, uint16_t count = 1) { return {bytes, count, true, 0}; }

std::string Kept(const OpenQuery* query) { return std::string(query->Question().bytes); }

}  // namespace

TEST_CASE("an open query is found by its request number") {
  SideTable table;
  flow::Flow flow;
  OpenQuery* query = table.Add(&flow, 7, 100);
  CHECK(query->flow == &flow);
  CHECK(query->dns_id == 7);
  CHECK(query->request_id == 100);
  CHECK(query->time_ns == 0);
  CHECK(table.Find(100) == query);
  CHECK(table.Find(101) == nullptr);
  CHECK(table.Find(100 + 1024) == nullptr);
  CHECK(table.size() == 1);
  table.Erase(query);
  CHECK(table.Find(100) == nullptr);
  CHECK(table.size() == 0);
}

TEST_CASE("an entry that is used again has forgotten the one before") {
  SideTable table;
  flow::Flow flow;
  OpenQuery* first = table.Add(&flow, 7, 1);
  first->time_ns = 5;
  first->bytes = 6;
  first->retransmits = 7;
  first->flags = 8;
  first->cut = true;
  table.SetQuestion(first, AsQuestions(QuestionOf(100)));
  table.Erase(first);
  const OpenQuery* second = table.Add(&flow, 8, 2);
  CHECK(second == first);
  CHECK(second->time_ns == 0);
  CHECK(second->bytes == 0);
  CHECK(second->retransmits == 0);
  CHECK(second->flags == 0);
  CHECK_FALSE(second->cut);
  CHECK(Kept(second).empty());
}

TEST_CASE("request numbers may wrap around to negative ones and zero") {
  SideTable table;
  flow::Flow flow;
  uint16_t dns_id = 0;
  for (const int32_t id : {std::numeric_limits<int32_t>::max(), std::numeric_limits<int32_t>::min(), -1, 0, 1}) {
    const OpenQuery* query = table.Add(&flow, dns_id++, id);
    CHECK(table.Find(id) == query);
  }
  CHECK(table.size() == 5);
}

TEST_CASE("all entries come in the order of their numbers") {
  SideTable table;
  flow::Flow flow;
  CHECK(table.All().empty());
  for (const int32_t id : {5000, 1026, 3, 1027, 5}) table.Add(&flow, static_cast<uint16_t>(id), id);
  std::vector<int32_t> ids;
  for (const OpenQuery* query : table.All()) ids.push_back(query->request_id);
  CHECK(ids == std::vector<int32_t>{3, 5, 1026, 1027, 5000});
}

TEST_CASE("a flow's only query is noted in the flow, more of them are not") {
  SideTable table;
  flow::Flow flow;
  CHECK(table.FindOpen(&flow, 7) == nullptr);
  OpenQuery* first = table.Add(&flow, 7, 1);
  CHECK(flow.open_queries == 1);
  CHECK(flow.single_open);
  CHECK(flow.single_dns_id == 7);
  CHECK(flow.single_request_id == 1);
  CHECK(table.FindOpen(&flow, 7) == first);
  CHECK(table.FindOpen(&flow, 8) == nullptr);

  OpenQuery* second = table.Add(&flow, 8, 2);
  CHECK(flow.open_queries == 2);
  CHECK_FALSE(flow.single_open);
  CHECK(table.FindOpen(&flow, 7) == first);
  CHECK(table.FindOpen(&flow, 8) == second);

  table.Erase(first);
  CHECK(flow.open_queries == 1);
  CHECK(table.FindOpen(&flow, 7) == nullptr);
  CHECK(table.FindOpen(&flow, 8) == second);

  table.Erase(second);
  CHECK(flow.open_queries == 0);
  CHECK(table.FindOpen(&flow, 8) == nullptr);
  table.Add(&flow, 9, 3);
  CHECK(flow.single_open);
}

TEST_CASE("any order of queries and ends agrees with a plain model") {
  std::mt19937 random(7);
  SideTable table;
  std::vector<flow::Flow> flows(20);
  std::map<int32_t, std::pair<size_t, uint16_t>> model;
  int32_t next = 1;
  int wrong = 0;
  for (int step = 0; step < 100000; ++step) {
    const size_t which = random() % flows.size();
    const auto dns_id = static_cast<uint16_t>(random() % 200);
    OpenQuery* open = table.FindOpen(&flows[which], dns_id);
    if (open == nullptr) {
      if (step % 64 == 0) {
        for (const auto& [id, key] : model) wrong += key == std::pair(which, dns_id) ? 1 : 0;
      }
      OpenQuery* query = table.Add(&flows[which], dns_id, next);
      table.SetQuestion(query, AsQuestions(QuestionOf(6 + random() % 400)));
      model[next++] = {which, dns_id};
    } else if (const auto known = model.find(open->request_id); known == model.end()) {
      ++wrong;
    } else {
      if (known->second != std::pair(which, dns_id) || table.Find(known->first) != open) ++wrong;
      model.erase(known);
      table.Erase(open);
    }
  }
  CHECK(wrong == 0);
  CHECK(table.size() == model.size());
  for (OpenQuery* query : table.All()) table.Erase(query);
  CHECK(table.overflow_bytes() == 0);
  CHECK(table.indexed() == 0);
  for (const flow::Flow& flow : flows) CHECK(flow.open_queries == 0);
}

TEST_CASE("entries stay where they are while the table grows") {
  SideTable table;
  flow::Flow flow;
  std::vector<OpenQuery*> entries;
  for (int id = 0; id < 5000; ++id) {
    entries.push_back(table.Add(&flow, static_cast<uint16_t>(id), id));
    table.SetQuestion(entries.back(), AsQuestions(QuestionOf(20, static_cast<char>('a' + id % 26))));
  }
  int wrong = 0;
  for (int id = 0; id < 5000; ++id) {
    const OpenQuery* query = entries[static_cast<size_t>(id)];
    if (table.Find(id) != query || Kept(query) != QuestionOf(20, static_cast<char>('a' + id % 26))) ++wrong;
  }
  CHECK(wrong == 0);
}

TEST_CASE("questions of any length are kept whole") {
  SideTable table;
  flow::Flow flow;
  int32_t id = 0;
  for (const size_t size : {6U, 71U, 72U, 73U, 259U, 319U, 320U, 321U, 5000U, 65536U}) {
    const std::string question = QuestionOf(size);
    REQUIRE(question.size() == size);
    OpenQuery* query = table.Add(&flow, static_cast<uint16_t>(id), id);
    ++id;
    table.SetQuestion(query, AsQuestions(question));
    CHECK(Kept(query) == question);
    CHECK(query->Question().count == 1);
    CHECK(query->Question().complete);
  }
}

TEST_CASE("a question that is set again replaces the one before") {
  SideTable table;
  flow::Flow flow;
  OpenQuery* query = table.Add(&flow, 7, 1);
  for (const size_t size : {300U, 20U, 1000U, 100U}) {
    table.SetQuestion(query, AsQuestions(QuestionOf(size)));
    CHECK(Kept(query) == QuestionOf(size));
  }
  table.SetQuestion(query, AsQuestions(QuestionOf(20)));
  CHECK(table.overflow_bytes() == 0);
}

TEST_CASE("that a section was cut is kept with it") {
  SideTable table;
  flow::Flow flow;
  OpenQuery* query = table.Add(&flow, 7, 1);
  const std::string two = QuestionOf(10) + QuestionOf(12);
  table.SetQuestion(query, {two, 2, false, 0});
  CHECK(query->Question().count == 2);
  CHECK_FALSE(query->Question().complete);
}

TEST_CASE("overflow is bounded: beyond it whole questions are kept as far as they fit inline") {
  SideTable table;
  flow::Flow flow;
  const std::string large = QuestionOf(65536);
  int32_t id = 0;
  for (; table.overflow_bytes() + large.size() <= SideTable::kMaxOverflow; ++id) {
    table.SetQuestion(table.Add(&flow, static_cast<uint16_t>(id), id), AsQuestions(large));
  }
  OpenQuery* query = table.Add(&flow, static_cast<uint16_t>(id), id);
  table.SetQuestion(query, AsQuestions(large));
  CHECK(query->Question().count == 0);
  CHECK(Kept(query).empty());
  CHECK_FALSE(query->Question().complete);

  const std::string three = QuestionOf(30) + QuestionOf(42) + QuestionOf(6);
  table.SetQuestion(query, AsQuestions(three, 3));
  CHECK(Kept(query) == QuestionOf(30) + QuestionOf(42));
  CHECK(query->Question().count == 2);
  CHECK_FALSE(query->Question().complete);

  table.Erase(table.Find(0));
  table.SetQuestion(query, AsQuestions(three, 3));
  CHECK(Kept(query) == three);
}

}  // namespace plugin
