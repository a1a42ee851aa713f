#include "collector/cli/progress.h"

#include <doctest/doctest.h>

namespace cli {
namespace {

TEST_CASE("the line shows how far, how fast and how long still") {
  CHECK(ProgressLine({.seconds = 10, .bytes_read = 500000000, .bytes_total = 2000000000, .packets = 12345678},
                     100) == "[######..................] 25%  500 MB, 1.2 Mpackets/s, 0:30 left");
}

TEST_CASE("without a total there is no bar and no time left") {
  CHECK(ProgressLine({.seconds = 2, .bytes_read = 1500, .bytes_total = 0, .packets = 20}, 100) ==
        "1.5 kB, 10 packets/s");
}

TEST_CASE("the line is never longer than the terminal") {
  const ProgressFigures figures{.seconds = 10, .bytes_read = 5, .bytes_total = 20, .packets = 7};
  for (size_t width = 0; width < 90; ++width) CHECK(ProgressLine(figures, width).size() <= width);
}

TEST_CASE("hours are shown where there are some") {
  CHECK(ProgressLine({.seconds = 3723, .bytes_read = 1, .bytes_total = 2, .packets = 0}, 100)
            .ends_with("1:02:03 left"));
}

TEST_CASE("a file that grew while it was read is complete, not more") {
  CHECK(ProgressLine({.seconds = 1, .bytes_read = 3, .bytes_total = 2, .packets = 0}, 100)
            .starts_with("[########################] 100%"));
}

TEST_CASE("nothing read yet predicts nothing") {
  CHECK(ProgressLine({.seconds = 0, .bytes_read = 0, .bytes_total = 2, .packets = 0}, 100) ==
        "[........................] 0%  0 B, 0 packets/s");
}

}  // namespace
}  // namespace cli
