// English texts for the error codes of the Windows Internet client library (WinInet, 12001 to
// 12036), for showing to a user or writing to a trace.
#pragma once

#include <cstdint>

// Returns the fixed text for `code`, or null when the code has none: every code outside 12001 to
// 12036, and 12032 to 12035 inside it. The texts are static constants; do not free or change them.
// A null result leaves the choice of a fallback (the bare number, say) to the caller.
const char* InternetErrorText(int32_t code);
