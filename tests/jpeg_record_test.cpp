// The JPEG state record of an image: creation, layout, data buffers,
// parameters, strip assembly, in-memory sequences, and copying and moving
// JPEG images.
#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "core/memory.h"
#include "jpeg/jpeg_state.h"
#include "test_support.h"

namespace {

using Bytes = std::vector<uint8_t>;

tPIX_Image* image_record(uint32_t h) { return static_cast<tPIX_Image*>(PIX_image_get_ptr(h, PIX_PTR_RECORD)); }
Tjpeg* tjpeg(uint32_t h) { return static_cast<Tjpeg*>(PIX_image_get_ptr(h, PIX_PTR_TJPEG)); }

// Bytes the library allocated for a compressed-data buffer; 0 when it is not one of its own.
std::size_t capacity(const uint8_t* data) {
  for (const auto& [record, buffer] : pix::jpeg::jpeg_state().buffers) {
    if (buffer.data == data && record->data == data) return buffer.capacity;
  }
  return 0;
}

Bytes held(uint32_t h) {
  const Tjpeg* r = tjpeg(h);
  return r->data == nullptr ? Bytes{} : Bytes(r->data, r->data + r->length);
}

bool building() { return !pix::jpeg::jpeg_state().build.progress.idle(); }

class JpegRecordTest : public pixtest::LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    pix::jpeg::jpeg_state().build = {};  // a failed test must not leave a build half done
  }
  void TearDown() override {
    pix::memory::fail_after(-1);
    LibraryTest::TearDown();
  }
  void expect_last(const char* function, uint32_t code, const char* message) {
    const auto r = last_report();
    EXPECT_EQ(std::tie(r.function, r.code, r.message), std::make_tuple(std::string(function), code, std::string(message)));
  }

  // Gives a JPEG image a fresh buffer holding `bytes` as its compressed data.
  static void hold(uint32_t h, const Bytes& bytes) {
    ASSERT_EQ(PIX_JPEG_malloc_N_bytes_data(h, static_cast<uint32_t>(bytes.size())), 0u);
    if (!bytes.empty()) std::memcpy(tjpeg(h)->data, bytes.data(), bytes.size());
    PIX_image_set_parameter(h, PIX_JPEG_LENGTH, static_cast<uint32_t>(bytes.size()));
  }

  // A JPEG image describing a 16-pixel-wide grey raster of `height` lines,
  // `lines` to a strip, whose current strip compressed to `bytes`.
  static uint32_t compressed(const Bytes& bytes, uint32_t height = 8, uint32_t lines = 8) {
    const uint32_t raster = pixtest::make_image(PIX_Y8, 16, height, lines);
    const uint32_t h = PIX_JPEG_image_create();
    EXPECT_EQ(PIX_JPEG_set_image(raster, h), 0u);
    PIX_image_destroy(raster);
    hold(h, bytes);
    return h;
  }
};

TEST_F(JpegRecordTest, CreateAttachesAFreshRecord) {
  const uint32_t h = PIX_JPEG_image_create();
  ASSERT_FALSE(PIX_IS_ERROR(h));
  const Tjpeg& r = *tjpeg(h);
  EXPECT_EQ(r.Q_scale, 32);
  EXPECT_EQ(std::make_tuple(r.file, r.data, r.position), std::make_tuple(nullptr, nullptr, nullptr));
  EXPECT_EQ(std::make_tuple(r.length, r.header_length, r.Lq, r.Nq, r.DHT_length), std::make_tuple(0u, 0u, 0, 0, 0));
  static const Tjpeg zero{};
  EXPECT_EQ(std::memcmp(r.Tq, zero.Tq, sizeof r.Tq), 0);
  EXPECT_EQ(std::memcmp(r.table_ids, zero.table_ids, sizeof r.table_ids), 0);
  EXPECT_EQ(std::memcmp(r.BITS, zero.BITS, sizeof r.BITS), 0);
  EXPECT_EQ(std::memcmp(r.HUFFVAL, zero.HUFFVAL, sizeof r.HUFFVAL), 0);
  EXPECT_EQ(PIX_image_get_parameter(h, PIX_LINES_THIS_STRIP), 8u);  // otherwise an ordinary new image
}

