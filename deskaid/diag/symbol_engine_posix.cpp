// CSymbolEngine over elfutils' libdwfl, with the compiler's unwinder for call stacks.
//
// A libdwfl session plays the role of the debug-help library's per-process state: modules are
// reported into it at the base they are mapped at, and symbol and line look-ups go through it.
// Error codes are errno values where Windows would give its own codes; 1 and 87 keep their
// meaning (not initialised, bad argument).
#include "deskaid/diag/symbol_engine.h"

#include "deskaid/diag/internal/frame_walk_posix.h"

#include <cxxabi.h>
#include <elfutils/libdwfl.h>
#include <sys/uio.h>
#include <unistd.h>
#include <unwind.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

constexpr uint32_t kNotInitialized = 1;

// The options start as the debug-help library's do: names undecorated.
uint32_t g_symbolOptions = kSymOptUndecorateNames;

// The pseudo handle of the calling process, as on Windows.
SymHandle const kCurrentProcess = reinterpret_cast<SymHandle>(static_cast<intptr_t>(-1));

std::string ModuleNameOf(const std::string& path) {
  size_t slash = path.find_last_of('/');
  std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  size_t dot = name.find_last_of('.');
  if (dot != std::string::npos && dot != 0) name.erase(dot);
  return name;
}

void CopyText(char* target, size_t size, const char* text) {
  if (text == nullptr) text = "";
  std::strncpy(target, text, size - 1);
  target[size - 1] = '\0';
}

// The module that starts exactly at `base`, or null.
Dwfl_Module* ModuleAtBase(Dwfl* dwfl, uint64_t base) {
  Dwfl_Module* module = dwfl_addrmodule(dwfl, base);
  if (module == nullptr) return nullptr;
  Dwarf_Addr start = 0;
  dwfl_module_info(module, nullptr, &start, nullptr, nullptr, nullptr, nullptr, nullptr);
  return start == base ? module : nullptr;
}

struct Unload {
  Dwfl* dwfl;
  uint64_t base;
};

// Called by dwfl_report_end for every module of the previous report; re-reporting keeps it.
int KeepAllBut(Dwfl_Module* module, void*, const char* name, Dwarf_Addr start, void* arg) {
  const Unload* unload = static_cast<const Unload*>(arg);
  if (start != unload->base) {
    Dwarf_Addr end = 0;
    dwfl_module_info(module, nullptr, nullptr, &end, nullptr, nullptr, nullptr, nullptr);
    dwfl_report_module(unload->dwfl, name, start, end);
  }
  return 0;
}

}  // namespace

struct CSymbolEngine::NativeState {
  Dwfl* dwfl = nullptr;
  Dwfl_Callbacks callbacks{};
  std::string searchPath;
  char* debuginfoPath = nullptr;
  bool callbackRegistered = false;
};

SymHandle SymCurrentProcess() { return kCurrentProcess; }

CSymbolEngine::CSymbolEngine() : m_hProcess(nullptr), m_dwLastError(0) {}

CSymbolEngine::~CSymbolEngine() { Cleanup(); }

void CSymbolEngine::OnDebugInfo(const std::string&) {}

// The library's diagnostic channel: with SYMOPT_DEBUG and a registered callback, texts reach
// OnDebugInfo through SymbolCallback exactly as the debug-help library delivers them.
void CSymbolEngine::Trace(const std::string& text) {
  if (m_pNative == nullptr || !m_pNative->callbackRegistered) return;
  if ((g_symbolOptions & kSymOptDebug) == 0) return;
  SymbolCallback(m_hProcess, kSymActionDebugInfo,
                 static_cast<uint64_t>(reinterpret_cast<uintptr_t>(text.c_str())),
                 static_cast<uint64_t>(reinterpret_cast<uintptr_t>(this)));
}

