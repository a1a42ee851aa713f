#include "collector/cli/commands.h"
#include "collector/cli/run.h"
#include "collector/output/passive_dns.h"

namespace cli {
namespace {

class NamesPrinter : public Consumer {
 public:
  explicit NamesPrinter(const Options& given) : options(given) {}

  void Begin(output::Buffer* destination) override { buffer = destination; }

  void OnExchange(const plugin::Exchange&) override {
    ++delivered;
    ++shown;
  }

  bool WantsDetails() const override { return false; }

  void OnMapping(const char* query_name, const char* name, uint32_t ipv4, int64_t time_ns) override {
    list.Add(query_name, name, ipv4, time_ns);
  }

  void End() override {
    if (ChooseFormat(options) == "table") {
      WritePassiveDnsTable(list, buffer);
    } else {
      WritePassiveDnsJson(list, buffer);
    }
    if (list.dropped() > 0) {
      PrintProblem("warning: the list is full; " + std::to_string(list.dropped()) + " mappings were left out");
    }
  }

 private:
  const Options& options;
  output::PassiveDns list;
  output::Buffer* buffer = nullptr;
};

}  // namespace

void AddNamesOptions(CLI::App* app, Options* options) {
  AddFileOptions(app, options);
  AddInputOptions(app, options);
  AddOutputOptions(app, options, {"table", "json"}, "table (usual on a terminal) or json (usual elsewhere)");
}

int RunNames(const Options& options) {
  NamesPrinter printer(options);
  return RunCaptures(options, &printer);
}

}  // namespace cli
