// CSymbolEngine over the debug-help library.
#include "deskaid/diag/symbol_engine.h"

#include <cstring>

#include "deskaid/diag/internal/register_capture_win.h"

namespace {

constexpr DWORD kNotInitialized = ERROR_INVALID_FUNCTION;  // 1

// SYMBOL_INFO with room for the longest name the engine asks for.
constexpr DWORD kMaxSymbolName = 2001;
struct SymbolInfoBuffer {
  SYMBOL_INFO info;
  char room[kMaxSymbolName];
};

}  // namespace

SymHandle SymCurrentProcess() { return GetCurrentProcess(); }

CSymbolEngine::CSymbolEngine() : m_hProcess(nullptr), m_dwLastError(0) {}

CSymbolEngine::~CSymbolEngine() { Cleanup(); }

void CSymbolEngine::OnDebugInfo(const std::string&) {}

bool CSymbolEngine::Initialize(SymHandle process, const char* searchPath, uint8_t invadeProcess,
                               uint8_t registerCallback) {
  if (m_hProcess != nullptr) {
    if (process == m_hProcess) return true;
    m_dwLastError = kNotInitialized;
    return false;
  }
  if (!SymInitialize(process, searchPath, invadeProcess != 0)) {
    m_dwLastError = ::GetLastError();
    return false;
  }
  if (registerCallback != 0 && !SymRegisterCallback64(process, &CSymbolEngine::SymbolCallback,
                                                      reinterpret_cast<ULONG64>(this))) {
    // Deliberately no SymCleanup: the engine merely stays uninitialised.
    m_dwLastError = ::GetLastError();
    return false;
  }
  m_hProcess = process;
  return true;
}

void CSymbolEngine::Cleanup() {
  if (m_hProcess == nullptr) return;
  if (!SymCleanup(m_hProcess)) m_dwLastError = ::GetLastError();
  m_hProcess = nullptr;
}

uint64_t CSymbolEngine::LoadModule(SymHandle file, const std::string& imageName, uint64_t base,
                                   uint32_t size) {
  if (!CheckInitialized()) return 0;
  // The API takes a non-const name; the library only reads it.
  PSTR name = imageName.empty() ? nullptr : const_cast<PSTR>(imageName.c_str());
  DWORD64 loaded = SymLoadModule64(m_hProcess, file, name, nullptr, base, size);
  if (loaded == 0) m_dwLastError = ::GetLastError();
  return loaded;
}

bool CSymbolEngine::UnloadModule(uint64_t base) {
  if (!CheckUnloadArguments(base)) return false;
  if (!SymUnloadModule64(m_hProcess, base)) {
    m_dwLastError = ::GetLastError();
    return false;
  }
  return true;
}

// The module record as dbghelp has long known it. Newer headers append two fields (1,680 bytes);
// the leading 1,672 bytes keep their layout, and this size is the one every dbghelp accepts. The
// caller's bytes beyond it are left as they are.
constexpr DWORD kModuleInfoSize = 1672;
static_assert(sizeof(SymModuleInfo) >= kModuleInfoSize, "the module record holds the known size");

bool CSymbolEngine::GetModuleInfo(uint64_t base, SymModuleInfo& info) {
  if (!CheckInitialized()) return false;
  std::memset(&info, 0, kModuleInfoSize);
  info.SizeOfStruct = kModuleInfoSize;
  if (!SymGetModuleInfo64(m_hProcess, base, &info)) {
    m_dwLastError = ::GetLastError();
    return false;
  }
  return true;
}

bool CSymbolEngine::SymbolFromAddress(uint64_t address, std::string& name, uint64_t& displacement) {
  if (!CheckInitialized()) return false;
  SymbolInfoBuffer buffer;
  std::memset(&buffer, 0, sizeof buffer);
  buffer.info.SizeOfStruct = sizeof(SYMBOL_INFO);
  buffer.info.MaxNameLen = kMaxSymbolName;
  DWORD64 offset = 0;
  if (!SymFromAddr(m_hProcess, address, &offset, &buffer.info)) {
    m_dwLastError = ::GetLastError();
    return false;
  }
  // The library writes at most MaxNameLen characters; the extra byte keeps the text terminated.
  buffer.room[kMaxSymbolName - 1] = '\0';
  name.assign(buffer.info.Name);
  displacement = offset;
  return true;
}

