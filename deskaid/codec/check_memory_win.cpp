#include "deskaid/codec/md5.h"

#include <windows.h>

bool CheckMemory(const void* p, uint32_t length, bool write) {
  if (p == nullptr) return false;
  if (IsBadReadPtr(p, length)) return false;
  if (!write) return true;
  return !IsBadWritePtr(const_cast<void*>(p), length);
}
