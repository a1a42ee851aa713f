// Capture files of any format, plain or compressed, from their raw bytes to exchanges: the whole way of a packet,
// the plug-in included. Mapped and streamed, a file holds the same frames; and the account adds up.

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "collector/capture/content.h"
#include "collector/capture/open.h"
#include "collector/cli/pipeline.h"
#include "collector/output/account.h"
#include "collector/output/question.h"
#include "collector/plugin/library.h"
#include "fuzz/target.h"
#include "tests/support/captured.h"

namespace fuzz {
namespace {

// A file without a name, seen under one.
class UnnamedFile {
 public:
  explicit UnnamedFile(std::string_view bytes) : descriptor(memfd_create("fuzz", MFD_CLOEXEC)) {
    if (descriptor < 0 || write(descriptor, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
      throw std::runtime_error("no file in memory");
    }
    path = "/proc/self/fd/" + std::to_string(descriptor);
  }
  ~UnnamedFile() { close(descriptor); }
  UnnamedFile(const UnnamedFile&) = delete;
  UnnamedFile& operator=(const UnnamedFile&) = delete;

  std::string path;

 private:
  int descriptor;
};

// Every query that has begun comes once, as what became of it.
class Listener : public plugin::ExchangeListener {
 public:
  void OnExchange(const plugin::Exchange& exchange) override {
    ++delivered;
    Must(seen.insert(exchange.request_id).second, "an exchange is delivered once");
    Must(exchange.has_response ==
             (exchange.status == plugin::Status::kAnswered || exchange.status == plugin::Status::kMalformed),
         "answered and malformed exchanges have a response, others none");
    Must(exchange.bytes_query >= 0 && exchange.bytes_response >= 0 && exchange.rrsigs >= 0,
         "no record has a negative count");
    Must(exchange.client != nullptr && exchange.server != nullptr && exchange.encapsulation != nullptr,
         "an exchange has two endpoints");
    Must(exchange.client->version != 0 && exchange.server->version == exchange.client->version,
         "both endpoints have an address of the same version");
    Must(!exchange.pattern.empty(), "an exchange has a pattern");
    output::QuestionReader reader(exchange.question);
    int questions = 0;
    while (reader.Next()) ++questions;
    Must(questions == exchange.question_count, "the questions of an exchange are well formed");
  }
  void OnMapping(const char*, const char* name, uint32_t, int64_t) override {
    Must(name != nullptr, "a mapping has a name");
    ++mappings;
  }

  uint64_t delivered = 0;
  uint64_t mappings = 0;

 private:
  std::set<int32_t> seen;
};

void CheckAccount(output::Account account, const Listener& listener) {
  account.exchanges = listener.delivered;
  account.shown = listener.delivered;
  for (const std::string& wrong : output::Contradictions(account)) {
    std::fprintf(stderr, "%s\n", wrong.c_str());
    Must(false, "the account adds up");
  }
  const packet::FragmentCounts& f = account.fragments;
  Must(f.fragments == f.joined + f.repeated + f.inconsistent + f.expired + f.dropped + account.fragments_held,
       "every fragment is counted once");
  Must(account.messages.mappings == listener.mappings, "every mapping is counted and delivered");
}

void RunPipeline(const std::string& path) {
  static const plugin::Library library(DNS_PARSER);
  cli::PipelineSettings settings;
  settings.flow.max_flows = 16;
  settings.flow.max_surrogates = 16;
  settings.flow.max_stream_bytes = 1 << 16;
  Listener listener;
  cli::Pipeline pipeline(settings, library, &listener);
  const auto source = capture::OpenFile(path, 0);
  pipeline.Run(source.get(), [] { return true; });
  pipeline.Finish();
  CheckAccount(pipeline.Account(), listener);
}

bool IsPlain(std::string_view file) {
  const capture::Content content = capture::ContentOf({reinterpret_cast<const uint8_t*>(file.data()), file.size()});
  return content == capture::Content::kPcap || content == capture::Content::kPcapng;
}

// In pieces of some size, so that records begin in one and end in another.
void CompareWithStream(std::string_view file, const std::string& path) {
  const auto source = capture::OpenFile(path, 0);
  const test::Captured plain = test::ReadAll(source.get());
  auto stream = std::make_unique<test::PiecewiseStream>(std::string(file), 1 + file.size() % 61);
  capture::FileReader reader(path, 0, std::move(stream));
  const test::Captured streamed = test::ReadAll(&reader);
  Must(streamed.frames == plain.frames, "a stream holds the frames of its file");
  Must(streamed.problems == plain.problems, "a stream has the problems of its file");
  for (const test::CapturedFrame& frame : plain.frames) {
    Must(frame.offset < file.size(), "a frame lies inside its file");
  }
}

}  // namespace
}  // namespace fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view file(reinterpret_cast<const char*>(data), size);
  const fuzz::UnnamedFile named(file);
  if (fuzz::IsPlain(file)) fuzz::CompareWithStream(file, named.path);
  fuzz::RunPipeline(named.path);
  return 0;
}
