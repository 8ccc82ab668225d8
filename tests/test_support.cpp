#include "test_support.h"

#include <tuple>

#include "core/memory.h"

namespace pixtest {
namespace {
std::vector<Report>& captured() {
  static std::vector<Report> list;
  return list;
}
uint32_t PIX_CALL capture(const char* function, uint32_t code, const char* message) {
  captured().push_back({function ? function : "", code, message ? message : ""});
  return 0;
}
}  // namespace

void LibraryTest::SetUp() {
  captured().clear();
  ASSERT_EQ(KVB_err_set_reporting(1, &capture), 0u);
}

void LibraryTest::TearDown() {
  pix::memory::fail_after(-1);  // an allocation failure a test planned but never reached
  PIX_image_destroy(PIX_ALL_IMAGES);
  KVB_err_set_reporting(1, nullptr);
  captured().clear();
}

std::vector<Report>& LibraryTest::reports() { return captured(); }

void LibraryTest::expect_report(uint32_t result, const std::string& function, uint32_t code,
                                const std::string& message) {
  const Report r = last_report();
  EXPECT_EQ(std::tie(result, r.function, r.code, r.message), std::tie(code, function, code, message));
}

Report LibraryTest::last_report() { return captured().empty() ? Report{"", 0, ""} : captured().back(); }

uint32_t make_image(uint16_t format, uint32_t width, uint32_t height, uint32_t lines_this_strip) {
  const uint32_t h = PIX_image_create();
  if (PIX_IS_ERROR(h)) return h;
  PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, format);
  PIX_image_set_parameter(h, PIX_IMAGE_WIDTH, width);
  PIX_image_set_parameter(h, PIX_IMAGE_HEIGHT, height);
  PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, lines_this_strip);
  PIX_image_check(h);
  return h;
}

uint32_t random_image(uint16_t format, uint32_t width, uint32_t height, uint32_t align, std::mt19937& random) {
  const uint32_t img = make_image(format, width, height, height);
  set_parameters(img, {{PIX_LINE_ALIGN, align}});
  EXPECT_EQ(PIX_image_malloc_a_strip(img), 0u);
  auto* data = static_cast<uint8_t*>(PIX_image_get_ptr(img, PIX_PTR_DATA));
  const uint64_t bytes = uint64_t{PIX_image_get_parameter(img, PIX_BYTES_PER_LINE)} * height;
  for (uint64_t i = 0; data != nullptr && i < bytes; ++i) data[i] = static_cast<uint8_t>(random());
  return img;
}

void set_parameters(uint32_t handle, std::initializer_list<std::pair<uint16_t, uint32_t>> values) {
  for (const auto& [id, value] : values) PIX_image_set_parameter(handle, id, value);
}

}  // namespace pixtest