bool CSymbolEngine::LineFromAddress(uint64_t address, std::string& fileName, uint32_t& line,
                                    uint64_t& displacement) {
  if (!CheckInitialized()) return false;
  IMAGEHLP_LINE64 record;
  std::memset(&record, 0, sizeof record);
  record.SizeOfStruct = sizeof record;
  DWORD offset = 0;
  if (!SymGetLineFromAddr64(m_hProcess, address, &offset, &record)) {
    m_dwLastError = ::GetLastError();
    return false;
  }
  fileName.assign(record.FileName != nullptr ? record.FileName : "");
  line = record.LineNumber;
  displacement = offset;
  return true;
}

// Kept out of line so that the captured registers belong to StackWalk's own frame.
void CSymbolEngine::StackWalk(std::vector<StackFrameEntry>& frames, int skip, SymHandle thread,
                              SymContext* context) {
  m_dwLastError = 0;
  frames.clear();
  if (skip < 0) skip = 0;

  STACKFRAME64 frame;
  std::memset(&frame, 0, sizeof frame);
#if defined(_M_X64) || defined(__x86_64__)
  // x64 frames are unwound from the image's unwind tables, which need the whole register set:
  // without a context the walk starts from this function's own registers, at the call.
  const DWORD machine = IMAGE_FILE_MACHINE_AMD64;
  CONTEXT here;
  if (context == nullptr) {
    std::memset(&here, 0, sizeof here);
    here.ContextFlags = CONTEXT_FULL;
    RtlCaptureContext(&here);
    context = &here;
  }
  frame.AddrPC.Offset = context->Rip;
  frame.AddrFrame.Offset = context->Rbp;
  frame.AddrStack.Offset = context->Rsp;
#else
  const DWORD machine = IMAGE_FILE_MACHINE_I386;
  if (context == nullptr) {
    // The registers at this point of StackWalk: the walk starts at the call.
    DWORD eip = 0, ebp = 0, esp = 0;
#if defined(__GNUC__) && defined(__i386__)
    DESKAID_CAPTURE_I386_REGISTERS(eip, ebp, esp);
#else
    CONTEXT here;
    std::memset(&here, 0, sizeof here);
    here.ContextFlags = CONTEXT_CONTROL;
    RtlCaptureContext(&here);
    eip = here.Eip;
    ebp = here.Ebp;
    esp = here.Esp;
#endif
    frame.AddrPC.Offset = eip;
    frame.AddrFrame.Offset = ebp;
    frame.AddrStack.Offset = esp;
  } else {
    frame.AddrPC.Offset = context->Eip;
    frame.AddrFrame.Offset = context->Ebp;
    frame.AddrStack.Offset = context->Esp;
  }
#endif
  frame.AddrPC.Mode = AddrModeFlat;
  frame.AddrFrame.Mode = AddrModeFlat;
  frame.AddrStack.Mode = AddrModeFlat;

  while (StackWalk64(machine, m_hProcess, thread, &frame, context, nullptr,
                     SymFunctionTableAccess64, SymGetModuleBase64, nullptr)) {
    bool keep = frame.AddrPC.Offset != 0;
    if (frame.AddrPC.Offset == frame.AddrReturn.Offset) keep = false;
    if (skip > 0) {  // counts walked frames, kept or not
      keep = false;
      --skip;
    }
    if (keep) {
      frames.push_back(
          StackFrameEntry{frame.AddrPC.Offset, frame.AddrReturn.Offset, frame.AddrFrame.Offset});
    }
  }
  m_dwLastError = ::GetLastError();
}

uint32_t CSymbolEngine::GetOptions() { return SymGetOptions(); }

uint32_t CSymbolEngine::SetOptions(uint32_t options) { return SymSetOptions(options); }

uint32_t CSymbolEngine::AddOptions(uint32_t bits) { return SetOptions(GetOptions() | bits); }

SymBool CALLBACK CSymbolEngine::SymbolCallback(SymHandle, SymActionCode actionCode,
                                               uint64_t callbackData, uint64_t userContext) {
  if (userContext == 0 || actionCode != CBA_DEBUG_INFO || callbackData == 0) return FALSE;
  std::string text(reinterpret_cast<const char*>(static_cast<uintptr_t>(callbackData)));
  reinterpret_cast<CSymbolEngine*>(static_cast<uintptr_t>(userContext))->OnDebugInfo(text);
  return TRUE;
}