TEST_F(JpegRecordTest, CreateFailures) {
  pix::memory::fail_after(0);  // the image record itself: the image library's code comes back as it is
  EXPECT_EQ(PIX_JPEG_image_create(), 0x18500000u);
  expect_last("PIX_image_create", 0x18500000u, "");
  EXPECT_EQ(image_record(1), nullptr);

  pix::memory::fail_after(2);  // image record and colour map succeed, the JPEG record fails
  EXPECT_EQ(PIX_JPEG_image_create(), 0x10500000u);
  expect_last("PIX_JPEG_image_create", 0x10500000u, "");
  EXPECT_NE(image_record(1), nullptr);  // the plain image stays
  EXPECT_EQ(tjpeg(1), nullptr);
}

TEST_F(JpegRecordTest, SetImageLayoutFollowsTheSourcesColour) {
  struct Case {
    const char* name;
    uint16_t source_format;
    bool coloured_map;
    uint16_t format, depth, Ns, Lf, Ls;
    std::array<uint16_t, 3> H, V;
  };
  const Case cases[] = {
      {"Y8", PIX_Y8, false, PIX_Y8, 8, 1, 11, 8, {1, 0, 0}, {1, 0, 0}},
      {"Y16", PIX_Y16, false, PIX_Y8, 8, 1, 11, 8, {1, 0, 0}, {1, 0, 0}},
      {"grey palette", PIX_PALETTED, false, PIX_Y8, 8, 1, 11, 8, {1, 0, 0}, {1, 0, 0}},
      {"colour palette", PIX_PALETTED, true, PIX_YUV422, 16, 3, 17, 12, {2, 1, 1}, {1, 1, 1}},
      {"RGB24", PIX_RGB24, false, PIX_YUV422, 16, 3, 17, 12, {2, 1, 1}, {1, 1, 1}},
      {"YUV422", PIX_YUV422, false, PIX_YUV422, 16, 3, 17, 12, {2, 1, 1}, {1, 1, 1}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const uint32_t src = pixtest::make_image(c.source_format, 24, 10, 5);
    if (c.coloured_map) static_cast<tPIX_Colour*>(PIX_image_get_ptr(src, PIX_PTR_CMAP))[2] = {10, 20, 30, 0};
    const uint32_t h = PIX_JPEG_image_create();
    Tjpeg& r = *tjpeg(h);
    r.Nq = 2, r.Ss = 5, r.Se = 1, r.AhAl = 7;  // stale values that must be replaced
    r.H[1] = r.H[2] = r.V[1] = r.V[2] = 9;
    PIX_image_set_parameter(h, PIX_NUM_FRAMES, 5);
    ASSERT_EQ(PIX_JPEG_set_image(src, h), 0u);
    const tPIX_Image& img = *image_record(h);
    EXPECT_EQ(std::make_tuple(img.format, img.depth, img.width, img.height, img.lines_this_strip, img.num_frames),
              std::make_tuple(c.format, c.depth, 24u, 10u, 5u, 1u));
    EXPECT_EQ(img.bytes_per_line, 24u * c.depth / 8);  // checked
    EXPECT_EQ(PIX_image_get_flags(h, PIX_FLAG_JPEG), 1u);
    EXPECT_EQ(std::make_tuple(r.Nq, r.P, r.Ns, r.Lf, r.Ls), std::make_tuple(0, 8, c.Ns, c.Lf, c.Ls));
    EXPECT_EQ((std::array<uint16_t, 3>{r.H[0], r.H[1], r.H[2]}), c.H);
    EXPECT_EQ((std::array<uint16_t, 3>{r.V[0], r.V[1], r.V[2]}), c.V);
    EXPECT_EQ(std::make_tuple(r.Ss, r.Se, r.AhAl), std::make_tuple(0, 63, 0));
  }
  EXPECT_TRUE(reports().empty());
}

TEST_F(JpegRecordTest, SetImageFailures) {
  const uint32_t src = pixtest::make_image(PIX_Y8, 8, 8);
  const uint32_t h = PIX_JPEG_image_create();
  PIX_image_set_parameter(h, PIX_LINE_ALIGN, 0);  // makes the JPEG image fail its check
  EXPECT_EQ(PIX_JPEG_set_image(src, h), 0x10030000u);
  expect_last("PIX_JPEG_set_image", 0x10030000u, "Corrupt image - probably an internal error");
  EXPECT_EQ(PIX_JPEG_set_image(999, h), 0x10010000u);
  expect_last("PIX_JPEG_set_image", 0x10010000u, "Input image does not exist");
  EXPECT_EQ(PIX_JPEG_set_image(h, src), 0x10010000u);
  expect_last("PIX_JPEG_set_image", 0x10010000u, "Not a JPEG image");
}

class JpegFileSizeTest : public JpegRecordTest {
 protected:
  // Opens a new file of `n` bytes for reading.
  FILE* open_file_of(long n) {
    close_file();
    path_ = std::filesystem::temp_directory_path() /
            ("pix95_jpeg_" + std::to_string(std::random_device{}()) + "_" + std::to_string(n) + ".bin");
    FILE* w = std::fopen(path_.string().c_str(), "wb");
    EXPECT_NE(w, nullptr);
    for (long i = 0; i < n; ++i) std::fputc(static_cast<int>(i & 0xFF), w);
    std::fclose(w);
    return file_ = std::fopen(path_.string().c_str(), "rb");
  }
  void close_file() {
    if (file_ == nullptr) return;
    std::fclose(file_);
    std::filesystem::remove(path_);
    file_ = nullptr;
  }
  void TearDown() override {
    close_file();
    JpegRecordTest::TearDown();
  }
  FILE* file_ = nullptr;
  std::filesystem::path path_;
};

TEST_F(JpegFileSizeTest, BufferForAnAttachedFileIsItsLengthMadeEvenAndAtLeast4200) {
  struct Case { long file_bytes; std::size_t buffer; };
  const Case cases[] = {{0, 4200}, {3, 4200}, {4094, 4200}, {4095, 4096}, {4096, 4096}, {4097, 4098}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file_bytes);
    const uint32_t h = compressed({});
    FILE* f = open_file_of(c.file_bytes);
    std::fseek(f, c.file_bytes / 2, SEEK_SET);
    ASSERT_EQ(PIX_JPEG_set_file_ptr(h, f), 0u);
    EXPECT_EQ(PIX_JPEG_get_file_ptr(h), f);
    ASSERT_EQ(PIX_JPEG_malloc_data(h), 0u);
    EXPECT_EQ(capacity(tjpeg(h)->data), c.buffer);
    EXPECT_EQ(std::ftell(f), c.file_bytes / 2);  // the stream is left where it was
    PIX_image_destroy(h);
  }
}

