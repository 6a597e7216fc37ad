#include "Figures.h"

#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "Children.h"

namespace tovi::bench {

void say(const std::string& line) { std::fputs((line + "\n").c_str(), stderr); }

double secondsSince(Clock::time_point begin) { return std::chrono::duration<double>(Clock::now() - begin).count(); }

double ownCpuSeconds() {
  timespec time{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double median(std::vector<double> values) {
  if (values.empty()) return -1;
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

double medianOf(int times, const std::function<double()>& measure) {
  std::vector<double> values;
  for (int i = 0; i < times; ++i) values.push_back(measure());
  return median(std::move(values));
}

double allocatedBytes() {
  const auto info = ::mallinfo2();
  return static_cast<double>(info.uordblks + info.hblkhd);
}

bool aboutSoMany(std::size_t processes) {
  const auto count = processCount();
  return count >= processes && count < processes + 200;
}

}  // namespace tovi::bench
