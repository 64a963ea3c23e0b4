// A reader of the DWARF that MinGW toolchains put into PE images: enough of .debug_info to find
// the functions and the calls inlined into them, and the line programs of .debug_line, versions
// 2 to 5 of both.
#include "deskaid/diag/internal/pe_dwarf_symbols.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

#include "deskaid/diag/internal/pe_layout.h"

#if defined(__has_include)
#if __has_include(<cxxabi.h>)
#include <cxxabi.h>
#define DESKAID_HAVE_CXXABI 1
#endif
#endif

namespace deskaid {
namespace {

// Tags, attributes and forms read here.
constexpr uint64_t kTagInlinedSubroutine = 0x1d, kTagCompileUnit = 0x11, kTagSubprogram = 0x2e,
                   kTagPartialUnit = 0x3c;
constexpr uint64_t kAtName = 0x03, kAtStmtList = 0x10, kAtLowPc = 0x11, kAtHighPc = 0x12,
                   kAtCompDir = 0x1b, kAtAbstractOrigin = 0x31, kAtSpecification = 0x47,
                   kAtRanges = 0x55, kAtCallFile = 0x58, kAtCallLine = 0x59, kAtLinkageName = 0x6e,
                   kAtStrOffsetsBase = 0x72, kAtAddrBase = 0x73, kAtRnglistsBase = 0x74,
                   kAtMipsLinkageName = 0x2007;
enum Form : uint64_t {
  kAddr = 0x01,
  kBlock2 = 0x03,
  kBlock4 = 0x04,
  kData2 = 0x05,
  kData4 = 0x06,
  kData8 = 0x07,
  kString = 0x08,
  kBlock = 0x09,
  kBlock1 = 0x0a,
  kData1 = 0x0b,
  kFlag = 0x0c,
  kSdata = 0x0d,
  kStrp = 0x0e,
  kUdata = 0x0f,
  kRefAddr = 0x10,
  kRef1 = 0x11,
  kRef2 = 0x12,
  kRef4 = 0x13,
  kRef8 = 0x14,
  kRefUdata = 0x15,
  kIndirect = 0x16,
  kSecOffset = 0x17,
  kExprloc = 0x18,
  kFlagPresent = 0x19,
  kStrx = 0x1a,
  kAddrx = 0x1b,
  kRefSup4 = 0x1c,
  kStrpSup = 0x1d,
  kData16 = 0x1e,
  kLineStrp = 0x1f,
  kRefSig8 = 0x20,
  kImplicitConst = 0x21,
  kLoclistx = 0x22,
  kRnglistx = 0x23,
  kRefSup8 = 0x24,
  kStrx1 = 0x25,
  kStrx2 = 0x26,
  kStrx3 = 0x27,
  kStrx4 = 0x28,
  kAddrx1 = 0x29,
  kAddrx2 = 0x2a,
  kAddrx3 = 0x2b,
  kAddrx4 = 0x2c,
  kGnuAddrIndex = 0x1f01,
  kGnuStrIndex = 0x1f02,
  kGnuRefAlt = 0x1f20,
  kGnuStrpAlt = 0x1f21
};

// Reads little-endian data from a span; past its end every read gives 0 and clears ok.
class Cursor {
 public:
  Cursor(const uint8_t* data, size_t size, size_t pos = 0) : m_data(data), m_size(size) {
    Seek(pos);
  }
  bool ok() const { return m_ok; }
  size_t pos() const { return m_pos; }
  void Seek(size_t pos) {
    if (pos > m_size) m_ok = false;
    m_pos = pos > m_size ? m_size : pos;
  }
  void Skip(uint64_t n) {
    if (n > m_size - m_pos) {
      m_ok = false;
      m_pos = m_size;
    } else {
      m_pos += static_cast<size_t>(n);
    }
  }
  uint64_t U(size_t n) {
    if (n > m_size - m_pos) {
      Skip(n);
      return 0;
    }
    uint64_t value = 0;
    for (size_t i = 0; i < n; ++i) value |= uint64_t(m_data[m_pos + i]) << (8 * i);
    m_pos += n;
    return value;
  }
  uint64_t Uleb() {
    uint64_t value = 0;
    for (unsigned shift = 0;; shift += 7) {
      const uint64_t byte = U(1);
      if (shift < 64) value |= (byte & 0x7f) << shift;
      if (!m_ok || (byte & 0x80) == 0) return value;
    }
  }
  int64_t Sleb() {
    uint64_t value = 0;
    unsigned shift = 0;
    uint64_t byte = 0;
    do {
      byte = U(1);
      if (shift < 64) value |= (byte & 0x7f) << shift;
      shift += 7;
    } while (m_ok && (byte & 0x80) != 0);
    if (shift < 64 && (byte & 0x40) != 0) value |= ~uint64_t(0) << shift;
    return static_cast<int64_t>(value);
  }
  std::string CString() {
    const void* nul = std::memchr(m_data + m_pos, 0, m_size - m_pos);
    if (nul == nullptr) {
      Skip(m_size - m_pos + 1);
      return std::string();
    }
    const size_t length = static_cast<size_t>(static_cast<const uint8_t*>(nul) - (m_data + m_pos));
    std::string text(reinterpret_cast<const char*>(m_data + m_pos), length);
    m_pos += length + 1;
    return text;
  }

