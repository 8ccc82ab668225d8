// The I/O floor of the file benchmarks: plain fwrite and fread of the same
// number of bytes through a 16384-byte buffered stream, in 16384-byte blocks.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace pixbench {

inline void write_floor(benchmark::State& state, const std::string& path, std::size_t bytes) {
  std::vector<char> block(16384, 0x5A);
  std::vector<char> buffer(16384);
  for (auto _ : state) {
    FILE* f = std::fopen(path.c_str(), "wb");
    std::setvbuf(f, buffer.data(), _IOFBF, buffer.size());
    for (std::size_t done = 0; done < bytes; done += block.size()) {
      std::fwrite(block.data(), 1, std::min(block.size(), bytes - done), f);
    }
    std::fclose(f);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

inline void read_floor(benchmark::State& state, const std::string& path, std::size_t bytes) {
  std::vector<char> block(16384);
  std::vector<char> buffer(16384);
  for (auto _ : state) {
    FILE* f = std::fopen(path.c_str(), "rb");
    std::setvbuf(f, buffer.data(), _IOFBF, buffer.size());
    std::size_t got = 0;
    while (got < bytes) {
      const std::size_t n = std::fread(block.data(), 1, std::min(block.size(), bytes - got), f);
      if (n == 0) break;
      got += n;
    }
    benchmark::DoNotOptimize(got);
    std::fclose(f);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

}  // namespace pixbench
