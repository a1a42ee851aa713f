#include "tests/faults/plain_host.h"

#include <dlfcn.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "tests/faults/allocations.h"

namespace faults {
namespace {

PlainHost* active = nullptr;

template <typename Function>
Function* Find(const char* name) {
  static void* library = dlopen(DNS_PARSER_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) throw std::runtime_error(dlerror());
  void* symbol = dlsym(library, name);
  if (symbol == nullptr) throw std::runtime_error(dlerror());
  return reinterpret_cast<Function*>(symbol);
}

// The record's attributes, one behind the other.
struct Writer : RequestVisitor {
  void VisitUInt16(const char* name, int value) override { Put(name, std::to_string(value)); }
  void VisitInt32(const char* name, int value) override { Put(name, std::to_string(value)); }
  void VisitInt32List(const char* name, const std::vector<int>& /*values*/) override { Put(name, "list"); }
  void VisitInt64(const char* name, int64_t value) override { Put(name, std::to_string(value)); }
  void VisitTimestamp(const char* name, int64_t value) override { Put(name, std::to_string(value)); }
  void VisitString(const char* name, const char* value) override { Put(name, value); }
  void VisitStringList(const char* name, const std::vector<std::string>& /*values*/) override { Put(name, "list"); }
  void Put(const char* name, const std::string& value) { text.append(" ").append(name).append("=").append(value); }

  std::string text;
};

}  // namespace

PlainHost::PlainHost() {
  active = this;
  table.log_level = &log_level;
  table.log = Log;
  table.is_debug_enabled = IsDebugEnabled;
  table.want_extended_details = WantDetails;
  table.inject_dns_mapping = Inject;
  table.get_current_context_id = ContextId;
}

PlainHost::~PlainHost() {
  Destroy();
  active = nullptr;
}

void PlainHost::Create(const Config& config) {
  static auto* const create = Find<decltype(get_parser_default)>("get_parser_default");
  parser = static_cast<ITimedProtocolParser*>(create(0, &table, config));
  parser->request_sink = this;
}

void PlainHost::Destroy() {
  static auto* const destroy = Find<decltype(destroy_parser_default)>("destroy_parser_default");
  destroy(parser);
  parser = nullptr;
}

int PlainHost::Make(const Call& call) {
  if (call.what != Call::kHeartbeat) {
    return Feed(call.what, call.transport, call.bytes.data(), call.bytes.size(), call.bytes.size(), call.time);
  }
  parser->Heartbeat({call.time});
  return 0;
}

int PlainHost::Feed(Call::What what, uint8_t transport, const char* data, size_t snap, size_t nominal,
                    int64_t time) {
  const ParserFlow flow = FlowOf(transport);
  const auto captured = static_cast<int>(snap);
  const auto size = static_cast<int>(nominal);
  return what == Call::kQuery ? parser->HandleDataClientToServer(&flow, {time}, data, captured, size, 0, nullptr)
                              : parser->HandleDataServerToClient(&flow, {time}, data, captured, size, 0, nullptr);
}

void PlainHost::Make(const Calls& calls) {
  for (const Call& call : calls) Make(call);
}

const char* PlainHost::Health() { return parser->GetHealthEvent(); }

void PlainHost::OnBeginRequest(const BeginRequest* request) {
  const Spared spared;
  Note(Callback::kBegin);
  ++begun;
  records.push_back("begin " + std::to_string(request->request_id) + " " + request->request_pattern + " at " +
                    std::to_string(request->start_time.ticks));
}

void PlainHost::OnEndRequest(const EndRequest* request) {
  const Spared spared;
  Note(Callback::kEnd);
  ++ended;
  Writer writer;
  request->Visit(&writer);
  records.push_back("end " + std::to_string(request->request_id) + writer.text);
}

void PlainHost::Note(Callback callback) {
  ++active->counts[callback];
  if (active->on_callback) active->on_callback(callback);
}

void PlainHost::Log(int /*level*/, const char* format, ...) {
  const Spared spared;
  Note(Callback::kLog);
  char text[4096];  // reads every argument
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
}

bool PlainHost::IsDebugEnabled(const std::string& /*file*/) {
  const Spared spared;
  Note(Callback::kDebug);
  return true;
}

bool PlainHost::WantDetails() {
  const Spared spared;
  Note(Callback::kDetails);
  return true;
}

void PlainHost::Inject(const char* query_name, const char* name, uint32_t ipv4) {
  const Spared spared;
  Note(Callback::kMapping);
  const std::string query = query_name == nullptr ? "(null)" : query_name;
  active->mappings.push_back(query + " " + name + " " + std::to_string(ipv4));
}

uint32_t PlainHost::ContextId() {
  const Spared spared;
  Note(Callback::kContext);
  return 0;
}

ParserFlow FlowOf(uint8_t transport) {
  ParserFlow flow;
  const unsigned char local[] = {192, 0, 2, 10};
  const unsigned char remote[] = {192, 0, 2, 53};
  std::memcpy(&flow.local_ipv4, local, sizeof local);
  std::memcpy(&flow.remote_ipv4, remote, sizeof remote);
  flow.local_port = 40000;
  flow.remote_port = 53;
  flow.client_side = kClientIsLocal;
  flow.transport = transport;
  flow.context_id = 1;
  return flow;
}

}  // namespace faults