 private:
  const uint8_t* m_data;
  size_t m_size;
  size_t m_pos = 0;
  bool m_ok = true;
};

// An attribute's value: a number (addresses, constants, references, offsets, indexes) or a text.
struct Value {
  uint64_t form = 0;
  uint64_t number = 0;
  std::string text;
};

bool IsAbsolute(const std::string& path) {
  return (!path.empty() && (path[0] == '/' || path[0] == '\\')) ||
         (path.size() >= 2 && path[1] == ':');
}

std::string JoinPath(std::string left, const std::string& right) {
  if (left.empty()) return right;
  if (right.empty()) return left;
  const char last = left.back();
  if (last != '/' && last != '\\') left += '/';
  return left + right;
}

std::string Demangle(const std::string& name) {
#ifdef DESKAID_HAVE_CXXABI
  if (name.compare(0, 2, "_Z") == 0) {
    int status = 0;
    char* plain = abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status);
    if (plain != nullptr) {
      std::string result = status == 0 ? std::string(plain) : name;
      std::free(plain);
      return result;
    }
  }
#endif
  return name;
}

struct Abbreviation {
  uint64_t tag = 0;
  bool hasChildren = false;
  struct Spec {
    uint64_t attribute, form;
    int64_t implicitConst;
  };
  std::vector<Spec> specs;
};
using AbbreviationTable = std::map<uint64_t, Abbreviation>;

AbbreviationTable ReadAbbreviations(const uint8_t* data, size_t size, uint64_t offset) {
  AbbreviationTable table;
  if (offset >= size) return table;
  Cursor in(data, size, static_cast<size_t>(offset));
  while (in.ok()) {
    const uint64_t code = in.Uleb();
    if (code == 0) break;
    Abbreviation abbreviation;
    abbreviation.tag = in.Uleb();
    abbreviation.hasChildren = in.U(1) != 0;
    while (in.ok()) {
      Abbreviation::Spec spec{in.Uleb(), in.Uleb(), 0};
      if (spec.attribute == 0 && spec.form == 0) break;
      if (spec.form == kImplicitConst) spec.implicitConst = in.Sleb();
      abbreviation.specs.push_back(spec);
    }
    table.emplace(code, std::move(abbreviation));
  }
  return table;
}

struct Bytes {
  const uint8_t* data = nullptr;
  size_t size = 0;
};

struct Range {
  uint64_t low, high;  // [low, high)
};

struct Unit {
  size_t start = 0;  // of its header in .debug_info, where references within it count from
  uint16_t version = 0;
  bool dwarf64 = false;
  uint8_t addressSize = 0;
  size_t entries = 0, end = 0;  // its entries' span in .debug_info
  uint64_t abbreviations = 0;
  uint64_t lineTable = ~uint64_t(0);  // its offset in .debug_line, if it has one
  std::string compDir;
  uint64_t lowPc = 0;  // the base of its address ranges
  uint64_t addrBase = 8, rangesBase = 12, strOffsetsBase = 8;
};

// What the reader takes from one entry of .debug_info.
struct Entry {
  uint64_t tag = 0;
  bool hasChildren = false;
  enum Field {
    kName,
    kLinkageName,
    kLowPc,
    kHighPc,
    kRanges,
    kCallFile,
    kCallLine,
    kOrigin,
    kSpecification,
    kStmtList,
    kCompDir,
    kAddrBase,
    kRangesBase,
    kStrOffsetsBase,
    kFieldCount
  };
  Value fields[kFieldCount];
  bool has[kFieldCount] = {};
};

int FieldOf(uint64_t attribute) {
  switch (attribute) {
    case kAtName: return Entry::kName;
    case kAtLinkageName:
    case kAtMipsLinkageName: return Entry::kLinkageName;
    case kAtLowPc: return Entry::kLowPc;
    case kAtHighPc: return Entry::kHighPc;
    case kAtRanges: return Entry::kRanges;
    case kAtCallFile: return Entry::kCallFile;
    case kAtCallLine: return Entry::kCallLine;
    case kAtAbstractOrigin: return Entry::kOrigin;
    case kAtSpecification: return Entry::kSpecification;
    case kAtStmtList: return Entry::kStmtList;
    case kAtCompDir: return Entry::kCompDir;
    case kAtAddrBase: return Entry::kAddrBase;
    case kAtRnglistsBase: return Entry::kRangesBase;
    case kAtStrOffsetsBase: return Entry::kStrOffsetsBase;
    default: return -1;
  }
}

bool IsConstant(uint64_t form) {
  return form == kData1 || form == kData2 || form == kData4 || form == kData8 || form == kUdata ||
         form == kSdata || form == kImplicitConst;
}

bool IsReference(uint64_t form) {
  return form == kRef1 || form == kRef2 || form == kRef4 || form == kRef8 || form == kRefUdata ||
         form == kRefAddr;
}

struct Function {
  Range range;
  size_t unit;
  uint64_t entry;  // its offset in .debug_info
};

struct InlinedCall {
  Range range;
  uint64_t function;  // the entry of the function it was inlined into
  size_t unit;
  uint64_t file, line;
};

struct Row {
  uint64_t address;
  uint64_t file;
  uint32_t line;
  bool endsSequence;
};

// A unit's or a line table's length, which a mark of 0xffffffff says is given in 64 bits, and
// with it every offset in the unit.
uint64_t InitialLength(Cursor& in, bool& dwarf64) {
  const uint64_t length = in.U(4);
  dwarf64 = length == 0xffffffff;
  return dwarf64 ? in.U(8) : length;
}

struct LineTable {
  std::vector<Row> rows;
  std::vector<std::string> files;  // paths, by the table's own file number
};

struct LineProgram {
  Unit unit;                  // the table's own sizes, for the values of its header
  size_t start = 0, end = 0;  // the opcodes' span in .debug_line
  uint64_t minimumLength = 0;
  int64_t lineBase = 0;
  uint64_t lineRange = 0, opcodeBase = 0;
  std::vector<uint64_t> argumentCounts;  // of the standard opcodes, from opcode 1
};

}  // namespace