TEST_F(JpegFileSizeTest, AllocationFailures) {
  const uint32_t h = compressed({});
  PIX_JPEG_set_file_ptr(h, open_file_of(3));
  pix::memory::fail_after(0);
  EXPECT_EQ(PIX_JPEG_malloc_data(h), 0x10500000u | 4200u);  // the raised size
  expect_last("PIX_JPEG_malloc_data", 0x10500000u | 4200u, "");

  PIX_JPEG_set_file_ptr(h, nullptr);  // no file: the strip plus 10000
  pix::memory::fail_after(0);
  EXPECT_EQ(PIX_JPEG_malloc_data(h), 0x10500000u | ((8 * 16 + 10000) & 0xFFFFu));
  ASSERT_EQ(PIX_JPEG_malloc_data(h), 0u);
  EXPECT_EQ(capacity(tjpeg(h)->data), 8u * 16 + 10000);

  pix::memory::fail_after(0);
  EXPECT_EQ(PIX_JPEG_malloc_N_bytes_data(h, 0x12345), 0x10502345u);
  expect_last("PIX_JPEG_malloc_N_bytes_data", 0x10502345u, "");

  const uint32_t undescribed = PIX_JPEG_image_create();  // fails the image check
  EXPECT_EQ(PIX_JPEG_malloc_data(undescribed), 0x1003000Eu);
  expect_last("PIX_JPEG_malloc_data", 0x1003000Eu, "Corrupt image");
  EXPECT_EQ(PIX_JPEG_malloc_N_bytes_data(undescribed, 10), 0x1003000Eu);
  expect_last("PIX_JPEG_malloc_N_bytes_data", 0x1003000Eu, "Corrupt image");
}

