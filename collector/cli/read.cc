#include <unistd.h>

#include <memory>

#include "collector/cli/commands.h"
#include "collector/cli/conditions.h"
#include "collector/cli/run.h"
#include "collector/cli/terminal.h"
#include "collector/cli/usage_error.h"
#include "collector/cli/workers.h"
#include "collector/output/record_writer.h"

namespace cli {
namespace {

// Writes the exchanges that fulfil the conditions, each as it comes.
class RecordPrinter : public Consumer {
 public:
  explicit RecordPrinter(const Options& given)
      : options(given), where(ParseConditions(given)), columns(Understand("--columns", [&] {
          RefuseColumns(given);
          return given.columns.empty() ? output::ColumnList() : output::ParseColumns(given.columns);
        })) {}

  void Begin(output::Buffer* buffer) override {
    writer = MakeWriter(buffer);
    writer->Begin();
  }

  void BeginFile() override { writer->Begin(); }

  void EndFile() override { writer->Finish(); }

  void OnExchange(const plugin::Exchange& exchange) override {
    ++delivered;
    if (!where.Holds(exchange)) return;
    ++shown;
    writer->Write(exchange);
  }

  bool WantsDetails() const override { return where.LooksAtDetails() || ShowsDetails(); }

 private:
  bool ShowsDetails() const {
    if (HasFixedFields(options)) return false;  // they read the answers where they lie
    return columns.empty() || output::LookAtDetails(columns);
  }

  static bool HasFixedFields(const Options& options) { return options.format == "ecs" || options.format == "zeek"; }

  static void RefuseColumns(const Options& options) {
    if (HasFixedFields(options) && !options.columns.empty()) {
      throw std::runtime_error("the format " + options.format + " has fields of its own");
    }
  }

  std::unique_ptr<output::RecordWriter> MakeWriter(output::Buffer* buffer) const {
    const std::string format = ChooseFormat(options);
    if (format == "table") {
      output::TableSettings settings;
      if (WritesToTerminal(options)) settings = {OutputWidth(), WantsColours(STDOUT_FILENO)};
      return MakeTableWriter(buffer, columns, settings);
    }
    if (format == "ecs") return output::MakeEcsWriter(buffer);
    if (format == "zeek") return output::MakeZeekWriter(buffer);
    const output::ColumnList all = columns.empty() ? output::EveryColumn() : columns;
    return format == "csv" ? MakeCsvWriter(buffer, all) : MakeJsonWriter(buffer, all);
  }

  const Options& options;
  output::Where where;
  output::ColumnList columns;
  std::unique_ptr<output::RecordWriter> writer;
};

}  // namespace

// What read and live have in common.
void AddRecordOptions(CLI::App* app, Options* options) {
  AddOutputOptions(
      app, options, {"table", "json", "csv", "ecs", "zeek"},
      "table (usual on a terminal), json (usual elsewhere), csv, ecs (Elastic Common Schema) or zeek (its "
      "dns.log)");
  AddColumnsOption(app, options);
  AddWhereOption(app, options);
}

void AddReadOptions(CLI::App* app, Options* options) {
  AddFileOptions(app, options);
  AddInputOptions(app, options);
  AddRecordOptions(app, options);
  AddWorkersOption(app, options);
  AddRotationOptions(app, options, false);
}

void AddLiveOptions(CLI::App* app, Options* options) {
  AddInterfaceOptions(app, options);
  AddInputOptions(app, options);
  AddRecordOptions(app, options);
  AddRotationOptions(app, options, true);
}

int RunRead(const Options& options) {
  RecordPrinter printer(options);
  return options.workers > 0 ? RunWorkers(options, &printer) : RunCaptures(options, &printer);
}

int RunLiveRead(const Options& options) {
  const bool shapes_records = !options.format.empty() || !options.columns.empty();
  if (options.show_top && options.output_file.empty() && shapes_records) {
    throw UsageError("--top shows a screen and no records; --format and --columns need a file for them: -o FILE");
  }
  RecordPrinter printer(options);
  if (options.show_top) return RunTop(options, options.output_file.empty() ? nullptr : &printer);
  return RunLive(options, &printer);
}

}  // namespace cli