struct PeDwarfSymbols::Image {
  std::vector<uint8_t> bytes;
  Bytes info, abbrev, line, str, lineStr, rangesV4, rnglists, addr, strOffsets;
  std::vector<Unit> units;
  std::map<uint64_t, AbbreviationTable> abbreviations;  // by offset in .debug_abbrev
  std::vector<Function> functions;
  std::vector<InlinedCall> inlined;
  std::map<size_t, LineTable> lines;  // read on first use, by unit

  bool ReadSections();
  void ReadUnits();
  void ReadEntries(size_t unitIndex);
  bool ReadEntry(Cursor& in, const Unit& unit, const AbbreviationTable& table, Entry& entry);
  Value ReadValue(Cursor& in, uint64_t form, const Unit& unit, int64_t implicitConst, int depth);
  std::string StringAt(const Bytes& section, uint64_t offset) const;
  uint64_t AddressAt(const Unit& unit, uint64_t index) const;
  std::vector<Range> RangesOf(const Entry& entry, const Unit& unit) const;
  std::string FunctionName(size_t unitIndex, uint64_t entry);
  std::vector<std::string> FileNames(Cursor& in, const LineProgram& program,
                                     const std::string& unitCompDir);
  const LineTable& LinesOf(size_t unitIndex);
};

PeDwarfSymbols::PeDwarfSymbols() = default;
PeDwarfSymbols::~PeDwarfSymbols() = default;

bool PeDwarfSymbols::OpenFile(const char* path) {
  std::FILE* file = std::fopen(path, "rb");
  if (file == nullptr) return false;
  std::vector<uint8_t> bytes;
  uint8_t buffer[65536];
  size_t got = 0;
  while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0)
    bytes.insert(bytes.end(), buffer, buffer + got);
  const bool failed = std::ferror(file) != 0;
  std::fclose(file);
  return !failed && Open(std::move(bytes));
}

bool PeDwarfSymbols::Open(std::vector<uint8_t> image) {
  m_image = std::make_unique<Image>();
  m_image->bytes = std::move(image);
  if (!m_image->ReadSections()) return false;
  m_image->ReadUnits();
  return !m_image->functions.empty();
}

