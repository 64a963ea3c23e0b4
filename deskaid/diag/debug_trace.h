// The module-wide channel for diagnostic lines: printf-style text to the system debugger output.
#pragma once

// Formats into 512 bytes (text beyond 511 characters is cut) and hands the result to the
// debugger output. Adds no prefix and no newline: formats end in "\n" themselves.
void DebugTrace(const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;

// A process-wide observer of trace lines, called with each formatted line after it went to the
// debugger output. Hosts and tests use it to capture what the module reports; null removes it.
// Like the rest of the module it takes no lock: install it while no other thread traces.
using DebugTraceSink = void (*)(const char* line, void* context);
void SetDebugTraceSink(DebugTraceSink sink, void* context);
