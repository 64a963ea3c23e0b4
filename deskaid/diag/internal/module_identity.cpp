#include "deskaid/diag/internal/module_identity.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "deskaid/common/internal/platform.h"
#include "deskaid/diag/internal/fixed_text.h"
#include "deskaid/diag/internal/pe_layout.h"

namespace deskaid {
namespace {

uint16_t U16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
uint32_t U32(const uint8_t* p) { return U16(p) | static_cast<uint32_t>(U16(p + 2)) << 16; }
uint64_t U64(const uint8_t* p) { return U32(p) | static_cast<uint64_t>(U32(p + 4)) << 32; }

void CopyText(char* target, size_t size, const char* text, size_t length) {
  if (length >= size) length = size - 1;
  std::memcpy(target, text, length);
  target[length] = '\0';
}

// --- PE ---------------------------------------------------------------------------------------

constexpr uint32_t kDebugTypeCodeView = 2;
constexpr size_t kDebugEntrySize = 28;
// More entries than any linker writes: a damaged count must not make the walk long.
constexpr uint32_t kMaxDebugEntries = 64;

// The file offset of `rva` through the section table; false outside every section's raw data.
bool FileOffsetOf(ImageReader read, void* source, const PeLayout& layout, uint32_t rva,
                  uint64_t& offset) {
  for (uint16_t i = 0; i < layout.sectionCount; ++i) {
    PeSection section;
    if (!ReadPeSection(read, source, layout, i, section)) return false;
    if (rva >= section.virtualAddress && rva - section.virtualAddress < section.rawSize) {
      offset = section.rawOffset + static_cast<uint64_t>(rva - section.virtualAddress);
      return true;
    }
  }
  return false;
}

// The CodeView "RSDS" record the debug directory points to, if any.
void ReadCodeView(ImageReader read, void* source, bool mapped, const PeLayout& layout,
                  uint32_t directoryRva, uint32_t directorySize, ModuleIdentity& identity) {
  uint32_t entries = directorySize / static_cast<uint32_t>(kDebugEntrySize);
  if (entries > kMaxDebugEntries) entries = kMaxDebugEntries;
  uint64_t directory = directoryRva;
  if (!mapped && !FileOffsetOf(read, source, layout, directoryRva, directory)) return;
  for (uint32_t i = 0; i < entries; ++i) {
    uint8_t entry[kDebugEntrySize];
    if (!read(source, directory + i * kDebugEntrySize, entry, sizeof entry)) return;
    const uint32_t dataSize = U32(entry + 16);
    if (U32(entry + 12) != kDebugTypeCodeView || dataSize < 24) continue;
    const uint64_t at = mapped ? U32(entry + 20) : U32(entry + 24);
    uint8_t record[24 + kMaxPath] = {};
    const size_t length = dataSize < sizeof record ? dataSize : sizeof record;
    if (!read(source, at, record, length) || std::memcmp(record, "RSDS", 4) != 0) continue;
    // The GUID's first three fields are little-endian numbers; symbol stores write them as such.
    FixedText signature(identity.codeView, sizeof identity.codeView);
    signature.Hex(U32(record + 4), 8).Hex(U16(record + 8), 4).Hex(U16(record + 10), 4);
    for (int byte = 12; byte < 20; ++byte) signature.Hex(record[byte], 2);
    signature.Hex(U32(record + 20));
    CopyText(identity.pdbPath, sizeof identity.pdbPath, reinterpret_cast<char*>(record + 24),
             strnlen(reinterpret_cast<char*>(record + 24), length - 24));
    return;
  }
}

bool ReadPe(ImageReader read, void* source, bool mapped, ModuleIdentity& identity) {
  PeLayout layout;
  if (!ReadPeLayout(read, source, layout)) return false;
  const uint16_t optionalSize = layout.optionalSize;
  uint8_t optional[240] = {};
  if (optionalSize < 96 || !read(source, layout.optionalHeader, optional,
                                 optionalSize < sizeof optional ? optionalSize : sizeof optional))
    return false;
  const uint16_t magic = U16(optional);
  if (magic != 0x10B && magic != 0x20B) return false;
  const bool plus = magic == 0x20B;
  identity.format = ImageFormat::kPe;
  identity.timeStamp = layout.timeStamp;
  identity.linkBase = plus ? U64(optional + 24) : U32(optional + 28);
  identity.imageSize = U32(optional + 56);
  identity.size = identity.imageSize;

  const size_t directories = plus ? 112 : 96;
  const uint32_t directoryCount = U32(optional + (plus ? 108 : 92));
  const size_t debug = directories + 6 * 8;
  if (directoryCount > 6 && debug + 8 <= optionalSize && debug + 8 <= sizeof optional) {
    ReadCodeView(read, source, mapped, layout, U32(optional + debug), U32(optional + debug + 4),
                 identity);
  }
  return true;
}

// --- ELF --------------------------------------------------------------------------------------

constexpr uint32_t kProgramLoad = 1, kProgramNote = 4;
constexpr uint32_t kNoteBuildId = 3;
constexpr uint64_t kPage = 4096;
constexpr uint16_t kMaxProgramHeaders = 256;

// Looks for the GNU build-id note in the `size` bytes at `at`.
void ReadBuildId(ImageReader read, void* source, uint64_t at, uint64_t size,
                 ModuleIdentity& identity) {
  uint64_t position = 0;
  while (position + 12 <= size) {
    uint8_t note[12];
    if (!read(source, at + position, note, sizeof note)) return;
    const uint32_t nameSize = U32(note), descSize = U32(note + 4), type = U32(note + 8);
    const uint64_t name = position + 12, desc = name + ((nameSize + 3ull) & ~3ull);
    const uint64_t next = desc + ((descSize + 3ull) & ~3ull);
    if (next > size) return;
    char owner[4];
    if (type == kNoteBuildId && nameSize == 4 && descSize > 0 && descSize <= 64 &&
        read(source, at + name, owner, 4) && std::memcmp(owner, "GNU", 4) == 0) {
      uint8_t bytes[64];
      if (!read(source, at + desc, bytes, descSize)) return;
      FixedText id(identity.buildId, sizeof identity.buildId);
      for (uint32_t i = 0; i < descSize; ++i) id.Hex(bytes[i], 2);
      return;
    }
    position = next;
  }
}

bool ReadElf(ImageReader read, void* source, bool mapped, ModuleIdentity& identity) {
  uint8_t header[64];
  if (!read(source, 0, header, 52) || std::memcmp(header, "\x7F" "ELF", 4) != 0 || header[5] != 1)
    return false;
  const bool wide = header[4] == 2;
  if (!wide && header[4] != 1) return false;
  if (wide && !read(source, 0, header, 64)) return false;
  const uint64_t table = wide ? U64(header + 32) : U32(header + 28);
  const uint16_t entrySize = U16(header + (wide ? 54 : 42));
  const uint16_t count = U16(header + (wide ? 56 : 44));
  if (entrySize < (wide ? 56 : 32) || count == 0 || count > kMaxProgramHeaders) return false;

  uint64_t low = UINT64_MAX, high = 0;
  for (int pass = 0; pass < 2; ++pass) {  // the loaded span first: notes in memory need it
    for (uint16_t i = 0; i < count; ++i) {
      uint8_t entry[56];
      if (!read(source, table + static_cast<uint64_t>(i) * entrySize, entry, wide ? 56 : 32))
        return false;
      const uint32_t type = U32(entry);
      const uint64_t offset = wide ? U64(entry + 8) : U32(entry + 4);
      const uint64_t address = wide ? U64(entry + 16) : U32(entry + 8);
      const uint64_t fileSize = wide ? U64(entry + 32) : U32(entry + 16);
      const uint64_t memorySize = wide ? U64(entry + 40) : U32(entry + 20);
      if (pass == 0 && type == kProgramLoad) {
        if (address < low) low = address;
        if (address + memorySize > high) high = address + memorySize;
      } else if (pass == 1 && type == kProgramNote && identity.buildId[0] == '\0') {
        ReadBuildId(read, source, mapped ? address - low : offset, fileSize, identity);
      }
    }
    if (pass == 0 && low == UINT64_MAX) return false;  // nothing is loaded
    if (pass == 0) low &= ~(kPage - 1);
  }
  identity.format = ImageFormat::kElf;
  identity.linkBase = low;
  identity.size = high - low;
  return true;
}

bool ReadFromFile(void* source, uint64_t offset, void* out, size_t size) {
  std::FILE* file = static_cast<std::FILE*>(source);
  return platform::SeekStream(file, offset) && std::fread(out, 1, size, file) == size;
}

// --- Text forms -------------------------------------------------------------------------------

// A quoted value; a '"' inside it, which would end it early, is written as '?'.
void AddQuoted(FixedText& text, const char* key, const char* value) {
  text.Add(key).Add('"');
  for (const char* p = value; *p != '\0'; ++p) text.Add(*p == '"' ? '?' : *p);
  text.Add('"');
}

const char kRecordPrefix[] = "Module: ";

// Reads a value that runs to the next space, or a quoted one to the next '"'.
const char* ReadValue(const char* p, char* out, size_t size) {
  const char* start = p;
  const char* end;
  if (*p == '"') {
    start = ++p;
    end = std::strchr(p, '"');
    if (end == nullptr) end = p + std::strlen(p);
    p = *end == '"' ? end + 1 : end;
  } else {
    end = p + std::strcspn(p, " ");
    p = end;
  }
  CopyText(out, size, start, static_cast<size_t>(end - start));
  return p;
}

uint64_t HexValue(const char* text) { return std::strtoull(text, nullptr, 16); }

// The value of `digits` hex digits at `text`.
uint64_t HexField(const char* text, size_t digits) {
  char field[17] = {};
  std::memcpy(field, text, digits < 16 ? digits : 16);
  return HexValue(field);
}

// A signature is hex digits only; anything else is no signature.
void CopyHex(char* target, size_t size, const char* value) {
  size_t length = std::strlen(value);
  if (std::strspn(value, "0123456789ABCDEFabcdef") != length || length >= size) length = 0;
  CopyText(target, size, value, length);
}

}  // namespace

size_t WriteCodeViewRecord(const ModuleIdentity& identity, uint8_t* out, size_t size) {
  // The inverse of ReadCodeView's text: GUID fields, GUID bytes, then the age.
  const char* text = identity.codeView;
  const size_t length = std::strlen(text), pathLength = std::strlen(identity.pdbPath);
  if (length < 33 || length > 40 || size < 24 + pathLength + 1) return 0;
  std::memcpy(out, "RSDS", 4);
  const uint32_t first = static_cast<uint32_t>(HexField(text, 8));
  const uint16_t second = static_cast<uint16_t>(HexField(text + 8, 4));
  const uint16_t third = static_cast<uint16_t>(HexField(text + 12, 4));
  const uint32_t age = static_cast<uint32_t>(HexField(text + 32, length - 32));
  for (int i = 0; i < 4; ++i) out[4 + i] = static_cast<uint8_t>(first >> (8 * i));
  for (int i = 0; i < 2; ++i) out[8 + i] = static_cast<uint8_t>(second >> (8 * i));
  for (int i = 0; i < 2; ++i) out[10 + i] = static_cast<uint8_t>(third >> (8 * i));
  for (int i = 0; i < 8; ++i) out[12 + i] = static_cast<uint8_t>(HexField(text + 16 + 2 * i, 2));
  for (int i = 0; i < 4; ++i) out[20 + i] = static_cast<uint8_t>(age >> (8 * i));
  std::memcpy(out + 24, identity.pdbPath, pathLength + 1);
  return 24 + pathLength + 1;
}

bool ReadImageIdentity(ImageReader read, void* source, bool mapped, ModuleIdentity& identity) {
  identity.format = ImageFormat::kUnknown;
  identity.codeView[0] = identity.pdbPath[0] = identity.buildId[0] = '\0';
  identity.timeStamp = identity.imageSize = 0;
  return ReadPe(read, source, mapped, identity) || ReadElf(read, source, mapped, identity);
}

bool ReadMappedSpan(void* span, uint64_t offset, void* out, size_t size) {
  const MappedSpan* mapped = static_cast<const MappedSpan*>(span);
  if (offset > mapped->size || size > mapped->size - offset) return false;
  std::memcpy(out, reinterpret_cast<const void*>(static_cast<uintptr_t>(mapped->base + offset)),
              size);
  return true;
}

bool ReadLoadedPeIdentity(uint64_t base, ModuleIdentity& identity) {
  identity = ModuleIdentity();
  identity.base = base;
  MappedSpan span{base, 4096};
  if (!ReadImageIdentity(ReadMappedSpan, &span, true, identity) ||
      identity.format != ImageFormat::kPe) {
    return false;
  }
  span.size = identity.imageSize;
  ReadImageIdentity(ReadMappedSpan, &span, true, identity);  // the headers have answered already
  return true;
}

bool ReadImageFileIdentity(const char* path, ModuleIdentity& identity) {
  std::FILE* file = std::fopen(path, "rb");
  if (file == nullptr) return false;
  identity = ModuleIdentity();
  const bool known = ReadImageIdentity(ReadFromFile, file, false, identity);
  std::fclose(file);
  CopyText(identity.path, sizeof identity.path, path, std::strlen(path));
  SetNameFromPath(identity);
  return known;
}

void SetNameFromPath(ModuleIdentity& identity) {
  const char* name = identity.path;
  for (const char* p = identity.path; *p != '\0'; ++p)
    if (platform::IsPathSeparator(*p)) name = p + 1;
  CopyText(identity.name, sizeof identity.name, name, std::strlen(name));
}

size_t FormatModuleRecord(const ModuleIdentity& identity, char* out, size_t size) {
  FixedText text(out, size);
  text.Add(kRecordPrefix);
  AddQuoted(text, "", identity.name);
  text.Add(" base=0x").Hex(identity.base).Add(" size=0x").Hex(identity.size);
  if (identity.format == ImageFormat::kPe) {
    text.Add(" pe time=0x").Hex(identity.timeStamp, 8).Add(" image=0x").Hex(identity.imageSize);
    if (identity.codeView[0] != '\0') {
      text.Add(" cv=").Add(identity.codeView);
      AddQuoted(text, " pdb=", identity.pdbPath);
    }
  } else if (identity.format == ImageFormat::kElf) {
    text.Add(" elf");
    if (identity.buildId[0] != '\0') text.Add(" buildid=").Add(identity.buildId);
  }
  AddQuoted(text, " path=", identity.path);
  return text.Length();
}

bool ParseModuleRecord(const char* text, ModuleIdentity& identity) {
  const size_t prefix = sizeof kRecordPrefix - 1;
  if (std::strncmp(text, kRecordPrefix, prefix) != 0 || text[prefix] != '"') return false;
  identity = ModuleIdentity();
  const char* p = ReadValue(text + prefix, identity.name, sizeof identity.name);
  while (*p == ' ') {
    ++p;
    const char* equals = p + std::strcspn(p, " =");
    const std::string key(p, static_cast<size_t>(equals - p));
    char value[kMaxPath] = {};
    p = *equals == '=' ? ReadValue(equals + 1, value, sizeof value) : equals;
    if (key == "pe") identity.format = ImageFormat::kPe;
    else if (key == "elf") identity.format = ImageFormat::kElf;
    else if (key == "base") identity.base = HexValue(value);
    else if (key == "size") identity.size = HexValue(value);
    else if (key == "time") identity.timeStamp = static_cast<uint32_t>(HexValue(value));
    else if (key == "image") identity.imageSize = static_cast<uint32_t>(HexValue(value));
    else if (key == "cv") CopyHex(identity.codeView, sizeof identity.codeView, value);
    else if (key == "pdb") CopyText(identity.pdbPath, sizeof identity.pdbPath, value, strlen(value));
    else if (key == "path") CopyText(identity.path, sizeof identity.path, value, strlen(value));
    else if (key == "buildid") CopyHex(identity.buildId, sizeof identity.buildId, value);
  }
  return true;
}

size_t FormatModuleReference(const char* name, uint64_t offset, char* out, size_t size) {
  FixedText text(out, size);
  text.Add(" <").Add(name).Add("+0x").Hex(offset).Add('>');
  return text.Length();
}

bool FindModuleReference(const char* text, ModuleReference& reference) {
  const char* close = std::strrchr(text, '>');
  if (close == nullptr) return false;
  const char* open = close;
  while (open > text && *open != '<') --open;
  if (*open != '<') return false;
  const char* plus = close;
  while (plus > open && std::strncmp(plus, "+0x", 3) != 0) --plus;
  if (plus == open + 1 || std::strncmp(plus, "+0x", 3) != 0) return false;
  const char* digits = plus + 3;
  if (digits == close || std::strspn(digits, "0123456789ABCDEFabcdef") !=
                             static_cast<size_t>(close - digits))
    return false;
  reference.begin = static_cast<size_t>(open - text);
  reference.end = static_cast<size_t>(close - text) + 1;
  CopyText(reference.name, sizeof reference.name, open + 1, static_cast<size_t>(plus - open - 1));
  reference.offset = HexValue(digits);
  return true;
}

const char* IdentityMismatch(const ModuleIdentity& logged, const ModuleIdentity& found) {
  if (logged.format != ImageFormat::kUnknown && logged.format != found.format)
    return "a different kind of image";
  if (logged.format == ImageFormat::kPe) {
    if (logged.timeStamp != found.timeStamp) return "a different build: its time stamp differs";
    if (logged.imageSize != found.imageSize) return "a different build: its image size differs";
    if (logged.codeView[0] != '\0' && found.codeView[0] != '\0' &&
        std::strcmp(logged.codeView, found.codeView) != 0)
      return "a different build: its PDB signature differs";
  } else if (logged.format == ImageFormat::kElf) {
    if (logged.buildId[0] != '\0' && std::strcmp(logged.buildId, found.buildId) != 0)
      return "a different build: its build id differs";
    if (logged.size != 0 && logged.size != found.size) return "a different build: its size differs";
  }
  return nullptr;
}

}  // namespace deskaid