bool PeDwarfSymbols::Image::ReadSections() {
  MappedSpan span = {reinterpret_cast<uintptr_t>(bytes.data()), bytes.size()};
  PeLayout layout;
  if (!ReadPeLayout(ReadMappedSpan, &span, layout)) return false;
  const struct {
    const char* name;
    Bytes* span;
  } kWanted[] = {{".debug_info", &info},
                 {".debug_abbrev", &abbrev},
                 {".debug_line", &line},
                 {".debug_str", &str},
                 {".debug_line_str", &lineStr},
                 {".debug_ranges", &rangesV4},
                 {".debug_rnglists", &rnglists},
                 {".debug_addr", &addr},
                 {".debug_str_offsets", &strOffsets}};
  for (uint16_t i = 0; i < layout.sectionCount; ++i) {
    PeSection section;
    if (!ReadPeSection(ReadMappedSpan, &span, layout, i, section)) return false;
    // Names longer than eight characters (".debug_line_str") are kept in the string table.
    const uint64_t longName = PeLongNameOffset(layout, section);
    const std::string name =
        longName != 0 ? StringAt(Bytes{bytes.data(), bytes.size()}, longName) : section.name;
    const uint64_t rawOffset = section.rawOffset;
    for (const auto& wanted : kWanted) {
      if (name != wanted.name || rawOffset >= bytes.size()) continue;
      uint64_t size = section.virtualSize != 0 && section.virtualSize < section.rawSize
                          ? section.virtualSize
                          : section.rawSize;
      if (size > bytes.size() - rawOffset) size = bytes.size() - rawOffset;
      *wanted.span = Bytes{bytes.data() + rawOffset, static_cast<size_t>(size)};
    }
  }
  return info.size != 0 && abbrev.size != 0;
}

std::string PeDwarfSymbols::Image::StringAt(const Bytes& section, uint64_t offset) const {
  if (offset >= section.size) return std::string();
  Cursor in(section.data, section.size, static_cast<size_t>(offset));
  return in.CString();
}

uint64_t PeDwarfSymbols::Image::AddressAt(const Unit& unit, uint64_t index) const {
  const uint64_t at = unit.addrBase + index * unit.addressSize;
  if (unit.addrBase > addr.size || index > addr.size || at > addr.size) return 0;
  Cursor in(addr.data, addr.size, static_cast<size_t>(at));
  return in.U(unit.addressSize);
}

Value PeDwarfSymbols::Image::ReadValue(Cursor& in, uint64_t form, const Unit& unit,
                                       int64_t implicitConst, int depth) {
  const size_t offsetSize = unit.dwarf64 ? 8 : 4;
  Value value;
  value.form = form;
  auto text = [&](std::string s) { value.text = std::move(s); };
  auto indexedText = [&](uint64_t index) {
    const uint64_t at = unit.strOffsetsBase + index * offsetSize;
    if (index > strOffsets.size || at > strOffsets.size) return text(std::string());
    Cursor offsets(strOffsets.data, strOffsets.size, static_cast<size_t>(at));
    text(StringAt(str, offsets.U(offsetSize)));
  };
  switch (form) {
    case kAddr: value.number = in.U(unit.addressSize); break;
    case kData1:
    case kRef1:
    case kFlag:
    case kStrx1:
    case kAddrx1: value.number = in.U(1); break;
    case kData2:
    case kRef2:
    case kStrx2:
    case kAddrx2: value.number = in.U(2); break;
    case kStrx3:
    case kAddrx3: value.number = in.U(3); break;
    case kData4:
    case kRef4:
    case kRefSup4:
    case kStrx4:
    case kAddrx4: value.number = in.U(4); break;
    case kData8:
    case kRef8:
    case kRefSig8:
    case kRefSup8: value.number = in.U(8); break;
    case kData16: in.Skip(16); break;
    case kSdata: value.number = static_cast<uint64_t>(in.Sleb()); break;
    case kUdata:
    case kRefUdata:
    case kStrx:
    case kAddrx:
    case kLoclistx:
    case kRnglistx:
    case kGnuAddrIndex:
    case kGnuStrIndex: value.number = in.Uleb(); break;
    case kRefAddr: value.number = in.U(unit.version <= 2 ? unit.addressSize : offsetSize); break;
    case kSecOffset:
    case kStrpSup:
    case kGnuRefAlt:
    case kGnuStrpAlt: value.number = in.U(offsetSize); break;
    case kString: text(in.CString()); break;
    case kStrp: text(StringAt(str, in.U(offsetSize))); break;
    case kLineStrp: text(StringAt(lineStr, in.U(offsetSize))); break;
    case kBlock1: in.Skip(in.U(1)); break;
    case kBlock2: in.Skip(in.U(2)); break;
    case kBlock4: in.Skip(in.U(4)); break;
    case kBlock:
    case kExprloc: in.Skip(in.Uleb()); break;
    case kFlagPresent: value.number = 1; break;
    case kImplicitConst: value.number = static_cast<uint64_t>(implicitConst); break;
    case kIndirect: {
      const uint64_t actual = in.Uleb();
      if (depth > 2 || actual == kImplicitConst) {
        in.Skip(~uint64_t(0));  // no way on
        break;
      }
      return ReadValue(in, actual, unit, implicitConst, depth + 1);
    }
    default: in.Skip(~uint64_t(0)); break;  // a form this reader does not know: the unit ends
  }
  if (form == kStrx || (form >= kStrx1 && form <= kStrx4)) indexedText(value.number);
  if (form == kAddrx || (form >= kAddrx1 && form <= kAddrx4))
    value.number = AddressAt(unit, value.number);
  return value;
}

