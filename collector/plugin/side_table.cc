#include "collector/plugin/side_table.h"

#include <algorithm>
#include <utility>

namespace plugin {
namespace {

constexpr size_t kChunk = 512;  // entries allocated together
constexpr size_t kInitialChains = 1024;
constexpr size_t kTypeAndClass = 4;

// As many whole questions as fit into `room`.
Questions Shorten(const Questions& questions, size_t room) {
  Questions kept{questions.bytes.substr(0, 0), 0, false, 0};
  size_t at = 0;
  while (kept.count < questions.count) {
    while (questions.bytes[at] != 0) at += 1U + static_cast<uint8_t>(questions.bytes[at]);
    at += 1 + kTypeAndClass;
    if (at > room) break;
    kept.bytes = questions.bytes.substr(0, at);
    ++kept.count;
  }
  return kept;
}

}  // namespace

Questions OpenQuery::Question() const {
  const char* start = question_size > kInlineQuestion ? overflow.get() : inline_question.data();
  return {{start, question_size}, question_count, question_complete, 0};
}

SideTable::SideTable() : chains(new OpenQuery* [kInitialChains] {}), chain_count(kInitialChains) {}

OpenQuery* SideTable::Add(flow::Flow* flow, uint16_t dns_id, int32_t request_id) {
  if (used + 1 > chain_count) Rehash();
  OpenQuery* query = Allocate();
  query->flow = flow;
  query->dns_id = dns_id;
  query->request_id = request_id;
  OpenInFlow(*query);
  OpenQuery** chain = Chain(request_id);
  query->next = *chain;
  *chain = query;
  ++used;
  return query;
}

void SideTable::SetQuestion(OpenQuery* query, const Questions& questions) {
  ReleaseQuestion(query);
  const bool fits = questions.bytes.size() <= OpenQuery::kInlineQuestion ||
                    overflow_used + std::max(questions.bytes.size(), kBlock) <= kMaxOverflow;
  const Questions kept = fits ? questions : Shorten(questions, OpenQuery::kInlineQuestion);
  char* room = query->inline_question.data();
  if (kept.bytes.size() > OpenQuery::kInlineQuestion) {
    query->overflow = TakeBlock(kept.bytes.size());
    room = query->overflow.get();
  }
  std::copy(kept.bytes.begin(), kept.bytes.end(), room);
  query->question_size = static_cast<uint32_t>(kept.bytes.size());
  query->question_count = kept.count;
  query->question_complete = kept.complete;
}

OpenQuery* SideTable::Find(int32_t request_id) const {
  OpenQuery* query = *Chain(request_id);
  while (query != nullptr && query->request_id != request_id) query = query->next;
  return query;
}

void SideTable::Prefetch(const flow::Flow& flow) const {
  if (flow.open_queries == 0 || !flow.single_open) return;
  const auto* line = reinterpret_cast<const char*>(*Chain(flow.single_request_id));
  __builtin_prefetch(line);
  __builtin_prefetch(line + 64);
}

OpenQuery* SideTable::FindOpen(const flow::Flow* flow, uint16_t dns_id) const {
  if (flow->open_queries == 0) return nullptr;
  if (flow->single_open) return flow->single_dns_id == dns_id ? Find(flow->single_request_id) : nullptr;
  const int32_t* request_id = index.Find(flow, dns_id);
  return request_id != nullptr ? Find(*request_id) : nullptr;
}

std::vector<OpenQuery*> SideTable::All() const {
  std::vector<OpenQuery*> all;
  for (size_t i = 0; i < chain_count; ++i) {
    for (OpenQuery* query = chains[i]; query != nullptr; query = query->next) all.push_back(query);
  }
  std::sort(all.begin(), all.end(), [](const auto* a, const auto* b) { return a->request_id < b->request_id; });
  return all;
}

void SideTable::Erase(OpenQuery* query) {
  OpenQuery** link = Chain(query->request_id);
  while (*link != query) link = &(*link)->next;
  *link = query->next;
  CloseInFlow(*query);
  ReleaseQuestion(query);
  query->flow = nullptr;
  query->next = std::exchange(free_list, query);
  --used;
}

OpenQuery** SideTable::Chain(int32_t request_id) const {
  return &chains[static_cast<uint32_t>(request_id) & (chain_count - 1)];
}

// The entry freed last comes first: it is still in the cache.
OpenQuery* SideTable::Allocate() {
  if (free_list == nullptr) AddChunk();
  OpenQuery* query = std::exchange(free_list, free_list->next);
  query->time_ns = 0;
  query->bytes = 0;
  query->retransmits = 0;
  query->flags = 0;
  query->cut = false;
  return query;
}

void SideTable::AddChunk() {
  chunks.push_back(std::make_unique<OpenQuery[]>(kChunk));
  for (size_t i = kChunk; i-- > 0;) {
    OpenQuery* query = &chunks.back()[i];
    query->next = std::exchange(free_list, query);
  }
}

void SideTable::Rehash() {
  std::unique_ptr<OpenQuery*[]> old(new OpenQuery* [chain_count * 2] {});
  old.swap(chains);
  const size_t old_count = std::exchange(chain_count, chain_count * 2);
  for (size_t i = 0; i < old_count; ++i) {
    for (OpenQuery* query = old[i]; query != nullptr;) {
      OpenQuery** chain = Chain(query->request_id);
      OpenQuery* following = std::exchange(query->next, *chain);
      *chain = query;
      query = following;
    }
  }
}

// A flow's only open query is noted in the flow itself. With the second one, all of them go to the index.
void SideTable::OpenInFlow(const OpenQuery& query) {
  flow::Flow& flow = *query.flow;
  if (flow.open_queries == 0) {
    flow.single_open = true;
    flow.single_dns_id = query.dns_id;
    flow.single_request_id = query.request_id;
  } else {
    index.Add(&flow, query.dns_id, query.request_id);
    if (flow.single_open) index.Add(&flow, flow.single_dns_id, flow.single_request_id);
    flow.single_open = false;
  }
  ++flow.open_queries;
}

void SideTable::CloseInFlow(const OpenQuery& query) {
  flow::Flow& flow = *query.flow;
  if (!flow.single_open) index.Erase(&flow, query.dns_id);
  --flow.open_queries;
}

std::unique_ptr<char[]> SideTable::TakeBlock(size_t size) {
  overflow_used += std::max(size, kBlock);
  if (size > kBlock) return std::make_unique<char[]>(size);
  if (spare_blocks.empty()) return std::make_unique<char[]>(kBlock);
  std::unique_ptr<char[]> block = std::move(spare_blocks.back());
  spare_blocks.pop_back();
  return block;
}

void SideTable::ReleaseQuestion(OpenQuery* query) {
  if (query->overflow == nullptr) return;
  overflow_used -= std::max<size_t>(query->question_size, kBlock);
  if (query->question_size <= kBlock) spare_blocks.push_back(std::move(query->overflow));
  query->overflow.reset();
  query->question_size = 0;
}

}  // namespace plugin
