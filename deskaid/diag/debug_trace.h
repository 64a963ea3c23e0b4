// The module-wide channel for diagnostic lines: printf-style text to the system debugger output.
#pragma once

// printf-style checking of the module's format arguments. The Windows build formats with the
// Windows runtime, so MinGW's GCC checks them against that runtime's conversions (clang knows no
// such check, and takes the standard one).
#if defined(__MINGW32__) && !defined(__clang__)
#define DESKAID_PRINTF_FORMAT(format_index, first_arg) \
  __attribute__((format(ms_printf, format_index, first_arg)))
#elif defined(__GNUC__)
#define DESKAID_PRINTF_FORMAT(format_index, first_arg) \
  __attribute__((format(printf, format_index, first_arg)))
#else
#define DESKAID_PRINTF_FORMAT(format_index, first_arg)
#endif

// Formats into 512 bytes (text beyond 511 characters is cut) and hands the result to the
// debugger output. Adds no prefix and no newline: formats end in "\n" themselves. Windows formats
// with the runtime's _vsnprintf, other systems with vsnprintf. A null format traces nothing.
void DebugTrace(const char* format, ...) DESKAID_PRINTF_FORMAT(1, 2);

// A process-wide observer of trace lines, called with each formatted line after it went to the
// debugger output. Hosts and tests use it to capture what the module reports; null removes it.
// Like the rest of the module it takes no lock: install it while no other thread traces.
using DebugTraceSink = void (*)(const char* line, void* context);
void SetDebugTraceSink(DebugTraceSink sink, void* context);
