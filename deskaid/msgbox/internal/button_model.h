// Which push buttons a request shows, in which order, how much room the layout makes for them,
// how Cancel and Escape behave, which check box appears and which position is the default.
#pragma once

namespace deskaid {

// Close flags: the check box kind (0x1 ask, 0x2 tell, 0x4 show) and the close behaviour of the
// button set, which decides what Cancel, Escape and the system menu's Close do.
constexpr unsigned kCloseAskAgain = 0x1;
constexpr unsigned kCloseTellAgain = 0x2;
constexpr unsigned kCloseShowAgain = 0x4;
constexpr unsigned kCloseHasCancel = 0x8;
constexpr unsigned kCloseOkOnly = 0x10;

struct ButtonSpec {
  int id;
  int captionSlot;  // a ButtonCaptionSlot; unused for custom buttons
};

// The buttons of the set selected by `style` (or of a custom list), then Help and Report.
struct ButtonModel {
  ButtonSpec buttons[8];
  int count;        // buttons shown, Help and Report included
  int layoutCount;  // buttons the row makes room for; may differ from `count` (kept quirks)
  unsigned closeFlags;
  int helpPosition;    // 1-based push-button position of Help, 0 when absent
  int reportPosition;  // likewise for Report
};

// `customCount` (0-4) custom buttons replace the set; their captions are the caller's.
ButtonModel ResolveButtons(unsigned style, int customCount, bool help, bool report);

// The default position 1-6 from style & 0xF00, falling back to 1 past the layout count.
int DefaultButtonPosition(unsigned style, int layoutCount);

// kCloseAskAgain / kCloseTellAgain / kCloseShowAgain for the one check box shown, or 0.
unsigned CheckBoxKind(unsigned style);

// The result bit (an MDS_DONT* bit) for a check box kind, or 0.
unsigned CheckBoxResultBit(unsigned closeFlags);

// The caption slot of a check box kind; -1 for none.
int CheckBoxCaptionSlot(unsigned closeFlags);

}  // namespace deskaid
