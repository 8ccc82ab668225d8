// Support layer: mode checks, string helpers, command parsing, .rbt files.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <tuple>

#include "core/memory.h"
#include "test_support.h"

namespace {

namespace fs = std::filesystem;

TEST(ModeChecks, BitCountsAgainstMasks) {
  struct Case { uint32_t mode, mask, one_selected, invalid; };
  const Case cases[] = {
      {0x5, 0x7, 1, 1}, {0x4, 0x7, 0, 1}, {0xF0, 0x0F, 0, 0}, {0x0, 0x4, 0, 1}, {0x2, 0x4, 0, 0}, {0x6, 0x4, 0, 1},
      {0x0, 0x0, 0, 1}, {0xFFFFFFFF, 0xFFFFFFFF, 31, 1}, {0x80000000, 0x7FFFFFFF, 0, 0}, {0x80000001, 0x80000001, 1, 1},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(KVB_check_mode_one_selected(c.mode, c.mask), c.one_selected) << c.mode << "/" << c.mask;
    EXPECT_EQ(KVB_check_mode_invalid(c.mode, c.mask), c.invalid) << c.mode << "/" << c.mask;
  }
  EXPECT_EQ(KVB_mul(0xFFFFFFFF, 0xFFFFFFFF), 1u);
}

TEST(Strings, SscanfReadsANumberAndStopsAtTheSpaceAfterIt) {
  // Callers walk lists with p = KVB_sscanf(p, &v): the stop is what matters.
  struct Case { const char* text; uint16_t value; long stop; };
  const Case cases[] = {{"\t+7\n8", 7, 3},   {"-1 ", 0xFFFF, 2},           {"70000 ", 70000 & 0xFFFF, 5},
                        {"12abc 3", 12, 5},  {"abc d", 0, 3},              {"99999999999 ", 0xFFFF, 11},
                        {"42", 42, 2},       {"-99999999999 ", 0, 12},     {"", 0, 0}};
  for (const auto& c : cases) {
    uint16_t value = 0xBEEF;
    EXPECT_EQ(std::make_tuple(KVB_sscanf(c.text, &value) - c.text, value), std::make_tuple(c.stop, c.value)) << c.text;
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
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "\nPaused at 'step 3' - hit return\n\nPaused at '' - hit return\n");
  std::fclose(stdin);
  fs::remove(input);
}

TEST(ParseCommand, SplitsOptionsFromArgumentsAndDropsWhatDoesNotFit) {
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
  EXPECT_EQ(std::vector<std::string>(record.options, record.options + 3), (std::vector<std::string>{"-v", "-", "-q"}));
  ASSERT_EQ(record.argument_count, KVB_MAX_ARGUMENTS);  // "a62" and "a63" are dropped
  EXPECT_EQ(std::vector<std::string>(record.arguments, record.arguments + 2), (std::vector<std::string>{"in.bmp", ""}));
  EXPECT_STREQ(record.arguments[KVB_MAX_ARGUMENTS - 1], "a61");
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
    if (d == '0' || d == '1') current |= unsigned(d - '0') << position++;
    if (position == 8) bytes.push_back(uint8_t(current)), current = position = 0;
  }
  bytes.push_back(uint8_t(current | (0xFFu << position)));
  return bytes;
}

class FpgaFiles : public pixtest::LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    fs::create_directories(dir_ = fs::temp_directory_path() / (std::string("pix95_support_") +
                                  testing::UnitTest::GetInstance()->current_test_info()->name()));
  }
  void TearDown() override { fs::remove_all(dir_), LibraryTest::TearDown(); }
  std::string write(const std::string& name, const std::string& content) {
    std::ofstream(dir_ / name, std::ios::binary) << content;
    return (dir_ / name).string();
  }
  std::string absent() const { return (dir_ / "absent.rbt").string(); }
  // Loads a file: the status, the length, and `count` bytes (on success only).
  std::tuple<uint32_t, uint32_t, std::vector<uint8_t>> load(const std::string& path, size_t count = 0) {
    tKVB_FPGA_Data record{0xA5A5A5A5u, nullptr, 0};
    const uint32_t status = KVB_get_fpga_data_and_length(path.c_str(), &record);
    EXPECT_EQ(std::make_tuple(record.reserved, record.data != nullptr), std::make_tuple(0xA5A5A5A5u, status == 0));
    std::vector<uint8_t> bytes(record.data, record.data + (record.data ? count : 0));
    std::free(record.data);
    return {status, record.length, bytes};
  }
  fs::path dir_;
};

