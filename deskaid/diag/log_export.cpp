#include "deskaid/diag/log_export.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "deskaid/common/internal/platform.h"
#include "deskaid/diag/internal/log_block_reader.h"
#include "deskaid/diag/internal/log_keystreams.h"
#include "deskaid/diag/internal/module_identity.h"
#include "deskaid/diag/internal/pe_dwarf_symbols.h"
#include "deskaid/diag/log_format.h"
#include "deskaid/diag/symbol_engine.h"

namespace {

// Where the converter maps the image whose addresses the messages carry: the usual base of an
// executable, so that addresses logged by a process that was not relocated resolve as they are.
constexpr uint64_t kImageBase = 0x00400000;
constexpr uint32_t kExportSymbolOptions = kSymOptDebug | kSymOptOmapFindNearest | kSymOptLoadLines;

// Length of the text inside an address marker: eight hexadecimal digits.
constexpr size_t kMarkerDigits = 8;

// Reads the trailer at the end of `file`, `length` bytes long; false when the file is too short
// or the magic is wrong.
bool ReadTrailer(std::FILE* file, uint64_t length, LogTrailer& trailer) {
  if (length < sizeof trailer) return false;
  if (!deskaid::platform::SeekStream(file, length - sizeof trailer)) return false;
  if (std::fread(&trailer, sizeof trailer, 1, file) != 1) return false;
  return trailer.magic == kLogTrailerMagic;
}

// localtime for a stream of record times. Within one minute of UTC the local time normally moves
// in step with it, so one conversion per minute serves every record in it. A minute that holds a
// change of the zone's offset, or whose local seconds do not start at 0, is converted per record.
class LocalTimeCache {
 public:
  std::tm Get(uint32_t seconds) {
    uint32_t minute = seconds - seconds % 60;
    if (!m_valid || minute != m_minute) Load(minute);
    if (!m_regular) return deskaid::platform::LocalTime(seconds);
    std::tm result = m_start;
    result.tm_sec = static_cast<int>(seconds - minute);
    return result;
  }

 private:
  void Load(uint32_t minute) {
    m_valid = true;
    m_minute = minute;
    m_regular = false;
    if (minute > UINT32_MAX - 59) return;  // the last minute of the 32-bit range
    m_start = deskaid::platform::LocalTime(minute);
    std::tm last = deskaid::platform::LocalTime(minute + 59);
    m_regular = m_start.tm_sec == 0 && last.tm_sec == 59 && last.tm_min == m_start.tm_min &&
                last.tm_hour == m_start.tm_hour && last.tm_mday == m_start.tm_mday &&
                last.tm_mon == m_start.tm_mon && last.tm_year == m_start.tm_year;
  }

  bool m_valid = false;
  bool m_regular = false;
  uint32_t m_minute = 0;
  std::tm m_start{};
};

// The text file's lines, gathered in a block and written in one call.
class LineWriter {
 public:
  explicit LineWriter(std::FILE* file) : m_file(file) { m_buffer.reserve(kBlock + 4096); }

  void Text(const char* text) { m_buffer.append(text); }
  void Char(char c) { m_buffer.push_back(c); }
  // The level: one byte, 0 to 255.
  void Number(uint8_t value) {
    if (value >= 100) m_buffer.push_back(static_cast<char>('0' + value / 100));
    if (value >= 10) m_buffer.push_back(static_cast<char>('0' + value / 10 % 10));
    m_buffer.push_back(static_cast<char>('0' + value % 10));
  }
  // "%02d" for the stamp fields, which lie in 0 to 99 for any time localtime gives.
  void TwoDigits(int value) {
    if (value < 0 || value > 99) {
      char digits[16];
      int n = std::snprintf(digits, sizeof digits, "%02d", value);
      m_buffer.append(digits, static_cast<size_t>(n));
      return;
    }
    m_buffer.push_back(static_cast<char>('0' + value / 10));
    m_buffer.push_back(static_cast<char>('0' + value % 10));
  }
  void EndLine() {
    m_buffer.push_back('\r');
    m_buffer.push_back('\n');
    if (m_buffer.size() >= kBlock) Flush();
  }
  bool Flush() {
    if (!m_buffer.empty() &&
        std::fwrite(m_buffer.data(), 1, m_buffer.size(), m_file) != m_buffer.size())
      m_failed = true;
    m_buffer.clear();
    return !m_failed;
  }

