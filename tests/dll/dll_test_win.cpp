#include <windows.h>

#include <gtest/gtest.h>

namespace {

// Walks the loaded image's headers to its export directory.
const IMAGE_EXPORT_DIRECTORY* ExportDirectory(HMODULE module, DWORD* size) {
  auto base = reinterpret_cast<const BYTE*>(module);
  auto dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  auto nt = reinterpret_cast<const IMAGE_NT_HEADERS32*>(base + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY& entry = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
  *size = entry.Size;
  if (entry.VirtualAddress == 0 || entry.Size == 0) return nullptr;
  return reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(base + entry.VirtualAddress);
}

TEST(DeskaidDll, LoadsAndExportsNothing) {
  HMODULE module = LoadLibraryA("deskaid.dll");
  ASSERT_NE(module, nullptr) << GetLastError();
  DWORD size = 0;
  const IMAGE_EXPORT_DIRECTORY* exports = ExportDirectory(module, &size);
  if (exports != nullptr) {
    EXPECT_EQ(exports->NumberOfFunctions, 0u);
    EXPECT_EQ(exports->NumberOfNames, 0u);
  }
  // The names a host might guess at are not there either.
  for (const char* name : {"DllMain", "LogPrintf", "ShowMessageDialog", "DebugTrace"}) {
    EXPECT_EQ(GetProcAddress(module, name), nullptr) << name;
  }
  EXPECT_TRUE(FreeLibrary(module));
}

}  // namespace
