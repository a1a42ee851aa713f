#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/death.h"
#include "tests/support/dns_builder.h"
#include "tests/support/packet_builder.h"
#include "tests/support/pcap_writer.h"
#include "tests/support/temporary_file.h"

// Runs the built program on captures made for the purpose.
namespace cli {

inline constexpr int64_t kSecond = 1000000000;
inline constexpr int64_t kMillisecond = 1000000;
inline constexpr int64_t kStart = 1700000000 * kSecond;  // when the captures begin

// Replaces the process by the program.
[[noreturn]] inline void ExecProgram(const std::vector<std::string>& arguments) {
  std::vector<char*> raw{const_cast<char*>(DNSPAIR_PROGRAM)};
  for (const std::string& argument : arguments) raw.push_back(const_cast<char*>(argument.c_str()));
  raw.push_back(nullptr);
  execv(DNSPAIR_PROGRAM, raw.data());
  _exit(127);
}

// Runs it to its end, with `input` as its standard input.
inline test::ChildResult RunProgram(const std::vector<std::string>& arguments, const std::string& input = {}) {
  const test::TemporaryFile file(input);
  return test::RunInChild([&] {
    const int fd = open(file.path.c_str(), O_RDONLY);
    dup2(fd, STDIN_FILENO);
    ExecProgram(arguments);
  });
}

// The bytes of a file; none where it cannot be read.
inline std::string Content(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

// The lines of a text, without their ends.
inline std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

inline std::vector<nlohmann::json> JsonLines(const std::string& text) {
  std::vector<nlohmann::json> records;
  for (const std::string& line : Lines(text)) records.push_back(nlohmann::json::parse(line));
  return records;
}

// A capture of UDP messages between one client and one server.
class CaptureForTests {
 public:
  CaptureForTests& Query(int64_t after_ns, const test::Message& message, uint16_t port = 40000) {
    return Frame(after_ns, test::Packet()
                               .Ethernet()
                               .Ipv4("192.0.2.1", "198.51.100.53")
                               .Udp(port, 53)
                               .Payload(test::ToBytes(message.Wire())));
  }
  CaptureForTests& Response(int64_t after_ns, const test::Message& message, uint16_t port = 40000) {
    return Frame(after_ns, test::Packet()
                               .Ethernet()
                               .Ipv4("198.51.100.53", "192.0.2.1")
                               .Udp(53, port)
                               .Payload(test::ToBytes(message.Wire())));
  }

  // A frame without DNS, to let time pass.
  CaptureForTests& Nothing(int64_t after_ns) { return Frame(after_ns, test::Packet().Ethernet().Type(0x0806)); }

  CaptureForTests& Frame(int64_t after_ns, const test::Packet& packet) {
    const test::Bytes bytes = packet.Frame();
    writer.Frame(kStart + after_ns, std::string(bytes.begin(), bytes.end()));
    return *this;
  }

  const std::string& Bytes() const { return writer.Bytes(); }

 private:
  test::PcapWriter writer{test::PcapSettings{.magic = test::kPcapNanoseconds}};
};

// One answered query, one NXDOMAIN, one that times out, one that is open at the end.
inline CaptureForTests SmallCapture() {
  using test::A;
  using test::kA;
  CaptureForTests capture;
  capture.Query(0, test::Query(1).Question("www.example", kA))
      .Response(2 * kMillisecond,
                test::Response(1).Question("www.example", kA).Answer("www.example", A("192.0.2.80")))
      .Query(10 * kMillisecond, test::Query(2).Question("nothing.example", test::kAaaa))
      .Response(210 * kMillisecond, test::Response(2).Question("nothing.example", test::kAaaa).Rcode(3))
      .Query(300 * kMillisecond, test::Query(3).Question("silent.example", kA))
      .Nothing(8 * kSecond)
      .Query(9 * kSecond, test::Query(4).Question("late.example", kA));
  return capture;
}

}  // namespace cli
