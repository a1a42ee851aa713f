// TCP streams through the plug-in's entry points, cut into arbitrary calls: however a stream is cut, the records
// are those of the same stream in one call each way.

#include <string>
#include <string_view>

#include "fuzz/draw.h"
#include "fuzz/recording_sink.h"
#include "fuzz/target.h"
#include "host/protocol_parser.h"

namespace fuzz {
namespace {

// Writes down what both kinds of records say.
class Transcript : public IRequestSink {
 public:
  void OnBeginRequest(const BeginRequest* request) override {
    text += "begin " + std::to_string(request->request_id) + " " + request->request_pattern + "\n";
  }
  void OnEndRequest(const EndRequest* request) override {
    text += "end " + std::to_string(request->request_id) + " " + request->request_pattern + " " +
            std::to_string(request->result_code) + " " + std::to_string(request->bytes_request) + " " +
            std::to_string(request->bytes_response);
    if (const auto* extended = dynamic_cast<const ExtendedEndRequest*>(request)) {
      for (const auto& [key, value] : extended->strings) text.append(" ").append(key).append("=").append(value);
    }
    text += "\n";
  }

  std::string text;
};

class Connection {
 public:
  explicit Connection(uint8_t settings) {
    Host::log_level = (settings & 4) != 0 ? 5 : 0;
    Host::details = true;
    Host::context = 0;
    Host::mappings = 0;
    parser = static_cast<ITimedProtocolParser*>(
        get_parser_default(0, &host.table,
                           {{"enable_dnssec", (settings & 1) != 0 ? "true" : "false"},
                            {"enable_axfr", (settings & 2) != 0 ? "true" : "false"}}));
    parser->request_sink = &transcript;
    flow.local_ipv4 = 0x010200c0;
    flow.remote_ipv4 = 0x350200c0;
    flow.local_port = 40000;
    flow.remote_port = 53;
    flow.client_side = kClientIsLocal;
    flow.transport = kTransportTcp;
    flow.context_id = 1;
    parser->HandleNewStream(&flow, &state);
  }
  ~Connection() {
    parser->HandleEndOfStream(&flow, &state);
    destroy_parser_default(parser);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // One direction, in pieces of the sizes that `cuts` draws, the last one as large as what is left. What a call
  // leaves is handed on again with the next piece; a direction that is refused is given up.
  void Send(std::string_view stream, bool is_request, Draw* cuts) {
    std::string waiting;
    while (!stream.empty()) {
      size_t size = cuts->Empty() ? stream.size() : cuts->U8();
      if (size == 0) size = stream.size();
      waiting.append(stream.substr(0, size));
      stream.remove_prefix(std::min(size, stream.size()));
      const int used = Call(waiting, is_request);
      if (used < 0) return;
      waiting.erase(0, static_cast<size_t>(used));
    }
    transcript.text += "left " + std::to_string(waiting.size()) + "\n";
  }

  std::string Ended() {
    parser->Heartbeat({int64_t{1} << 60});
    return transcript.text + parser->GetHealthEvent() + " " + std::to_string(Host::mappings);
  }

 private:
  int Call(std::string_view bytes, bool is_request) {
    const Captured block(bytes);
    const auto* data = reinterpret_cast<const char*>(block.data());
    const int size = static_cast<int>(bytes.size());
    const auto handle =
        is_request ? &IProtocolParser::HandleDataClientToServer : &IProtocolParser::HandleDataServerToClient;
    const int used = (parser->*handle)(&flow, {1}, data, size, size, 0, &state);
    Must(used >= -1 && used <= size, "no more is used than there is");
    return used;
  }

  Host host;
  Transcript transcript;
  ITimedProtocolParser* parser;
  ParserFlow flow;
  void* state = nullptr;
};

std::string Run(uint8_t settings, std::string_view queries, std::string_view responses, std::string_view cuts) {
  Connection connection(settings);
  Draw sizes(reinterpret_cast<const uint8_t*>(cuts.data()), cuts.size());
  connection.Send(queries, true, &sizes);
  connection.Send(responses, false, &sizes);
  return connection.Ended();
}

}  // namespace
}  // namespace fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Draw input(data, size);
  const uint8_t settings = input.U8();
  const std::string_view cuts = input.Text();
  const std::string_view queries = input.LongText();
  const std::string_view responses = input.Rest();
  const std::string whole = fuzz::Run(settings, queries, responses, {});
  fuzz::Must(fuzz::Run(settings, queries, responses, cuts) == whole, "a stream gives the same however it is cut");
  return 0;
}
