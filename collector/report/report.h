#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "collector/output/account.h"
#include "collector/output/summary.h"
#include "collector/report/timeline.h"
#include "collector/report/worst.h"

namespace report {

// What a page says besides numbers.
struct Labels {
  std::string title;
  std::string version;             // of the program
  std::vector<std::string> files;  // what was read
  size_t top = 10;                 // entries of each list
  std::vector<output::Loss> losses{};
  bool interrupted = false;  // by the user, before the input ended
};

// Everything that a page shows of a capture, in bounded memory whatever the capture's length.
class Report {
 public:
  // As of Summary.
  explicit Report(size_t listed = 0) : summary(listed) {}
  void Find(const RequestMetricSpecification* metrics, const EndRequest& record) { summary.Find(metrics, record); }
  void Add(const plugin::Exchange& exchange);
  void Release() { summary.Release(); }

  // One HTML document that needs nothing beside it. It holds no time and no place of its making: the same capture
  // gives the same page.
  std::string Html(const Labels& labels) const;

 private:
  output::Summary summary;
  Timeline timeline;
  Worst worst;
};

}  // namespace report
