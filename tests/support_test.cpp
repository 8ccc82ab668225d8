// Support layer: mode checks, string helpers, command parsing, .rbt files.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "core/memory.h"
#include "test_support.h"

namespace {

namespace fs = std::filesystem;
using pixtest::LibraryTest;

TEST(ModeChecks, BitCountsAgainstMasks) {
  struct Case {
    uint32_t mode, mask, one_selected, invalid;
  };
  const Case cases[] = {
      {0x5, 0x7, 1, 1},         {0x4, 0x7, 0, 1},         {0xF0, 0x0F, 0, 0},
      {0x0, 0x4, 0, 1},         {0x2, 0x4, 0, 0},         {0x6, 0x4, 0, 1},
      {0x0, 0x0, 0, 1},         {0xFFFFFFFF, 0xFFFFFFFF, 31, 1},
      {0x80000000, 0x7FFFFFFF, 0, 0}, {0x80000001, 0x80000001, 1, 1},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(KVB_check_mode_one_selected(c.mode, c.mask), c.one_selected) << c.mode << "/" << c.mask;
    EXPECT_EQ(KVB_check_mode_invalid(c.mode, c.mask), c.invalid) << c.mode << "/" << c.mask;
  }
  EXPECT_EQ(KVB_mul(0xFFFFFFFF, 0xFFFFFFFF), 1u);
}

TEST(Strings, SscanfValueAndStop) {
  const char list[] = "12 34 ";
  uint16_t value = 0;
  const char* p = KVB_sscanf(list, &value);
  EXPECT_EQ(value, 12);
  EXPECT_EQ(p, list + 2);
  EXPECT_EQ(KVB_sscanf(p, &value), list + 5);
  EXPECT_EQ(value, 34);

  struct Case {
    const char* text;
    uint16_t value;
    long stop;
  };
  const Case cases[] = {
      {"\t+7\n8", 7, 3}, {"-1 ", 0xFFFF, 2},  {"70000 ", 70000 & 0xFFFF, 5}, {"12abc 3", 12, 5},
      {"abc d", 0, 3},   {"99999999999 ", 0xFFFF, 11}, {"-99999999999 ", 0, 12},
      {"42", 42, 2},     {"", 0, 0},
  };
  for (const auto& c : cases) {
    value = 0xBEEF;
    EXPECT_EQ(KVB_sscanf(c.text, &value) - c.text, c.stop) << '"' << c.text << '"';
    EXPECT_EQ(value, c.value) << '"' << c.text << '"';
  }
}

TEST(Strings, CaseFoldingAndPause) {
  char text[] = "MiXeD 1_z!\xC4";
  EXPECT_STREQ(KVB_str_tolower(text), "mixed 1_z!\xC4");
  EXPECT_STREQ(KVB_str_toupper(text), "MIXED 1_Z!\xC4");

  const fs::path input = fs::temp_directory_path() / "pix95_support_pause.txt";
  std::ofstream(input, std::ios::binary) << "xy";
  ASSERT_NE(std::freopen(input.string().c_str(), "r", stdin), nullptr);
  testing::internal::CaptureStderr();
  EXPECT_EQ(KVB_pause("step 3"), 'x');
  EXPECT_EQ(KVB_pause(""), 'y');
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "\nPaused at 'step 3' - hit return\n\nPaused at '' - hit return\n");
  std::fclose(stdin);
  fs::remove(input);
}

