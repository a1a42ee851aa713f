#include <doctest/doctest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/pairing.h"

using namespace test;

// Long mixed runs beside a model that is too simple to be wrong: a list of open queries, searched from its start.

namespace {

constexpr int kCapacity = 15;
constexpr int64_t kTimeout = 1000000;

// What makes queries the same, in the order of the table.
using Identity = std::tuple<uint32_t, uint32_t, uint16_t, uint16_t, uint8_t, uint16_t>;

Identity IdentityOf(const ParserFlow& flow, uint16_t id) {
  return {flow.local_ipv4, flow.remote_ipv4, flow.local_port, flow.remote_port, flow.transport, id};
}

class Model {
 public:
  struct Query {
    Identity identity;
    int64_t time;
    int id;
    std::string name;
  };

  void Request(const Identity& identity, int64_t time, const std::string& name) {
    if (open.size() >= kCapacity) {
      ++refused;
      return;
    }
    if (Find(identity) == open.end()) open.push_back({identity, time, next_id, name});
    most = std::max(most, open.size());
    said.push_back("begin " + std::to_string(next_id++));
  }

  void Response(const Identity& identity, int64_t time) {
    const auto found = Find(identity);
    if (found == open.end()) {
      ++unsolicited;
      return;
    }
    said.push_back("end " + std::to_string(found->id) + " " + found->name + " after " +
                   std::to_string(time - found->time) + " code 0");
    open.erase(found);
  }

  void Heartbeat(int64_t now) {
    std::ranges::sort(open, {}, &Query::identity);
    for (const Query& query : open) {
      if (query.time >= now - kTimeout) continue;
      said.push_back("end " + std::to_string(query.id) + " " + query.name + " after " + std::to_string(kTimeout) +
                     " code -1");
      ++expired;
      ++expired_in_all;
    }
    std::erase_if(open, [&](const Query& query) { return query.time < now - kTimeout; });
  }

  std::string Health() {
    const std::string line = "parser:dns uop:0 zqd:0 mqd:0 ur:" + std::to_string(unsolicited) +
                             " inj:0 mor:" + std::to_string(most) + " or:" + std::to_string(open.size()) +
                             " rt:" + std::to_string(expired);
    unsolicited = 0;
    expired = 0;
    most = open.size();
    return line;
  }

  std::vector<std::string> said;
  int refused = 0;
  int expired_in_all = 0;

 private:
  std::vector<Query>::iterator Find(const Identity& identity) {
    return std::ranges::find(open, identity, &Query::identity);
  }

  std::vector<Query> open;
  int next_id = 1;
  size_t most = 0;
  int64_t unsolicited = 0;
  int64_t expired = 0;
};

std::vector<std::string> Said(const RecordingHost& host) {
  std::vector<std::string> said;
  for (const RecordingHost::Record& record : host.records) {
    if (record.begin) {
      said.push_back("begin " + std::to_string(record.request_id));
    } else {
      said.push_back("end " + std::to_string(record.request_id) + " " + record.strings.at("Names") + " after " +
                     std::to_string(record.response_time) + " code " + std::to_string(record.result_code));
    }
  }
  return said;
}

// A few flows that differ in one member each, so that keys are often the same and often nearly so.
std::vector<ParserFlow> Flows() {
  std::vector<ParserFlow> flows(6, MakeFlow());
  flows[1].local_ipv4 += 0x01000000;
  flows[2].remote_ipv4 += 1;
  flows[3].local_port = 40001;
  flows[4].remote_port = 5353;
  flows[5].transport = kTransportTcp;
  return flows;
}

void RunBeside(Model* model, unsigned seed) {
  CAPTURE(seed);
  Pairing bench({{"max_open_requests", std::to_string(kCapacity)}, {"request_timeout_s", "1"}}, 0);
  const std::vector<ParserFlow> flows = Flows();
  std::mt19937 random(seed);
  const auto below = [&](unsigned bound) { return static_cast<unsigned>(random() % bound); };
  int64_t now = 1700000000000000;
  for (int step = 0; step < 3000; ++step) {
    now += below(40000);
    if (below(50) == 0) now -= 300000;  // clocks do
    bench.flow = flows[below(static_cast<unsigned>(flows.size()))];
    const auto id = static_cast<uint16_t>(below(12));
    const unsigned what = below(100);
    if (what < 50) {
      const std::string name = "n" + std::to_string(step);
      CHECK(bench.Request(Query(id).Question(name, kA).Wire(), now));
      model->Request(IdentityOf(bench.flow, id), now, name);
    } else if (what < 90) {
      CHECK(bench.Response(Response(id).Question("x", kA).Wire(), now) == 1);
      model->Response(IdentityOf(bench.flow, id), now);
    } else if (what < 97) {
      bench.parser.Heartbeat({now});
      model->Heartbeat(now);
    } else {
      CHECK(std::string(bench.parser.GetHealthEvent()) == model->Health());
    }
  }
  CHECK(Said(bench.host) == model->said);
  CHECK(std::string(bench.parser.GetHealthEvent()) == model->Health());
}

}  // namespace

TEST_CASE("a long run of queries, responses, heartbeats and reports matches the model") {
  for (unsigned seed = 1; seed <= 10; ++seed) {
    Model model;
    RunBeside(&model, seed);
    // The run has been everywhere.
    CHECK(model.said.size() > 1000);
    CHECK(model.refused > 10);
    CHECK(model.expired_in_all > 10);
  }
}
