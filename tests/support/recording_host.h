#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "dns-parser/dns_parser.h"
#include "host/collector_exports.h"
#include "host/parser_flow.h"
#include "host/request_visitor.h"
#include "host/requests.h"
#include "tests/support/flows.h"

namespace test {

// A host for tests: a table of callbacks that writes everything down, and a sink that copies every record. The
// callbacks carry no context, so one RecordingHost lives at a time.
class RecordingHost : public IRequestSink {
 public:
  struct Line {
    int level;
    std::string format;
    std::string text;
  };
  struct Mapping {
    std::optional<std::string> query_name;  // none for a reverse mapping
    std::string name;
    std::string address;  // dotted, from the octets in memory order
    friend bool operator==(const Mapping&, const Mapping&) = default;
  };
  struct Record {
    bool begin = false;
    bool extended = false;
    int spec_id = 0;
    int request_id = 0;
    bool has_key_values = false;
    bool has_extra_items = false;
    bool has_stitching = false;
    const ParserFlow* flow = nullptr;  // for identity only: it may be gone
    uint16_t local_port = 0;
    uint64_t host_field_5 = 0;
    std::string pattern{};
    const char* pattern_address = nullptr;  // for identity only
    int64_t response_time = 0;
    int64_t start_time = 0;
    int64_t bytes_request = 0;
    int64_t bytes_response = 0;
    int result_code = 0;
    int num_errors = 0;
    std::map<std::string, std::string> strings{};

    friend bool operator==(const Record&, const Record&) = default;
    friend std::ostream& operator<<(std::ostream& out, const Record& record) {
      out << (record.begin      ? "begin"
              : record.extended ? "extended end"
                                : "end")
          << " spec " << record.spec_id << " id " << record.request_id << " lists " << record.has_key_values
          << record.has_extra_items << record.has_stitching << " flow " << record.flow << " port "
          << record.local_port << " host5 " << record.host_field_5 << " pattern '" << record.pattern << "' at "
          << static_cast<const void*>(record.pattern_address) << " took " << record.response_time << " from "
          << record.start_time << " bytes " << record.bytes_request << '/' << record.bytes_response << " result "
          << record.result_code << " errors " << record.num_errors;
      for (const auto& [key, value] : record.strings) out << ' ' << key << "='" << value << '\'';
      return out;
    }
  };

  RecordingHost() {
    active = this;
    table.log_level = &level;
    table.log = Log;
    table.is_debug_enabled = IsDebugEnabled;
    table.want_extended_details = WantDetails;
    table.inject_dns_mapping = Inject;
    table.get_current_context_id = ContextId;
  }
  ~RecordingHost() override { active = nullptr; }
  RecordingHost(const RecordingHost&) = delete;
  RecordingHost& operator=(const RecordingHost&) = delete;

  void OnBeginRequest(const BeginRequest* request) override {
    Record record = Common(*request);
    record.begin = true;
    record.pattern = request->request_pattern;
    record.pattern_address = request->request_pattern;
    record.start_time = request->start_time.ticks;
    records.push_back(record);
    calls.push_back("begin");
    if (on_record) on_record();
  }

  void OnEndRequest(const EndRequest* request) override {
    Record record = Common(*request);
    record.pattern = request->request_pattern;
    record.pattern_address = request->request_pattern;
    record.response_time = request->response_time.ticks;
    record.start_time = request->start_time.ticks;
    record.bytes_request = request->bytes_request;
    record.bytes_response = request->bytes_response;
    record.result_code = request->result_code;
    record.num_errors = request->GetNumErrors();
    record.has_extra_items = request->extra_items != nullptr;
    record.has_stitching = request->stitching != nullptr;
    if (const auto* extended = dynamic_cast<const ExtendedEndRequest*>(request)) {
      record.extended = true;
      record.strings = extended->strings;
    }
    records.push_back(record);
    calls.push_back("end");
    if (on_record) on_record();
  }

  // The texts of the lines logged at a level.
  std::vector<std::string> Texts(int at_level) const {
    std::vector<std::string> texts;
    for (const Line& line : lines) {
      if (line.level == at_level) texts.push_back(line.text);
    }
    return texts;
  }

  const Record& Last() const { return records.at(records.size() - 1); }

  CollectorExports table{};
  int level = 4;
  bool debug_enabled = true;
  bool want_details = true;
  uint32_t context_id = 0;
  std::function<void()> on_record;   // runs inside each sink call
  std::function<void()> on_mapping;  // runs inside each injection

  std::vector<Line> lines;
  std::vector<Mapping> mappings;
  std::vector<Record> records;
  std::vector<std::string> calls;        // "begin", "end", "details?", "context?", "inject", "log"
  std::vector<std::string> debug_files;  // what is_debug_enabled was asked

 private:
  static Record Common(const Request& request) {
    Record record;
    record.spec_id = request.spec_id;
    record.request_id = request.request_id;
    record.has_key_values = request.key_values != nullptr;
    record.flow = request.flow;
    record.local_port = request.flow->local_port;
    record.host_field_5 = request.flow->host_field_5;
    return record;
  }

  __attribute__((format(printf, 2, 3))) static void Log(int line_level, const char* format, ...) {
    char text[70000];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    active->lines.push_back({line_level, format, text});
    active->calls.push_back("log");
  }
  static bool IsDebugEnabled(const std::string& file) {
    active->debug_files.push_back(file);
    return active->debug_enabled;
  }
  static bool WantDetails() {
    active->calls.push_back("details?");
    return active->want_details;
  }
  static void Inject(const char* query_name, const char* name, uint32_t ipv4) {
    const auto* octets = reinterpret_cast<const unsigned char*>(&ipv4);
    char address[20];
    std::snprintf(address, sizeof address, "%d.%d.%d.%d", octets[0], octets[1], octets[2], octets[3]);
    active->mappings.push_back(
        {query_name == nullptr ? std::nullopt : std::optional<std::string>(query_name), name, address});
    active->calls.push_back("inject");
    if (active->on_mapping) active->on_mapping();
  }
  static uint32_t ContextId() {
    active->calls.push_back("context?");
    return active->context_id;
  }

  static inline RecordingHost* active = nullptr;
};

// A parser on a recording host, with whole messages given by their bytes.
struct Bench {
  explicit Bench(const std::map<std::string, std::string>& args = {}) : parser(&host.table, args) {
    parser.request_sink = &host;
  }

  // Times are microseconds; lengths default to a wholly captured message.
  bool Request(const std::string& message, int64_t now = 0, int captured = -1) {
    const int size = static_cast<int>(message.size());
    return parser.HandleRequest(&flow, {now}, message.data(), captured < 0 ? size : captured, size);
  }
  int Response(const std::string& message, int64_t now = 0, int captured = -1) {
    const int size = static_cast<int>(message.size());
    return parser.HandleResponse(&flow, {now}, message.data(), captured < 0 ? size : captured, size);
  }

  RecordingHost host;
  DNSParser parser;
  ParserFlow flow = MakeFlow();
};

// A wholly captured message in the mode of the handlers. The bytes must outlive the view.
inline IOVec View(const std::string& bytes) {
  const int size = static_cast<int>(bytes.size());
  IOVec view(bytes.data(), size, size);
  view.underflow_mode = IOVec::FLAG;
  return view;
}

}  // namespace test