bool PeDwarfSymbols::Image::ReadEntry(Cursor& in, const Unit& unit, const AbbreviationTable& table,
                                      Entry& entry) {
  const auto abbreviation = table.find(in.Uleb());
  if (abbreviation == table.end()) return false;
  entry.tag = abbreviation->second.tag;
  entry.hasChildren = abbreviation->second.hasChildren;
  for (const Abbreviation::Spec& spec : abbreviation->second.specs) {
    Value value = ReadValue(in, spec.form, unit, spec.implicitConst, 0);
    const int field = FieldOf(spec.attribute);
    if (field >= 0) {
      entry.fields[field] = std::move(value);
      entry.has[field] = true;
    }
  }
  return in.ok();
}

void PeDwarfSymbols::Image::ReadUnits() {
  Cursor in(info.data, info.size);
  while (in.ok() && in.pos() < info.size) {
    Unit unit;
    unit.start = in.pos();
    const uint64_t length = InitialLength(in, unit.dwarf64);
    const size_t start = in.pos();
    if (!in.ok() || length > info.size - start) break;
    unit.end = start + static_cast<size_t>(length);
    unit.version = static_cast<uint16_t>(in.U(2));
    uint64_t type = 1;  // a compile unit
    if (unit.version >= 5) {
      type = in.U(1);
      unit.addressSize = static_cast<uint8_t>(in.U(1));
      unit.abbreviations = in.U(unit.dwarf64 ? 8 : 4);
    } else {
      unit.abbreviations = in.U(unit.dwarf64 ? 8 : 4);
      unit.addressSize = static_cast<uint8_t>(in.U(1));
    }
    unit.entries = in.pos();
    const bool readable = in.ok() && unit.version >= 2 && unit.version <= 5 &&
                          (type == 1 || type == 3) &&
                          (unit.addressSize == 4 || unit.addressSize == 8);
    if (readable) {
      units.push_back(unit);
      ReadEntries(units.size() - 1);
    }
    in.Seek(unit.end);
  }
}

std::vector<Range> PeDwarfSymbols::Image::RangesOf(const Entry& entry, const Unit& unit) const {
  std::vector<Range> found;
  if (entry.has[Entry::kLowPc] && entry.has[Entry::kHighPc]) {
    const uint64_t low = entry.fields[Entry::kLowPc].number;
    const Value& high = entry.fields[Entry::kHighPc];
    const uint64_t end = IsConstant(high.form) ? low + high.number : high.number;
    if (end > low) found.push_back({low, end});
    return found;
  }
  if (!entry.has[Entry::kRanges]) return found;
  const Value& list = entry.fields[Entry::kRanges];
  const size_t offsetSize = unit.dwarf64 ? 8 : 4;
  const size_t addressSize = unit.addressSize;
  uint64_t base = unit.lowPc;
  if (unit.version < 5) {
    Cursor in(rangesV4.data, rangesV4.size);
    in.Seek(static_cast<size_t>(std::min<uint64_t>(list.number, rangesV4.size + 1)));
    const uint64_t baseMark = addressSize == 4 ? 0xffffffffu : ~uint64_t(0);
    while (in.ok()) {
      const uint64_t start = in.U(addressSize), end = in.U(addressSize);
      if (!in.ok() || (start == 0 && end == 0)) break;
      if (start == baseMark) {
        base = end;
      } else if (end > start) {
        found.push_back({base + start, base + end});
      }
    }
    return found;
  }
  uint64_t at = list.number;
  if (list.form == kRnglistx) {
    Cursor offsets(rnglists.data, rnglists.size);
    const uint64_t slot = unit.rangesBase + list.number * offsetSize;
    if (list.number > rnglists.size || slot > rnglists.size) return found;
    offsets.Seek(static_cast<size_t>(slot));
    at = unit.rangesBase + offsets.U(offsetSize);
  }
  Cursor in(rnglists.data, rnglists.size);
  in.Seek(static_cast<size_t>(std::min<uint64_t>(at, rnglists.size + 1)));
  while (in.ok()) {
    uint64_t start = 0, end = 0;
    switch (in.U(1)) {
      case 0: return found;                                 // end of list
      case 1: base = AddressAt(unit, in.Uleb()); continue;  // base_addressx
      case 2:
        start = AddressAt(unit, in.Uleb());
        end = AddressAt(unit, in.Uleb());
        break;
      case 3:
        start = AddressAt(unit, in.Uleb());
        end = start + in.Uleb();
        break;
      case 4:
        start = base + in.Uleb();
        end = base + in.Uleb();
        break;                                     // offset_pair
      case 5: base = in.U(addressSize); continue;  // base_address
      case 6:
        start = in.U(addressSize);
        end = in.U(addressSize);
        break;
      case 7:
        start = in.U(addressSize);
        end = start + in.Uleb();
        break;
      default: return found;
    }
    if (in.ok() && end > start) found.push_back({start, end});
  }
  return found;
}

