#include "collector/capture/live.h"

#include <net/if.h>
#include <pcap/pcap.h>
#include <poll.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "collector/capture/filter.h"
#include "collector/capture/link_type.h"

namespace capture {
namespace {

constexpr int kWaitMilliseconds = 100;
constexpr int kFramesAtATime = 256;  // of one interface, so that no other waits long
constexpr auto kBetweenLooks = std::chrono::seconds(1);
constexpr size_t kBatchBytes = size_t{8} << 20;  // copied frames of one Read

[[noreturn]] void Fail(const std::string& interface, const std::string& reason) {
  throw std::runtime_error(interface + ": " + reason);
}

// One interface, open.
class Interface {
 public:
  Interface(const std::string& interface_name, uint32_t source_number, const LiveSettings& settings)
      : name(interface_name), number(source_number) {
    char error[PCAP_ERRBUF_SIZE] = "";
    handle.reset(pcap_create(name.c_str(), error));
    if (handle == nullptr) Fail(name, error);
    pcap_set_snaplen(handle.get(), settings.snap_length);
    pcap_set_promisc(handle.get(), settings.promiscuous ? 1 : 0);
    pcap_set_timeout(handle.get(), kWaitMilliseconds);
    pcap_set_buffer_size(handle.get(), settings.buffer_bytes);
    const bool nanoseconds = pcap_set_tstamp_precision(handle.get(), PCAP_TSTAMP_PRECISION_NANO) == 0;
    Activate();
    ticks_ns = nanoseconds && pcap_get_tstamp_precision(handle.get()) == PCAP_TSTAMP_PRECISION_NANO ? 1 : 1000;
    link_type = LinkTypeOfFile(static_cast<uint16_t>(pcap_datalink(handle.get())));
    if (!settings.filter.empty()) SetFilter(settings.filter);
    if (pcap_setnonblock(handle.get(), 1, error) != 0) Fail(name, error);
  }

  // Takes what has arrived, at most kFramesAtATime. False when the interface is gone.
  bool Take(std::vector<Frame>* frames, std::vector<uint8_t>* bytes) {
    Taking taking{this, frames, bytes};
    return pcap_dispatch(handle.get(), kFramesAtATime, Copy, reinterpret_cast<u_char*>(&taking)) >= 0;
  }

  // What was true before where nobody can tell, as of "any".
  bool IsUp() const {
    ifreq request{};
    name.copy(request.ifr_name, IFNAMSIZ - 1);
    if (ioctl(pcap_fileno(handle.get()), SIOCGIFFLAGS, &request) != 0) return up;
    return (request.ifr_flags & IFF_UP) != 0;
  }

  std::string Error() const { return pcap_geterr(handle.get()); }
  int Descriptor() const { return pcap_get_selectable_fd(handle.get()); }

  // The kernel's counters are 32 bits wide and wrap; what is kept here does not.
  LiveCounts Counts() {
    pcap_stat now{};
    if (pcap_stats(handle.get(), &now) == 0) {
      counts.received += now.ps_recv - last.ps_recv;
      counts.dropped += now.ps_drop - last.ps_drop;
      counts.dropped_by_interface += now.ps_ifdrop - last.ps_ifdrop;
      last = now;
    }
    counts.interface = name;
    return counts;
  }

  const std::string name;
  bool up = true;
  bool gone = false;

 private:
  struct Taking {
    Interface* from;
    std::vector<Frame>* frames;
    std::vector<uint8_t>* bytes;
  };
  struct Close {
    void operator()(pcap_t* open) const { pcap_close(open); }
  };

  void Activate() {
    const int result = pcap_activate(handle.get());
    if (result >= 0) return;
    if (result == PCAP_ERROR_PERM_DENIED) {
      Fail(name, "no permission to capture; run as root or give the program CAP_NET_RAW and CAP_NET_ADMIN");
    }
    if (result == PCAP_ERROR_IFACE_NOT_UP) Fail(name, "the interface is down; 'ip link set " + name + " up' helps");
    if (result == PCAP_ERROR_NO_SUCH_DEVICE) Fail(name, "there is no such interface; 'ip link' lists them");
    const std::string why = pcap_geterr(handle.get());
    Fail(name, why.empty() ? pcap_statustostr(result) : why);
  }

  void SetFilter(const std::string& expression) {
    bpf_program program;
    if (pcap_compile(handle.get(), &program, expression.c_str(), 1, PCAP_NETMASK_UNKNOWN) != 0) {
      throw FilterError("filter '" + expression + "': " + Error());
    }
    const int result = pcap_setfilter(handle.get(), &program);
    pcap_freecode(&program);
    if (result != 0) Fail(name, Error());
  }