TEST(ParseCommand, SplitsAndBoundsEntries) {
  std::vector<std::string> words{std::string(300, 'p'), "-v", "in.bmp", "-", "", "-q", "-3", "-4"};
  for (int i = 0; i < KVB_MAX_ARGUMENTS; ++i) words.push_back(std::string("a").append(std::to_string(i)));
  words.push_back(std::string("-").append(200, 'o'));
  std::vector<char*> argv;
  for (auto& word : words) argv.push_back(word.data());

  tKVB_Command record;
  std::memset(&record, 0x55, sizeof record);
  EXPECT_EQ(parse_command(&record, static_cast<uint16_t>(argv.size()), argv.data()), KVB_MAX_ARGUMENTS);
  EXPECT_EQ(record.argument_total, words.size());
  EXPECT_EQ(record.program, std::string(KVB_TEXT_LENGTH - 1, 'p'));
  ASSERT_EQ(record.option_count, KVB_MAX_OPTIONS);  // "-3", "-4" and the long one are dropped
  EXPECT_STREQ(record.options[0], "-v");
  EXPECT_STREQ(record.options[1], "-");
  EXPECT_STREQ(record.options[2], "-q");
  ASSERT_EQ(record.argument_count, KVB_MAX_ARGUMENTS);  // "a62" and "a63" are dropped
  EXPECT_STREQ(record.arguments[0], "in.bmp");
  EXPECT_STREQ(record.arguments[1], "");
  EXPECT_STREQ(record.arguments[KVB_MAX_ARGUMENTS - 1], "a61");

  const char* example[] = {"prog", "-v", "in.bmp", "-q", "out.bmp"};
  EXPECT_EQ(parse_command(&record, 5, const_cast<char**>(example)), 2);
  EXPECT_EQ(record.argument_total, 5);
  EXPECT_EQ(record.option_count, 2);
  EXPECT_STREQ(record.arguments[1], "out.bmp");
  EXPECT_EQ(parse_command(&record, 0, nullptr), 0);
  EXPECT_STREQ(record.program, "");
}

// ---------------------------------------------------------------------------

constexpr uint32_t kOpenFailed = 0x18640000;

// Eight ones, 0010, a 24-bit length field.
std::string length_field(uint32_t length) {
  std::string bits = "111111110010";
  for (int i = 23; i >= 0; --i) bits += ((length >> i) & 1u) ? '1' : '0';
  return bits;
}

std::string header(const std::string& date = "Fri Jan  5 10:23:45 2001") {
  return "test bit file\nmade by support_test\n" + date + "\npart\ndesign\nbits\nend\n";
}

// Digits packed least significant first; a partly filled last byte is
// topped with ones, full bytes are followed by 0xFF.
std::vector<uint8_t> packed(const std::string& text) {
  std::vector<uint8_t> bytes;
  unsigned current = 0, position = 0;
  for (char d : text) {
    if (d != '0' && d != '1') continue;
    current |= static_cast<unsigned>(d - '0') << position;
    if (++position == 8) {
      bytes.push_back(static_cast<uint8_t>(current));
      current = position = 0;
    }
  }
  bytes.push_back(static_cast<uint8_t>(current | (0xFFu << position)));
  return bytes;
}

class FpgaFiles : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    dir_ = fs::temp_directory_path() /
           (std::string("pix95_support_") + testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(dir_);
  }
  void TearDown() override {
    fs::remove_all(dir_);
    LibraryTest::TearDown();
  }
  std::string write(const std::string& name, const std::string& content) {
    std::ofstream((dir_ / name), std::ios::binary) << content;
    return (dir_ / name).string();
  }
  // Loads a file; the bytes are kept only on success.
  uint32_t load(const std::string& path, std::vector<uint8_t>& bytes, uint32_t& length, size_t count) {
    tKVB_FPGA_Data record{0xA5A5A5A5u, nullptr, 0};
    const uint32_t status = KVB_get_fpga_data_and_length(path.c_str(), &record);
    EXPECT_EQ(record.reserved, 0xA5A5A5A5u);
    EXPECT_EQ(record.data != nullptr, status == 0);
    bytes.assign(record.data, record.data + (record.data ? count : 0));
    length = record.length;
    std::free(record.data);
    return status;
  }
  fs::path dir_;
};

