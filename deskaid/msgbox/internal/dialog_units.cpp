#include "deskaid/msgbox/internal/dialog_units.h"

#include <windows.h>

namespace deskaid {

DialogBaseUnits SystemDialogBaseUnits() {
  const LONG units = GetDialogBaseUnits();
  DialogBaseUnits result;
  result.x = static_cast<short>(LOWORD(units));
  result.y = static_cast<short>(HIWORD(units));
  // The platform never reports zero; guard the divisions anyway.
  if (result.x == 0) result.x = 1;
  if (result.y == 0) result.y = 1;
  return result;
}

}  // namespace deskaid