TEST_F(JpegRecordTest, CallersBufferIsKeptByAllocationAndFreeing) {
  const uint32_t h = compressed({});
  PIX_JPEG_free_data(h);
  uint8_t own[64] = {};
  PIX_image_set_ptr(h, PIX_PTR_JPEG_DATA, own);
  PIX_image_set_ptr(h, PIX_PTR_JPEG_POS, own + 5);
  PIX_image_set_parameter(h, PIX_JPEG_LENGTH, 40);
  PIX_image_set_flags(h, PIX_FLAG_LOCKED, 1);
  EXPECT_EQ(PIX_JPEG_malloc_data(h), 0u);
  EXPECT_EQ(PIX_JPEG_malloc_N_bytes_data(h, 1000), 0u);
  EXPECT_EQ(PIX_JPEG_free_data(h), 0u);
  EXPECT_EQ(PIX_image_free_data(h), 0u);
  const Tjpeg& r = *tjpeg(h);
  EXPECT_EQ(std::make_tuple(r.data, r.position, r.length), std::make_tuple(own, own + 5, 40u));
  PIX_image_set_ptr(h, PIX_PTR_JPEG_DATA, nullptr);  // taken back before the image is destroyed

  EXPECT_EQ(PIX_JPEG_malloc_N_bytes_data(h, 50), 0u);  // locked but without a buffer: one is made
  EXPECT_EQ(capacity(r.data), 50u);
}

TEST_F(JpegRecordTest, ReallocatingFreeingAndDestroyingTheRecord) {
  const uint32_t h = compressed(Bytes(7, 0x5A));
  Tjpeg& r = *tjpeg(h);
  uint8_t* old = r.data;
  r.position = old;
  ASSERT_EQ(PIX_JPEG_malloc_N_bytes_data(h, 300), 0u);
  EXPECT_NE(r.data, old);
  EXPECT_EQ(capacity(old), 0u);  // released
  EXPECT_EQ(capacity(r.data), 300u);
  EXPECT_EQ(r.position, r.data);
  EXPECT_EQ(r.length, 7u);  // untouched

  ASSERT_EQ(PIX_JPEG_free_data(h), 0u);
  EXPECT_EQ(std::make_tuple(r.data, r.position, r.length), std::make_tuple(nullptr, nullptr, 0u));
  const uint32_t other = compressed({1, 2});
  EXPECT_EQ(PIX_JPEG_destroy_Tjpeg(other), 0u);
  EXPECT_NE(image_record(other), nullptr);  // the image stays, without its record
  EXPECT_EQ(tjpeg(other), nullptr);
  EXPECT_EQ(PIX_JPEG_destroy_Tjpeg(other), 0u);
  EXPECT_TRUE(reports().empty());
}

