// The JPEG state record of an image: creation, layout, data buffers,
// parameters, strip assembly, in-memory sequences, and copying and moving
// JPEG images.
#include <array>
#include <cstdio>
#include <cstring>
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
bool building() { return !pix::jpeg::jpeg_state().build.progress.idle(); }

// Bytes the library allocated for a compressed-data buffer; 0 when it is not one of its own.
std::size_t capacity(const uint8_t* data) {
  for (const auto& [record, extras] : pix::jpeg::jpeg_state().extras) {
    if (extras.buffer.data == data && record->data == data) return extras.buffer.capacity;
  }
  return 0;
}

Bytes held(uint32_t h) { const Tjpeg* r = tjpeg(h); return r->data ? Bytes(r->data, r->data + r->length) : Bytes{}; }

class JpegRecordTest : public pixtest::LibraryTest {
 protected:
  void SetUp() override { LibraryTest::SetUp(), pix::jpeg::jpeg_state().build = {}; }  // no build left half done
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

TEST_F(JpegRecordTest, CreateAttachesAFreshRecordAndKeepsThePlainImageWhenItCannot) {
  const Tjpeg& r = *tjpeg(PIX_JPEG_image_create());
  EXPECT_EQ(std::make_tuple(r.Q_scale, r.file, r.data, r.position, r.length, r.header_length, r.Nq, r.HUFFVAL[3][255]),
            std::make_tuple(32, nullptr, nullptr, nullptr, 0u, 0u, 0, 0));
  PIX_image_destroy(PIX_ALL_IMAGES);
  pix::memory::fail_after(0);  // the image record itself: the image library's report stands
  expect_report(PIX_JPEG_image_create(), "PIX_image_create", 0x18500000u);
  EXPECT_EQ(image_record(1), nullptr);
  pix::memory::fail_after(2);  // image record and colour map succeed, the JPEG record fails
  expect_report(PIX_JPEG_image_create(), "PIX_JPEG_image_create", 0x10500000u);
  EXPECT_NE(image_record(1), nullptr);  // the plain image stays
  EXPECT_EQ(tjpeg(1), nullptr);
}

TEST_F(JpegRecordTest, SetImageTakesTheSizeAndALayoutByColour) {
  using Layout = std::tuple<int, int, int, int, int, int, int, int>;  // Nq P Ns Lf Ls Ss Se AhAl
  using Sampling = std::array<uint16_t, 6>;                           // H[0..2] V[0..2]
  for (const auto& [format, colour] : {std::pair{PIX_Y16, false}, {PIX_PALETTED, false}, {PIX_RGB24, true}}) {
    SCOPED_TRACE(format);
    const uint32_t src = pixtest::make_image(format, 24, 10, 5), h = PIX_JPEG_image_create();
    Tjpeg& r = *tjpeg(h);
    r.Nq = 2, r.Ss = 5, r.Se = 1, r.AhAl = 7, r.H[1] = r.H[2] = r.V[1] = r.V[2] = 9;  // stale values
    PIX_image_set_parameter(h, PIX_NUM_FRAMES, 5);
    ASSERT_EQ(PIX_JPEG_set_image(src, h), 0u);
    const tPIX_Image& img = *image_record(h);
    const uint32_t depth = colour ? 16 : 8;
    EXPECT_EQ(std::make_tuple(img.format, img.depth, img.bytes_per_line, img.width, img.height, img.lines_this_strip,
                              img.num_frames, PIX_image_get_flags(h, PIX_FLAG_JPEG)),
              std::make_tuple(colour ? PIX_YUV422 : PIX_Y8, depth, 24 * depth / 8, 24u, 10u, 5u, 1u, 1u));
    EXPECT_EQ(Layout(r.Nq, r.P, r.Ns, r.Lf, r.Ls, r.Ss, r.Se, r.AhAl),
              colour ? Layout(0, 8, 3, 17, 12, 0, 63, 0) : Layout(0, 8, 1, 11, 8, 0, 63, 0));
    EXPECT_EQ((Sampling{r.H[0], r.H[1], r.H[2], r.V[0], r.V[1], r.V[2]}),
              (colour ? Sampling{2, 1, 1, 1, 1, 1} : Sampling{1, 0, 0, 1, 0, 0}));
  }
  EXPECT_TRUE(reports().empty());
  const uint32_t src = pixtest::make_image(PIX_Y8, 8, 8), h = PIX_JPEG_image_create();
  expect_report(PIX_JPEG_set_image(999, h), "PIX_JPEG_set_image", 0x10010000u, "Input image does not exist");
  expect_report(PIX_JPEG_set_image(h, src), "PIX_JPEG_set_image", 0x10010000u, "Not a JPEG image");
  PIX_image_set_parameter(h, PIX_LINE_ALIGN, 0);  // makes the JPEG image fail its check
  expect_report(PIX_JPEG_set_image(src, h), "PIX_JPEG_set_image", 0x10030000u,
                "Corrupt image - probably an internal error");
}

TEST_F(JpegRecordTest, BufferSizeFollowsTheFileOrTheStripAndFailuresCarryIt) {
  const uint32_t h = compressed({});
  // The file's length made even, and 4200 when under 4096.
  const std::pair<long, uint32_t> cases[] = {{0, 4200},    {3, 4200},    {4094, 4200},
                                             {4095, 4096}, {4096, 4096}, {4097, 4098}};
  for (const auto& [bytes, buffer] : cases) {
    SCOPED_TRACE(bytes);
    FILE* f = std::tmpfile();
    for (long i = 0; i < bytes; ++i) std::fputc('x', f);
    std::fseek(f, bytes / 2, SEEK_SET);
    ASSERT_EQ(PIX_JPEG_set_file_ptr(h, f), 0u);
    EXPECT_EQ(PIX_JPEG_get_file_ptr(h), f);
    pix::memory::fail_after(0);
    expect_report(PIX_JPEG_malloc_data(h), "PIX_JPEG_malloc_data", 0x10500000u | buffer);
    ASSERT_EQ(PIX_JPEG_malloc_data(h), 0u);
    EXPECT_EQ(std::make_tuple(capacity(tjpeg(h)->data), std::ftell(f)), std::make_tuple(buffer, bytes / 2));
    std::fclose(f);
  }
  PIX_JPEG_set_file_ptr(h, nullptr);  // no file: the strip plus 10000
  pix::memory::fail_after(0);
  EXPECT_EQ(PIX_JPEG_malloc_data(h), 0x10500000u | ((8 * 16 + 10000) & 0xFFFFu));
  ASSERT_EQ(PIX_JPEG_malloc_data(h), 0u);
  EXPECT_EQ(capacity(tjpeg(h)->data), 8u * 16 + 10000);
  pix::memory::fail_after(0);
  expect_report(PIX_JPEG_malloc_N_bytes_data(h, 0x12345), "PIX_JPEG_malloc_N_bytes_data", 0x10502345u);

  const uint32_t undescribed = PIX_JPEG_image_create();  // fails the image check
  expect_report(PIX_JPEG_malloc_data(undescribed), "PIX_JPEG_malloc_data", 0x1003000Eu, "Corrupt image");
  expect_report(PIX_JPEG_malloc_N_bytes_data(undescribed, 10), "PIX_JPEG_malloc_N_bytes_data", 0x1003000Eu, "Corrupt image");
}

TEST_F(JpegRecordTest, BuffersAreReplacedAndFreedUnlessTheCallersAndLocked) {
  const uint32_t h = compressed(Bytes(7, 0x5A));
  Tjpeg& r = *tjpeg(h);
  uint8_t* old = r.position = r.data;
  ASSERT_EQ(PIX_JPEG_malloc_N_bytes_data(h, 300), 0u);
  EXPECT_NE(r.data, old);
  EXPECT_EQ(capacity(old), 0u);  // released
  EXPECT_EQ(std::make_tuple(capacity(r.data), r.position, r.length), std::make_tuple(300u, r.data, 7u));
  ASSERT_EQ(PIX_JPEG_free_data(h), 0u);
  EXPECT_EQ(std::make_tuple(r.data, r.position, r.length), std::make_tuple(nullptr, nullptr, 0u));

  uint8_t own[64] = {};
  PIX_image_set_ptr(h, PIX_PTR_JPEG_DATA, own);
  PIX_image_set_ptr(h, PIX_PTR_JPEG_POS, own + 5);
  PIX_image_set_parameter(h, PIX_JPEG_LENGTH, 40);
  PIX_image_set_flags(h, PIX_FLAG_LOCKED, 1);
  EXPECT_EQ(PIX_JPEG_malloc_data(h) | PIX_JPEG_malloc_N_bytes_data(h, 1000), 0u);
  EXPECT_EQ(PIX_JPEG_free_data(h) | PIX_image_free_data(h), 0u);
  EXPECT_EQ(std::make_tuple(r.data, r.position, r.length), std::make_tuple(own, own + 5, 40u));
  PIX_image_set_ptr(h, PIX_PTR_JPEG_DATA, nullptr);  // taken back before the image is destroyed
  EXPECT_EQ(PIX_JPEG_malloc_N_bytes_data(h, 50), 0u);  // locked but without a buffer: one is made
  EXPECT_EQ(capacity(r.data), 50u);

  PIX_image_set_flags(h, PIX_FLAG_LOCKED, 0);  // a locked buffer would outlive the record
  EXPECT_EQ(PIX_JPEG_destroy_Tjpeg(h), 0u);
  EXPECT_NE(image_record(h), nullptr);  // the image stays, without its record
  EXPECT_EQ(tjpeg(h), nullptr);
  EXPECT_EQ(PIX_JPEG_destroy_Tjpeg(h), 0u);
  EXPECT_TRUE(reports().empty());
}

TEST_F(JpegRecordTest, CopyParametersKeepsTheDestinationsBufferAndStreamButTakesTheLength) {
  const uint32_t src = compressed({1, 2, 3, 4}), dst = compressed({9});
  Tjpeg &from = *tjpeg(src), &to = *tjpeg(dst);
  from.file = stdin, to.file = stdout;
  from.Q_scale = 50, from.Nq = 2, from.header_length = 623, from.work = 77;
  from.Q_tables[1][63] = 99, from.HUFFVAL[3][255] = 0xFA, from.table_ids[4] = 255;
  uint8_t* const own_data = to.data;
  to.position = own_data + 1;
  ASSERT_EQ(PIX_JPEG_copy_parameters(src, dst), 0u);
  EXPECT_EQ(std::make_tuple(to.Q_scale, to.Nq, to.header_length, to.table_ids[4], to.Q_tables[1][63],
                            to.HUFFVAL[3][255]),
            std::make_tuple(50, 2, 623u, 255, 99, 0xFA));
  EXPECT_EQ(std::make_tuple(to.length, to.work), std::make_tuple(4u, 0u));  // the source's length
  EXPECT_EQ(std::make_tuple(to.file, to.data, to.position), std::make_tuple(stdout, own_data, own_data + 1));
  from.file = to.file = nullptr;

  const uint32_t plain = pixtest::make_image(PIX_Y8, 4, 4);
  expect_report(PIX_JPEG_copy_parameters(src, plain), "PIX_JPEG_copy_parameters", 0x10010000u);
  expect_report(PIX_JPEG_copy_parameters(plain, src), "PIX_JPEG_copy_parameters", 0x10010000u);
}

TEST_F(JpegRecordTest, ParameterAndStreamAccessors) {
  const uint32_t h = compressed({});
  tjpeg(h)->header_length = 623, tjpeg(h)->Nq = 2;
  EXPECT_EQ(std::make_tuple(PIX_JPEG_get_parameter(h, PIX_JPEG_COMPONENTS),
                            PIX_JPEG_get_parameter(h, PIX_JPEG_HEADER_LENGTH),
                            PIX_JPEG_get_parameter(h, PIX_JPEG_NUM_QTABLES)),
            std::make_tuple(1u, 623u, 2u));
  EXPECT_TRUE(reports().empty());
  for (uint16_t id : {599, 603}) {
    expect_report(PIX_JPEG_get_parameter(h, id), "PIX_JPEG_get_parameter", 0x10280000u, "Unknown parameter");
  }
  const uint32_t plain = pixtest::make_image(PIX_Y8, 4, 4);  // the record is looked for before the id
  expect_report(PIX_JPEG_get_parameter(plain, 603), "PIX_JPEG_get_parameter", 0x10010000u, "Not a JPEG image");
  EXPECT_EQ(PIX_JPEG_get_file_ptr(plain), nullptr);
  expect_report(PIX_JPEG_set_file_ptr(plain, stdin), "PIX_JPEG_set_file_ptr", 0x10010000u, "Not a JPEG image");
}

TEST_F(JpegRecordTest, BuildImageAppendsStripsIntoOneTrimmedBufferAndSkipsEmptyStrips) {
  // Two strips of 6000 bytes each overflow the buffer sized for the image
  // (2 lines of 16 bytes + 10000), which grows to take them.
  const Bytes first(6000, 0xA1), second(6000, 0xB2);
  const uint32_t in = compressed(first, 2, 1), out = PIX_JPEG_image_create();
  const Tjpeg& r = *tjpeg(out);
  ASSERT_EQ(PIX_JPEG_build_image(in, out, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(std::make_tuple(capacity(r.data), r.length, PIX_image_get_parameter(out, PIX_LINES_THIS_STRIP)),
            std::make_tuple(2u * 16 + 10000, 6000u, 2u));
  EXPECT_TRUE(building());
  hold(in, second);
  ASSERT_EQ(PIX_JPEG_build_image(in, out, PIX_STRIP_NEXT), 0u);  // both lines in: finished
  Bytes both = first;
  both.insert(both.end(), second.begin(), second.end());
  EXPECT_EQ(held(out), both);
  EXPECT_EQ(std::make_tuple(capacity(r.data), r.position, PIX_image_get_parameter(out, PIX_IMAGE_WIDTH)),
            std::make_tuple(both.size(), r.data, 16u));
  EXPECT_FALSE(building());

  hold(in, {6, 7, 8});  // the next build starts a new image
  ASSERT_EQ(PIX_JPEG_build_image(in, out, PIX_STRIP_NEXT), 0u);
  ASSERT_EQ(PIX_JPEG_build_image(in, out, PIX_STRIP_FINISH), 0u);  // finished early
  EXPECT_EQ(held(out), (Bytes{6, 7, 8}));
  EXPECT_EQ(capacity(r.data), 3u);
  EXPECT_FALSE(building());
  EXPECT_TRUE(reports().empty());

  const uint32_t undescribed = PIX_JPEG_image_create(), empty = PIX_JPEG_image_create();
  for (const auto& [a, b, code, message] : {std::tuple{999u, out, 0x10010000u, "Input image does not exist"},
                                            std::tuple{in, 999u, 0x10010000u, "Output image does not exist"},
                                            std::tuple{undescribed, out, 0x1003000Eu, "Corrupt image"}}) {
    expect_report(PIX_JPEG_build_image(a, b, PIX_STRIP_NEXT), "PIX_JPEG_build_image", code, message);
  }
  reports().clear();
  PIX_image_set_parameter(in, PIX_LINES_THIS_STRIP, 0);  // an empty strip: nothing happens
  EXPECT_EQ(PIX_JPEG_build_image(in, empty, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(tjpeg(empty)->data, nullptr);
  EXPECT_EQ(PIX_image_get_parameter(empty, PIX_IMAGE_FORMAT), 0u);  // not even described
  EXPECT_FALSE(building());
  EXPECT_TRUE(reports().empty());
}

TEST_F(JpegRecordTest, SequenceBuildSeparatesFramesWithRst0AndTrims) {
  const uint32_t seq = compressed({});
  ASSERT_EQ(PIX_JPEG_malloc_N_bytes_data(seq, 4), 0u);  // too small: a buffer of ours grows
  const uint32_t frames = PIX_image_get_parameter(seq, PIX_NUM_FRAMES);
  for (const Bytes& frame : {Bytes{0x11, 0x22, 0x33}, Bytes{0x44}, Bytes{0x55, 0x66}}) {
    ASSERT_EQ(PIX_JPEG_sequence_build(compressed(frame), seq), 0u);
  }
  const Bytes expected{0x11, 0x22, 0x33, 0xFF, 0xD0, 0x44, 0xFF, 0xD0, 0x55, 0x66};
  Tjpeg& r = *tjpeg(seq);
  EXPECT_EQ(held(seq), expected);
  r.position = r.data + 3;
  ASSERT_EQ(PIX_JPEG_sequence_build(0, seq), 0u);  // the trim
  EXPECT_EQ(held(seq), expected);
  EXPECT_EQ(std::make_tuple(capacity(r.data), r.position), std::make_tuple(expected.size(), r.data));
  EXPECT_EQ(PIX_image_get_parameter(seq, PIX_NUM_FRAMES), frames + 3);
  EXPECT_TRUE(reports().empty());

  expect_report(PIX_JPEG_sequence_build(seq, 999), "PIX_JPEG_sequence_build", 0x10010000u,
                "Output image does not exist");
  uint8_t* const before = r.data;
  pix::memory::fail_after(0);
  expect_report(PIX_JPEG_sequence_build(0, seq), "PIX_JPEG_sequence_build", 0x1050000Au);
  EXPECT_EQ(r.data, before);  // a failed trim keeps the data
  EXPECT_EQ(held(seq), expected);
}

TEST_F(JpegRecordTest, CopyAndMoveTakeCompressedDataOnlyBetweenJpegImages) {
  const uint32_t src = compressed({9, 8, 7, 6}), dst = PIX_JPEG_image_create();  // one strip: the whole image
  ASSERT_EQ(PIX_image_copy(src, dst), 0u);
  EXPECT_EQ(held(dst), (Bytes{9, 8, 7, 6}));
  EXPECT_NE(tjpeg(dst)->data, tjpeg(src)->data);
  EXPECT_EQ(PIX_image_get_flags(dst, PIX_FLAG_JPEG), 1u);
  EXPECT_FALSE(building());

  const uint32_t moved = compressed({4, 5});  // its own buffer is released
  uint8_t* const data = tjpeg(src)->data;
  tjpeg(src)->position = data + 1;
  ASSERT_EQ(PIX_image_move(src, moved), 0u);
  EXPECT_EQ(std::make_tuple(tjpeg(moved)->data, tjpeg(moved)->position), std::make_tuple(data, data + 1));
  EXPECT_EQ(std::make_tuple(tjpeg(src)->data, tjpeg(src)->position), std::make_tuple(nullptr, nullptr));

  PIX_image_set_flags(moved, PIX_FLAG_JPEG, 0);  // not compressed data: a raster copy
  ASSERT_EQ(PIX_image_malloc_a_strip(moved), 0u);
  uint8_t* const raster = image_record(moved)->data;
  std::memset(raster, 0x3C, 8 * 16);
  const uint32_t raster_copy = PIX_JPEG_image_create();
  ASSERT_EQ(PIX_image_copy(moved, raster_copy), 0u);
  ASSERT_NE(image_record(raster_copy)->data, nullptr);
  EXPECT_EQ(std::memcmp(image_record(raster_copy)->data, raster, 8 * 16), 0);
  EXPECT_EQ(tjpeg(raster_copy)->data, nullptr);
  // Into a plain image the raster strip moves and the compressed data stays.
  PIX_image_set_flags(moved, PIX_FLAG_JPEG, 1);
  const uint32_t plain = PIX_image_create();
  ASSERT_EQ(PIX_image_move(moved, plain), 0u);
  EXPECT_EQ(std::make_tuple(image_record(plain)->data, image_record(moved)->data, tjpeg(moved)->data),
            std::make_tuple(raster, nullptr, data));
}

}  // namespace
