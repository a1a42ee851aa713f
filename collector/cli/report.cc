#include "collector/report/report.h"

#include "collector/cli/commands.h"
#include "collector/cli/conditions.h"
#include "collector/cli/run.h"
#include "collector/cli/usage_error.h"

namespace cli {
namespace {

class ReportPrinter : public Consumer {
 public:
  explicit ReportPrinter(const Options& given) : options(given), where(ParseConditions(given)), report(given.top) {}

  void Begin(output::Buffer* destination) override { buffer = destination; }

  bool WantsDetails() const override { return where.LooksAtDetails(); }

  void OnRecord(const EndRequest& record, const RequestMetricSpecification* metrics) override {
    report.Find(metrics, record);
  }

  void OnExchange(const plugin::Exchange& exchange) override {
    ++delivered;
    if (!where.Holds(exchange)) return;
    ++shown;
    report.Add(exchange);
  }

  void OnAccount(const output::Account& account) override {
    losses = Losses(account);
    interrupted = account.interrupted;
  }

  void End() override {
    report.Release();
    buffer->Write(report.Html({.title = options.title,
                               .version = DNSPAIR_VERSION,
                               .files = options.files,
                               .top = options.top,
                               .losses = losses,
                               .interrupted = interrupted}));
  }

 private:
  const Options& options;
  output::Where where;
  report::Report report;
  std::vector<output::Loss> losses;
  bool interrupted = false;
  output::Buffer* buffer = nullptr;
};

}  // namespace

void AddReportOptions(CLI::App* app, Options* options) {
  AddFileOptions(app, options);
  AddInputOptions(app, options);
  AddOutputFileOption(app, options);
  AddWhereOption(app, options);
  AddTitleOption(app, options);
  AddListLengthOption(app, options);
}

int RunReport(const Options& options) {
  if (WritesToTerminal(options)) {
    throw UsageError("a page of HTML is no use on a terminal; name a file for it: -o report.html");
  }
  ReportPrinter printer(options);
  return RunCaptures(options, &printer);
}

}  // namespace cli
