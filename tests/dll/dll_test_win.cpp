#include <windows.h>

#include <gtest/gtest.h>

// Built for the host's own width, and exporting nothing: no export directory, or an empty one.
TEST(DeskaidDll, LoadsAndExportsNothing) {
  HMODULE module = LoadLibraryA("deskaid.dll");
  ASSERT_NE(module, nullptr) << GetLastError();
  auto base = reinterpret_cast<const BYTE*>(module);
  auto nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(
      base + reinterpret_cast<const IMAGE_DOS_HEADER*>(base)->e_lfanew);
  EXPECT_EQ(nt->OptionalHeader.Magic, IMAGE_NT_OPTIONAL_HDR_MAGIC);
  EXPECT_EQ(nt->FileHeader.Machine,
            sizeof(void*) == 8 ? IMAGE_FILE_MACHINE_AMD64 : IMAGE_FILE_MACHINE_I386);
  const IMAGE_DATA_DIRECTORY& entry =
      nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
  if (entry.VirtualAddress != 0 && entry.Size != 0) {
    auto exports = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(base + entry.VirtualAddress);
    EXPECT_EQ(exports->NumberOfFunctions + exports->NumberOfNames, 0u);
  }
  EXPECT_TRUE(FreeLibrary(module));
}
