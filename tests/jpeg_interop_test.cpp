// Our JPEG files in libjpeg-turbo's djpeg and in Pillow, theirs (cjpeg and
// Pillow) in our decoder, on photographs and on a synthetic card; and the
// stream features we refuse.  Colour is compared as PSNR over RGB: the
// decoders differ in their inverse transforms and colour conversion.  djpeg
// runs with -nosmooth (chroma repeated, as ours); Pillow interpolates chroma,
// so our decode is compared with it after the same interpolation.
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <cstring>
#include <sstream>
#include <tuple>

#include "file_test_support.h"
#include "interop_support.h"

namespace {

using namespace pixtest;
namespace io = pixtest::interop;

struct Picture {
  std::string name;
  uint32_t width, height;
  Bytes rgb;  // packed RGB24
};

Bytes grey_of(const Picture& p) {
  Bytes g(static_cast<std::size_t>(p.width) * p.height);
  for (std::size_t i = 0; i < g.size(); ++i) {
    g[i] = static_cast<uint8_t>((77 * p.rgb[3 * i] + 150 * p.rgb[3 * i + 1] + 29 * p.rgb[3 * i + 2]) >> 8);
  }
  return g;
}

// Photographs fetched at test time (a failure to fetch fails the test), and
// a card of colour bars over a grey ramp.
const std::vector<Picture>& pictures() {
  static const std::vector<Picture> all = [] {
    std::vector<Picture> p;
    const std::string dir = io::scratch_path("photos");
    const std::string script = std::string(PIX95_TEST_TOOLS_DIR) + "/../../tools/photos.py";
    if (io::run("/usr/bin/python3 '" + script + "' '" + dir + "' 640x480 100x75") == 0) {
      for (auto [w, h] : {std::pair{640u, 480u}, {100u, 75u}}) {
        const std::string size = std::to_string(w) + "x" + std::to_string(h);
        p.push_back({"photo-" + size, w, h, io::read_file(dir + "/photo-" + size + ".rgb")});
      }
    }
    Picture card{"card-320x240", 320, 240, Bytes(320 * 240 * 3)};
    const uint8_t bars[8][3] = {{255, 255, 255}, {255, 255, 0}, {0, 255, 255}, {0, 255, 0},
                                {255, 0, 255},   {255, 0, 0},   {0, 0, 255},   {0, 0, 0}};
    for (uint32_t y = 0; y < 240; ++y) {
      for (uint32_t x = 0; x < 320; ++x) {
        uint8_t* px = &card.rgb[(y * 320 + x) * 3];
        if (y < 160) std::memcpy(px, bars[x / 40], 3);
        else std::memset(px, static_cast<int>(x * 255 / 319), 3);
      }
    }
    p.push_back(card);
    return p;
  }();
  return all;
}

double psnr(const Bytes& a, const Bytes& b) {
  if (a.size() != b.size() || a.empty()) return 0;
  double sum = 0;
  for (std::size_t i = 0; i < a.size(); ++i) sum += (a[i] - b[i]) * (a[i] - b[i]);
  return sum == 0 ? 99 : 10 * std::log10(255.0 * 255.0 * a.size() / sum);
}
int max_difference(const Bytes& a, const Bytes& b) {
  if (a.size() != b.size()) return 256;
  int m = 0;
  for (std::size_t i = 0; i < a.size(); ++i) m = std::max(m, std::abs(a[i] - b[i]));
  return m;
}

// Writes pixels (Y8 or RGB24) as a JPEG file at `q_scale`, compressing and
// writing `strip` lines at a time (0: whole).  The writer takes its tables
// from the record, so they are made once the first strip has set it up.
uint32_t write_jpeg(const Bytes& pixels, uint16_t format, uint32_t w, uint32_t h, uint16_t q_scale, uint32_t strip,
                    const std::string& path) {
  const uint32_t lines = strip == 0 ? h : strip;
  const uint32_t bpp = format == PIX_Y8 ? 1 : 3;
  const uint32_t src = PIX_image_create(), jpeg = PIX_JPEG_image_create();
  set_parameters(src, {{PIX_IMAGE_FORMAT, format}, {PIX_IMAGE_WIDTH, w}, {PIX_IMAGE_HEIGHT, h},
                       {PIX_LINE_ALIGN, 1}, {PIX_LINES_THIS_STRIP, lines}});
  PIX_image_set_flags(src, PIX_FLAG_LOCKED, 1);
  PIX_image_set_outfilename(src, path.c_str());
  PIX_JPEG_set_Quality_factor(jpeg, q_scale);
  Bytes buffer(static_cast<std::size_t>(w) * bpp * lines);
  uint32_t result = 0;
  for (uint32_t y = 0; y < h && result == 0; y += lines) {
    const std::size_t n = static_cast<std::size_t>(w) * bpp * std::min(lines, h - y);
    std::memcpy(buffer.data(), pixels.data() + static_cast<std::size_t>(y) * w * bpp, n);
    PIX_image_set_ptr(src, PIX_PTR_DATA, buffer.data());
    PIX_image_set_parameter(src, PIX_LINES_THIS_STRIP, lines);
    result = PIX_JPEG_compress(src, jpeg, PIX_STRIP_NEXT);
    if (y == 0 && result == 0) {
      PIX_JPEG_make_Q_tables(jpeg);
      PIX_JPEG_set_default_H_tables(jpeg);
    }
    if (result == 0) result = PIX_JPEG_file_write(jpeg, PIX_STRIP_NEXT);
  }
  PIX_image_set_ptr(src, PIX_PTR_DATA, nullptr);
  return result;
}

// Our YUV 4:2:2 shown as a decoder that interpolates chroma shows it: each
// chroma sample weighted 3:1 with its neighbour on the side of the pixel,
// then the usual conversion to RGB.
Bytes interpolated_rgb(const Bytes& yuv, uint32_t w, uint32_t h) {
  Bytes rgb(std::size_t{w} * h * 3);
  const uint32_t pairs = w / 2;
  for (uint32_t y = 0; y < h; ++y) {
    const uint8_t* line = &yuv[std::size_t{y} * w * 2];
    const auto chroma = [&](uint32_t pair, int c) { return line[4 * std::min(pair, pairs - 1) + c]; };
    for (uint32_t x = 0; x < w; ++x) {
      const uint32_t p = x / 2;
      const uint32_t near = p, far = x % 2 == 0 ? (p == 0 ? 0 : p - 1) : std::min(p + 1, pairs - 1);
      const int bias = x % 2 == 0 ? 1 : 2;
      const bool edge = (x == 0) || (x == w - 1);
      const double cb = (edge ? chroma(near, 1) : (3 * chroma(near, 1) + chroma(far, 1) + bias) >> 2) - 128.0;
      const double cr = (edge ? chroma(near, 3) : (3 * chroma(near, 3) + chroma(far, 3) + bias) >> 2) - 128.0;
      const double luma = line[2 * x];
      const double v[3] = {luma + 1.402 * cr, luma - 0.344136 * cb - 0.714136 * cr, luma + 1.772 * cb};
      for (int c = 0; c < 3; ++c) {
        rgb[(std::size_t{y} * w + x) * 3 + c] = static_cast<uint8_t>(std::clamp(std::lround(v[c]), 0L, 255L));
      }
    }
  }
  return rgb;
}

// Our decode of a file to Y8 (grey files) or RGB24 (or YUV 4:2:2), cut to w x h.
Bytes our_decode(const std::string& path, uint32_t w, uint32_t h, uint32_t& result, bool yuv = false) {
  const uint32_t jpeg = PIX_JPEG_image_create(), out = PIX_image_create();
  PIX_image_set_infilename(jpeg, path.c_str());
  result = PIX_JPEG_file_read(jpeg);
  if (result != 0) return {};
  const bool grey = PIX_image_get_parameter(jpeg, PIX_IMAGE_FORMAT) == PIX_Y8;
  PIX_image_set_parameter(out, PIX_IMAGE_FORMAT, grey ? PIX_Y8 : yuv ? PIX_YUV422 : PIX_RGB24);
  result = PIX_JPEG_decompress(jpeg, out, PIX_STRIP_NEXT);
  if (result != 0) return {};
  const uint32_t bpp = grey ? 1 : yuv ? 2 : 3, stride = PIX_image_get_parameter(out, PIX_BYTES_PER_LINE);
  const auto* data = static_cast<const uint8_t*>(PIX_image_get_ptr(out, PIX_PTR_DATA));
  Bytes cut;
  for (uint32_t y = 0; y < h; ++y) cut.insert(cut.end(), data + y * stride, data + y * stride + w * bpp);
  return cut;
}

// djpeg's decode as PNM samples.
Bytes djpeg(const std::string& path) {
  const std::string out = path + ".pnm";
  if (io::run("/usr/bin/djpeg -nosmooth -pnm -outfile '" + out + "' '" + path + "'") != 0) return {};
  const Bytes file = io::read_file(out);
  std::istringstream head(std::string(file.begin(), file.begin() + std::min<std::size_t>(file.size(), 64)));
  std::string magic;
  uint32_t w = 0, h = 0, max = 0;
  head >> magic >> w >> h >> max;
  const std::size_t samples = static_cast<std::size_t>(w) * h * (magic == "P6" ? 3 : 1);
  return file.size() >= samples ? Bytes(file.end() - static_cast<std::ptrdiff_t>(samples), file.end()) : Bytes{};
}

class JpegInterop : public LibraryTest {};

TEST_F(JpegInterop, OurFilesDecodeInDjpegAndPillowAsInOurDecoder) {
  ASSERT_EQ(pictures().size(), 3u) << "the photographs could not be fetched";
  for (const Picture& p : pictures()) {
    for (const bool grey : {true, false}) {
      for (const auto& [q, strip] : {std::pair{16, 0u}, {32, 16u}, {80, 0u}}) {
        const std::string path =
            io::scratch_path(p.name + (grey ? "-grey" : "-422") + "-q" + std::to_string(q) + ".jpg");
        SCOPED_TRACE(path);
        ASSERT_EQ(write_jpeg(grey ? grey_of(p) : p.rgb, grey ? PIX_Y8 : PIX_RGB24, p.width, p.height,
                             static_cast<uint16_t>(q), strip, path),
                  0u);
        uint32_t result = 0;
        const Bytes ours = our_decode(path, p.width, p.height, result);
        ASSERT_EQ(result, 0u);
        const io::Pixels pil = io::pillow_read(path);
        EXPECT_EQ(std::tie(pil.width, pil.height, pil.mode), std::make_tuple(p.width, p.height, grey ? "L" : "RGB"));
        if (grey) {
          EXPECT_LE(max_difference(djpeg(path), ours), 2);
          EXPECT_LE(max_difference(pil.bytes, ours), 2);
        } else {
          EXPECT_GE(psnr(djpeg(path), ours), 40.0);
          const Bytes yuv = our_decode(path, p.width, p.height, result, true);
          EXPECT_GE(psnr(pil.bytes, interpolated_rgb(yuv, p.width, p.height)), 40.0);
        }
      }
    }
  }
}

TEST_F(JpegInterop, TheirBaselineFilesDecodeHereAsInDjpeg) {
  ASSERT_EQ(pictures().size(), 3u) << "the photographs could not be fetched";
  for (const Picture& p : pictures()) {
    const std::string ppm = io::scratch_path(p.name + ".ppm");
    const std::string header = "P6\n" + std::to_string(p.width) + " " + std::to_string(p.height) + "\n255\n";
    io::write_file(ppm, Bytes(header.begin(), header.end()) + p.rgb);
    const std::string cjpeg = "/usr/bin/cjpeg -baseline -quality 85 ";
    const std::pair<std::string, std::string> made[] = {
        {"cjpeg-grey", cjpeg + "-grayscale"}, {"cjpeg-2x1", cjpeg + "-sample 2x1"}, {"cjpeg-2x2", cjpeg + "-sample 2x2"}};
    std::vector<std::string> files;
    for (const auto& [tag, command] : made) {
      files.push_back(io::scratch_path(p.name + "-" + tag + ".jpg"));
      ASSERT_EQ(io::run(command + " -outfile '" + files.back() + "' '" + ppm + "'"), 0);
    }
    for (const auto& [tag, sampling] : {std::pair{"pillow-422", 1}, {"pillow-420", 2}}) {
      files.push_back(io::scratch_path(p.name + "-" + tag + ".jpg"));
      ASSERT_TRUE(io::pillow_save(files.back(), "RGB", p.width, p.height, p.rgb,
                                  "quality=85 subsampling=" + std::to_string(sampling)));
    }
    for (const std::string& path : files) {
      SCOPED_TRACE(path);
      uint32_t result = 0;
      const Bytes ours = our_decode(path, p.width, p.height, result);
      ASSERT_EQ(result, 0u);
      EXPECT_GE(psnr(djpeg(path), ours), 35.0);
    }
  }
}

// Streams with features this codec does not take: the reader refuses them
// with the marker in the code.
TEST_F(JpegInterop, StreamsWithSegmentsWeDoNotTakeAreRefused) {
  const Picture& p = pictures().back();  // the card: always there
  const std::string ppm = io::scratch_path("refused.ppm");
  const std::string header = "P6\n" + std::to_string(p.width) + " " + std::to_string(p.height) + "\n255\n";
  io::write_file(ppm, Bytes(header.begin(), header.end()) + p.rgb);
  const std::string plain = io::scratch_path("refused-plain.jpg");
  ASSERT_EQ(io::run("/usr/bin/cjpeg -baseline -outfile '" + plain + "' '" + ppm + "'"), 0);
  const Bytes base = io::read_file(plain);
  // APP1 after the start of image; SOF0 turned into a 12-bit SOF1.
  const Bytes app1 = Bytes(base.begin(), base.begin() + 2) + Bytes{0xFF, 0xE1, 0x00, 0x08, 'E', 'x', 'i', 'f', 0, 0} +
                     Bytes(base.begin() + 2, base.end());
  Bytes twelve = base;
  for (std::size_t i = 0; i + 4 < twelve.size(); ++i) {
    if (twelve[i] == 0xFF && twelve[i + 1] == 0xC0) {
      twelve[i + 1] = 0xC1, twelve[i + 4] = 12;
      break;
    }
  }
  io::write_file(io::scratch_path("refused-app1.jpg"), app1);
  io::write_file(io::scratch_path("refused-12bit.jpg"), twelve);
  ASSERT_EQ(io::run("/usr/bin/cjpeg -restart 1 -outfile '" + io::scratch_path("refused-dri.jpg") + "' '" + ppm + "'"), 0);
  ASSERT_EQ(io::run("/usr/bin/cjpeg -progressive -outfile '" + io::scratch_path("refused-sof2.jpg") + "' '" + ppm + "'"),
            0);
  const std::tuple<std::string, uint32_t, std::string> refused[] = {
      {"refused-app1.jpg", 0x101400E1u, "Unrecognised marker detected"},
      {"refused-12bit.jpg", 0x101400C1u, "Unrecognised marker detected"},
      {"refused-dri.jpg", 0x10140000u, "Define Restart Interval not supported"},
      {"refused-sof2.jpg", 0x101400C2u, "Unrecognised marker detected"}};
  for (const auto& [name, code, message] : refused) {
    const uint32_t jpeg = PIX_JPEG_image_create();
    PIX_image_set_infilename(jpeg, io::scratch_path(name).c_str());
    expect_report(PIX_JPEG_file_read(jpeg), "PIX_JPEG_file_read", code, message);
    PIX_JPEG_file_close(jpeg);
  }
}

// The SIMD paths against the scalar reference: every byte the encoder
// writes and every sample (and status) the decoder gives, over the
// photographs, the card and damaged streams, in this process at the best
// level and again in a run of this program capped at scalar
// (PIX95_SIMD=scalar), which leaves its digest where it is told to.
uint64_t coded_digest() {
  uint64_t h = 1469598103934665603ull;
  const auto mix = [&h](const uint8_t* p, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) h = (h ^ p[i]) * 1099511628211ull;
  };
  const auto mix_value = [&](uint32_t v) { mix(reinterpret_cast<const uint8_t*>(&v), sizeof v); };
  std::mt19937 rng(11);
  for (const Picture& p : pictures()) {
    for (const bool grey : {true, false}) {
      for (const uint16_t q : {32, 80}) {
        const std::string path = io::scratch_path(p.name + "-digest.jpg");
        mix_value(write_jpeg(grey ? grey_of(p) : p.rgb, grey ? PIX_Y8 : PIX_RGB24, p.width, p.height, q, 16, path));
        const Bytes file = io::read_file(path);
        mix(file.data(), file.size());
        // The stream as written, then damaged: bytes changed, an EOI or a
        // stray 0xFF put in, cut short.
        for (int damage = 0; damage < 6; ++damage) {
          Bytes d = file;
          const std::size_t at = 700 + rng() % (d.size() - 800);
          if (damage == 1 || damage == 2) d[at] ^= static_cast<uint8_t>(1 + rng() % 255);
          if (damage == 3) d.insert(d.begin() + static_cast<std::ptrdiff_t>(at), {0xFF, 0xD9});
          if (damage == 4) d[at] = 0xFF;
          if (damage == 5) d.resize(at);
          io::write_file(path, d);
          for (const bool yuv : {false, true}) {
            uint32_t result = 0;
            const Bytes samples = our_decode(path, p.width, p.height, result, yuv);
            mix_value(result);
            mix(samples.data(), samples.size());
          }
        }
      }
    }
  }
  return h;
}

TEST_F(JpegInterop, EveryLevelCodesAndDecodesAsTheScalarKernels) {
  ASSERT_EQ(pictures().size(), 3u) << "the photographs could not be fetched";
  const uint64_t here = coded_digest();
  if (const char* out = std::getenv("PIX95_DIGEST_OUT")) {
    io::write_file(out, Bytes(reinterpret_cast<const uint8_t*>(&here), reinterpret_cast<const uint8_t*>(&here + 1)));
    return;
  }
  const std::string file = io::scratch_path("scalar.digest");
  const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
  ASSERT_EQ(io::run("PIX95_SIMD=scalar PIX95_DIGEST_OUT='" + file + "' '" + self + "' "
                    "--gtest_filter=JpegInterop.EveryLevelCodesAndDecodesAsTheScalarKernels > /dev/null"),
            0);
  const Bytes scalar = io::read_file(file);
  ASSERT_EQ(scalar.size(), sizeof here);
  uint64_t reference = 0;
  std::memcpy(&reference, scalar.data(), sizeof reference);
  EXPECT_EQ(here, reference);
}

}  // namespace
