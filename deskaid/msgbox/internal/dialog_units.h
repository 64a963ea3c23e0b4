// The system's dialog base units, which convert pixels to dialog template units.
#pragma once

#include <windows.h>

namespace deskaid {

// The layout rules' pixel constants are for 96 dots per inch; on a display of more they scale as
// the system scales its font, and 96 DPI keeps every pixel. The context's DPI is read once, when
// the scale is made.
class ScaleFor96Dpi {
 public:
  static constexpr int kBaseDpi = 96;

  explicit ScaleFor96Dpi(HDC dc) {
    const int dpi = dc != nullptr ? GetDeviceCaps(dc, LOGPIXELSY) : 0;
    m_dpi = dpi > 0 ? dpi : kBaseDpi;
  }
  int operator()(int pixels) const { return MulDiv(pixels, m_dpi, kBaseDpi); }

 private:
  int m_dpi;
};

struct DialogBaseUnits {
  int x;  // horizontal: a dialog unit is x / 4 pixels
  int y;  // vertical: a dialog unit is y / 8 pixels
};

// The low and high words of GetDialogBaseUnits, as signed 16-bit values.
DialogBaseUnits SystemDialogBaseUnits();

}  // namespace deskaid
