// What the benchmarks that measure a side of ours against a peer share: frame
// sizes, the --photos=DIR argument, the reporter that keeps each side's rate
// of every repetition (or their median when only aggregates are reported),
// the median, and the SIMD level's name.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "core/simd.h"

namespace pixbench {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<uint8_t>;

struct Size {
  int width, height;
  std::string name() const { return std::to_string(width) + "x" + std::to_string(height); }
  std::size_t pixels() const { return static_cast<std::size_t>(width) * height; }
};

// A test card as RGB24: colour bars over a grey ramp over a zone plate.
inline Bytes card(const Size& s) {
  Bytes rgb(s.pixels() * 3);
  const uint8_t bars[8][3] = {{191, 191, 191}, {191, 191, 0}, {0, 191, 191}, {0, 191, 0},
                              {191, 0, 191},   {191, 0, 0},   {0, 0, 191},   {0, 0, 0}};
  for (int y = 0; y < s.height; ++y) {
    for (int x = 0; x < s.width; ++x) {
      uint8_t* p = &rgb[(std::size_t(y) * s.width + x) * 3];
      if (y < s.height / 2) {
        std::memcpy(p, bars[x * 8 / s.width], 3);
      } else if (y < s.height * 5 / 8) {
        std::memset(p, x * 255 / (s.width - 1), 3);
      } else {
        const double dx = x - s.width / 2.0, dy = y - s.height * 13.0 / 16.0;
        std::memset(p, static_cast<int>(std::lround(128 + 110 * std::cos((dx * dx + dy * dy) * 0.0015))), 3);
      }
    }
  }
  return rgb;
}

// --photos=DIR is the benchmarks' own; every other argument goes to the
// benchmark library (into `args`).  Gives DIR, or "" without one.
inline std::string photos_argument(int argc, char** argv, std::vector<char*>& args) {
  std::string photos;
  for (int i = 0; i < argc; ++i) {
    if (std::strncmp(argv[i], "--photos=", 9) == 0) {
      photos = argv[i] + 9;
    } else {
      args.push_back(argv[i]);
    }
  }
  return photos;
}

class Collector : public benchmark::ConsoleReporter {
 public:
  std::map<std::string, std::map<std::string, std::vector<double>>> rates;  // benchmark, side
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      if (r.error_occurred) continue;
      const bool median = r.run_type == Run::RT_Aggregate && r.aggregate_name == "median";
      if (r.run_type != Run::RT_Iteration && !median) continue;
      std::string name = r.benchmark_name();
      if (median) {
        name = name.substr(0, name.size() - std::string("_median").size());
        if (rates.count(name) != 0) continue;  // the repetitions themselves were reported
      }
      for (const auto& [side, value] : r.counters) rates[name][side].push_back(value);
    }
    ConsoleReporter::ReportRuns(runs);
  }
};

inline double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  const std::size_t n = v.size();
  return n == 0 ? 0 : n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

inline const char* level_name(pix::simd::Level l) {
  constexpr const char* kNames[] = {"scalar", "sse2", "avx2", "avx512"};
  return kNames[static_cast<int>(l)];
}

}  // namespace pixbench
