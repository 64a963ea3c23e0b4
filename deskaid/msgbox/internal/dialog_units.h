// The system's dialog base units, which convert pixels to dialog template units.
#pragma once

namespace deskaid {

struct DialogBaseUnits {
  int x;  // horizontal: a dialog unit is x / 4 pixels
  int y;  // vertical: a dialog unit is y / 8 pixels
};

// The low and high words of GetDialogBaseUnits, as signed 16-bit values.
DialogBaseUnits SystemDialogBaseUnits();

}  // namespace deskaid
