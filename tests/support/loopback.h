#pragma once

#include <arpa/inet.h>
#include <doctest/doctest.h>
#include <net/if.h>
#include <netpacket/packet.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

#include "tests/support/death.h"
#include "tests/support/dns_builder.h"
#include "tests/support/packet_builder.h"

// A loopback interface of one's own, for tests of live runs. That takes root.
namespace test {

// Waits at most ten seconds; what is asked for is asked for often.
inline bool WaitFor(const std::function<bool()>& condition) {
  for (int i = 0; i < 200; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return false;
}

// Sets the loopback interface's flags; 0 takes it down.
inline bool SetLoopback(short flags) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request{};
  std::string("lo").copy(request.ifr_name, IFNAMSIZ - 1);
  request.ifr_flags = flags;
  const bool set = ioctl(fd, SIOCSIFFLAGS, &request) == 0;
  close(fd);
  return set;
}

// Another interface beside it, and NAMEfar at its other end, both up. Takes iproute2 and a kernel that has veth.
inline bool AddInterface(const std::string& name) {
  const std::string add = "PATH=$PATH:/sbin:/usr/sbin; ip link add " + name + " type veth peer name " + name +
                          "far && ip link set " + name + "far up && ip link set " + name + " up";
  return std::system(("{ " + add + "; } >/dev/null 2>&1").c_str()) == 0;
}
inline void RemoveInterface(const std::string& name) {
  [[maybe_unused]] const int status =
      std::system(("PATH=$PATH:/sbin:/usr/sbin; ip link del " + name + " >/dev/null 2>&1").c_str());
}

// Moves the process into an empty network with a loopback interface.
inline bool EnterNetwork() { return unshare(CLONE_NEWNET) == 0 && SetLoopback(IFF_UP | IFF_RUNNING); }

inline bool MayEnterNetwork() {
  static const bool may = RunInChild([] { _exit(EnterNetwork() ? 0 : 1); }).ExitCode() == 0;
  if (!may) MESSAGE("skipped: live capture needs root and network namespaces");
  return may;
}

// A UDP socket on the loopback interface.
class Endpoint {
 public:
  explicit Endpoint(uint16_t own_port) : port(own_port), fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_in address = At(port);
    bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }
  ~Endpoint() { close(fd); }
  Endpoint(const Endpoint&) = delete;
  Endpoint& operator=(const Endpoint&) = delete;

  void Send(const Endpoint& to, const test::Message& message) const {
    const std::string bytes = message.Wire();
    const sockaddr_in address = At(to.port);
    sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }

 private:
  static sockaddr_in At(uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
  }

  uint16_t port;
  int fd;
};

// Sends frames as they are onto an interface.
class RawSocket {
 public:
  explicit RawSocket(const std::string& interface) : fd(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
    bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }
  ~RawSocket() { close(fd); }
  RawSocket(const RawSocket&) = delete;
  RawSocket& operator=(const RawSocket&) = delete;

  void Send(const test::Bytes& frame) const {
    [[maybe_unused]] const ssize_t sent = send(fd, frame.data(), frame.size(), 0);
  }

 private:
  int fd;
};

// Runs the body in a network of its own; it returns what went wrong, or nothing.
inline std::string InNetwork(const std::function<std::string()>& body) {
  const ChildResult result = RunInChild([&] {
    const std::string wrong = EnterNetwork() ? body() : "no network namespace";
    std::fputs(wrong.c_str(), stdout);
    std::fflush(stdout);
    _exit(0);
  });
  return result.out + (result.ExitCode() == 0 ? "" : "the test's process ended early");
}

}  // namespace test
