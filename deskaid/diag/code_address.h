// Logging code addresses that can be named later, wherever their module was loaded.
//
// A plain "[XXXXXXXX]" marker names code only in an executable loaded at 0x00400000. A module
// reference names it in any module loaded anywhere: LogCodeAddress writes both, and the first
// time a module is named in the open log (and whenever the log's path has changed since), a
// record that describes the module goes before it, so that ConvertLogToTextWithSymbols
// (diag/log_export.h) can find the same build of the module on a symbol path and name the code.
#pragma once

#include <cstdint>

// Writes "<text> [XXXXXXXX] <module+0xOFFSET>" through LogPrintf with `levelMask`: the marker
// holds the address's low 32 bits, the reference the offset of `address` in the module that
// holds it (left out when no loaded module holds it). Returns what LogPrintf returns for that
// record. A null `text` is taken as empty.
uint32_t LogCodeAddress(uint8_t levelMask, const char* text, const void* address);