void PeDwarfSymbols::Image::ReadEntries(size_t unitIndex) {
  Unit& unit = units[unitIndex];
  auto table = abbreviations.find(unit.abbreviations);
  if (table == abbreviations.end()) {
    table = abbreviations
                .emplace(unit.abbreviations,
                         ReadAbbreviations(abbrev.data, abbrev.size, unit.abbreviations))
                .first;
  }
  // The entries enclosing the current one: for each, the function it lies in (the entry of the
  // nearest enclosing subprogram with code) and whether an inlined call lies between.
  struct Scope {
    uint64_t function;
    bool inInlinedCall;
  };
  constexpr uint64_t kNone = ~uint64_t(0);
  std::vector<Scope> scopes;
  Cursor in(info.data, unit.end, unit.entries);
  bool first = true;
  while (in.ok() && in.pos() < unit.end) {
    const uint64_t offset = in.pos();
    Cursor peek = in;
    if (peek.Uleb() == 0) {  // the end of a list of children
      in = peek;
      if (scopes.empty()) break;
      scopes.pop_back();
      continue;
    }
    Entry entry;
    if (!ReadEntry(in, unit, table->second, entry)) return;
    const Scope outer = scopes.empty() ? Scope{kNone, false} : scopes.back();
    Scope scope = outer;
    if (first) {
      first = false;
      if (entry.tag != kTagCompileUnit && entry.tag != kTagPartialUnit) return;
      if (entry.has[Entry::kStmtList]) unit.lineTable = entry.fields[Entry::kStmtList].number;
      if (entry.has[Entry::kCompDir]) unit.compDir = entry.fields[Entry::kCompDir].text;
      if (entry.has[Entry::kAddrBase]) unit.addrBase = entry.fields[Entry::kAddrBase].number;
      if (entry.has[Entry::kRangesBase]) unit.rangesBase = entry.fields[Entry::kRangesBase].number;
      if (entry.has[Entry::kStrOffsetsBase])
        unit.strOffsetsBase = entry.fields[Entry::kStrOffsetsBase].number;
      // Indexed addresses of the unit's own entry could only be read once the bases were known.
      if (entry.has[Entry::kLowPc]) {
        Cursor again(info.data, unit.end, static_cast<size_t>(offset));
        Entry reread;
        if (ReadEntry(again, unit, table->second, reread))
          unit.lowPc = reread.fields[Entry::kLowPc].number;
      }
    } else if (entry.tag == kTagSubprogram) {
      const std::vector<Range> code = RangesOf(entry, unit);
      for (const Range& range : code) functions.push_back({range, unitIndex, offset});
      if (!code.empty()) scope = Scope{offset, false};
    } else if (entry.tag == kTagInlinedSubroutine && outer.function != kNone &&
               !outer.inInlinedCall) {
      for (const Range& range : RangesOf(entry, unit)) {
        inlined.push_back({range, outer.function, unitIndex, entry.fields[Entry::kCallFile].number,
                           entry.fields[Entry::kCallLine].number});
      }
      scope.inInlinedCall = true;
    } else if (entry.tag == kTagInlinedSubroutine) {
      scope.inInlinedCall = true;
    }
    if (entry.hasChildren) scopes.push_back(scope);
  }
}

// The linkage name where the entry or one it refers to (its declaration, its abstract instance)
// has one, demangled; else the plain name.
std::string PeDwarfSymbols::Image::FunctionName(size_t unitIndex, uint64_t offset) {
  std::vector<uint64_t> pending{offset};
  std::string plainName;
  for (size_t visited = 0; visited < pending.size() && visited < 16; ++visited) {
    const Unit& unit = units[unitIndex];
    if (pending[visited] < unit.entries || pending[visited] >= unit.end) continue;
    Cursor in(info.data, unit.end, static_cast<size_t>(pending[visited]));
    Entry entry;
    if (!ReadEntry(in, unit, abbreviations[unit.abbreviations], entry)) continue;
    if (entry.has[Entry::kLinkageName] && !entry.fields[Entry::kLinkageName].text.empty())
      return Demangle(entry.fields[Entry::kLinkageName].text);
    if (plainName.empty() && entry.has[Entry::kName]) plainName = entry.fields[Entry::kName].text;
    for (const int link : {Entry::kOrigin, Entry::kSpecification}) {
      const Value& reference = entry.fields[link];
      if (!entry.has[link] || !IsReference(reference.form)) continue;
      // A reference within the unit counts from the unit's header; one by section offset is
      // followed only where it stays in this unit.
      pending.push_back(reference.form == kRefAddr ? reference.number
                                                   : unit.start + reference.number);
    }
  }
  return Demangle(plainName);
}

