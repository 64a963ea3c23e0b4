#include "deskaid/diag/internal/minidump_completion_win.h"

#include <algorithm>
#include <utility>
#include <cstdint>
#include <cstring>
#include <vector>

#include "deskaid/diag/internal/module_identity.h"
#include "deskaid/diag/internal/own_memory.h"
#include "deskaid/diag/internal/pe_layout.h"

namespace deskaid {
namespace {

// The parts of the file format used here.
constexpr uint32_t kModuleListStream = 4;
constexpr uint32_t kMemoryListStream = 5;
constexpr size_t kHeaderSize = 32;
constexpr size_t kDirectoryEntrySize = 12;
constexpr size_t kModuleSize = 108;  // MINIDUMP_MODULE, packed
constexpr size_t kCvRecordAt = 76;   // its CvRecord: size, then file offset
constexpr size_t kRangeSize = 16;    // MINIDUMP_MEMORY_DESCRIPTOR: address, size, file offset
// Breakpad's reader, among others, refuses a memory list longer than this.
constexpr uint32_t kMaxMemoryRanges = 4096;
constexpr uint64_t kJoinGap = 4096;

uint32_t U32(const unsigned char* p) {
  uint32_t value;
  std::memcpy(&value, p, sizeof value);
  return value;
}
uint64_t U64(const unsigned char* p) {
  uint64_t value;
  std::memcpy(&value, p, sizeof value);
  return value;
}
void Put32(unsigned char* p, uint32_t value) { std::memcpy(p, &value, sizeof value); }
void Put64(unsigned char* p, uint64_t value) { std::memcpy(p, &value, sizeof value); }

class DumpFile {
 public:
  explicit DumpFile(HANDLE file) : m_file(file) {}

  bool Read(uint64_t at, void* out, size_t size) const {
    OVERLAPPED where = {};
    where.Offset = static_cast<DWORD>(at);
    where.OffsetHigh = static_cast<DWORD>(at >> 32);
    DWORD done = 0;
    return ReadFile(m_file, out, static_cast<DWORD>(size), &done, &where) && done == size;
  }
  bool Write(uint64_t at, const void* data, size_t size) const {
    OVERLAPPED where = {};
    where.Offset = static_cast<DWORD>(at);
    where.OffsetHigh = static_cast<DWORD>(at >> 32);
    DWORD done = 0;
    return WriteFile(m_file, data, static_cast<DWORD>(size), &done, &where) && done == size;
  }
  HANDLE Handle() const { return m_file; }

  // Appends `data` where a 32-bit file offset reaches it, 8-byte aligned; returns that offset.
  bool Append(const void* data, size_t size, uint32_t& at) const {
    LARGE_INTEGER end;
    if (!GetFileSizeEx(m_file, &end)) return false;
    const uint64_t aligned = (static_cast<uint64_t>(end.QuadPart) + 7) & ~uint64_t{7};
    if (aligned + size > 0xFFFFFFFFu) return false;
    static const unsigned char kZeros[8] = {};
    if (!Write(static_cast<uint64_t>(end.QuadPart), kZeros,
               static_cast<size_t>(aligned - static_cast<uint64_t>(end.QuadPart))) ||
        !Write(aligned, data, size)) {
      return false;
    }
    at = static_cast<uint32_t>(aligned);
    return true;
  }

