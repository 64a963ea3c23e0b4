#include "deskaid/codec/md5.h"

// POSIX has no cheap probe for readable memory. The digest functions read the bytes whatever the
// answer is, so a non-null pointer is taken as usable.
bool CheckMemory(const void* p, uint32_t length, bool write) {
  (void)length;
  (void)write;
  return p != nullptr;
}
