#include <windows.h>

#include <gtest/gtest.h>

// A host loads and unloads the DLL. (That it is of the build's width and exports nothing is read
// from the file by scripts/test, dll_exports_nothing.)
TEST(DeskaidDll, Loads) {
  HMODULE module = LoadLibraryA("deskaid.dll");
  ASSERT_NE(module, nullptr) << GetLastError();
  EXPECT_TRUE(FreeLibrary(module));
}
