#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "collector/capture/source.h"

namespace soak {

// What was sent, for the account to be held against.
struct Sent {
  uint64_t exchanges = 0;  // queries of ordinary clients
  uint64_t responses = 0;  // to these
  uint64_t floods = 0;     // queries that nobody ever answers, all in one flow
  uint64_t streams = 0;    // TCP connections whose message never completes
  uint64_t fragments = 0;  // first fragments that no other follows
  uint64_t rubbish = 0;    // datagrams to port 53 that are no DNS
  uint64_t packets() const { return exchanges + responses + floods + 2 * streams + fragments + rubbish; }
};

// Made in memory as it is read: a thousand seconds of its time, or more where these would hold more than 25,000
// exchanges each. Every tenth query is never answered, every name is another one, clients use their ports and
// identifiers again, and one hostile packet comes with each twenty exchanges.
class Traffic final : public capture::Source {
 public:
  explicit Traffic(uint64_t exchanges);

  capture::ReadState Read(std::span<const capture::Frame>* batch) override;
  const std::vector<std::string>& Problems() const override { return problems; }
  uint64_t BytesRead() const override { return sent.exchanges; }
  uint64_t BytesTotal() const override { return wanted; }

  Sent sent;

 private:
  void Exchange();
  void Respond(uint64_t number);
  void Hostile();
  void OpenStream();
  void Put(const std::string& frame);

  uint64_t wanted;
  int64_t between_ns;
  int64_t now_ns = 1700000000 * int64_t{1000000000};
  uint64_t hostile = 0;
  std::vector<uint8_t> bytes;
  std::vector<capture::Frame> frames;
  std::vector<std::string> problems;
};

}  // namespace soak
