// Every function of the interface built so far is exported, undecorated, by
// the shared library (the .so or the DLL), and declared in the public header.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "pix95.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace {

struct Export {
  const char* name;
  const void* declared;  // taken from the header's declaration
};

// The list comes from the .def file; taking each address here also proves
// that the header declares every exported name.
#define X(name) Export{#name, reinterpret_cast<const void*>(&name)},
const std::vector<Export>& exports() {
  static const std::vector<Export> list = {
#include "export_list.inc"
  };
  return list;
}
#undef X

TEST(Exports, SharedLibraryExportsEveryFunctionUndecorated) {
#ifdef _WIN32
  HMODULE lib = LoadLibraryA(PIX95_LIBRARY_PATH);
  ASSERT_NE(lib, nullptr) << "cannot load " << PIX95_LIBRARY_PATH;
  auto lookup = [&](const char* n) { return reinterpret_cast<void*>(GetProcAddress(lib, n)); };
#else
  void* lib = dlopen("./" PIX95_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(lib, nullptr) << dlerror();
  auto lookup = [&](const char* n) { return dlsym(lib, n); };
#endif
  ASSERT_GE(exports().size(), 80u);
  std::vector<std::string> missing;
  for (const auto& e : exports()) {
    if (lookup(e.name) == nullptr) missing.push_back(e.name);
  }
  EXPECT_TRUE(missing.empty()) << "not exported: " << ::testing::PrintToString(missing);
#ifndef _WIN32
  // Hidden visibility: the internals stay inside.
  EXPECT_EQ(dlsym(lib, "_ZN3pix10find_imageEj"), nullptr);
  dlclose(lib);
#else
  FreeLibrary(lib);
#endif
}

TEST(Exports, ExportedFunctionWorksThroughTheSharedLibrary) {
#ifdef _WIN32
  HMODULE lib = LoadLibraryA(PIX95_LIBRARY_PATH);
  ASSERT_NE(lib, nullptr);
  // Through void(*)(void), the one function type any function pointer may pass through.
  auto id = reinterpret_cast<uint32_t(PIX_CALL*)(uint32_t, uint16_t)>(
      reinterpret_cast<void (*)(void)>(GetProcAddress(lib, "PIX_image_get_parameter")));
#else
  void* lib = dlopen("./" PIX95_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(lib, nullptr);
  auto id = reinterpret_cast<uint32_t (*)(uint32_t, uint16_t)>(dlsym(lib, "PIX_image_get_parameter"));
#endif
  ASSERT_NE(id, nullptr);
  EXPECT_EQ(id(0, PIX_LIBRARY_ID), 0x9CB5u);
#ifdef _WIN32
  FreeLibrary(lib);
#else
  dlclose(lib);
#endif
}

}  // namespace