  // The bytes are copied: the kernel takes its buffer back with the next call. Frames get their addresses once
  // the batch is complete, because the copies may move until then.
  static void Copy(u_char* user, const pcap_pkthdr* header, const u_char* data) {
    const auto* taking = reinterpret_cast<const Taking*>(user);
    Frame frame;
    frame.time_ns = header->ts.tv_sec * int64_t{1000000000} + header->ts.tv_usec * taking->from->ticks_ns;
    frame.captured = header->caplen;
    frame.wire = std::max(header->len, header->caplen);
    frame.offset = taking->bytes->size();
    frame.source = taking->from->number;
    frame.link_type = taking->from->link_type;
    taking->frames->push_back(frame);
    taking->bytes->insert(taking->bytes->end(), data, data + header->caplen);
  }

  uint32_t number;
  std::unique_ptr<pcap_t, Close> handle;
  int64_t ticks_ns = 1000;
  uint16_t link_type = 0;
  pcap_stat last{};
  LiveCounts counts;
};

}  // namespace

struct LiveSource::State {
  explicit State(const LiveSettings& settings) {
    for (const std::string& name : settings.interfaces) {
      interfaces.push_back(std::make_unique<Interface>(name, static_cast<uint32_t>(interfaces.size()), settings));
    }
    bytes.reserve(kBatchBytes);
  }

  bool AllGone() const {
    return std::all_of(interfaces.begin(), interfaces.end(), [](const auto& each) { return each->gone; });
  }

  void Wait() {
    waits.clear();
    for (const auto& each : interfaces) {
      if (!each->gone) waits.push_back({each->Descriptor(), POLLIN, 0});
    }
    poll(waits.data(), waits.size(), kWaitMilliseconds);
  }

  void TakeAll() {
    frames.clear();
    bytes.clear();
    for (const auto& each : interfaces) {
      if (each->gone || bytes.size() >= kBatchBytes) continue;
      if (each->Take(&frames, &bytes)) continue;
      each->gone = true;
      problems.push_back(each->name + ": " + each->Error());
      news.push_back(problems.back());
    }
    read += bytes.size();
    bytes.push_back(0);  // the readable byte behind the last frame
    for (Frame& frame : frames) frame.data = bytes.data() + frame.offset;
    if (interfaces.size() > 1) {
      std::stable_sort(frames.begin(), frames.end(),
                       [](const Frame& one, const Frame& other) { return one.time_ns < other.time_ns; });
    }
  }

  // libpcap waits in silence for an interface that is down.
  void LookAtInterfaces() {
    const auto now = std::chrono::steady_clock::now();
    if (now - last_look < kBetweenLooks) return;
    last_look = now;
    for (const auto& each : interfaces) {
      if (each->gone || each->IsUp() == each->up) continue;
      each->up = !each->up;
      news.push_back(each->name + (each->up ? ": the interface is up again"
                                            : ": the interface is down; nothing is seen until it is up again"));
    }
  }

  std::vector<std::unique_ptr<Interface>> interfaces;
  std::vector<Frame> frames;
  std::vector<uint8_t> bytes;
  std::vector<pollfd> waits;
  std::vector<std::string> problems;
  std::vector<std::string> news;
  std::chrono::steady_clock::time_point last_look;
  uint64_t read = 0;
};

LiveSource::LiveSource(const LiveSettings& settings) : state(std::make_unique<State>(settings)) {}

LiveSource::~LiveSource() = default;

ReadState LiveSource::Read(std::span<const Frame>* frames) {
  state->TakeAll();
  if (state->frames.empty() && !state->AllGone()) {
    state->Wait();
    state->TakeAll();
  }
  *frames = state->frames;
  if (!state->frames.empty()) return ReadState::kFrames;
  return state->AllGone() ? ReadState::kEnd : ReadState::kIdle;
}

const std::vector<std::string>& LiveSource::Problems() const { return state->problems; }

std::vector<std::string> LiveSource::TakeNews() {
  state->LookAtInterfaces();
  return std::exchange(state->news, {});
}

uint64_t LiveSource::BytesRead() const { return state->read; }

std::vector<LiveCounts> LiveSource::Counts() {
  std::vector<LiveCounts> counts;
  for (const auto& each : state->interfaces) counts.push_back(each->Counts());
  return counts;
}

}  // namespace capture