TEST_F(JpegRecordTest, CopyParametersKeepsTheDestinationsBufferAndStream) {
  const uint32_t src = compressed({1, 2, 3, 4});
  const uint32_t dst = compressed({9});
  Tjpeg& from = *tjpeg(src);
  Tjpeg& to = *tjpeg(dst);
  FILE* const dst_file = stdout;
  from.file = stdin, to.file = dst_file;
  from.Q_scale = 50, from.Nq = 2, from.Ns = 3, from.header_length = 623, from.work = 77;
  from.Q_tables[1][63] = 99, from.HUFFVAL[3][255] = 0xFA, from.table_ids[4] = 255;
  to.position = to.data + 1;
  uint8_t* const own_data = to.data;

  ASSERT_EQ(PIX_JPEG_copy_parameters(src, dst), 0u);
  EXPECT_EQ(std::make_tuple(to.Q_scale, to.Nq, to.Ns, to.header_length), std::make_tuple(50, 2, 3, 623u));
  EXPECT_EQ(std::memcmp(to.Q_tables, from.Q_tables, sizeof to.Q_tables), 0);
  EXPECT_EQ(std::memcmp(to.HUFFVAL, from.HUFFVAL, sizeof to.HUFFVAL), 0);
  EXPECT_EQ(to.table_ids[4], 255);
  EXPECT_EQ(std::make_tuple(to.length, to.work), std::make_tuple(4u, 0u));  // the source's length
  EXPECT_EQ(std::make_tuple(to.file, to.data, to.position), std::make_tuple(dst_file, own_data, own_data + 1));
  from.file = to.file = nullptr;

  const uint32_t plain = pixtest::make_image(PIX_Y8, 4, 4);
  using Pair = std::pair<uint32_t, uint32_t>;
  for (const auto& [a, b] : {Pair{src, plain}, Pair{plain, src}, Pair{src, 999}}) {
    EXPECT_EQ(PIX_JPEG_copy_parameters(a, b), 0x10010000u) << a << " -> " << b;
    expect_last("PIX_JPEG_copy_parameters", 0x10010000u, "");
  }
}

TEST_F(JpegRecordTest, ParameterAndStreamAccessors) {
  const uint32_t h = compressed({});
  tjpeg(h)->header_length = 623;
  tjpeg(h)->Nq = 2;
  const uint32_t plain = pixtest::make_image(PIX_Y8, 4, 4);
  struct Case { uint32_t handle; uint16_t id; uint32_t result; const char* message; };
  const Case cases[] = {
      {h, PIX_JPEG_COMPONENTS, 1, nullptr},
      {h, PIX_JPEG_HEADER_LENGTH, 623, nullptr},
      {h, PIX_JPEG_NUM_QTABLES, 2, nullptr},
      {h, 603, 0x10280000, "Unknown parameter"},
      {h, 599, 0x10280000, "Unknown parameter"},
      {plain, PIX_JPEG_COMPONENTS, 0x10010000, "Not a JPEG image"},
      {plain, 603, 0x10010000, "Not a JPEG image"},
      {999, PIX_JPEG_COMPONENTS, 0x10010000, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.handle << " id " << c.id);
    reports().clear();
    EXPECT_EQ(PIX_JPEG_get_parameter(c.handle, c.id), c.result);
    if (c.message == nullptr) {
      EXPECT_TRUE(reports().empty());
    } else {
      expect_last("PIX_JPEG_get_parameter", c.result, c.message);
    }
  }

  EXPECT_EQ(PIX_JPEG_get_file_ptr(plain), nullptr);
  EXPECT_EQ(PIX_JPEG_set_file_ptr(plain, stdin), 0x10010000u);
  expect_last("PIX_JPEG_set_file_ptr", 0x10010000u, "Not a JPEG image");
  EXPECT_EQ(PIX_JPEG_set_file_ptr(999, stdin), 0x10010000u);
  expect_last("PIX_JPEG_set_file_ptr", 0x10010000u, "");
}