bool CSymbolEngine::Initialize(SymHandle process, const char* searchPath, uint8_t invadeProcess,
                               uint8_t registerCallback) {
  if (m_hProcess != nullptr) {
    if (process == m_hProcess) return true;
    m_dwLastError = kNotInitialized;
    return false;
  }
  if (process == nullptr) {
    m_dwLastError = EINVAL;
    return false;
  }
  NativeState* state = new NativeState;
  if (searchPath != nullptr) state->searchPath = searchPath;
  state->debuginfoPath = state->searchPath.empty() ? nullptr : &state->searchPath[0];
  state->callbacks.find_elf = dwfl_linux_proc_find_elf;
  state->callbacks.find_debuginfo = dwfl_standard_find_debuginfo;
  state->callbacks.section_address = dwfl_offline_section_address;
  state->callbacks.debuginfo_path = &state->debuginfoPath;
  state->dwfl = dwfl_begin(&state->callbacks);
  if (state->dwfl == nullptr) {
    delete state;
    m_dwLastError = ENOMEM;
    return false;
  }
  if (invadeProcess != 0) {
    // Only the calling process can be invaded: its mappings tell where every module lies.
    dwfl_report_begin(state->dwfl);
    int result = process == kCurrentProcess ? dwfl_linux_proc_report(state->dwfl, getpid()) : ESRCH;
    dwfl_report_end(state->dwfl, nullptr, nullptr);
    if (result != 0) {
      dwfl_end(state->dwfl);
      delete state;
      m_dwLastError = result > 0 ? static_cast<uint32_t>(result) : ESRCH;
      return false;
    }
  }
  // Registering the callback cannot fail here.
  state->callbackRegistered = registerCallback != 0;
  m_pNative = state;
  m_hProcess = process;
  Trace("symbol handling started\n");
  return true;
}

void CSymbolEngine::Cleanup() {
  if (m_hProcess == nullptr) return;
  if (m_pNative != nullptr) {
    dwfl_end(m_pNative->dwfl);
    delete m_pNative;
    m_pNative = nullptr;
  }
  m_hProcess = nullptr;
}

uint64_t CSymbolEngine::LoadModule(SymHandle file, const std::string& imageName, uint64_t base,
                                   uint32_t /*size: taken from the image*/) {
  if (!CheckInitialized()) return 0;
  // A file handle is a descriptor; the image is read through its path so that the session can
  // reopen it whenever it needs to.
  std::string path = imageName;
  if (path.empty() && file != nullptr) {
    char link[64];
    char target[4096];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d",
                  static_cast<int>(reinterpret_cast<intptr_t>(file)));
    ssize_t n = readlink(link, target, sizeof target - 1);
    if (n <= 0) {
      m_dwLastError = errno;
      return 0;
    }
    path.assign(target, static_cast<size_t>(n));
  }
  if (access(path.c_str(), R_OK) != 0) {
    m_dwLastError = errno;
    Trace("cannot read " + path + "\n");
    return 0;
  }
  Dwfl* dwfl = m_pNative->dwfl;
  dwfl_report_begin_add(dwfl);
  Dwfl_Module* module =
      dwfl_report_elf(dwfl, ModuleNameOf(path).c_str(), path.c_str(), -1, base, false);
  dwfl_report_end(dwfl, nullptr, nullptr);
  if (module == nullptr) {
    m_dwLastError = ENOEXEC;
    Trace(path + ": " + dwfl_errmsg(-1) + "\n");
    return 0;
  }
  Dwarf_Addr start = 0;
  dwfl_module_info(module, nullptr, &start, nullptr, nullptr, nullptr, nullptr, nullptr);
  Trace("loaded " + path + "\n");
  return start;
}

bool CSymbolEngine::UnloadModule(uint64_t base) {
  if (!CheckUnloadArguments(base)) return false;
  Dwfl* dwfl = m_pNative->dwfl;
  if (ModuleAtBase(dwfl, base) == nullptr) {
    m_dwLastError = ENOENT;
    return false;
  }
  // A new report that re-reports every module except the one at `base`.
  Unload unload{dwfl, base};
  dwfl_report_begin(dwfl);
  dwfl_report_end(dwfl, KeepAllBut, &unload);
  return true;
}

bool CSymbolEngine::GetModuleInfo(uint64_t base, SymModuleInfo& info) {
  if (!CheckInitialized()) return false;
  std::memset(&info, 0, sizeof info);
  info.SizeOfStruct = sizeof info;
  Dwfl_Module* module = dwfl_addrmodule(m_pNative->dwfl, base);
  if (module == nullptr) {
    m_dwLastError = ENOENT;
    return false;
  }
  Dwarf_Addr start = 0, end = 0;
  const char* mainFile = nullptr;
  const char* name =
      dwfl_module_info(module, nullptr, &start, &end, nullptr, nullptr, &mainFile, nullptr);
  info.BaseOfImage = start;
  info.ImageSize = static_cast<uint32_t>(end - start);
  CopyText(info.ModuleName, sizeof info.ModuleName, name);
  CopyText(info.ImageName, sizeof info.ImageName, mainFile);
  CopyText(info.LoadedImageName, sizeof info.LoadedImageName, mainFile);
  int symbols = dwfl_module_getsymtab(module);
  info.NumSyms = symbols > 0 ? static_cast<uint32_t>(symbols) : 0;
  info.GlobalSymbols = symbols > 0;
  Dwarf_Addr bias = 0;
  bool hasDebugInfo = dwfl_module_getdwarf(module, &bias) != nullptr;
  info.TypeInfo = hasDebugInfo;
  info.LineNumbers = hasDebugInfo;
  info.SymType = hasDebugInfo ? 7u : 4u;  // SymDia (debug information) or SymExport
  return true;
}

