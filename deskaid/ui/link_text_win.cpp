#include "deskaid/ui/link_text.h"

namespace deskaid {

LONG ReadRegistryString(HKEY key, const char* name, char* buffer, DWORD size) {
  DWORD type = 0;
  DWORD bytes = size;
  LONG rc = ::RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<BYTE*>(buffer), &bytes);
  if (rc != ERROR_SUCCESS) return rc;
  if (type != REG_SZ && type != REG_EXPAND_SZ) return ERROR_INVALID_DATA;
  if (bytes == 0) {
    if (size > 0) buffer[0] = '\0';
    return ERROR_SUCCESS;
  }
  if (buffer[bytes - 1] != '\0') return ERROR_INVALID_DATA;
  return ERROR_SUCCESS;
}

}  // namespace deskaid
