// The host's crash annotations as the crash path reads them: from fixed storage, without the heap
// and without a lock, since the failing thread may hold either.
#pragma once

#include <cstddef>

namespace deskaid {

// Calls `visit(key, value, context)` for each annotation set. The strings live until the next call.
// An annotation changed at the moment of the failure may be left out; none is seen half-changed.
void VisitCrashAnnotations(void (*visit)(const char* key, const char* value, void* context),
                           void* context);

}  // namespace deskaid