 private:
  static constexpr size_t kBlock = 256 * 1024;
  std::FILE* m_file;
  std::string m_buffer;
  bool m_failed = false;
};

// The symbol look-ups of one conversion.
class AddressResolver {
 public:
  // Without an image nothing is set up and no marker is ever looked for.
  explicit AddressResolver(const char* imagePath) : m_enabled(imagePath != nullptr) {
    if (!m_enabled) return;
    m_engine.AddOptions(kExportSymbolOptions);
    // Set-up failures are not checked: every look-up then fails and the name stays as it is.
    m_engine.Initialize(SymCurrentProcess(), nullptr, 0, 0);
    m_engine.LoadModule(std::string(imagePath), kImageBase, 0);
  }
  ~AddressResolver() { m_engine.Cleanup(); }

  bool Enabled() const { return m_enabled; }

  // The name for `address`; after a failed look-up, the last name found in this conversion.
  const std::string& Name(uint32_t address) {
    uint64_t displacement = 0;
    m_engine.SymbolFromAddress(address, m_name, displacement);
    return m_name;
  }

 private:
  bool m_enabled;
  CSymbolEngine m_engine;
  std::string m_name;  // shared by all records
};

// The platform's own back end: the symbol engine, in a session of its own. Every image gets a
// base of its own in the session, because images linked at one base (DLLs often are) would
// otherwise overlap there.
class EngineSymbolizer : public LogSymbolizer {
 public:
  ~EngineSymbolizer() override { m_engine.Cleanup(); }

  bool Symbolize(const std::string& imagePath, uint64_t address,
                 const std::vector<std::string>& symbolFolders, Location& location) override {
    if (!m_engine.IsInitialized()) {
      std::string searchPath;
      for (const std::string& folder : symbolFolders) searchPath += folder + ";";
      m_engine.AddOptions(kSymOptUndecorateNames | kSymOptLoadLines);
      // Any unique value names a session that is not a process's own.
      if (!m_engine.Initialize(reinterpret_cast<SymHandle>(this), searchPath.c_str(), 0, 0))
        return false;
    }
    auto image = m_images.find(imagePath);
    if (image == m_images.end()) image = m_images.emplace(imagePath, Load(imagePath)).first;
    const Image& loaded = image->second;
    if (address < loaded.linkBase) return false;
    if (loaded.start == 0) return SymbolizeFromDwarf(imagePath, address, location);
    const uint64_t at = loaded.start + (address - loaded.linkBase);
    uint64_t displacement = 0;
    location = Location();
    const bool named = m_engine.SymbolFromAddress(at, location.function, displacement);
    if (named && m_engine.LineFromAddress(at, location.file, location.line, displacement))
      return true;
    // A name without a line comes from a symbol table or the exports at best, where DWARF the
    // engine does not read may describe the function.
    Location described;
    if (!SymbolizeFromDwarf(imagePath, address, described)) return named;
    location = described;
    return true;
  }

 private:
  struct Image {
    uint64_t start = 0;     // where the session holds it; 0 when it could not be loaded
    uint64_t linkBase = 0;  // the address its first byte was linked at
  };

  Image Load(const std::string& path) {
    Image image;
    deskaid::ModuleIdentity identity;
    if (!deskaid::ReadImageFileIdentity(path.c_str(), identity)) return image;
    image.linkBase = identity.linkBase;
    image.start = m_engine.LoadModule(path, m_nextBase, 0);
    m_nextBase += (identity.size + kSpacing) & ~(kSpacing - 1);
    return image;
  }

  // What the engine leaves unnamed in a PE image may still be described by DWARF it does not
  // read: Microsoft's dbghelp reads none, Wine's none of version 5 (GCC's default, and that of
  // the MinGW runtime linked into every image), and elfutils no PE image at all.
  bool SymbolizeFromDwarf(const std::string& imagePath, uint64_t address, Location& location) {
    auto found = m_dwarf.find(imagePath);
    if (found == m_dwarf.end()) {
      auto reader = std::make_unique<deskaid::PeDwarfSymbols>();
      if (!reader->OpenFile(imagePath.c_str())) reader.reset();
      found = m_dwarf.emplace(imagePath, std::move(reader)).first;
    }
    return found->second && found->second->Symbolize(address, location);
  }

  static constexpr uint64_t kSpacing = 0x100000;
  CSymbolEngine m_engine;
  std::map<std::string, Image> m_images;
  std::map<std::string, std::unique_ptr<deskaid::PeDwarfSymbols>> m_dwarf;  // null: none there
  uint64_t m_nextBase = 0x10000000;
};

// Names module references: finds each module's image on the symbol path, checks that it is the
// build the log describes, and asks the back end.
class ModuleResolver {
 public:
  ModuleResolver(const LogExportOptions& options, const char* logPath)
      : m_symbolizer(options.symbolizer) {
    if (m_symbolizer == nullptr) {
      m_ownSymbolizer = std::make_unique<EngineSymbolizer>();
      m_symbolizer = m_ownSymbolizer.get();
    }
    AddFolders(options.symbolPath);
    std::string logFolder = logPath;
    size_t end = logFolder.size();
    while (end > 0 && !deskaid::platform::IsPathSeparator(logFolder[end - 1])) --end;
    logFolder.resize(end);
    m_folders.push_back(logFolder.empty() ? "." : logFolder);
  }