TEST_F(FpgaFiles, BitLength) {
  for (uint32_t length : {1u, 0xABCDEFu, 0xFFFFFFu}) {
    EXPECT_EQ(KVB_get_rbt_bit_length(write("a.rbt", header() + length_field(length) + "1\n").c_str()), length);
  }
  for (const std::string& bad : {"a\nb\nc\n" + length_field(9), header() + "111111110110" + std::string(24, '1'),
                                 header(), header() + length_field(0), std::string("absent")}) {
    EXPECT_EQ(KVB_get_rbt_bit_length(bad == "absent" ? "absent.rbt" : write("b.rbt", bad).c_str()), 0u) << bad;
  }
  EXPECT_TRUE(reports().empty());
}

TEST_F(FpgaFiles, LoadsDigitsAndGrowsPastTheLengthField) {
  std::string many = length_field(8);  // room for 18 bytes; the file holds 156
  for (int i = 0; i < 1244; ++i) many += (i % 33 == 32) ? '\n' : "0110100"[i % 7];
  struct Case {
    std::string bits;
    uint32_t length;
    std::vector<uint8_t> bytes;
  };
  const Case cases[] = {
      // The file ends inside the length field: the missing characters read as ones.
      {"111111110010", 12, {0xFF, 0xF4}},
      {"1111111100101010\n", 16, {0xFF, 0x54, 0xFF}},
      {many, static_cast<uint32_t>(many.size() - std::count(many.begin(), many.end(), '\n')), packed(many)},
  };
  for (const auto& c : cases) {
    std::vector<uint8_t> bytes;
    uint32_t length = 0;
    EXPECT_EQ(load(write("d.rbt", header() + c.bits), bytes, length, c.bytes.size()), 0u);
    EXPECT_EQ(length, c.length);
    EXPECT_EQ(bytes, c.bytes);
  }
  EXPECT_TRUE(reports().empty());
}

TEST_F(FpgaFiles, LoadFailuresAreReported) {
  struct Case {
    std::string content;  // empty: no file
    uint32_t code;
    std::string message;  // before the quoted path
    long allocations;     // before one fails; -1 none fails
  };
  const Case cases[] = {
      {"", kOpenFailed, "Failed to open '", -1},
      {header() + "1111111100110000", kOpenFailed, "Failed to open '", -1},
      {header() + length_field(40) + "01 1", 0x18690001, "Unexpected character '32' in file '", -1},
      {header() + length_field(40) + "01\r1", 0x18690001, "Unexpected character '13' in file '", -1},
      {header() + length_field(40) + "01\xE9", 0x18690001, "Unexpected character '-23' in file '", -1},
      {header() + length_field(8), 0x18500000, "While reading file '", 0},
      {header() + length_field(8) + std::string(400, '1'), 0x18500000, "While reading file '", 1},
  };
  for (const auto& c : cases) {
    reports().clear();
    const std::string path = c.content.empty() ? (dir_ / "absent.rbt").string() : write("f.rbt", c.content);
    std::vector<uint8_t> bytes;
    uint32_t length = 0;
    pix::memory::fail_after(c.allocations);
    EXPECT_EQ(load(path, bytes, length, 0), c.code);
    pix::memory::fail_after(-1);
    ASSERT_EQ(reports().size(), 1u);
    EXPECT_EQ(reports()[0].function, "KVB_get_fpga_data_and_length");
    EXPECT_EQ(reports()[0].code, c.code);
    const std::string tail = c.code == kOpenFailed ? "', or file corrupt" : "'";
    EXPECT_EQ(reports()[0].message, c.message + path + tail);
  }
}

