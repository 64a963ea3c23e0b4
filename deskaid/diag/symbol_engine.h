// CSymbolEngine: symbol handling for one process. It loads a module's symbols, turns code
// addresses into symbol names and source lines, and captures call stacks.
//
// On Windows it is a thin object over the debug-help library (dbghelp). Elsewhere the same
// operations run over elfutils (libdwfl) for modules, symbols and lines and over the compiler's
// local unwinder for call stacks, with the same results and the same error conventions.
//
// Every operation that can fail returns false or 0 and keeps the reason in GetLastError():
// 1 (ERROR_INVALID_FUNCTION) when the engine is not initialised, 87 (ERROR_INVALID_PARAMETER) for
// a bad argument, and otherwise the platform's own code of the failing call (GetLastError() on
// Windows, errno elsewhere). Nothing throws.
//
// The symbol options belong to the whole process, not to one engine. Neither the engine nor the
// debug-help library is safe for concurrent use: all calls must come from one thread at a time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#include <dbghelp.h>
// The headers map StackWalk to StackWalk64, which would rename the engine's operation.
#undef StackWalk

using SymHandle = HANDLE;
using SymBool = BOOL;
using SymActionCode = ULONG;
using SymContext = CONTEXT;  // the walked thread's registers (Eip, Ebp, Esp; Rip, Rbp, Rsp on x64)
using SymModuleInfo = IMAGEHLP_MODULE64;
#define DESKAID_SYM_CALLBACK CALLBACK
#else
using SymHandle = void*;
using SymBool = int;
using SymActionCode = uint32_t;
#define DESKAID_SYM_CALLBACK

// The registers a stack walk starts from: program counter, frame pointer and stack pointer.
struct SymContext {
  uint64_t pc;
  uint64_t framePointer;
  uint64_t stackPointer;
};

// What is known about a loaded module; the names follow the Windows record.
struct SymModuleInfo {
  uint32_t SizeOfStruct;
  uint64_t BaseOfImage;
  uint32_t ImageSize;
  uint32_t TimeDateStamp;
  uint32_t CheckSum;
  uint32_t NumSyms;
  uint32_t SymType;
  char ModuleName[32];
  char ImageName[256];
  char LoadedImageName[256];
  char LoadedPdbName[256];
  uint8_t LineNumbers;
  uint8_t GlobalSymbols;
  uint8_t TypeInfo;
  uint8_t SourceIndexed;
  uint8_t Publics;
};
#endif

// Symbol option bits (the values of the debug-help library's SYMOPT_ constants).
constexpr uint32_t kSymOptUndecorateNames = 0x00000002;  // SYMOPT_UNDNAME
constexpr uint32_t kSymOptLoadLines = 0x00000010;        // SYMOPT_LOAD_LINES
constexpr uint32_t kSymOptOmapFindNearest = 0x00000020;  // SYMOPT_OMAP_FIND_NEAREST
constexpr uint32_t kSymOptDebug = 0x80000000;            // SYMOPT_DEBUG

// The action code with which the library hands a diagnostic text to the callback.
constexpr uint32_t kSymActionDebugInfo = 0x10000000;  // CBA_DEBUG_INFO

// The handle that stands for the calling process (GetCurrentProcess()).
SymHandle SymCurrentProcess();

// One captured frame.
struct StackFrameEntry {
  uint64_t pc;             // the frame's program counter
  uint64_t returnAddress;  // where the frame returns to
  uint64_t framePointer;   // the frame's base
};

class CSymbolEngine {
 public:
  CSymbolEngine();
  virtual ~CSymbolEngine();  // runs Cleanup()
  CSymbolEngine(const CSymbolEngine&) = delete;
  CSymbolEngine& operator=(const CSymbolEngine&) = delete;

  // Receives the debug-help library's diagnostic texts once the callback is registered. The base
  // class ignores them; derive to show or collect them.
  virtual void OnDebugInfo(const std::string& text);

  // Starts symbol handling for `process`. A second call for the same process is a no-op that
  // returns true; one for another process fails with lastError 1, because an engine stays bound
  // to its first process. With `invadeProcess` the modules already mapped into the process are
  // loaded too. When `registerCallback` is set and registering fails, the engine is left
  // uninitialised (the library's own set-up is not undone).
  bool Initialize(SymHandle process, const char* searchPath, uint8_t invadeProcess,
                  uint8_t registerCallback);
  // Ends symbol handling; the engine is uninitialised afterwards even when that fails.
  void Cleanup();

  // Loads the symbols of an image as mapped at `base` (0: the image's own base) with `size`
  // bytes (0: the image's own size). Returns the module's base, or 0.
  uint64_t LoadModule(SymHandle file, const std::string& imageName, uint64_t base, uint32_t size);
  uint64_t LoadModule(const std::string& imageName, uint64_t base, uint32_t size);
  uint64_t LoadModule(SymHandle file, uint64_t base, uint32_t size);
  bool UnloadModule(uint64_t base);
  bool GetModuleInfo(uint64_t base, SymModuleInfo& info);

  // Name of the symbol that holds `address` and the distance from its start. On failure both
  // out-arguments keep their values, so a caller reusing a string keeps the last name found.
  bool SymbolFromAddress(uint64_t address, std::string& name, uint64_t& displacement);
  // Source file and line of `address`; the out-arguments keep their values on failure.
  bool LineFromAddress(uint64_t address, std::string& fileName, uint32_t& line,
                       uint64_t& displacement);

  // Captures the call stack of `thread`, innermost frame first. Without a context the walk starts
  // inside StackWalk itself; otherwise at the context's registers. The first `skip` walked frames
  // are dropped (negative counts as 0), as are frames with no program counter and frames whose
  // program counter equals their return address. Does not check for initialisation.
  void StackWalk(std::vector<StackFrameEntry>& frames, int skip, SymHandle thread,
                 SymContext* context);

  // The process-wide symbol options.
  uint32_t GetOptions();
  uint32_t SetOptions(uint32_t options);
  uint32_t AddOptions(uint32_t bits);

  // The callback registered with the library: passes CBA_DEBUG_INFO texts to the OnDebugInfo of
  // the engine in `userContext` and returns TRUE; FALSE for anything else.
  static SymBool DESKAID_SYM_CALLBACK SymbolCallback(SymHandle process, SymActionCode actionCode,
                                                     uint64_t callbackData, uint64_t userContext);

  uint32_t GetLastError() const { return m_dwLastError; }
  bool IsInitialized() const { return m_hProcess != nullptr; }
  SymHandle GetProcess() const { return m_hProcess; }

 private:
  // False, with lastError 1, when the engine is not initialised.
  bool CheckInitialized();
  // The checks UnloadModule makes before asking the library: false, with lastError 1 or 87, when
  // the engine is not initialised or `base` is 0.
  bool CheckUnloadArguments(uint64_t base);

#ifndef _WIN32
  struct NativeState;
  NativeState* m_pNative = nullptr;  // the libdwfl session and the modules loaded into it
  void Trace(const std::string& text);
#endif

  SymHandle m_hProcess;
  uint32_t m_dwLastError;
};
