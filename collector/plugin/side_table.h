#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "collector/flow/flow.h"
#include "collector/plugin/open_index.h"
#include "collector/plugin/question.h"

namespace plugin {

// What the host knows of a query that the parser holds open.
class alignas(64) OpenQuery {
 public:
  static constexpr size_t kInlineQuestion = 72;  // fits nearly every question, and the whole into two cache lines

  flow::Flow* flow = nullptr;
  int64_t time_ns = 0;
  int32_t request_id = 0;
  int32_t bytes = 0;  // nominal
  uint32_t retransmits = 0;
  uint16_t dns_id = 0;
  uint16_t flags = 0;
  bool cut = false;  // not wholly captured

  // Points into this object or at its overflow.
  Questions Question() const;

 private:
  friend class SideTable;

  bool question_complete = false;
  uint16_t question_count = 0;
  uint32_t question_size = 0;
  OpenQuery* next = nullptr;  // in its chain, or in the list of free ones
  std::unique_ptr<char[]> overflow;
  std::array<char, kInlineQuestion> inline_question;
};
static_assert(sizeof(OpenQuery) == 128);

// The open queries by request_id, and by flow and DNS identifier. Keeps the flows' open_queries and single_...
// members. Entries stay where they are until they are erased. Grows with the number of open queries and never
// shrinks; between growths only questions above 320 bytes are allocated.
//
// Parsers count request_id up. Its lowest bits choose the chain as they are, so that the table is walked in order;
// chains stay short, because what is open at one time are mostly neighbours.
class SideTable {
 public:
  // All overflow together. Beyond it a question is kept as far as it fits inline.
  static constexpr size_t kMaxOverflow = 64U << 20U;

  SideTable();

  // The flow must not have the identifier open.
  OpenQuery* Add(flow::Flow* flow, uint16_t dns_id, int32_t request_id);
  void SetQuestion(OpenQuery* query, const Questions& questions);

  OpenQuery* Find(int32_t request_id) const;                           // null when there is none
  void Prefetch(const flow::Flow& flow) const;                         // its one open query, for Find
  OpenQuery* FindOpen(const flow::Flow* flow, uint16_t dns_id) const;  // null when there is none
  std::vector<OpenQuery*> All() const;                                 // by ascending request_id

  void Erase(OpenQuery* query);

  size_t size() const { return used; }
  size_t indexed() const { return index.size(); }  // of flows with several
  size_t overflow_bytes() const { return overflow_used; }

 private:
  static constexpr size_t kBlock = 320;  // longer than any legal question, 259 bytes

  OpenQuery** Chain(int32_t request_id) const;
  OpenQuery* Allocate();
  void AddChunk();
  void Rehash();
  void OpenInFlow(const OpenQuery& query);
  void CloseInFlow(const OpenQuery& query);
  std::unique_ptr<char[]> TakeBlock(size_t size);
  void ReleaseQuestion(OpenQuery* query);

  std::vector<std::unique_ptr<OpenQuery[]>> chunks;
  std::unique_ptr<OpenQuery*[]> chains;
  size_t chain_count = 0;  // a power of two
  OpenQuery* free_list = nullptr;
  std::vector<std::unique_ptr<char[]>> spare_blocks;
  size_t overflow_used = 0;
  size_t used = 0;
  OpenIndex index;
};

}  // namespace plugin
