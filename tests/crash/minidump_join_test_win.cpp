// A dump whose memory list is longer than readers accept has its ranges less than a page apart
// joined into one: the bytes between them read from this process, the writer's own bytes kept.
#include <windows.h>

#include <deskaid/diag/internal/minidump_completion_win.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/scratch_dir.h"

namespace {

constexpr uint32_t kRanges = 5000, kStride = 64, kSize = 16;
unsigned char g_memory[kRanges * kStride];

void Put(std::string& bytes, size_t at, uint64_t value, size_t size) {
  std::memcpy(&bytes[at], &value, size);
}
uint64_t Get(const std::string& bytes, size_t at, size_t size) {
  uint64_t value = 0;
  if (at + size <= bytes.size()) std::memcpy(&value, bytes.data() + at, size);
  return value;
}

TEST(MinidumpCompletion, TooManyRangesAreJoinedKeepingTheWritersBytes) {
  for (size_t i = 0; i < sizeof g_memory; ++i) g_memory[i] = static_cast<unsigned char>(i * 7 + 1);
  const uint64_t base = reinterpret_cast<uintptr_t>(g_memory);
  // The header, one directory entry (the memory list), the list, and each range's bytes, all 0xA5.
  std::string dump(48 + 16 * kRanges, '\0');
  std::memcpy(&dump[0], "MDMP", 4);
  Put(dump, 8, 1, 4);
  Put(dump, 12, 32, 4);
  Put(dump, 32, 5, 4);
  Put(dump, 36, 4 + 16 * kRanges, 4);
  Put(dump, 40, 44, 4);
  Put(dump, 44, kRanges, 4);
  for (uint32_t i = 0; i < kRanges; ++i) {
    Put(dump, 48 + 16 * i, base + i * kStride, 8);
    Put(dump, 56 + 16 * i, kSize, 4);
    Put(dump, 60 + 16 * i, dump.size() + i * kSize, 4);
  }
  dump.append(kRanges * kSize, '\xA5');
  ScratchDir dir;
  const std::string path = dir.PathOf("many.dmp");
  WriteFileBytes(path, dump);
  HANDLE file = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                            FILE_ATTRIBUTE_NORMAL, nullptr);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  EXPECT_TRUE(deskaid::CompleteMinidump(file, false));
  CloseHandle(file);

  const std::string joined = ReadFileBytes(path);
  const auto list = static_cast<size_t>(Get(joined, 40, 4));
  ASSERT_EQ(Get(joined, list, 4), 1u) << "one range, every gap being under a page";
  EXPECT_EQ(Get(joined, list + 4, 8), base);
  const auto size = static_cast<size_t>(Get(joined, list + 12, 4));
  const auto at = static_cast<size_t>(Get(joined, list + 16, 4));
  ASSERT_EQ(size, (kRanges - 1) * kStride + kSize);
  for (size_t i = 0; i < size; ++i) {
    const unsigned char expected = i % kStride < kSize ? 0xA5 : g_memory[i];
    ASSERT_EQ(static_cast<unsigned char>(joined.at(at + i)), expected) << "byte " << i;
  }
}

}  // namespace