TEST_F(JpegRecordTest, BuildImageAppendsStripsIntoOneTrimmedBuffer) {
  // Two strips of 6000 bytes each overflow the buffer sized for the image
  // (2 lines of 16 bytes + 10000), which grows to take them.
  const Bytes first(6000, 0xA1), second(6000, 0xB2);
  const uint32_t in = compressed(first, 2, 1);
  const uint32_t out = PIX_JPEG_image_create();
  ASSERT_EQ(PIX_JPEG_build_image(in, out, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(capacity(tjpeg(out)->data), 2u * 16 + 10000);
  EXPECT_EQ(PIX_image_get_parameter(out, PIX_LINES_THIS_STRIP), 2u);
  EXPECT_EQ(PIX_image_get_parameter(out, PIX_JPEG_LENGTH), 6000u);
  EXPECT_TRUE(building());

  hold(in, second);
  ASSERT_EQ(PIX_JPEG_build_image(in, out, PIX_STRIP_NEXT), 0u);  // both lines in: finished
  Bytes both = first;
  both.insert(both.end(), second.begin(), second.end());
  EXPECT_EQ(held(out), both);
  EXPECT_EQ(capacity(tjpeg(out)->data), both.size());
  EXPECT_EQ(tjpeg(out)->position, tjpeg(out)->data);
  EXPECT_EQ(PIX_image_get_parameter(out, PIX_IMAGE_WIDTH), 16u);
  EXPECT_EQ(PIX_image_get_flags(out, PIX_FLAG_JPEG), 1u);
  EXPECT_FALSE(building());

  hold(in, {6, 7, 8});  // the next build starts a new image
  ASSERT_EQ(PIX_JPEG_build_image(in, out, PIX_STRIP_NEXT), 0u);
  ASSERT_EQ(PIX_JPEG_build_image(in, out, PIX_STRIP_FINISH), 0u);  // finished early
  EXPECT_EQ(held(out), (Bytes{6, 7, 8}));
  EXPECT_EQ(capacity(tjpeg(out)->data), 3u);
  EXPECT_FALSE(building());
  EXPECT_TRUE(reports().empty());
}

TEST_F(JpegRecordTest, BuildImageWithAnEmptyStripDoesNothing) {
  const uint32_t in = compressed({1, 2, 3});
  PIX_image_set_parameter(in, PIX_LINES_THIS_STRIP, 0);
  const uint32_t out = PIX_JPEG_image_create();
  EXPECT_EQ(PIX_JPEG_build_image(in, out, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(tjpeg(out)->data, nullptr);
  EXPECT_EQ(PIX_image_get_parameter(out, PIX_IMAGE_FORMAT), 0u);  // not even described
  EXPECT_FALSE(building());
  EXPECT_TRUE(reports().empty());
}

TEST_F(JpegRecordTest, BuildImageFailures) {
  const uint32_t in = compressed({1});
  const uint32_t out = PIX_JPEG_image_create();
  const uint32_t undescribed = PIX_JPEG_image_create();
  struct Case { uint32_t in, out, code; const char* message; };
  for (const Case& c : {Case{999, out, 0x10010000, "Input image does not exist"},
                        Case{in, 999, 0x10010000, "Output image does not exist"},
                        Case{undescribed, out, 0x1003000E, "Corrupt image"}}) {
    EXPECT_EQ(PIX_JPEG_build_image(c.in, c.out, PIX_STRIP_NEXT), c.code) << c.message;
    expect_last("PIX_JPEG_build_image", c.code, c.message);
  }
  EXPECT_EQ(tjpeg(out)->data, nullptr);
}

TEST_F(JpegRecordTest, SequenceBuildSeparatesFramesWithRst0AndTrims) {
  const uint32_t seq = compressed({});
  ASSERT_EQ(PIX_JPEG_malloc_N_bytes_data(seq, 4), 0u);  // too small: a buffer of ours grows
  const uint32_t frames = PIX_image_get_parameter(seq, PIX_NUM_FRAMES);
  for (const Bytes& frame : {Bytes{0x11, 0x22, 0x33}, Bytes{0x44}, Bytes{0x55, 0x66}}) {
    ASSERT_EQ(PIX_JPEG_sequence_build(compressed(frame), seq), 0u);
  }
  const Bytes expected{0x11, 0x22, 0x33, 0xFF, 0xD0, 0x44, 0xFF, 0xD0, 0x55, 0x66};
  EXPECT_EQ(held(seq), expected);
  EXPECT_EQ(PIX_image_get_parameter(seq, PIX_NUM_FRAMES), frames + 3);

  tjpeg(seq)->position = tjpeg(seq)->data + 3;
  ASSERT_EQ(PIX_JPEG_sequence_build(0, seq), 0u);
  EXPECT_EQ(held(seq), expected);
  EXPECT_EQ(capacity(tjpeg(seq)->data), expected.size());
  EXPECT_EQ(tjpeg(seq)->position, tjpeg(seq)->data);
  EXPECT_EQ(PIX_image_get_parameter(seq, PIX_NUM_FRAMES), frames + 3);
  EXPECT_TRUE(reports().empty());
}

TEST_F(JpegRecordTest, SequenceBuildFailures) {
  const uint32_t seq = compressed({7, 7, 7});
  EXPECT_EQ(PIX_JPEG_sequence_build(compressed({1}), 999), 0x10010000u);
  expect_last("PIX_JPEG_sequence_build", 0x10010000u, "Output image does not exist");
  uint8_t* const before = tjpeg(seq)->data;
  pix::memory::fail_after(0);
  EXPECT_EQ(PIX_JPEG_sequence_build(0, seq), 0x10500003u);
  expect_last("PIX_JPEG_sequence_build", 0x10500003u, "");
  EXPECT_EQ(tjpeg(seq)->data, before);
  EXPECT_EQ(held(seq), (Bytes{7, 7, 7}));
}

TEST_F(JpegRecordTest, CopyBuildsACompressedImageAndCopiesOtherwiseRasterData) {
  const uint32_t src = compressed({9, 8, 7, 6});  // one strip holds the whole image
  const uint32_t dst = PIX_JPEG_image_create();
  ASSERT_EQ(PIX_image_copy(src, dst), 0u);
  EXPECT_EQ(held(dst), (Bytes{9, 8, 7, 6}));
  EXPECT_NE(tjpeg(dst)->data, tjpeg(src)->data);
  EXPECT_EQ(PIX_image_get_flags(dst, PIX_FLAG_JPEG), 1u);
  EXPECT_FALSE(building());

  PIX_image_set_flags(src, PIX_FLAG_JPEG, 0);  // not compressed data: a raster copy
  ASSERT_EQ(PIX_image_malloc_a_strip(src), 0u);
  std::memset(image_record(src)->data, 0x3C, 8 * 16);
  const uint32_t raster_dst = PIX_JPEG_image_create();
  ASSERT_EQ(PIX_image_copy(src, raster_dst), 0u);
  ASSERT_NE(image_record(raster_dst)->data, nullptr);
  EXPECT_EQ(std::memcmp(image_record(raster_dst)->data, image_record(src)->data, 8 * 16), 0);
  EXPECT_EQ(tjpeg(raster_dst)->data, nullptr);
}

TEST_F(JpegRecordTest, MoveHandsOverTheCompressedBufferToAJpegImageOnly) {
  const uint32_t src = compressed({1, 2, 3});
  const uint32_t dst = compressed({4, 5});  // its own buffer is released
  uint8_t* const data = tjpeg(src)->data;
  tjpeg(src)->position = data + 1;
  ASSERT_EQ(PIX_image_move(src, dst), 0u);
  EXPECT_EQ(std::make_tuple(tjpeg(dst)->data, tjpeg(dst)->position), std::make_tuple(data, data + 1));
  EXPECT_EQ(held(dst), (Bytes{1, 2, 3}));
  EXPECT_EQ(std::make_tuple(tjpeg(src)->data, tjpeg(src)->position), std::make_tuple(nullptr, nullptr));

  // Into a plain image the raster strip moves and the compressed data stays.
  ASSERT_EQ(PIX_image_malloc_a_strip(dst), 0u);
  uint8_t* const raster = image_record(dst)->data;
  const uint32_t plain = PIX_image_create();
  ASSERT_EQ(PIX_image_move(dst, plain), 0u);
  EXPECT_EQ(std::make_tuple(image_record(plain)->data, image_record(dst)->data), std::make_tuple(raster, nullptr));
  EXPECT_EQ(tjpeg(dst)->data, data);
}

}  // namespace
