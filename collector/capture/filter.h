#pragma once

#include <pcap/pcap.h>

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>

#include "collector/capture/source.h"

namespace capture {

// The expression is wrong.
class FilterError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A filter expression in libpcap's language (pcap-filter(7)), compiled for each link type that turns up.
class Filter {
 public:
  // Throws FilterError with libpcap's message when the expression is wrong. It is tried on Ethernet.
  explicit Filter(const std::string& filter_expression);
  ~Filter();
  Filter(const Filter&) = delete;
  Filter& operator=(const Filter&) = delete;

  bool Matches(const Frame& frame);

  // Frames of link types for which libpcap cannot compile the expression, by the type's name. They do not match.
  const std::map<std::string, uint64_t>& NotFiltered() const { return not_filtered; }

 private:
  struct Program {
    bpf_program code{};
    bool compiled = false;
    uint64_t* missed = nullptr;  // where frames are counted when it is not
  };
  Program* ProgramFor(uint16_t link_type);

  std::string expression;
  std::map<uint16_t, Program> programs;
  uint16_t last_link_type = 1;  // most captures have one
  Program* last_program = nullptr;
  std::map<std::string, uint64_t> not_filtered;
};

}  // namespace capture
