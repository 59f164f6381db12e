// Two pieces of work that are compared by the time that they take.
#pragma once

#include <algorithm>
#include <ctime>
#include <utility>
#include <vector>

namespace ztl_bench {

// The time that this thread has run, in seconds: what else runs on the computer does not count.
inline double ThreadSeconds() {
  std::timespec now;
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Of at least one value.
inline double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

// The processor's speed changes from one second to the next, so the two are run in turns, now the one first and now the
// other, and the ratio is taken between neighbours.
class Comparison {
 public:
  // Runs both once. Each returns the seconds that count.
  template <class First, class Second>
  void RunPair(First first, Second second) {
    double firstSeconds = 0;
    if (firstComesFirst_) firstSeconds = first();
    const double secondSeconds = second();
    if (!firstComesFirst_) firstSeconds = first();
    firstComesFirst_ = !firstComesFirst_;
    first_.push_back(firstSeconds);
    second_.push_back(secondSeconds);
    ratios_.push_back(firstSeconds / secondSeconds);
  }

  double LastFirstSeconds() const { return first_.back(); }
  double FirstSeconds() const { return Median(first_); }
  double SecondSeconds() const { return Median(second_); }
  double Ratio() const { return Median(ratios_); }

 private:
  bool firstComesFirst_ = true;
  std::vector<double> first_;
  std::vector<double> second_;
  std::vector<double> ratios_;
};

}  // namespace ztl_bench
