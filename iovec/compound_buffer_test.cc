#include <doctest/doctest.h>

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "iovec/iovec.h"
#include "tests/support/death.h"

using test::FatalLine;

namespace {

// A buffer over blocks with these texts, which it owns.
struct Blocks {
  Blocks(std::initializer_list<const char*> block_texts) : texts(block_texts.begin(), block_texts.end()) {
    for (const std::string& text : texts) {
      buffer.data.push_back({text.data(), text.size()});
      buffer.length += text.size();
      whole += text;
    }
  }
  std::vector<std::string> texts;
  std::string whole;
  CompoundBuffer buffer;
};

std::vector<uint64_t> Lengths(const CompoundBuffer& buffer) {
  std::vector<uint64_t> lengths;
  for (const CompoundBuffer::IOEnt& block : buffer.data) lengths.push_back(block.len);
  return lengths;
}

using Counts = std::vector<uint64_t>;

// The index of the block that FindBlock reaches, the number of blocks standing for the end; `off` moves with it.
std::ptrdiff_t Found(const CompoundBuffer& buffer, uint64_t* off) {
  return buffer.FindBlock(off) - buffer.data.begin();
}

const std::string kNoBlocks = "{ERROR}-iovec.cc:8: failed condition: !data.empty()\n";
const std::string kLengthsDifferBefore = "{ERROR}-iovec.h:192: failed condition: GetLength() == nominal_len\n";
const std::string kLengthsDifferAfter = "{ERROR}-iovec.h:195: failed condition: GetLength() == nominal_len\n";

}  // namespace

TEST_CASE("compound buffers and views are built empty") {
  const CompoundBuffer buffer;
  CHECK(buffer.length == 0);
  CHECK(buffer.data.empty());
  const CompoundIOVec view;
  CHECK(view.GetLength() == 0);
  CHECK(view.nominal_len == 0);
  CHECK(view.buffer.data.empty());
}

TEST_CASE("truncating to the length or beyond changes nothing") {
  Blocks blocks = {"abc", "de", ""};
  blocks.buffer.Truncate(5);
  blocks.buffer.Truncate(6);
  CHECK(blocks.buffer.length == 5);
  CHECK(Lengths(blocks.buffer) == Counts{3, 2, 0});
  CompoundBuffer empty;
  empty.Truncate(0);
  CHECK(empty.data.empty());
}

TEST_CASE("truncating inside the third block shortens it and drops those behind") {
  Blocks blocks = {"abc", "de", "fghi", "jk", "l"};
  blocks.buffer.Truncate(7);
  CHECK(blocks.buffer.length == 7);
  CHECK(Lengths(blocks.buffer) == Counts{3, 2, 2});
  CHECK(blocks.buffer.data[2].data == blocks.texts[2].data());
}

TEST_CASE("truncating at the end of a block keeps it whole and nothing behind it") {
  Blocks blocks = {"abc", "de", "", "fghi"};
  blocks.buffer.Truncate(5);
  CHECK(Lengths(blocks.buffer) == Counts{3, 2});
}

TEST_CASE("truncating to 0 keeps one empty block") {
  Blocks blocks = {"abc", "de"};
  blocks.buffer.Truncate(0);
  CHECK(blocks.buffer.length == 0);
  CHECK(Lengths(blocks.buffer) == Counts{0});
}

TEST_CASE("truncating a buffer whose blocks are shorter than its length stops at their end") {
  Blocks blocks = {"abc"};
  blocks.buffer.length = 9;
  blocks.buffer.Truncate(5);
  CHECK(blocks.buffer.length == 5);
  CHECK(Lengths(blocks.buffer) == Counts{3});
}

TEST_CASE("FindBlock moves on from an offset at the end of a block, and over empty blocks") {
  const Blocks blocks = {"", "abc", "", "de"};
  const struct {
    uint64_t off;
    std::ptrdiff_t block;
    uint64_t inner;
  } rows[] = {{0, 1, 0}, {2, 1, 2}, {3, 3, 0}, {4, 3, 1}, {5, 4, 0}, {9, 4, 4}};
  for (const auto& row : rows) {
    CAPTURE(row.off);
    uint64_t off = row.off;
    CHECK(Found(blocks.buffer, &off) == row.block);
    CHECK(off == row.inner);
  }
}

TEST_CASE("FindBlock without blocks is fatal") {
  CHECK(FatalLine([] {
          uint64_t off = 0;
          CompoundBuffer().FindBlock(&off);
        }) == kNoBlocks);
}

TEST_CASE("every read of a compound buffer gives the bytes of the whole string") {
  const Blocks blocks = {"", "abc", "", "d", "efgh", ""};
  for (uint64_t off = 0; off <= 9; ++off) {
    for (uint64_t n = 0; n <= 10; ++n) {
      CAPTURE(off);
      CAPTURE(n);
      const bool there = n == 0 || off + n <= blocks.whole.size();
      const std::string bytes = off < blocks.whole.size() ? blocks.whole.substr(off, n) : "";

      std::string destination(n + 1, '#');
      CHECK(blocks.buffer.GetBytes(destination.data(), off, n) == there);
      CHECK(destination == bytes + std::string(n + 1 - bytes.size(), '#'));

      std::string text = "before";
      CHECK(blocks.buffer.CopyTo(&text, off, n) == there);
      CHECK(text == bytes);

      CompoundIOVec view;
      CHECK(blocks.buffer.CopyTo(&view, off, n) == there);
      CHECK(view.GetLength() == bytes.size());
      CHECK(view.nominal_len == bytes.size());
      std::string viewed;
      for (const auto& block : view.buffer.data) viewed.append(block.data, block.len);
      CHECK(viewed == bytes);
    }
  }
}

