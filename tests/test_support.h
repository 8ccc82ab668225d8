// Helpers shared by the test programs.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "pix95.h"

namespace pixtest {

struct Report {
  std::string function;
  uint32_t code;
  std::string message;
};

// Installs a handler that records every report; restores silence and
// destroys every image, table and object when the test ends.
class LibraryTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  std::vector<Report>& reports();
  // The last report, or a blank one when there was none.
  Report last_report();
  // The call returned `code`, and reported it last under `function` with `message`.
  void expect_report(uint32_t result, const std::string& function, uint32_t code, const std::string& message = "");
};

// An image described by format, width and height (and checked).
uint32_t make_image(uint16_t format, uint32_t width, uint32_t height, uint32_t lines_this_strip = 0);

// Sets parameters of an image, in the order given.
void set_parameters(uint32_t handle, std::initializer_list<std::pair<uint16_t, uint32_t>> values);

// A whole image (one strip of its height) of random bytes from `random`,
// lines aligned to `align`.
uint32_t random_image(uint16_t format, uint32_t width, uint32_t height, uint32_t align, std::mt19937& random);

}  // namespace pixtest