bool CSymbolEngine::SymbolFromAddress(uint64_t address, std::string& name, uint64_t& displacement) {
  if (!CheckInitialized()) return false;
  Dwfl_Module* module = dwfl_addrmodule(m_pNative->dwfl, address);
  GElf_Off offset = 0;
  GElf_Sym symbol;
  const char* found = module == nullptr ? nullptr
                                        : dwfl_module_addrinfo(module, address, &offset, &symbol,
                                                               nullptr, nullptr, nullptr);
  if (found == nullptr) {
    m_dwLastError = ENOENT;
    return false;
  }
  if ((g_symbolOptions & kSymOptUndecorateNames) != 0 && std::strncmp(found, "_Z", 2) == 0) {
    int status = 0;
    char* plain = abi::__cxa_demangle(found, nullptr, nullptr, &status);
    if (status == 0 && plain != nullptr) {
      name.assign(plain);
      std::free(plain);
      displacement = offset;
      return true;
    }
    std::free(plain);
  }
  name.assign(found);
  displacement = offset;
  return true;
}

bool CSymbolEngine::LineFromAddress(uint64_t address, std::string& fileName, uint32_t& line,
                                    uint64_t& displacement) {
  if (!CheckInitialized()) return false;
  // As with the debug-help library, line numbers are only read with SYMOPT_LOAD_LINES.
  Dwfl_Module* module = (g_symbolOptions & kSymOptLoadLines) != 0
                            ? dwfl_addrmodule(m_pNative->dwfl, address)
                            : nullptr;
  Dwfl_Line* record = module == nullptr ? nullptr : dwfl_module_getsrc(module, address);
  Dwarf_Addr lineAddress = 0;
  int number = 0;
  const char* source =
      record == nullptr ? nullptr
                        : dwfl_lineinfo(record, &lineAddress, &number, nullptr, nullptr, nullptr);
  if (source == nullptr || address < lineAddress) {
    m_dwLastError = ENOENT;
    return false;
  }
  fileName.assign(source);
  line = static_cast<uint32_t>(number);
  displacement = static_cast<uint32_t>(address - lineAddress);
  return true;
}

namespace {

bool KeepFrame(const StackFrameEntry& frame, void* context) {
  static_cast<std::vector<StackFrameEntry>*>(context)->push_back(frame);
  return true;
}

}  // namespace

void CSymbolEngine::StackWalk(std::vector<StackFrameEntry>& frames, int skip, SymHandle,
                              SymContext* context) {
  m_dwLastError = 0;
  frames.clear();
  if (skip < 0) skip = 0;

  // Walked frames, each with the return address its caller's frame gives it.
  std::vector<StackFrameEntry> walked;
  errno = 0;
  if (context == nullptr) {
    // The unwinder's first frame is this function, at the point of the call.
    deskaid::UnwoundFrames unwound(KeepFrame, &walked);
    _Unwind_Backtrace(deskaid::UnwoundFrames::Collect, &unwound);
    unwound.Finish();
  } else {
    deskaid::WalkFramePointers(*context, KeepFrame, &walked);
  }

  for (const StackFrameEntry& entry : walked) {
    bool keep = entry.pc != 0 && entry.pc != entry.returnAddress;
    if (skip > 0) {  // counts walked frames, kept or not
      keep = false;
      --skip;
    }
    if (keep) frames.push_back(entry);
  }
  m_dwLastError = static_cast<uint32_t>(errno);
}

uint32_t CSymbolEngine::GetOptions() { return g_symbolOptions; }

uint32_t CSymbolEngine::SetOptions(uint32_t options) {
  g_symbolOptions = options;
  return g_symbolOptions;
}

uint32_t CSymbolEngine::AddOptions(uint32_t bits) { return SetOptions(GetOptions() | bits); }

SymBool CSymbolEngine::SymbolCallback(SymHandle, SymActionCode actionCode, uint64_t callbackData,
                                      uint64_t userContext) {
  if (userContext == 0 || actionCode != kSymActionDebugInfo || callbackData == 0) return 0;
  std::string text(reinterpret_cast<const char*>(static_cast<uintptr_t>(callbackData)));
  reinterpret_cast<CSymbolEngine*>(static_cast<uintptr_t>(userContext))->OnDebugInfo(text);
  return 1;
}