TEST_F(FpgaFiles, CrLfLineEndsReadLikeLineFeeds) {
  // A line end inside the length field gives a bit of its own.
  const std::string lf = header("Tue Mar 14 09:05:00 2000") + "111111110010000000000000\n00000100111\n0110\n";
  std::string crlf;
  for (char c : lf) crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
  const std::string lf_path = write("lf.rbt", lf), cr_path = write("cr.rbt", crlf);

  EXPECT_EQ(KVB_get_rbt_bit_length(cr_path.c_str()), KVB_get_rbt_bit_length(lf_path.c_str()));
  std::vector<uint8_t> lf_bytes, cr_bytes;
  uint32_t lf_length = 0, cr_length = 0;
  const auto expected = packed(lf.substr(header().size()));
  EXPECT_EQ(load(lf_path, lf_bytes, lf_length, expected.size()), 0u);
  EXPECT_EQ(load(cr_path, cr_bytes, cr_length, expected.size()), 0u);
  EXPECT_EQ(lf_bytes, expected);
  EXPECT_EQ(cr_bytes, expected);
  EXPECT_EQ(cr_length, lf_length);
  char date[16];
  EXPECT_EQ(KVB_get_rbt_date_string(cr_path.c_str(), date), 0u);
  EXPECT_STREQ(date, "14-Mar-00 09:05");
}

TEST_F(FpgaFiles, DateString) {
  const std::string x110(110, 'x');
  const std::pair<std::string, const char*> cases[] = {
      {"a\nb\nFri Jan  5 10:23:45 2001\n", "05-Jan-01 10:23"},
      {"a\nb\nSat Dec 31 23:59:59 1999", "31-Dec-99 23:59"},
      {"a\n" + std::string(120, 'y') + "Wed Feb 28 07:00:01 2024\n", "28-Feb-24 07:00"},  // 120 is a line
      {x110 + "\n" + x110 + "\nMon\n", ""},  // nothing left over from longer lines
      {"a\n", ""},
  };
  char date[16];
  for (const auto& [content, expected] : cases) {
    std::memset(date, 'z', sizeof date);
    EXPECT_EQ(KVB_get_rbt_date_string(write("t.rbt", content).c_str(), date), 0u);
    EXPECT_STREQ(date, expected) << content;
  }
  const std::string missing = (dir_ / "absent.rbt").string();
  EXPECT_EQ(KVB_get_rbt_date_string(missing.c_str(), date), kOpenFailed);
  EXPECT_STREQ(date, "");
  EXPECT_EQ(last_report().message, "Failed to open '" + missing + "'");
}

TEST_F(FpgaFiles, Locate) {
#ifdef _WIN32
  const char separator = '\\';
  auto set_env = [](const char* name, const std::string& value) { _putenv_s(name, value.c_str()); };
#else
  const char separator = '/';
  auto set_env = [](const char* name, const std::string& value) { setenv(name, value.c_str(), 1); };
#endif
  const std::string here = write("here.rbt", header());
  set_env("PIX95_TEST_RBT_DIR", dir_.string());
  char name[128];
  std::snprintf(name, sizeof name, "%s", here.c_str());
  EXPECT_EQ(KVB_locate_fpga_rbt_file("PIX95_TEST_RBT_DIR_UNSET", name), 0u);
  EXPECT_EQ(name, here);  // opens as it is
  std::snprintf(name, sizeof name, "here.rbt");
  EXPECT_EQ(KVB_locate_fpga_rbt_file("PIX95_TEST_RBT_DIR", name), 0u);
  EXPECT_EQ(name, dir_.string() + separator + "here.rbt");
  EXPECT_TRUE(reports().empty());

  std::snprintf(name, sizeof name, "absent.rbt");
  EXPECT_EQ(KVB_locate_fpga_rbt_file("PIX95_TEST_RBT_DIR_UNSET", name), kOpenFailed);
  EXPECT_STREQ(name, "absent.rbt");
  EXPECT_EQ(last_report().function, "KVB_locate_fpga_rbt_file");
  EXPECT_EQ(last_report().message, std::string("Failed to locate FPGA file 'c:\\kestrel\\lib\\rbt") + separator +
                                       "absent.rbt'");
  set_env("PIX95_TEST_RBT_DIR", std::string(200, 'd'));
  EXPECT_EQ(KVB_locate_fpga_rbt_file("PIX95_TEST_RBT_DIR", name), kOpenFailed);
  EXPECT_EQ(last_report().message, "Failed to locate FPGA file '" + std::string(127, 'd') + "'");
}

}  // namespace
