// What the benchmark programs share: options, clocks, percentiles, and results as
// lines "name value" on standard output, which bench/bench.py reads.
#pragma once

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace zarn::bench {

/// Arguments of the form name=value.
class Options {
 public:
  Options(int count, char** arguments) : words_(arguments + 1, arguments + count) {}

  [[nodiscard]] std::string text(std::string_view name) const {
    const std::string prefix = std::string(name) + "=";
    for (const std::string& word : words_) {
      if (word.starts_with(prefix)) return word.substr(prefix.size());
    }
    throw std::invalid_argument(prefix + " is missing");
  }
  [[nodiscard]] std::size_t number(std::string_view name) const {
    const std::string value = text(name);
    std::size_t result = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), result);
    if (error != std::errc() || *end != '\0') throw std::invalid_argument(value + " is no number");
    return result;
  }

 private:
  std::vector<std::string> words_;
};

/// A result that is wrong makes the whole benchmark fail.
inline void require(bool holds, std::string_view what) {
  if (!holds) throw std::runtime_error(std::string(what));
}

inline void report(const char* name, double value) {
  std::printf("%s %.6g\n", name, value);
}

using Clock = std::chrono::steady_clock;

inline double seconds(Clock::duration duration) {
  return std::chrono::duration<double>(duration).count();
}

/// Orders `samples`. `share` is 0.5 for the median.
template <typename T>
T percentile(std::vector<T>& samples, double share) {
  require(!samples.empty(), "nothing was measured");
  const auto place = static_cast<std::size_t>(static_cast<double>(samples.size() - 1) * share);
  std::nth_element(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(place), samples.end());
  return samples[place];
}

/// What the compiler must take for used.
template <typename T>
void keep(const T& value) {
  asm volatile("" : : "g"(&value) : "memory");
}

/// The first of the candidates with this name.
template <typename Candidates>
const auto& byName(const Candidates& candidates, const std::string& name) {
  for (const auto& candidate : candidates) {
    if (candidate.name == name) return candidate;
  }
  throw std::invalid_argument("no candidate " + name);
}

/// main(): a failure is shown and becomes the exit code.
template <typename Body>
int runBenchmark(int count, char** arguments, Body body) {
  try {
    body(Options(count, arguments));
    std::fflush(stdout);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", arguments[0], error.what());
    return 1;
  }
}

}  // namespace zarn::bench