  // Takes in a module record; later records of the same name replace it.
  void Describe(const char* record) {
    deskaid::ModuleIdentity identity;
    if (!deskaid::ParseModuleRecord(record, identity)) return;
    Module& module = m_modules[identity.name];
    module = Module();
    module.logged = identity;
  }

  // The text that stands for the address of `reference`.
  std::string Name(const deskaid::ModuleReference& reference) {
    auto found = m_modules.find(reference.name);
    if (found == m_modules.end())
      return std::string("?? (no record of ") + reference.name + " in the log)";
    Module& module = found->second;
    if (!module.searched) Search(module);
    if (!module.problem.empty()) return "?? (" + module.problem + ")";
    LogSymbolizer::Location location;
    if (!m_symbolizer->Symbolize(module.image, module.linkBase + reference.offset, m_folders,
                                 location)) {
      char offset[32];
      std::snprintf(offset, sizeof offset, "+0x%llX",
                    static_cast<unsigned long long>(reference.offset));
      return "?? (nothing in " + module.image + " names " + offset + ")";
    }
    std::string name = location.function;
    if (!location.file.empty())
      name += " (" + location.file + ":" + std::to_string(location.line) + ")";
    return name;
  }

 private:
  struct Module {
    deskaid::ModuleIdentity logged;
    bool searched = false;
    std::string image;  // the matching image found
    uint64_t linkBase = 0;
    std::string problem;  // why the module cannot be named
  };

  void AddFolders(const char* path) {
    if (path == nullptr) return;
    std::string folder;
    for (const char* p = path;; ++p) {
#ifdef _WIN32
      const bool separator = *p == ';';
#else
      const bool separator = *p == ';' || *p == ':';
#endif
      if (*p == '\0' || separator) {
        if (!folder.empty()) m_folders.push_back(folder);
        folder.clear();
        if (*p == '\0') break;
      } else {
        folder += *p;
      }
    }
  }

  // The first image of the module's name on the symbol path decides: a different build there
  // says so rather than being passed over for one further on.
  void Search(Module& module) {
    module.searched = true;
    const char* name = module.logged.name;
    for (const std::string& folder : m_folders) {
      std::string path = folder;
      if (!deskaid::platform::IsPathSeparator(path.back()))
        path += deskaid::platform::kPathSeparator;
      path += name;
      deskaid::ModuleIdentity found;
      if (!deskaid::ReadImageFileIdentity(path.c_str(), found)) continue;
      if (const char* mismatch = deskaid::IdentityMismatch(module.logged, found)) {
        module.problem = path + " is " + mismatch;
        return;
      }
      module.image = path;
      module.linkBase = found.linkBase;
      return;
    }
    module.problem = std::string(name) + " is not on the symbol path";
  }

  LogSymbolizer* m_symbolizer;
  std::unique_ptr<LogSymbolizer> m_ownSymbolizer;
  std::vector<std::string> m_folders;
  std::map<std::string, Module> m_modules;
};

// One record per call: deciphers, resolves the marker and writes the line.
class Converter {
 public:
  Converter(const LogTrailer& trailer, AddressResolver& resolver, ModuleResolver* modules,
            std::FILE* text)
      : m_lines(text), m_resolver(resolver), m_modules(modules) {
    m_keys.Reset(trailer);
  }

  // `body` holds the record's bytes followed by two NULs.
  void Record(const LogRecordHeader& header, char* body) {
    if (header.keyIndex < kLogKeyCount) {
      // Keys 16 to 0xFFFE do not exist; such bodies are taken as plain.
      m_keys.Apply(header.keyIndex, reinterpret_cast<uint8_t*>(body), header.length);
    }
    std::tm when = m_times.Get(header.time);
    m_lines.Number(header.level);
    m_lines.Char(' ');
    m_lines.TwoDigits(when.tm_mon + 1);
    m_lines.Char('-');
    m_lines.TwoDigits(when.tm_mday);
    m_lines.Char(' ');
    m_lines.TwoDigits(when.tm_hour);
    m_lines.Char(':');
    m_lines.TwoDigits(when.tm_min);
    m_lines.Char(':');
    m_lines.TwoDigits(when.tm_sec);
    m_lines.Char('\t');
    if (m_modules == nullptr || !ModuleRecord(body)) PlainRecord(body);
    m_lines.EndLine();
  }

  bool Finish() { return m_lines.Flush(); }

