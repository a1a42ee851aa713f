#include "util/url.h"

#include <doctest/doctest.h>

#include <cstdio>

TEST_CASE("a plus is a blank, an escape its byte, and the rest is copied") {
  CHECK(url_decode("a+b%41c") == "a bAc");
  CHECK(url_decode("plain-text_~.") == "plain-text_~.");
  CHECK(url_decode("").empty());
}

TEST_CASE("every byte can be escaped, with digits of either case") {
  for (int value = 1; value < 256; ++value) {
    char lower[4];
    char upper[4];
    snprintf(lower, sizeof lower, "%%%02x", static_cast<unsigned>(value) & 0xff);
    snprintf(upper, sizeof upper, "%%%02X", static_cast<unsigned>(value) & 0xff);
    const std::string expected(1, static_cast<char>(value));
    CHECK(url_decode(lower) == expected);
    CHECK(url_decode(upper) == expected);
  }
  CHECK(url_decode("%00") == std::string(1, '\0'));
}

TEST_CASE("what an escape gives is not decoded again") { CHECK(url_decode("%2541%2B") == "%41+"); }

TEST_CASE("an incomplete escape ends the decoding") {
  CHECK(url_decode("a+b%41%4") == "a bA");
  CHECK(url_decode("a%") == "a");
  CHECK(url_decode("a%4") == "a");
}

TEST_CASE("an escape without two hex digits drops itself and all that follows") {
  CHECK(url_decode("%zz1").empty());
  CHECK(url_decode("a%4gb") == "a");
  CHECK(url_decode("a%g4b") == "a");
  CHECK(url_decode("a%%41") == "a");
  CHECK(url_decode("a%+1b") == "a");
}

TEST_CASE("the counted form decodes exactly the given bytes, NUL bytes included") {
  std::string out;
  url_decode("a\0+b%41tail", 7, &out);
  CHECK(out == std::string("a\0 bA", 5));
}

TEST_CASE("the counted form does not complete an escape from behind the given length") {
  for (const size_t length : {size_t{2}, size_t{3}}) {
    std::string out;
    url_decode("a%41", length, &out);
    CHECK(out == "a");
  }
  std::string out;
  url_decode("a%41", 4, &out);
  CHECK(out == "aA");
  out.clear();
  url_decode("a", 0, &out);
  CHECK(out.empty());
}

TEST_CASE("the forms with an output append to it") {
  std::string out = "x=";
  url_decode("a+b", 3, &out);
  url_decode("%21", &out);
  CHECK(out == "x=a b!");
}

TEST_CASE("the forms with an output keep what they had when decoding stops") {
  std::string out = "x=";
  url_decode("a%zz", &out);
  CHECK(out == "x=a");
}

TEST_CASE("the forms without a count stop at the first NUL byte") {
  const std::string text("a+b\0c", 5);
  std::string out;
  url_decode(text.c_str(), &out);
  CHECK(out == "a b");
  CHECK(url_decode(text.c_str()) == "a b");
  CHECK(url_decode(text) == "a b");
}

TEST_CASE("the string form decodes as the others do") { CHECK(url_decode(std::string("a+b%41%4")) == "a bA"); }