TEST_CASE("compound reads of no bytes succeed even without blocks") {
  const CompoundBuffer empty;
  CHECK(empty.GetBytes(nullptr, 99, 0));
  std::string text = "before";
  CHECK(empty.CopyTo(&text, 99, 0));
  CHECK(text.empty());
  CompoundIOVec view;
  view.Append({"abc", 3});
  CHECK(empty.CopyTo(&view, 99, 0));
  CHECK(view.GetLength() == 0);
  CHECK(view.nominal_len == 0);
  CHECK(view.buffer.data.empty());
}

TEST_CASE("compound reads of some bytes without blocks are fatal") {
  CHECK(FatalLine([] {
          char byte = 0;
          CompoundBuffer().GetBytes(&byte, 0, 1);
        }) == kNoBlocks);
  CHECK(FatalLine([] {
          std::string text;
          CompoundBuffer().CopyTo(&text, 0, 1);
        }) == kNoBlocks);
  CHECK(FatalLine([] {
          CompoundIOVec view;
          CompoundBuffer().CopyTo(&view, 0, 1);
        }) == kNoBlocks);
}

TEST_CASE("a failed compound read leaves what there was, and no fill") {
  const Blocks blocks = {"ab", "cd"};
  std::string destination(4, '#');
  CHECK_FALSE(blocks.buffer.GetBytes(destination.data(), 1, 4));
  CHECK(destination == "bcd#");
  std::string past(2, '#');
  CHECK_FALSE(blocks.buffer.GetBytes(past.data(), 4, 2));
  CHECK(past == "##");
}

TEST_CASE("a compound copy to a string empties it even past the end") {
  const Blocks blocks = {"ab", "cd"};
  std::string text = "before";
  CHECK_FALSE(blocks.buffer.CopyTo(&text, 4, 1));
  CHECK(text.empty());
}

TEST_CASE("a compound copy to a view has a block for each block it crosses, empty ones included") {
  const Blocks blocks = {"abc", "", "de", "fgh"};
  CompoundIOVec view;
  view.Append({"old", 3});
  CHECK(blocks.buffer.CopyTo(&view, 1, 5));
  CHECK(view.GetLength() == 5);
  CHECK(view.nominal_len == 5);
  CHECK(Lengths(view.buffer) == Counts{2, 0, 2, 1});
  CHECK(view.buffer.data[0].data == blocks.texts[0].data() + 1);
  CHECK(view.buffer.data[2].data == blocks.texts[2].data());
  CHECK(view.buffer.data[3].data == blocks.texts[3].data());
}

TEST_CASE("a compound copy to a view ends with the block that completes it") {
  const Blocks blocks = {"abc", "", "de"};
  CompoundIOVec view;
  CHECK(blocks.buffer.CopyTo(&view, 0, 3));
  CHECK(Lengths(view.buffer) == Counts{3});
}

TEST_CASE("a compound copy to a view past the end empties the view, or leaves it the blocks there were") {
  const Blocks blocks = {"ab", "cd"};
  CompoundIOVec view;
  view.Append({"old", 3});
  CHECK_FALSE(blocks.buffer.CopyTo(&view, 4, 1));
  CHECK(view.buffer.data.empty());
  CHECK(view.nominal_len == 0);
  CHECK_FALSE(blocks.buffer.CopyTo(&view, 1, 9));
  CHECK(Lengths(view.buffer) == Counts{1, 2});
  CHECK(view.nominal_len == 3);
}

TEST_CASE("a view whose lengths differ behind a new block is fatal") {
  CHECK(FatalLine([] {
          CompoundIOVec view;
          view.nominal_len = 1;
          view.Append({"abc", 3});
        }) == kLengthsDifferAfter);
}

TEST_CASE("a view whose lengths differ before a copied block is fatal") {
  CHECK(FatalLine([] {
          CompoundIOVec view;
          view.nominal_len = 1;
          view.AppendCopied({"abc", 3});
        }) == kLengthsDifferBefore);
}

TEST_CASE("a compound delimited string ends in front of the delimiter, across blocks") {
  const Blocks blocks = {"", "ab", "", "c,", "de,f"};
  std::string out = "before";
  CHECK(blocks.buffer.GetDelimitedString(&out, 0, ','));
  CHECK(out == "abc");
  CHECK(blocks.buffer.GetDelimitedString(&out, 1, ','));
  CHECK(out == "bc");
  CHECK(blocks.buffer.GetDelimitedString(&out, 3, ','));
  CHECK(out.empty());
  CHECK(blocks.buffer.GetDelimitedString(&out, 4, ','));
  CHECK(out == "de");
}

TEST_CASE("a compound delimited string without a delimiter keeps the partial text") {
  const Blocks blocks = {"ab,", "cd", "ef"};
  std::string out = "before";
  CHECK_FALSE(blocks.buffer.GetDelimitedString(&out, 4, ','));
  CHECK(out == "def");
}

TEST_CASE("a compound delimited string from the end leaves the string alone") {
  const Blocks blocks = {"ab", "cd"};
  std::string out = "before";
  CHECK_FALSE(blocks.buffer.GetDelimitedString(&out, 4, 'd'));
  CHECK_FALSE(blocks.buffer.GetDelimitedString(&out, 99, 'd'));
  CHECK_FALSE(CompoundBuffer().GetDelimitedString(&out, 0, 'd'));
  CHECK(out == "before");
}

TEST_CASE("a compound delimited string of a buffer that lost its blocks is fatal") {
  CHECK(FatalLine([] {
          CompoundBuffer buffer;
          buffer.length = 3;
          std::string out;
          buffer.GetDelimitedString(&out, 0, ',');
        }) == kNoBlocks);
}
