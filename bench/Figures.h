// Small tools for measuring: clocks, medians, and what the heap holds.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace tovi::bench {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kFew = 300;    // processes beside the application
constexpr std::size_t kMany = 3000;  // the same on a busy computer

void say(const std::string& line);  // what is going on; the table alone goes to standard output

double secondsSince(Clock::time_point begin);
double ownCpuSeconds();

double median(std::vector<double> values);  // -1 of none
double medianOf(int times, const std::function<double()>& measure);

// Bytes that this process has allocated and not freed.
double allocatedBytes();

// Whether nobody else has filled the process table meanwhile; what a computer runs anyway is beside ours.
bool aboutSoMany(std::size_t processes);

}  // namespace tovi::bench
