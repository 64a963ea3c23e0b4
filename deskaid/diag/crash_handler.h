// Crash capture: when the host fails, the log, the symbol engine and the message box work together
// so that the failure can be read back later.
//
// On Windows the handler catches unhandled structured exceptions (access violations, divide by
// zero, illegal instructions, stack overflows), abort, std::terminate (which a pure virtual call
// also reaches in GCC builds; MSVC builds catch it on its own) and the runtime's invalid-parameter
// reports. It then, in this order:
//   1. writes to the global log, when it is open, one record naming the failure, its code and the
//      faulting address, and one record per stack frame (up to 64) with the frame's return
//      address. Each address is written as "[XXXXXXXX]" (its low 32 bits) followed by a module
//      reference "<module+0xOFFSET>", and each module named is described once, in a record of its
//      own before the first that names it (diag/code_address.h); then one record per annotation.
//      ConvertLogToTextWithSymbols (or `logexport --symbols PATH`) names every frame in any module
//      loaded anywhere, given the same builds of the modules; ConvertLogToText (`logexport
//      --image`) names them only for an executable loaded at 0x00400000;
//   2. writes a minidump, "<executable name> - YYYY.MM.DD HH.MM.SS.dmp", into the chosen folder
//      (by default the log's folder, or the executable's when no log is open): a normal dump, or
//      one with the modules' data or with all memory (CRASH_DUMP_* bits), with the annotations
//      (see SetCrashAnnotation) as a stream of its own. Each module in it carries its CodeView
//      record, by which dump readers find its symbols; images built with GNU ld get one through
//      the link option that the CMake target deskaid::deskaid gives every image that links it;
//   3. when asked, shows a message box of the module's own engine with an error icon, a sentence,
//      the dump's path and the buttons Close and Report; Report calls the host's callback and
//      leaves the box open;
//   4. ends the process with the failure's code as its exit status: the exception code, or
//      0x40000015 (STATUS_FATAL_APP_EXIT) for abort and std::terminate, or 0xC0000417
//      (STATUS_INVALID_CRUNTIME_PARAMETER) for an invalid parameter.
// For abort, std::terminate, a pure virtual call and an invalid parameter, the failure's address
// (in the log and in the dump) is the host's call that failed, inside the call instruction, and
// the frames start from there: the runtime's own frames and the handler's are left out (64-bit
// builds; a 32-bit build reports the place of the handler).
// The log records use neither the heap nor the debug-help library (64-bit builds), so they are
// written even when the failing thread holds the heap's lock or the heap is damaged; the dump
// needs the heap, and without a box the handler gives the whole work 12 seconds (two minutes for
// a dump of all memory) before it ends the process, dump or no dump. A dump not finished by then,
// or whose writing fails, is deleted rather than left half written.
// The work runs on a thread started when the handler is installed, which waits until a failure
// hands it the failing thread's context (a stack overflow leaves the failing thread no stack to
// work on, and a failing process may be unable to start a thread). A failure inside that work ends
// the process at once with the first failure's code; a failure on another thread while the first
// is reported waits for the report to end the process.
//
// On POSIX systems the handler catches SIGSEGV, SIGFPE, SIGILL, SIGBUS and SIGABRT, writes the
// same log records, writes no minidump and shows no box, passes the signal to the handler that
// was installed before it (if that was a function), and raises the signal again with its default
// action, so the exit status and any core dump stay as the system gives them. It runs on an
// alternate signal stack: the installing thread gets one, and every thread the host starts later
// gets one by calling PrepareThreadForCrashHandler, without which a stack overflow on that thread
// ends the process unreported. The first failing thread's report wins: other threads that fail
// while it is written wait for the process to end with the first failure's signal. Nothing on
// that path allocates or uses stdio, so a damaged heap or an allocator lock held by the failing
// thread does not stop the report.
//
// The log records are written only if the log's lock can be had within a second and the failing
// thread was not itself inside a log operation; otherwise they are dropped rather than waited for.
// Once written, the lock stays held until the process ends, so that no record written by another
// thread afterwards can rotate the crash's records out of the log.
// Frames are followed through frame pointers: code built without them may show fewer frames.
#pragma once

#include <cstddef>
#include <cstdint>

#include "deskaid/common/max_path.h"

// Bits of CrashHandlerOptions::dwOptions.
constexpr uint32_t CRASH_NO_DUMP = 0x1;           // write no minidump
constexpr uint32_t CRASH_SHOW_MESSAGE_BOX = 0x2;  // show the crash box before the process ends
// The minidump's kind (Windows). Without either bit it is a normal dump: every thread's registers
// and stack, and the modules loaded.
constexpr uint32_t CRASH_DUMP_WITH_DATA = 0x4;         // also the modules' data sections
constexpr uint32_t CRASH_DUMP_WITH_FULL_MEMORY = 0x8;  // all memory the process can read

// Limits of the crash annotations.
constexpr size_t kMaxCrashAnnotations = 16;
constexpr size_t kMaxCrashAnnotationKey = 31;     // bytes of a key
constexpr size_t kMaxCrashAnnotationValue = 127;  // bytes of a value

// The type of the minidump's stream of annotations (Windows): the text "key=value", one line per
// annotation, each ended by '\n', in UTF-8 or the host's code page as it gave them.
constexpr uint32_t kCrashAnnotationStreamType = 0x44534B41;

// Called when the user presses Report in the crash box, on the handler's thread, with the dump's
// path and the log's path (each empty when there is none) and the caller's context.
using CrashReportCallback = void (*)(const char* dumpPath, const char* logPath, void* context);

// The handler's settings. A zero record (and a null pointer) means: write a minidump into the
// log's folder, or the executable's when no log is open, and show no box.
struct CrashHandlerOptions {
  uint32_t dwOptions = 0;                     // CRASH_* bits
  char szDumpFolder[deskaid::kMaxPath] = {};  // folder for the minidump; empty: see above
  CrashReportCallback pfnReport = nullptr;    // called by the box's Report button
  void* pReportContext = nullptr;             // handed to pfnReport
  // Set as the annotations "product" and "version" when not empty (see SetCrashAnnotation).
  char szProduct[kMaxCrashAnnotationValue + 1] = {};
  char szVersion[kMaxCrashAnnotationValue + 1] = {};
};

// Installs the handler for the whole process, remembering what was installed before. The options
// are copied. Returns false when a handler of this module is already installed (remove it first)
// or the platform refused a part of it, in which case nothing stays installed.
bool InstallCrashHandler(const CrashHandlerOptions* options);

// Restores what was installed before InstallCrashHandler. Returns false when none is installed.
bool RemoveCrashHandler();

// POSIX: gives the calling thread an alternate signal stack, so that the handler can report a
// stack overflow on it; released when the thread ends. Call it first thing in every thread the
// host starts. True when the thread has one (already, or now). Windows needs none: returns true.
bool PrepareThreadForCrashHandler();

// Annotations: a few key/value pairs that a crash report carries, such as the build, the user's
// choice of plug-ins or the document open. Each is written to the log after the crash's frames, as
// the record "Annotation: key=value", and on Windows into the minidump, as a stream of type
// kCrashAnnotationStreamType. Sets `key`'s value, replacing the one it had; an empty value removes
// the key. Keys are 1 to kMaxCrashAnnotationKey letters, digits, '_', '.' or '-'; values are at
// most kMaxCrashAnnotationValue bytes without control characters. False, with nothing changed,
// for a key or value outside those rules, or when kMaxCrashAnnotations keys are set already.
// Any thread may call it at any time, with or without a handler installed.
bool SetCrashAnnotation(const char* key, const char* value);
