#include "util/check.h"

#include <sys/time.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>

char _fprintf_output_buffer[512];

void g_print_timestamp(int fd) {
  timeval now{};
  gettimeofday(&now, nullptr);
  tm local{};
  localtime_r(&now.tv_sec, &local);

  char text[64];
  size_t length = strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
  length += static_cast<size_t>(
      std::snprintf(text + length, sizeof text - length, ".%06d-", static_cast<int>(now.tv_usec)));
  [[maybe_unused]] const ssize_t written = write(fd, text, length);
}