// --- .debug_line ---------------------------------------------------------------------------

namespace {

// A line program's header: its own sizes, the file list's place, and what the opcodes need.
bool ReadLineProgramHeader(const Bytes& line, uint64_t at, uint8_t addressSize,
                           LineProgram& program, Cursor& in) {
  in = Cursor(line.data, line.size, static_cast<size_t>(at));
  Unit& unit = program.unit;
  const uint64_t length = InitialLength(in, unit.dwarf64);
  if (!in.ok() || length > line.size - in.pos()) return false;
  program.end = in.pos() + static_cast<size_t>(length);
  in = Cursor(line.data, program.end, in.pos());
  unit.version = static_cast<uint16_t>(in.U(2));
  unit.addressSize = addressSize;
  if (unit.version < 2 || unit.version > 5) return false;
  if (unit.version >= 5) {
    unit.addressSize = static_cast<uint8_t>(in.U(1));
    in.Skip(1);  // segment selector size
  }
  const uint64_t headerLength = in.U(unit.dwarf64 ? 8 : 4);
  program.start = in.pos() + static_cast<size_t>(std::min<uint64_t>(headerLength, program.end));
  program.minimumLength = in.U(1);
  if (unit.version >= 4) in.Skip(1);  // operations per instruction
  in.Skip(1);                         // whether rows begin as statements, which is not read
  program.lineBase = static_cast<int8_t>(in.U(1));
  program.lineRange = in.U(1);
  program.opcodeBase = in.U(1);
  program.argumentCounts.resize(
      static_cast<size_t>(program.opcodeBase > 0 ? program.opcodeBase - 1 : 0));
  for (uint64_t& count : program.argumentCounts) count = in.U(1);
  return in.ok() && program.lineRange != 0;
}

// The rows of the program that begins at `in`.
void RunLineProgram(Cursor in, const LineProgram& program, std::vector<Row>& rows) {
  const uint64_t opcodeBase = program.opcodeBase, lineRange = program.lineRange;
  const uint64_t minimumLength = program.minimumLength;
  Row row{0, 1, 1, false};
  while (in.ok() && in.pos() < program.end) {
    const uint64_t opcode = in.U(1);
    if (opcode >= opcodeBase) {
      const uint64_t adjusted = opcode - opcodeBase;
      row.address += (adjusted / lineRange) * minimumLength;
      row.line = static_cast<uint32_t>(row.line + program.lineBase +
                                       static_cast<int64_t>(adjusted % lineRange));
      rows.push_back(row);
      continue;
    }
    switch (opcode) {
      case 0: {  // extended
        const uint64_t size = in.Uleb();
        const size_t next = in.pos() + static_cast<size_t>(std::min<uint64_t>(size, program.end));
        const uint64_t sub = size > 0 ? in.U(1) : 0;
        if (sub == 1) {  // end_sequence
          row.endsSequence = true;
          rows.push_back(row);
          row = Row{0, 1, 1, false};
        } else if (sub == 2) {  // set_address
          row.address = in.U(static_cast<size_t>(size - 1 <= 8 ? size - 1 : 8));
        }
        in.Seek(next);
        break;
      }
      case 1: rows.push_back(row); break;  // copy
      case 2: row.address += in.Uleb() * minimumLength; break;
      case 3: row.line = static_cast<uint32_t>(row.line + in.Sleb()); break;
      case 4: row.file = in.Uleb(); break;
      case 8: row.address += ((255 - opcodeBase) / lineRange) * minimumLength; break;
      case 9: row.address += in.U(2); break;
      default:
        for (uint64_t i = 0; opcode - 1 < program.argumentCounts.size() &&
                             i < program.argumentCounts[static_cast<size_t>(opcode - 1)];
             ++i)
          in.Uleb();
    }
  }
}

}  // namespace