TEST_F(FpgaFiles, BitLength) {
  for (uint32_t length : {1u, 0xABCDEFu, 0xFFFFFFu}) {
    EXPECT_EQ(KVB_get_rbt_bit_length(write("a.rbt", header() + length_field(length) + "1\n").c_str()), length);
  }
  for (const std::string& bad : {"a\nb\nc\n" + length_field(9), header() + "111111110110" + std::string(24, '1'),
                                 header(), header() + length_field(0)}) {
    EXPECT_EQ(KVB_get_rbt_bit_length(write("b.rbt", bad).c_str()), 0u) << bad;
  }
  EXPECT_EQ(KVB_get_rbt_bit_length(absent().c_str()), 0u);
  EXPECT_TRUE(reports().empty());
}

TEST_F(FpgaFiles, LoadsDigitsAndGrowsPastTheLengthFieldWithLfOrCrLfLineEnds) {
  std::string many = length_field(8);  // room for 18 bytes; the file holds 156
  for (int i = 0; i < 1244; ++i) many += (i % 33 == 32) ? '\n' : "0110100"[i % 7];
  const std::string split = "111111110010000000000000\n00000100111\n0110\n";  // a line end in the length field
  auto digits = [](const std::string& s) { return uint32_t(s.size() - std::count(s.begin(), s.end(), '\n')); };
  struct Case { std::string bits; uint32_t length; std::vector<uint8_t> bytes; };
  const Case cases[] = {
      {"111111110010", 12, {0xFF, 0xF4}},  // ends inside the length field: the missing characters read as ones
      {"1111111100101010\n", 16, {0xFF, 0x54, 0xFF}},
      {many, digits(many), packed(many)},
      {split, digits(split), packed(split)},
  };
  for (const auto& c : cases) {
    const std::string lf = header() + c.bits;
    std::string crlf;
    for (char ch : lf) crlf += ch == '\n' ? std::string("\r\n") : std::string(1, ch);
    for (const std::string& path : {write("lf.rbt", lf), write("crlf.rbt", crlf)}) {
      SCOPED_TRACE(path);
      EXPECT_EQ(load(path, c.bytes.size()), std::make_tuple(0u, c.length, c.bytes));
      EXPECT_EQ(KVB_get_rbt_bit_length(path.c_str()), KVB_get_rbt_bit_length((dir_ / "lf.rbt").string().c_str()));
    }
  }
  EXPECT_TRUE(reports().empty());
}

TEST_F(FpgaFiles, LoadFailuresAreReported) {
  // No content: no file.  The message comes before the quoted path; `allocations` succeed before one fails.
  struct Case { std::string content; uint32_t code; std::string message; long allocations; };
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
    const std::string path = c.content.empty() ? absent() : write("f.rbt", c.content);
    pix::memory::fail_after(c.allocations);
    EXPECT_EQ(std::get<0>(load(path)), c.code);
    pix::memory::fail_after(-1);
    ASSERT_EQ(reports().size(), 1u);
    const std::string tail = c.code == kOpenFailed ? "', or file corrupt" : "'";
    EXPECT_EQ(std::tie(reports()[0].function, reports()[0].code, reports()[0].message),
              std::make_tuple(std::string("KVB_get_fpga_data_and_length"), c.code, c.message + path + tail));
  }
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
  EXPECT_EQ(KVB_get_rbt_date_string(absent().c_str(), date), kOpenFailed);
  EXPECT_STREQ(date, "");
  EXPECT_EQ(last_report().message, "Failed to open '" + absent() + "'");
}

TEST_F(FpgaFiles, LocateTriesTheNameThenTheDirectoryNamedByTheVariable) {
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

  std::snprintf(name, sizeof name, "absent.rbt");  // no variable: the default directory
  EXPECT_EQ(KVB_locate_fpga_rbt_file("PIX95_TEST_RBT_DIR_UNSET", name), kOpenFailed);
  EXPECT_STREQ(name, "absent.rbt");
  EXPECT_EQ(last_report().function, "KVB_locate_fpga_rbt_file");
  EXPECT_EQ(last_report().message,
            std::string("Failed to locate FPGA file 'c:\\kestrel\\lib\\rbt") + separator + "absent.rbt'");
  set_env("PIX95_TEST_RBT_DIR", std::string(200, 'd'));  // the path is cut to fit
  EXPECT_EQ(KVB_locate_fpga_rbt_file("PIX95_TEST_RBT_DIR", name), kOpenFailed);
  EXPECT_EQ(last_report().message, "Failed to locate FPGA file '" + std::string(127, 'd') + "'");
}

}  // namespace
