#include <windows.h>

#include <gtest/gtest.h>

namespace {

// Walks the loaded image's headers to its export directory. The DLL is built for the host's own
// width, so its headers are the native form (PE32 for 32-bit, PE32+ for 64-bit hosts).
const IMAGE_EXPORT_DIRECTORY* ExportDirectory(HMODULE module, DWORD* size) {
  auto base = reinterpret_cast<const BYTE*>(module);
  auto dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  auto nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  EXPECT_EQ(nt->OptionalHeader.Magic, IMAGE_NT_OPTIONAL_HDR_MAGIC);
  EXPECT_EQ(nt->FileHeader.Machine, sizeof(void*) == 8 ? IMAGE_FILE_MACHINE_AMD64
                                                        : IMAGE_FILE_MACHINE_I386);
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