// The paths of the files a line program's header lists, by their numbers there.
std::vector<std::string> PeDwarfSymbols::Image::FileNames(Cursor& in, const LineProgram& program,
                                                          const std::string& unitCompDir) {
  const Unit& unit = program.unit;
  std::vector<std::string> folders;
  struct FileEntry {
    std::string name;
    uint64_t folder;
  };
  std::vector<FileEntry> files;
  if (unit.version >= 5) {
    // Each list is described by pairs of content type and form.
    auto readList = [&](bool ofFiles) {
      std::vector<std::pair<uint64_t, uint64_t>> format(static_cast<size_t>(in.U(1)));
      for (auto& field : format) field = {in.Uleb(), in.Uleb()};
      const uint64_t count = in.Uleb();
      for (uint64_t i = 0; i < count && in.ok(); ++i) {
        FileEntry file{std::string(), 0};
        for (const auto& field : format) {
          Value value = ReadValue(in, field.second, unit, 0, 0);
          if (field.first == 1) file.name = value.text;      // DW_LNCT_path
          if (field.first == 2) file.folder = value.number;  // DW_LNCT_directory_index
        }
        if (ofFiles) {
          files.push_back(file);
        } else {
          folders.push_back(file.name);
        }
      }
    };
    readList(false);
    readList(true);
  } else {
    for (std::string folder = in.CString(); in.ok() && !folder.empty(); folder = in.CString())
      folders.push_back(folder);
    files.push_back({std::string(), 0});  // file numbers count from 1
    for (std::string name = in.CString(); in.ok() && !name.empty(); name = in.CString()) {
      const uint64_t folder = in.Uleb();
      in.Uleb();  // modification time
      in.Uleb();  // length
      files.push_back({name, folder});
    }
  }
  // A relative name lies in its folder, and a relative folder in the compilation's folder (which
  // version 5 lists as folder 0).
  const std::string compDir = unit.version >= 5 && !folders.empty() ? folders[0] : unitCompDir;
  std::vector<std::string> paths;
  for (const FileEntry& file : files) {
    if (file.name.empty() || IsAbsolute(file.name)) {
      paths.push_back(file.name);
      continue;
    }
    std::string folder;
    if (unit.version >= 5 && file.folder < folders.size())
      folder = folders[static_cast<size_t>(file.folder)];
    if (unit.version < 5 && file.folder > 0 && file.folder <= folders.size())
      folder = folders[static_cast<size_t>(file.folder - 1)];
    const bool folderIsCompDir = unit.version >= 5 && file.folder == 0;
    if (!IsAbsolute(folder) && !folderIsCompDir) folder = JoinPath(compDir, folder);
    paths.push_back(JoinPath(folder, file.name));
  }
  return paths;
}

const LineTable& PeDwarfSymbols::Image::LinesOf(size_t unitIndex) {
  auto found = lines.find(unitIndex);
  if (found != lines.end()) return found->second;
  LineTable& table = lines[unitIndex];
  const Unit& owner = units[unitIndex];
  LineProgram program;
  Cursor in(line.data, line.size);
  if (owner.lineTable >= line.size ||
      !ReadLineProgramHeader(line, owner.lineTable, owner.addressSize, program, in))
    return table;
  table.files = FileNames(in, program, owner.compDir);
  in.Seek(program.start);
  RunLineProgram(in, program, table.rows);
  return table;
}

// --- Look-ups ------------------------------------------------------------------------------

bool PeDwarfSymbols::Symbolize(uint64_t address, Location& location) {
  if (!m_image) return false;
  Image& image = *m_image;
  const Function* function = nullptr;
  for (const Function& candidate : image.functions) {
    if (address < candidate.range.low || address >= candidate.range.high) continue;
    if (function == nullptr ||
        candidate.range.high - candidate.range.low < function->range.high - function->range.low)
      function = &candidate;
  }
  if (function == nullptr) return false;
  Location found;
  found.function = image.FunctionName(function->unit, function->entry);
  if (found.function.empty()) return false;

  const LineTable& table = image.LinesOf(function->unit);
  uint64_t file = 0, line = 0;
  bool known = false;
  for (const InlinedCall& call : image.inlined) {
    if (call.function == function->entry && address >= call.range.low &&
        address < call.range.high) {
      file = call.file;
      line = call.line;
      known = true;
      break;
    }
  }
  if (!known) {
    // The row in effect: the last one at or below the address in a sequence that reaches past it.
    const Row* best = nullptr;
    for (size_t first = 0; first < table.rows.size() && best == nullptr;) {
      size_t last = first;
      while (last < table.rows.size() && !table.rows[last].endsSequence) ++last;
      if (last < table.rows.size() && address >= table.rows[first].address &&
          address < table.rows[last].address) {
        for (size_t i = first; i < last && table.rows[i].address <= address; ++i)
          best = &table.rows[i];
      }
      first = last + 1;
    }
    if (best != nullptr) {
      file = best->file;
      line = best->line;
    }
  }
  if (line != 0 && file < table.files.size() && !table.files[static_cast<size_t>(file)].empty()) {
    found.file = table.files[static_cast<size_t>(file)];
    found.line = static_cast<uint32_t>(line);
  }
  location = found;
  return true;
}

}  // namespace deskaid
