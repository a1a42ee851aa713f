#include "collector/output/summary.h"

#include "collector/cli/commands.h"
#include "collector/cli/conditions.h"
#include "collector/cli/run.h"

namespace cli {
namespace {

class SummaryPrinter : public Consumer {
 public:
  explicit SummaryPrinter(const Options& given)
      : options(given), where(ParseConditions(given)), summary(given.top) {}

  void Begin(output::Buffer* destination) override { buffer = destination; }

  bool WantsDetails() const override { return where.LooksAtDetails(); }

  void OnRecord(const EndRequest& record, const RequestMetricSpecification* metrics) override {
    summary.Find(metrics, record);
  }

  void OnExchange(const plugin::Exchange& exchange) override {
    ++delivered;
    if (!where.Holds(exchange)) return;
    ++shown;
    summary.Add(exchange);
  }

  void End() override {
    summary.Release();
    buffer->Write(options.format == "json" ? summary.JsonText(options.top) : summary.Text(options.top));
  }

 private:
  const Options& options;
  output::Where where;
  output::Summary summary;
  output::Buffer* buffer = nullptr;
};

}  // namespace

void AddSummaryOptions(CLI::App* app, Options* options) {
  AddFileOptions(app, options);
  AddInputOptions(app, options);
  AddOutputOptions(app, options, {"table", "json"}, "table (usual) or json");
  AddWhereOption(app, options);
  AddListLengthOption(app, options);
}

int RunSummary(const Options& options) {
  SummaryPrinter printer(options);
  return RunCaptures(options, &printer);
}

}  // namespace cli
