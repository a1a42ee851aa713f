// Captures of many tools, from a folder outside of the tree that DNSPAIR_CORPUS names. Its MANIFEST.tsv says how
// many packets each file holds; libpcap is asked for the rest where it can read the file.
#include <doctest/doctest.h>
#include <pcap/pcap.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "collector/capture/link_type.h"
#include "collector/capture/open.h"
#include "tests/support/captured.h"
#include "tests/support/compress.h"
#include "tests/support/temporary_file.h"

namespace {

using test::Captured;
using test::CapturedFrame;

struct Listed {
  std::string path;
  size_t packets = 0;
};

std::vector<std::string> Columns(const std::string& line) {
  std::vector<std::string> columns;
  std::istringstream in(line);
  for (std::string column; std::getline(in, column, '\t');) columns.push_back(column);
  return columns;
}

// Empty, with a message, without a corpus.
std::vector<Listed> Corpus() {
  const char* folder = std::getenv("DNSPAIR_CORPUS");
  if (folder == nullptr) {
    MESSAGE("skipped: DNSPAIR_CORPUS is not set");
    return {};
  }
  std::ifstream manifest(std::string(folder) + "/MANIFEST.tsv");
  std::string line;
  std::getline(manifest, line);
  const std::vector<std::string> names = Columns(line);
  const auto packets = static_cast<size_t>(std::find(names.begin(), names.end(), "packets") - names.begin());
  REQUIRE(packets < names.size());
  std::vector<Listed> files;
  while (std::getline(manifest, line)) {
    const std::vector<std::string> columns = Columns(line);
    files.push_back({std::string(folder) + "/" + columns.at(0), std::stoul(columns.at(packets))});
  }
  CHECK(!files.empty());
  return files;
}

Captured ReadFile(const std::string& path) { return test::ReadAll(capture::OpenFile(path, 0).get()); }

// What libpcap reads of a file; nothing where it does not know the format.
std::vector<CapturedFrame> ReadWithLibpcap(const std::string& path) {
  std::vector<CapturedFrame> frames;
  char error[PCAP_ERRBUF_SIZE];
  const std::unique_ptr<pcap_t, void (*)(pcap_t*)> file(
      pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO, error), pcap_close);
  if (file == nullptr) return frames;
  pcap_pkthdr* header = nullptr;
  const u_char* data = nullptr;
  while (pcap_next_ex(file.get(), &header, &data) == 1) {
    CapturedFrame frame;
    // libpcap reads the seconds of pcap files as signed, although they are not.
    const int64_t seconds = header->ts.tv_sec + (header->ts.tv_sec < 0 ? int64_t{1} << 32 : 0);
    frame.time_ns = seconds * 1'000'000'000 + header->ts.tv_usec;
    frame.bytes.assign(reinterpret_cast<const char*>(data), header->caplen);
    frame.wire = header->len;
    frames.push_back(frame);
  }
  return frames;
}

std::string Contents(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

TEST_CASE("every file of the corpus has the packets that it is said to have") {
  for (const Listed& listed : Corpus()) {
    CAPTURE(listed.path);
    CHECK(ReadFile(listed.path).frames.size() == listed.packets);
  }
}

TEST_CASE("every file of the corpus is read as libpcap reads it") {
  size_t compared = 0;
  for (const Listed& listed : Corpus()) {
    CAPTURE(listed.path);
    const std::vector<CapturedFrame> expected = ReadWithLibpcap(listed.path);
    const Captured captured = ReadFile(listed.path);
    if (expected.size() != captured.frames.size()) continue;  // mixed link types, compressed
    ++compared;
    for (size_t i = 0; i < expected.size(); ++i) {
      CAPTURE(i);
      CHECK(captured.frames[i].time_ns == expected[i].time_ns);
      CHECK(captured.frames[i].bytes == expected[i].bytes);
      CHECK(captured.frames[i].wire == std::max<size_t>(expected[i].wire, expected[i].bytes.size()));
    }
  }
  MESSAGE("compared with libpcap: ", compared);
}

TEST_CASE("every file of the corpus is the same compressed and in pieces") {
  for (const Listed& listed : Corpus()) {
    CAPTURE(listed.path);
    const Captured expected = ReadFile(listed.path);
    const std::string bytes = Contents(listed.path);
    const bool is_plain = bytes.substr(0, 2) != "\x1f\x8b";
    if (!is_plain) continue;
    CHECK(test::ReadBytes(bytes, 1021).frames == expected.frames);
    const test::TemporaryFile gzip(test::Gzip(bytes, 1));
    const test::TemporaryFile zstd(test::Zstd(bytes, 1));
    CHECK(ReadFile(gzip.path).frames == expected.frames);
    CHECK(ReadFile(zstd.path).frames == expected.frames);
  }
}
