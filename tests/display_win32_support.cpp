#include "display_win32_support.h"

#include <winspool.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace pixtest::win {

namespace {
LRESULT CALLBACK window_procedure(HWND window, UINT message, WPARAM w, LPARAM l) {
  return DefWindowProcA(window, message, w, l);
}
const char* window_class() {
  static const char* name = [] {
    WNDCLASSA c{};
    c.lpfnWndProc = window_procedure;
    c.hInstance = GetModuleHandleA(nullptr);
    c.hbrBackground = static_cast<HBRUSH>(GetStockObject(BLACK_BRUSH));
    c.lpszClassName = "pix95 test window";
    RegisterClassA(&c);
    return c.lpszClassName;
  }();
  return name;
}
}  // namespace

void pump_messages() {
  MSG message;
  while (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageA(&message);
}

Window::Window(int x, int y, int width, int height) : width_(width), height_(height) {
  hwnd_ = CreateWindowExA(WS_EX_TOPMOST, window_class(), "pix95", WS_POPUP | WS_VISIBLE, x, y, width, height, nullptr,
                          nullptr, GetModuleHandleA(nullptr), nullptr);
  UpdateWindow(hwnd_);
  pump_messages();
  clear();
}

Window::~Window() {
  if (hwnd_) DestroyWindow(hwnd_);
  pump_messages();
}

void Window::clear() const {
  HDC dc = GetDC(hwnd_);
  RECT all{0, 0, width_, height_};
  FillRect(dc, &all, static_cast<HBRUSH>(GetStockObject(BLACK_BRUSH)));
  ReleaseDC(hwnd_, dc);
}

Pixels Window::read() const {
  pump_messages();
  HDC dc = GetDC(hwnd_);
  Pixels p = read_dc(dc, 0, 0, width_, height_);
  ReleaseDC(hwnd_, dc);
  return p;
}

Pixels read_dc(HDC dc, int x, int y, int width, int height) {
  BITMAPINFO info{};
  info.bmiHeader = {sizeof(BITMAPINFOHEADER), width, -height, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
  void* bits = nullptr;
  HBITMAP section = CreateDIBSection(nullptr, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
  HDC memory = CreateCompatibleDC(dc);
  HGDIOBJ previous = SelectObject(memory, section);
  BitBlt(memory, 0, 0, width, height, dc, x, y, SRCCOPY);
  GdiFlush();
  Pixels p{width, height, {}};
  const auto* first = static_cast<const uint32_t*>(bits);
  p.argb.assign(first, first + static_cast<size_t>(width) * height);
  for (uint32_t& v : p.argb) v &= 0xFFFFFF;
  SelectObject(memory, previous);
  DeleteDC(memory);
  DeleteObject(section);
  return p;
}

int screen_depth() {
  const char* depth = std::getenv("PIX95_TEST_SCREEN_DEPTH");
  return depth ? std::atoi(depth) : 24;
}

int tolerance() { return screen_depth() >= 24 ? 0 : 7; }

bool close_to(uint32_t a, uint32_t b, int tolerance) {
  for (int shift = 0; shift < 24; shift += 8) {
    if (std::abs(static_cast<int>((a >> shift) & 0xFF) - static_cast<int>((b >> shift) & 0xFF)) > tolerance)
      return false;
  }
  return true;
}

void screenshot(const Pixels& p, const std::string& name) {
  const char* dir = std::getenv("PIX95_TEST_SCREENSHOTS");
  if (!dir) return;
  std::ofstream out(std::string(dir) + "\\" + name + ".bmp", std::ios::binary);
  const uint32_t row = (static_cast<uint32_t>(p.width) * 3 + 3) & ~3u, size = row * p.height;
  BITMAPFILEHEADER file{0x4D42, 54 + size, 0, 0, 54};
  BITMAPINFOHEADER info{40, p.width, p.height, 1, 24, BI_RGB, size, 0, 0, 0, 0};
  out.write(reinterpret_cast<const char*>(&file), 14).write(reinterpret_cast<const char*>(&info), 40);
  std::vector<uint8_t> line(row);
  for (int y = p.height - 1; y >= 0; --y) {
    for (int x = 0; x < p.width; ++x) std::memcpy(&line[x * 3], &p.argb[static_cast<size_t>(y) * p.width + x], 3);
    out.write(reinterpret_cast<const char*>(line.data()), row);
  }
}

std::vector<StretchRecord> stretch_records(HENHMETAFILE metafile) {
  std::vector<uint8_t> bytes(GetEnhMetaFileBits(metafile, 0, nullptr));
  GetEnhMetaFileBits(metafile, static_cast<UINT>(bytes.size()), bytes.data());
  std::vector<StretchRecord> found;
  for (size_t at = 0; at + sizeof(EMR) <= bytes.size();) {
    EMR head;
    std::memcpy(&head, &bytes[at], sizeof head);
    if (head.nSize < sizeof(EMR) || at + head.nSize > bytes.size()) break;
    if (head.iType == EMR_STRETCHDIBITS) {
      StretchRecord r;
      std::memcpy(&r.record, &bytes[at], sizeof r.record);
      const uint8_t* base = &bytes[at];
      r.header.assign(base + r.record.offBmiSrc, base + r.record.offBmiSrc + r.record.cbBmiSrc);
      r.bits.assign(base + r.record.offBitsSrc, base + r.record.offBitsSrc + r.record.cbBitsSrc);
      found.push_back(std::move(r));
    }
    at += head.nSize;
  }
  return found;
}

std::string test_printer() {
  static const std::string name = [] {
    const std::string printer = "pix95 test printer", ppd_name = "pix95test.ppd";
    char directory[MAX_PATH];
    DWORD needed = 0;
    GetPrinterDriverDirectoryA(nullptr, nullptr, 1, reinterpret_cast<BYTE*>(directory), sizeof directory, &needed);
    std::ofstream(std::string(directory) + "\\" + ppd_name)
        << "*PPD-Adobe: \"4.3\"\n*FormatVersion: \"4.3\"\n*LanguageLevel: \"3\"\n*ColorDevice: True\n"
           "*DefaultColorSpace: RGB\n*ModelName: \"pix95 test printer\"\n*NickName: \"pix95 test printer\"\n"
           "*DefaultResolution: 100dpi\n*OpenUI *PageSize: PickOne\n*DefaultPageSize: A4\n"
           "*PageSize A4: \"<</PageSize[595 842]/ImagingBBox null>>setpagedevice\"\n*CloseUI: *PageSize\n"
           "*DefaultImageableArea: A4\n*ImageableArea A4: \"18 36 577 806\"\n"
           "*DefaultPaperDimension: A4\n*PaperDimension A4: \"595 842\"\n";
    DRIVER_INFO_3A driver{};
    driver.cVersion = 3;
    driver.pName = const_cast<char*>(printer.c_str());
    driver.pDriverPath = const_cast<char*>("wineps.drv");
    driver.pConfigFile = const_cast<char*>("wineps.drv");
    driver.pDataFile = const_cast<char*>(ppd_name.c_str());
    AddPrinterDriverA(nullptr, 3, reinterpret_cast<BYTE*>(&driver));
    PRINTER_INFO_2A info{};
    info.pPrinterName = info.pDriverName = const_cast<char*>(printer.c_str());
    info.pPortName = const_cast<char*>("FILE:");
    info.pPrintProcessor = const_cast<char*>("WinPrint");
    info.pDatatype = const_cast<char*>("RAW");
    if (HANDLE added = AddPrinterA(nullptr, 2, reinterpret_cast<BYTE*>(&info))) ClosePrinter(added);
    return printer;  // already there from an earlier run when AddPrinter refuses
  }();
  return name;
}

bool run_unix(const std::vector<std::string>& argv) {
  // Wine's own way of starting a Unix program, as its browser launcher does.
  using Spawn = long(CDECL*)(char* const*, int);
  auto spawn = reinterpret_cast<Spawn>(
      reinterpret_cast<void (*)()>(GetProcAddress(GetModuleHandleA("ntdll.dll"), "__wine_unix_spawnvp")));
  if (!spawn) return false;
  std::vector<char*> args;
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  return spawn(args.data(), 1) == 0;
}

Pixels read_ppm(const std::string& unix_path) {
  std::ifstream in("Z:" + unix_path, std::ios::binary);
  std::string magic;
  int maximum = 0;
  Pixels p;
  auto number = [&in] {  // a header field, past any comment lines
    while ((in >> std::ws).peek() == '#') in.ignore(1 << 16, '\n');
    int value = 0;
    in >> value;
    return value;
  };
  in >> magic;
  p.width = number();
  p.height = number();
  maximum = number();
  in.get();
  if (magic != "P6" || maximum != 255 || p.width <= 0 || p.height <= 0) return {};
  std::vector<uint8_t> rgb(static_cast<size_t>(p.width) * p.height * 3);
  in.read(reinterpret_cast<char*>(rgb.data()), static_cast<std::streamsize>(rgb.size()));
  for (size_t i = 0; i < rgb.size(); i += 3) p.argb.push_back(uint32_t{rgb[i]} << 16 | rgb[i + 1] << 8 | rgb[i + 2]);
  return p;
}

}  // namespace pixtest::win