 private:
  HANDLE m_file;
};

bool AddCodeViewRecords(const DumpFile& dump, uint32_t listAt, uint32_t listSize,
                        std::vector<uint64_t>& bases) {
  unsigned char count[4];
  if (listSize < 4 || !dump.Read(listAt, count, 4)) return false;
  const uint32_t modules = std::min<uint32_t>(U32(count), (listSize - 4) / kModuleSize);
  for (uint32_t i = 0; i < modules; ++i) {
    const uint64_t at = listAt + 4 + uint64_t{i} * kModuleSize;
    unsigned char module[kModuleSize];
    if (!dump.Read(at, module, sizeof module)) return false;
    bases.push_back(U64(module));
    if (U32(module + kCvRecordAt) != 0) continue;  // the writer gave it one
    ModuleIdentity identity;
    uint8_t record[24 + kMaxPath];
    // Still loaded at the same place: the module as the dump describes it.
    if (!IdentifyLoadedModule(U64(module), identity) || identity.base != U64(module)) continue;
    const size_t length = WriteCodeViewRecord(identity, record, sizeof record);
    if (length == 0) continue;
    uint32_t recordAt = 0;
    if (!dump.Append(record, length, recordAt)) return false;
    unsigned char location[8];
    Put32(location, static_cast<uint32_t>(length));
    Put32(location + 4, recordAt);
    if (!dump.Write(at + kCvRecordAt, location, sizeof location)) return false;
  }
  return true;
}

struct Range {
  uint64_t address;
  uint32_t size;
  uint32_t fileAt;
  bool fromProcess;  // bytes to take from this process, not from the file
};

// An ImageReader over this process's memory from the address `base` points to.
bool ReadImageInMemory(void* base, uint64_t offset, void* out, size_t size) {
  return ReadOwnMemory(*static_cast<const uint64_t*>(base) + offset, out, size);
}

// The writable sections of the image loaded at `base`, as ranges of this process's memory.
void AddDataSections(uint64_t base, std::vector<Range>& ranges) {
  PeLayout layout;
  if (!ReadPeLayout(ReadImageInMemory, &base, layout)) return;
  constexpr uint32_t kWritable = 0x80000000;  // IMAGE_SCN_MEM_WRITE
  std::vector<unsigned char> probe;
  for (uint16_t i = 0; i < layout.sectionCount; ++i) {
    PeSection section;
    if (!ReadPeSection(ReadImageInMemory, &base, layout, i, section)) return;
    const uint64_t start = base + section.virtualAddress;
    const uint32_t size = section.virtualSize;
    if ((section.characteristics & kWritable) == 0 || size == 0 || size > 0x7FFFFFFF) continue;
    probe.resize(size);
    if (ReadOwnMemory(start, probe.data(), probe.size())) ranges.push_back({start, size, 0, true});
  }
}

// The writer's memory list at `listAt`: its ranges, and the span of the file their bytes take.
struct WrittenRanges {
  std::vector<Range> ranges;
  uint64_t dataBegin = 0, dataEnd = 0;
};
bool ReadMemoryList(const DumpFile& dump, uint32_t listAt, uint32_t listSize,
                    WrittenRanges& written) {
  unsigned char count[4];
  if (listSize < 4 || !dump.Read(listAt, count, 4)) return false;
  const uint32_t total = std::min<uint32_t>(U32(count), (listSize - 4) / kRangeSize);
  std::vector<unsigned char> descriptors(size_t{total} * kRangeSize);
  if (!dump.Read(listAt + 4, descriptors.data(), descriptors.size())) return false;
  written.ranges.resize(total);
  written.dataBegin = total > 0 ? UINT64_MAX : 0;
  for (size_t i = 0; i < total; ++i) {
    const unsigned char* d = &descriptors[i * kRangeSize];
    Range& range = written.ranges[i];
    range = {U64(d), U32(d + 8), U32(d + 12), false};
    written.dataBegin = std::min<uint64_t>(written.dataBegin, range.fileAt);
    written.dataEnd = std::max<uint64_t>(written.dataEnd, uint64_t{range.fileAt} + range.size);
  }
  return true;
}

// The last of the ranges from `first` (in address order) that join into one, and in `end` where
// the joined range ends: each next range less than a page on, with the bytes between still there
// to read (into `probe`), and the whole within the 2 GiB a descriptor allows.
size_t LastOfJoinedRun(const std::vector<Range>& ranges, size_t first, uint64_t& end,
                       std::vector<unsigned char>& probe) {
  const uint64_t start = ranges[first].address;
  end = start + ranges[first].size;
  size_t last = first;
  while (last + 1 < ranges.size() && ranges[last + 1].address <= end + kJoinGap) {
    const Range& next = ranges[last + 1];
    const uint64_t nextEnd = std::max(end, next.address + next.size);
    if (nextEnd - start > 0x7FFFFFFF) break;
    if (next.address > end) {
      probe.resize(static_cast<size_t>(next.address - end));
      if (!ReadOwnMemory(end, probe.data(), probe.size())) break;
    }
    end = nextEnd;
    ++last;
  }
  return last;
}

// The bytes of ranges `first` to `last` joined into one that begins at `bytes`: the gaps from the
// process as it is now, the ranges taken from the process, and the writer's own bytes over them.
void ComposeJoinedRange(const std::vector<Range>& ranges, size_t first, size_t last,
                        const std::vector<unsigned char>& data, uint64_t dataBegin,
                        unsigned char* bytes) {
  const uint64_t start = ranges[first].address;
  uint64_t covered = start + ranges[first].size;
  for (size_t i = first + 1; i <= last; ++i) {
    if (ranges[i].address > covered)
      ReadOwnMemory(covered, bytes + (covered - start),
                    static_cast<size_t>(ranges[i].address - covered));
    covered = std::max(covered, ranges[i].address + ranges[i].size);
  }
  for (size_t i = first; i <= last; ++i) {
    if (ranges[i].fromProcess)
      ReadOwnMemory(ranges[i].address, bytes + (ranges[i].address - start), ranges[i].size);
  }
  for (size_t i = first; i <= last; ++i) {
    if (!ranges[i].fromProcess)
      std::memcpy(bytes + (ranges[i].address - start),
                  &data[static_cast<size_t>(ranges[i].fileAt - dataBegin)], ranges[i].size);
  }
}

// A new memory list, when the writer's has more ranges than readers accept or `extra` ranges are
// to be added: ranges less than a page apart are joined, where this process can still read the
// bytes between them. The directory entry at `entryAt` then points to it.
bool RewriteMemoryList(const DumpFile& dump, uint64_t entryAt, uint32_t listAt, uint32_t listSize,
                       std::vector<Range> extra) {
  WrittenRanges written;
  if (!ReadMemoryList(dump, listAt, listSize, written)) return false;
  std::vector<Range>& ranges = written.ranges;
  const size_t total = ranges.size();
  auto byAddress = [](const Range& a, const Range& b) { return a.address < b.address; };
  std::sort(ranges.begin(), ranges.end(), byAddress);
  // Readers refuse ranges that overlap, which Wine's writer makes for threads waiting at one
  // place (a window of code around each thread's instruction).
  bool overlaps = false;
  for (size_t i = 1; i < total; ++i)
    overlaps = overlaps || ranges[i].address < ranges[i - 1].address + ranges[i - 1].size;
  if (total <= kMaxMemoryRanges && extra.empty() && !overlaps) return true;
  std::sort(extra.begin(), extra.end(), byAddress);
  ranges.insert(ranges.end(), extra.begin(), extra.end());
  std::inplace_merge(ranges.begin(), ranges.begin() + total, ranges.end(), byAddress);
  // The writer's bytes, read at once: the ranges are many and small.
  std::vector<unsigned char> data(static_cast<size_t>(written.dataEnd - written.dataBegin));
  if (!dump.Read(written.dataBegin, data.data(), data.size())) return false;

  LARGE_INTEGER fileSize;
  if (!GetFileSizeEx(dump.Handle(), &fileSize)) return false;
  const uint64_t appendAt = (static_cast<uint64_t>(fileSize.QuadPart) + 7) & ~uint64_t{7};
  std::vector<unsigned char> list(4), appended, probe;
  uint32_t count = 0;
  for (size_t first = 0; first < ranges.size();) {
    uint64_t end = 0;
    const size_t last = LastOfJoinedRun(ranges, first, end, probe);
    const uint64_t start = ranges[first].address;
    uint64_t fileAt = ranges[first].fileAt;
    if (last > first || ranges[first].fromProcess) {
      fileAt = appendAt + appended.size();
      const size_t at = appended.size();
      appended.resize(at + static_cast<size_t>(end - start));
      ComposeJoinedRange(ranges, first, last, data, written.dataBegin, &appended[at]);
    }
    if (fileAt > 0xFFFFFFFFu) return false;
    unsigned char descriptor[kRangeSize];
    Put64(descriptor, start);
    Put32(descriptor + 8, static_cast<uint32_t>(end - start));
    Put32(descriptor + 12, static_cast<uint32_t>(fileAt));
    list.insert(list.end(), descriptor, descriptor + sizeof descriptor);
    ++count;
    first = last + 1;
  }
  Put32(list.data(), count);
  uint32_t joinedAt = 0, newListAt = 0;
  if (!appended.empty() &&
      (!dump.Append(appended.data(), appended.size(), joinedAt) || joinedAt != appendAt)) {
    return false;
  }
  if (!dump.Append(list.data(), list.size(), newListAt)) return false;
  unsigned char location[8];
  Put32(location, static_cast<uint32_t>(list.size()));
  Put32(location + 4, newListAt);
  return dump.Write(entryAt + 4, location, sizeof location);
}

}  // namespace

bool CompleteMinidump(HANDLE file, bool withDataSections) {
  const DumpFile dump(file);
  unsigned char header[kHeaderSize];
  if (!dump.Read(0, header, sizeof header) || std::memcmp(header, "MDMP", 4) != 0) return false;
  const uint32_t streams = U32(header + 8), directoryAt = U32(header + 12);
  uint32_t modules[2] = {}, memoryList[2] = {};
  uint64_t memoryEntryAt = 0;
  for (uint32_t i = 0; i < streams && i < 256; ++i) {
    const uint64_t entryAt = directoryAt + uint64_t{i} * kDirectoryEntrySize;
    unsigned char entry[kDirectoryEntrySize];
    if (!dump.Read(entryAt, entry, sizeof entry)) return false;
    if (U32(entry) == kModuleListStream) modules[0] = U32(entry + 8), modules[1] = U32(entry + 4);
    if (U32(entry) == kMemoryListStream) {
      memoryList[0] = U32(entry + 8), memoryList[1] = U32(entry + 4);
      memoryEntryAt = entryAt;
    }
  }
  std::vector<uint64_t> bases;
  bool complete = modules[1] == 0 || AddCodeViewRecords(dump, modules[0], modules[1], bases);
  if (memoryEntryAt != 0) {
    std::vector<Range> extra;
    if (withDataSections)
      for (uint64_t base : bases) AddDataSections(base, extra);
    complete =
        RewriteMemoryList(dump, memoryEntryAt, memoryList[0], memoryList[1], std::move(extra)) &&
        complete;
  }
  return complete;
}

}  // namespace deskaid
