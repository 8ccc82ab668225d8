// TIFF files: a 1920x1080 RGB24 image written and read uncompressed, beside
// the plain fwrite/fread floor of the same bytes and beside libtiff writing
// and reading the same image (one strip, and libtiff's default strips
// written and read a scanline at a time).
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "bench_image.h"
#include "io_floor.h"
#include "pix95.h"

#ifdef PIX95_HAVE_LIBTIFF
#include <tiffio.h>
#endif

namespace {

constexpr uint32_t kWidth = 1920, kHeight = 1080;
constexpr std::size_t kBytes = std::size_t{kWidth} * kHeight * 3;
const std::string kOurs = "tiff_bench_ours.tif";

std::vector<uint8_t>& pixels() {
  static std::vector<uint8_t> p = [] {
    std::vector<uint8_t> v(kBytes);
    for (std::size_t i = 0; i < v.size(); ++i) v[i] = static_cast<uint8_t>(i * 31 + (i >> 11));
    return v;
  }();
  return p;
}

// The picture libtiff also writes, so that both sides move the same bytes.
uint32_t rgb_image() {
  const uint32_t h = pixbench::rgb24_image(kWidth, kHeight, kHeight);
  std::memcpy(PIX_image_get_ptr(h, PIX_PTR_DATA), pixels().data(), kBytes);
  return h;
}

void write_ours_once() {
  const uint32_t h = rgb_image();
  PIX_image_set_outfilename(h, kOurs.c_str());
  PIX_write_TIFF_file(h, PIX_STRIP_NEXT);
  PIX_image_destroy(h);
}

void BM_WriteOurs(benchmark::State& state) {
  const uint32_t h = rgb_image();
  PIX_image_set_outfilename(h, kOurs.c_str());
  for (auto _ : state) {
    if (PIX_write_TIFF_file(h, PIX_STRIP_NEXT) != 0) state.SkipWithError("write failed");
  }
  PIX_image_destroy(h);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBytes));
}

void BM_ReadOurs(benchmark::State& state) {
  write_ours_once();
  const uint32_t h = PIX_image_create();
  PIX_image_set_infilename(h, kOurs.c_str());
  for (auto _ : state) {
    PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, 0);
    PIX_read_TIFF_file(h, PIX_STRIP_NEXT);  // the header
    PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, kHeight);
    if (PIX_read_TIFF_file(h, PIX_STRIP_NEXT) != 0) state.SkipWithError("read failed");
    benchmark::DoNotOptimize(PIX_image_get_ptr(h, PIX_PTR_DATA));
  }
  PIX_image_destroy(h);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBytes));
}

void BM_WriteFloor(benchmark::State& state) { pixbench::write_floor(state, "tiff_bench_floor.bin", kBytes); }
void BM_ReadFloor(benchmark::State& state) {
  std::FILE* f = std::fopen("tiff_bench_floor.bin", "wb");
  std::fwrite(pixels().data(), 1, kBytes, f);
  std::fclose(f);
  pixbench::read_floor(state, "tiff_bench_floor.bin", kBytes);
}

BENCHMARK(BM_WriteOurs)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WriteFloor)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ReadOurs)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ReadFloor)->Unit(benchmark::kMillisecond)->UseRealTime();

#ifdef PIX95_HAVE_LIBTIFF
const std::string kPeer = "tiff_bench_libtiff.tif";

// rows_per_strip 0: libtiff's default strip size, written a scanline at a time.
void write_libtiff(const std::string& path, uint32_t rows_per_strip) {
  TIFF* tif = TIFFOpen(path.c_str(), "w");
  TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, kWidth);
  TIFFSetField(tif, TIFFTAG_IMAGELENGTH, kHeight);
  TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
  TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 3);
  TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
  TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
  if (rows_per_strip != 0) {
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, rows_per_strip);
    TIFFWriteEncodedStrip(tif, 0, pixels().data(), static_cast<tmsize_t>(kBytes));
  } else {
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tif, 0));
    for (uint32_t y = 0; y < kHeight; ++y) TIFFWriteScanline(tif, pixels().data() + std::size_t{y} * kWidth * 3, y, 0);
  }
  TIFFClose(tif);
}

void BM_WriteLibtiff(benchmark::State& state) {
  const uint32_t rows = static_cast<uint32_t>(state.range(0));
  for (auto _ : state) write_libtiff(kPeer, rows);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBytes));
}

void BM_ReadLibtiff(benchmark::State& state) {
  const uint32_t rows = static_cast<uint32_t>(state.range(0));
  write_libtiff(kPeer, rows);
  std::vector<uint8_t> image(kBytes);
  for (auto _ : state) {
    // "c": the one strip is read as written, not cut into strips of about 8 KiB.
    TIFF* tif = TIFFOpen(kPeer.c_str(), rows != 0 ? "rc" : "r");
    if (rows != 0) {
      TIFFReadEncodedStrip(tif, 0, image.data(), static_cast<tmsize_t>(kBytes));
    } else {
      for (uint32_t y = 0; y < kHeight; ++y) TIFFReadScanline(tif, image.data() + std::size_t{y} * kWidth * 3, y, 0);
    }
    TIFFClose(tif);
    benchmark::DoNotOptimize(image.data());
  }
  if (image != pixels()) state.SkipWithError("libtiff read other pixels");
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBytes));
}

// Argument: rows per strip (1080 = one strip, 0 = libtiff's default strips).
BENCHMARK(BM_WriteLibtiff)->Arg(kHeight)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ReadLibtiff)->Arg(kHeight)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();
#endif

}  // namespace

BENCHMARK_MAIN();
