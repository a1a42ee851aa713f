#include <doctest/doctest.h>

#include <cstdint>
#include <string>

#include "iovec/iovec.h"

namespace {

const std::string kText = "one,two,three";

FlatBuffer Flat(const std::string& bytes) { return {bytes.size(), bytes.data()}; }

// A view that held something before.
CompoundIOVec Used() {
  CompoundIOVec view;
  view.Append({kText.data(), 3});
  view.Append({kText.data() + 4, 3});
  return view;
}

bool IsEmpty(const CompoundIOVec& view) {
  return view.GetLength() == 0 && view.nominal_len == 0 && view.buffer.data.empty();
}

}  // namespace

TEST_CASE("a flat buffer is built empty and can be filled") {
  FlatBuffer buffer;
  CHECK(buffer.length == 0);
  buffer.data = kText.data();
  buffer.length = 3;
  std::string out;
  CHECK(buffer.CopyTo(&out, 0, 3));
  CHECK(out == "one");
}

TEST_CASE("a flat copy to a string replaces it with the bytes asked for") {
  std::string out = "before";
  CHECK(Flat(kText).CopyTo(&out, 4, 3));
  CHECK(out == "two");
  CHECK(Flat(kText).CopyTo(&out, 8, 5));
  CHECK(out == "three");
  CHECK(Flat(kText).CopyTo(&out, 13, 0));
  CHECK(out.empty());
}

TEST_CASE("a flat copy to a string past the end leaves the string alone") {
  std::string out = "before";
  CHECK_FALSE(Flat(kText).CopyTo(&out, 8, 6));
  CHECK_FALSE(Flat(kText).CopyTo(&out, 14, 0));
  CHECK(out == "before");
}

TEST_CASE("a flat copy to a view is one block in place of what the view held") {
  CompoundIOVec out = Used();
  CHECK(Flat(kText).CopyTo(&out, 4, 9));
  CHECK(out.GetLength() == 9);
  CHECK(out.nominal_len == 9);
  REQUIRE(out.buffer.data.size() == 1);
  CHECK(out.buffer.data[0].data == kText.data() + 4);
  CHECK(out.buffer.data[0].len == 9);
}

TEST_CASE("a flat copy of no bytes to a view is one empty block") {
  CompoundIOVec out = Used();
  CHECK(Flat(kText).CopyTo(&out, 13, 0));
  CHECK(out.GetLength() == 0);
  REQUIRE(out.buffer.data.size() == 1);
  CHECK(out.buffer.data[0].data == kText.data() + 13);
  CHECK(out.buffer.data[0].len == 0);
}

TEST_CASE("a flat copy to a view past the end leaves the view empty") {
  CompoundIOVec out = Used();
  CHECK_FALSE(Flat(kText).CopyTo(&out, 8, 6));
  CHECK(IsEmpty(out));
}

TEST_CASE("a flat copy sums offset and count without a guard against wrapping") {
  const FlatBuffer tail{5, kText.data() + 8};
  std::string out;
  CHECK(tail.CopyTo(&out, UINT64_MAX, 2));
  CHECK(out == ",t");
  CompoundIOVec view;
  CHECK(tail.CopyTo(&view, UINT64_MAX, 2));
  CHECK(view.buffer.data[0].data == kText.data() + 7);
}

TEST_CASE("a flat delimited string ends in front of the delimiter") {
  std::string out = "before";
  CHECK(Flat(kText).GetDelimitedString(&out, 0, ','));
  CHECK(out == "one");
  CHECK(Flat(kText).GetDelimitedString(&out, 4, ','));
  CHECK(out == "two");
  CHECK(Flat(kText).GetDelimitedString(&out, 3, ','));
  CHECK(out.empty());
  CHECK(Flat(kText).GetDelimitedString(&out, 8, 'e'));
  CHECK(out == "thr");
}

TEST_CASE("a flat delimiter may be the last byte, or a NUL") {
  const std::string bytes("a\0b;", 4);
  std::string out;
  CHECK(Flat(bytes).GetDelimitedString(&out, 0, ';'));
  CHECK(out == std::string("a\0b", 3));
  CHECK(Flat(bytes).GetDelimitedString(&out, 0, '\0'));
  CHECK(out == "a");
}

TEST_CASE("a flat delimited string without a delimiter leaves the string alone") {
  std::string out = "before";
  CHECK_FALSE(Flat(kText).GetDelimitedString(&out, 8, ','));
  CHECK_FALSE(Flat(kText).GetDelimitedString(&out, 13, ','));
  CHECK_FALSE(Flat(kText).GetDelimitedString(&out, 99, ','));
  CHECK_FALSE(FlatBuffer().GetDelimitedString(&out, 0, ','));
  CHECK(out == "before");
}

TEST_CASE("a flat delimiter behind the end is not found") {
  const FlatBuffer three{3, kText.data()};
  std::string out = "before";
  CHECK_FALSE(three.GetDelimitedString(&out, 0, ','));
  CHECK(out == "before");
}