 private:
  // Writes a record that describes a module or names one, or returns false for any other.
  bool ModuleRecord(char* body) {
    deskaid::ModuleReference reference;
    if (std::strncmp(body, "Module: ", 8) == 0) {
      m_modules->Describe(body);
      m_lines.Text(body);
      return true;
    }
    if (!deskaid::FindModuleReference(body, reference)) return false;
    // The name replaces the "[XXXXXXXX] " before the reference, or goes in front of it.
    size_t cut = reference.begin;
    const size_t marker = kMarkerDigits + 3;
    if (cut >= marker && body[cut - 1] == ' ' && body[cut - 2] == ']' && body[cut - marker] == '[')
      cut -= marker;
    const char saved = body[cut];
    body[cut] = '\0';
    m_lines.Text(body);
    body[cut] = saved;
    m_lines.Text(m_modules->Name(reference).c_str());
    m_lines.Char(' ');
    m_lines.Text(body + reference.begin);
    return true;
  }

  // The record as ConvertLogToText writes it.
  void PlainRecord(char* body) {
    char* open = m_resolver.Enabled() ? std::strchr(body, '[') : nullptr;
    char* close = open != nullptr ? std::strchr(open, ']') : nullptr;
    if (close != nullptr && static_cast<size_t>(close - open - 1) == kMarkerDigits) {
      *open = '\0';
      *close = '\0';
      // strtoul's own reading (prefixes, signs and all), cut to the 32 bits of an address.
      uint32_t address = static_cast<uint32_t>(std::strtoul(open + 1, nullptr, 16));
      m_lines.Text(body);
      m_lines.Text(m_resolver.Name(address).c_str());
      m_lines.Text(close + 1);
    } else {
      m_lines.Text(body);
    }
  }

  LineWriter m_lines;
  AddressResolver& m_resolver;
  ModuleResolver* m_modules;  // null: references are left as they are
  deskaid::LogKeystreams m_keys;
  LocalTimeCache m_times;
};

}  // namespace

bool ReadLogStamp(const char* path, uint32_t& month, uint32_t& day) {
  month = 0;
  day = 0;
  if (path == nullptr) return false;
  std::FILE* file = std::fopen(path, "rb");
  if (file == nullptr) return false;
  LogTrailer trailer;
  bool valid = ReadTrailer(file, deskaid::platform::StreamLength(file), trailer);
  std::fclose(file);
  if (!valid) return false;
  month = trailer.stampMonth;
  day = trailer.stampDay;
  return true;
}

namespace {

bool Convert(const char* logPath, const char* textPath, const char* imagePath,
             const LogExportOptions* options) {
  AddressResolver resolver(imagePath);
  if (logPath == nullptr || textPath == nullptr || logPath[0] == '\0' || textPath[0] == '\0') {
    return false;
  }
  std::FILE* log = std::fopen(logPath, "rb");
  std::FILE* text = std::fopen(textPath, "w");
  if (log == nullptr || text == nullptr) {
    if (log != nullptr) std::fclose(log);
    if (text != nullptr) std::fclose(text);
    return false;
  }

  const uint64_t length = deskaid::platform::StreamLength(log);
  LogTrailer trailer;
  if (!ReadTrailer(log, length, trailer) || !deskaid::platform::SeekStream(log, 0)) {
    std::fclose(log);
    std::fclose(text);
    return false;
  }

  bool complete = true;
  {
    std::unique_ptr<ModuleResolver> modules;
    if (options != nullptr) modules = std::make_unique<ModuleResolver>(*options, logPath);
    Converter converter(trailer, resolver, modules.get(), text);
    deskaid::LogBlockReader reader(log, length - sizeof(LogTrailer));
    // Room for the longest body and the two NULs behind it.
    std::vector<char> body(0x10000 + 2);
    for (uint32_t i = 0; i < trailer.recordCount; ++i) {
      LogRecordHeader header;
      if (!reader.Read(&header, sizeof header) || !reader.Read(body.data(), header.length)) {
        complete = false;  // the file holds fewer records than its trailer announces
        break;
      }
      body[header.length] = '\0';
      body[header.length + 1] = '\0';
      converter.Record(header, body.data());
    }
    if (!converter.Finish()) complete = false;
  }
  std::fclose(log);
  if (std::fclose(text) != 0) complete = false;
  return complete;
}

}  // namespace

bool ConvertLogToText(const char* logPath, const char* textPath, const char* imagePath) {
  return Convert(logPath, textPath, imagePath, nullptr);
}

bool ConvertLogToTextWithSymbols(const char* logPath, const char* textPath,
                                 const LogExportOptions& options) {
  return Convert(logPath, textPath, options.imagePath, &options);
}
