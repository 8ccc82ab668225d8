// Status codes, the error routine, the handler hook and the stock handler's text.
#include <string>
#include <tuple>

#include "core/status.h"
#include "test_support.h"

namespace {

struct Call {
  std::string function;
  uint32_t code = 0;
  std::string message;
  int count = 0;
};
Call g_call;
uint32_t PIX_CALL record(const char* function, uint32_t code, const char* message) {
  g_call = {function, code, message, g_call.count + 1};
  return 0x5A5Au;  // what the handler answers is what the error routine answers
}

std::string g_sink_text;

TEST(Reporting, OnlyErrorsThatAreNotSilentReachTheHandlerSetOnlyInModeOne) {
  ASSERT_EQ(KVB_err_set_reporting(1, &record), 0u);
  // Codes without error bits, and silent codes (bit 23 alone is an error, yet quiet), come back unchanged.
  for (uint32_t code : {0u, 0x10000005u, 0x18000000u, 0x10800000u, 0x10830000u, 0x00800000u}) {
    EXPECT_EQ(KVB_err_process("f", code, "m"), code) << std::hex << code;
  }
  EXPECT_EQ(g_call.count, 0);
  EXPECT_EQ(KVB_err_process("PIX_image_copy", 0x10030004u, "Corrupt image"), 0x5A5Au);
  EXPECT_EQ(std::tie(g_call.function, g_call.code, g_call.message, g_call.count),
            std::make_tuple("PIX_image_copy", 0x10030004u, "Corrupt image", 1));
  for (uint32_t mode : {0u, 2u, 0xFFFFFFFFu}) {  // the old handler stays and reports the refusal itself
    g_call = {};
    EXPECT_EQ(KVB_err_set_reporting(mode, nullptr), 0x18280000u);
    EXPECT_EQ(std::tie(g_call.function, g_call.code, g_call.message, g_call.count),
              std::make_tuple("KVB_err_set_reporting", 0x18280000u, "", 1));
  }
  EXPECT_EQ(KVB_err_set_reporting(1, nullptr), 0u);  // a null handler silences everything
  g_call = {};
  EXPECT_EQ(KVB_err_process("f", 0x10010000u, ""), 0x10010000u);
  EXPECT_EQ(g_call.count, 0);
  // The helpers that compose and test codes.
  EXPECT_EQ(PIX_STATUS(PIX_MOD_IMAGE, PIX_ERR_BAD_HANDLE, 0), 0x10010000u);
  EXPECT_EQ(PIX_STATUS(PIX_MOD_SUPPORT, PIX_ERR_MAX_HANDLES, 0), 0x18780000u);
  EXPECT_EQ(PIX_STATUS(PIX_MOD_IMAGE, PIX_ERR_OUT_OF_MEMORY, 0x12345), 0x10502345u);
  EXPECT_FALSE(PIX_IS_ERROR(0x10000005u) || PIX_IS_ERROR(65535u));  // a handle is not an error
  EXPECT_TRUE(PIX_IS_ERROR(0x007C0000u) && PIX_IS_ERROR(0x00800000u));
  EXPECT_EQ(PIX_ERROR_NUMBER(0x107C0001u), 124u);
}

TEST(StockHandler, TextOfAReportCutAt511Characters) {
  EXPECT_EQ(pix::format_error_text("PIX_image_copy", 0x10030004u, "Corrupt image"),
            "\nPIX_image_copy:  Failed with error code 0x10030004\n(Image structure invalid)\n\"Corrupt image\"\n");
  EXPECT_EQ(pix::format_error_text("KVB_x", 0x18780000u, ""),  // an empty message adds nothing
            "\nKVB_x:  Failed with error code 0x18780000\n(Exceeded SW limit of maximum number of handles)");
  const std::string text = pix::format_error_text("PIX_f", 0x10010000u, std::string(600, 'm').c_str());
  EXPECT_EQ(std::make_tuple(text.size(), text.substr(0, 5), text.back()), std::make_tuple(511u, "\nPIX_", 'm'));
  EXPECT_EQ(pix::format_error_text(std::string(700, 'n').c_str(), 0x10010000u, "").size(), 511u);
}

TEST(StockHandler, EveryNumberHasItsTextAndOthersAreNotRecognised) {
  const std::pair<uint32_t, const char*> known[] = {
      {1, "(Bad handle)"}, {20, "(Option not supported)"}, {41, "(Parameter value out of range)"},
      {62, "(Module type not recognized, or no module fitted, or '_KSTxx' compiler directive missing?)"},
      {68, "(Parity Error)"}, {80, "(Out of memory)"}, {105, "(Corrupt file or data)"},
      {124, "(Invalid state in SW or HW)"}};
  for (const auto& [number, text] : known) EXPECT_STREQ(pix::error_text(number), text);
  int recognised = 0;
  for (uint32_t n = 0; n < 256; ++n) recognised += std::string(pix::error_text(n)) != "(Error code not recognised)";
  EXPECT_EQ(recognised, 34);  // the table's entries, no more
  for (uint32_t n : {0u, 4u, 19u, 43u, 125u, 255u}) {
    const std::string text = pix::format_error_text("f", pix::status(0x10, n), "");
    EXPECT_NE(text.find("\n(Error code not recognised)"), std::string::npos) << n;
  }
}

TEST(StockHandler, DisplayHandsTheTextToTheSinkOrStandardError) {
  auto old = pix::set_error_sink([](const char* text) { return g_sink_text = text, 1u; });
  EXPECT_EQ(KVB_err_display("PIX_image_get_parameter", 0x10280000u, "Unknown parameter"), 1u);
  pix::set_error_sink(old);
  EXPECT_EQ(g_sink_text,
            "\nPIX_image_get_parameter:  Failed with error code 0x10280000\n(Bad parameter)\n\"Unknown parameter\"\n");
#ifndef _WIN32  // without a message box the text goes to standard error
  ::testing::internal::CaptureStderr();
  KVB_err_display("KVB_f", 0x18500000u, "");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "\nKVB_f:  Failed with error code 0x18500000\n(Out of memory)");
#endif
}

}  // namespace
