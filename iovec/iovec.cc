#include "iovec/iovec.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace {

// The layout of the buffers and views, which the parsers of a host share.
static_assert(offsetof(FlatBuffer, length) == 0 && offsetof(FlatBuffer, data) == 8 && sizeof(FlatBuffer) == 16);
static_assert(offsetof(CompoundBuffer::IOEnt, data) == 0 && offsetof(CompoundBuffer::IOEnt, len) == 8);
static_assert(sizeof(CompoundBuffer::IOEnt) == 16);
static_assert(offsetof(CompoundBuffer, length) == 0 && offsetof(CompoundBuffer, data) == 8);
static_assert(offsetof(IOVec, nominal_len) == sizeof(std::string));
static_assert(offsetof(IOVec, buffer) == offsetof(IOVec, nominal_len) + 8);
static_assert(offsetof(IOVec, underflow_mode) == offsetof(IOVec, buffer) + sizeof(FlatBuffer));
static_assert(offsetof(IOVec, ok) == offsetof(IOVec, underflow_mode) + 4);
static_assert(offsetof(CompoundIOVec, nominal_len) == sizeof(std::string));
static_assert(offsetof(CompoundIOVec, buffer) == offsetof(CompoundIOVec, nominal_len) + 8);

constexpr CheckSite kHasBlocks{"iovec.cc", 8, "!data.empty()"};

// Hands the n bytes at `off` to `take(data, count)`, block by block. False when the blocks run out first.
template <typename Take>
bool ForEachPiece(const CompoundBuffer& buffer, uint64_t off, uint64_t n, Take take) {
  if (n == 0) return true;
  for (auto block = buffer.FindBlock(&off); block != buffer.data.end(); ++block) {
    const uint64_t count = std::min(block->len - off, n);
    take(block->data + off, count);
    n -= count;
    if (n == 0) return true;
    off = 0;
  }
  return false;
}

}  // namespace

bool FlatBuffer::CopyTo(std::string* out, uint64_t off, uint64_t n) const {
  if (off + n > length) return false;
  out->assign(data + static_cast<std::ptrdiff_t>(off), n);
  return true;
}

bool FlatBuffer::CopyTo(CompoundIOVec* out, uint64_t off, uint64_t n) const {
  out->Reset();
  if (length < off + n) return false;
  out->Append({data + static_cast<std::ptrdiff_t>(off), n});
  return true;
}

bool FlatBuffer::GetDelimitedString(std::string* out, uint64_t off, char delim) const {
  if (length <= off) return false;
  const std::string_view rest(data + off, length - off);
  const size_t end = rest.find(delim);
  if (end == std::string_view::npos) return false;
  out->assign(rest.substr(0, end));
  return true;
}

void CompoundBuffer::Truncate(uint64_t new_len) {
  if (new_len >= length) return;
  length = new_len;
  auto block = data.begin();
  while (block != data.end() && block->len < new_len) {
    new_len -= block->len;
    ++block;
  }
  if (block == data.end()) return;
  block->len = new_len;
  data.erase(block + 1, data.end());
}

CompoundBuffer::BlockIterator CompoundBuffer::FindBlock(uint64_t* off) const {
  check(!data.empty(), kHasBlocks);
  auto block = data.begin();
  // "<=": an offset at the end of a block is the start of the next one, and empty blocks hold no byte.
  while (block != data.end() && block->len <= *off) {
    *off -= block->len;
    ++block;
  }
  return block;
}

bool CompoundBuffer::GetBytes(void* dst, uint64_t off, uint64_t n) const {
  char* to = static_cast<char*>(dst);
  return ForEachPiece(*this, off, n,
                      [&to](const char* bytes, uint64_t count) { to = std::copy_n(bytes, count, to); });
}

bool CompoundBuffer::CopyTo(std::string* out, uint64_t off, uint64_t n) const {
  out->clear();
  return ForEachPiece(*this, off, n, [out](const char* bytes, uint64_t count) { out->append(bytes, count); });
}

bool CompoundBuffer::CopyTo(CompoundIOVec* out, uint64_t off, uint64_t n) const {
  out->Reset();
  return ForEachPiece(*this, off, n, [out](const char* bytes, uint64_t count) {
    out->AppendCopied({bytes, count});
  });
}

bool CompoundBuffer::GetDelimitedString(std::string* out, uint64_t off, char delim) const {
  if (length <= off) return false;
  out->clear();
  for (auto block = FindBlock(&off); block != data.end(); ++block) {
    const std::string_view rest(block->data + off, block->len - off);
    const size_t end = rest.find(delim);
    out->append(rest.substr(0, end));
    if (end != std::string_view::npos) return true;
    off = 0;
  }
  return false;
}

void CompoundIOVec::Reset() {
  buffer.length = 0;
  nominal_len = 0;
  buffer.data.clear();
}

void CompoundIOVec::Append(CompoundBuffer::IOEnt block) {
  buffer.data.push_back(block);
  buffer.length += block.len;
  nominal_len += block.len;
  check(GetLength() == nominal_len, kLengthsAgreeAfter);
}

void CompoundIOVec::AppendCopied(CompoundBuffer::IOEnt block) {
  check(GetLength() == nominal_len, kLengthsAgreeBefore);
  Append(block);
}
