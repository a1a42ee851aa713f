#include "collector/capture/filter.h"

#include <memory>

#include "collector/capture/link_type.h"

namespace capture {
namespace {

constexpr uint16_t kEthernet = 1;
constexpr int kLongestFrame = 262144;

// "" when the expression was compiled, else libpcap's message.
std::string Compile(const std::string& expression, uint16_t link_type, bpf_program* code) {
  const std::unique_ptr<pcap_t, void (*)(pcap_t*)> dead(pcap_open_dead(DltOfLinkType(link_type), kLongestFrame),
                                                        pcap_close);
  if (dead == nullptr) return "not enough memory";
  constexpr int kOptimise = 1;
  if (pcap_compile(dead.get(), code, expression.c_str(), kOptimise, PCAP_NETMASK_UNKNOWN) == 0) return {};
  return pcap_geterr(dead.get());
}

}  // namespace

Filter::Filter(const std::string& filter_expression) : expression(filter_expression) {
  Program& ethernet = programs[kEthernet];
  const std::string problem = Compile(expression, kEthernet, &ethernet.code);
  if (!problem.empty()) throw FilterError("filter '" + expression + "': " + problem);
  ethernet.compiled = true;
  last_program = &ethernet;
}

Filter::~Filter() {
  for (auto& [link_type, program] : programs) {
    if (program.compiled) pcap_freecode(&program.code);
  }
}

bool Filter::Matches(const Frame& frame) {
  if (frame.link_type != last_link_type) {
    last_program = ProgramFor(frame.link_type);
    last_link_type = frame.link_type;
  }
  if (!last_program->compiled) {
    ++*last_program->missed;
    return false;
  }
  return bpf_filter(last_program->code.bf_insns, frame.data, frame.wire, frame.captured) != 0;
}

Filter::Program* Filter::ProgramFor(uint16_t link_type) {
  const auto [entry, is_new] = programs.try_emplace(link_type);
  Program& program = entry->second;
  if (!is_new) return &program;
  program.compiled = Compile(expression, link_type, &program.code).empty();
  if (!program.compiled) program.missed = &not_filtered[LinkTypeName(link_type)];
  return &program;
}

}  // namespace capture
