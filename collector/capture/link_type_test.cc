#include "collector/capture/link_type.h"

#include <doctest/doctest.h>
#include <pcap/pcap.h>

using capture::DltOfLinkType;
using capture::LinkTypeName;
using capture::LinkTypeOfFile;

TEST_CASE("a link type has libpcap's short name") {
  CHECK(LinkTypeName(0) == "NULL");
  CHECK(LinkTypeName(1) == "EN10MB");
  CHECK(LinkTypeName(113) == "LINUX_SLL");
  CHECK(LinkTypeName(276) == "LINUX_SLL2");
}

TEST_CASE("a link type whose number differs in libpcap has the right name") {
  CHECK(LinkTypeName(100) == "ATM_RFC1483");
  CHECK(LinkTypeName(101) == "RAW");
  CHECK(LinkTypeName(246) == "PFSYNC");
}

TEST_CASE("a link type that libpcap does not know is shown by its number") {
  CHECK(LinkTypeName(65000) == "LINKTYPE_65000");
}

TEST_CASE("raw IP has one number in files and another in libpcap") {
  CHECK(DltOfLinkType(101) == DLT_RAW);
  CHECK(DltOfLinkType(1) == DLT_EN10MB);
  CHECK(DltOfLinkType(228) == DLT_IPV4);
}

TEST_CASE("what old systems wrote for raw IP is raw IP") {
  CHECK(LinkTypeOfFile(12) == 101);
  CHECK(LinkTypeOfFile(14) == 101);
  CHECK(LinkTypeOfFile(13) == 13);
  CHECK(LinkTypeOfFile(101) == 101);
}
