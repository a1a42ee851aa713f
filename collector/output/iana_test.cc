#include "collector/output/iana.h"

#include <doctest/doctest.h>

#include <string>

namespace output {
namespace {

std::string Type(uint16_t type) {
  char text[kRoomForWord];
  return std::string(text, PutType(text, type));
}
std::string Class(uint16_t number) {
  char text[kRoomForWord];
  return std::string(text, PutClass(text, number));
}
std::string Rcode(uint16_t rcode) {
  char text[kRoomForWord];
  return std::string(text, PutRcode(text, rcode));
}

TEST_CASE("record types have their registered names") {
  CHECK(Type(1) == "A");
  CHECK(Type(28) == "AAAA");
  CHECK(Type(13) == "HINFO");
  CHECK(Type(14) == "MINFO");
  CHECK(Type(65) == "HTTPS");
  CHECK(Type(255) == "ANY");
  CHECK(Type(257) == "CAA");
  CHECK(Type(264) == "IPN");
  CHECK(Type(32768) == "TA");
  CHECK(Type(32769) == "DLV");
}

TEST_CASE("types without a name are numbers") {
  CHECK(Type(0) == "TYPE0");
  CHECK(Type(54) == "TYPE54");
  CHECK(Type(123) == "TYPE123");
  CHECK(Type(265) == "TYPE265");
  CHECK(Type(32770) == "TYPE32770");
  CHECK(Type(65535) == "TYPE65535");
}

TEST_CASE("classes have their registered names") {
  CHECK(Class(1) == "IN");
  CHECK(Class(3) == "CH");
  CHECK(Class(4) == "HS");
  CHECK(Class(254) == "NONE");
  CHECK(Class(255) == "ANY");
}

TEST_CASE("classes without a name are numbers") {
  CHECK(Class(0) == "CLASS0");
  CHECK(Class(2) == "CLASS2");
  CHECK(Class(256) == "CLASS256");
  CHECK(Class(65535) == "CLASS65535");
}

TEST_CASE("response codes have their registered names, extended ones too") {
  CHECK(Rcode(0) == "NOERROR");
  CHECK(Rcode(2) == "SERVFAIL");
  CHECK(Rcode(3) == "NXDOMAIN");
  CHECK(Rcode(5) == "REFUSED");
  CHECK(Rcode(11) == "DSOTYPENI");
  CHECK(Rcode(16) == "BADVERS");
  CHECK(Rcode(23) == "BADCOOKIE");
}

TEST_CASE("response codes without a name are numbers") {
  CHECK(Rcode(12) == "RCODE12");
  CHECK(Rcode(15) == "RCODE15");
  CHECK(Rcode(24) == "RCODE24");
  CHECK(Rcode(4095) == "RCODE4095");
}

TEST_CASE("no code is longer than promised") {
  int longest = 0;
  for (int number = 0; number <= 0xffff; ++number) {
    char text[32];
    const auto code = static_cast<uint16_t>(number);
    for (char* (*put)(char*, uint16_t) : {PutType, PutClass, PutRcode}) {
      longest = std::max(longest, static_cast<int>(put(text, code) - text));
    }
  }
  CHECK(longest <= kLongestCode);
}

}  // namespace
}  // namespace output
