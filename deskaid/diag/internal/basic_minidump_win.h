// A minidump written without the heap, for the failures where the system's writer cannot run: a
// failing thread that holds the heap's lock, or a heap too damaged to allocate from. It holds what
// a reader needs to show the failure: the system, the failure with its registers, every thread
// with its registers and the top of its stack (the failing thread first), and every loaded module
// with its CodeView record; plus the host's annotations. Nothing in it takes the heap or the
// loader's lock.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>

namespace deskaid {

struct BasicMinidumpInput {
  DWORD threadId;  // the failing thread
  const EXCEPTION_RECORD* record;
  const CONTEXT* context;   // its registers at the failure
  const char* annotations;  // the annotations' stream, or null
  size_t annotationsSize;
  uint32_t annotationsType;
};

// Looks up the system functions the writer calls; done once, while the heap can still be used.
void PrepareBasicMinidump();

// Writes the dump over `file` (opened for writing), from its start, and cuts the file there.
// False when the file could not be written.
bool WriteBasicMinidump(HANDLE file, const BasicMinidumpInput& input);

// Creates (or replaces) the file at `path`, a full or relative path in the ANSI code page, for
// reading, writing and deletion, through the system call itself: the usual calls take the NT form
// of the path from the heap. INVALID_HANDLE_VALUE when that fails.
HANDLE CreateFileWithoutHeap(const char* path);

// Marks an open file for deletion when its last handle is closed, without the heap.
bool DeleteOnClose(HANDLE file);

}  // namespace deskaid
