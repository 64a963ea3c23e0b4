#include "deskaid/msgbox/internal/button_model.h"

#include "deskaid/msgbox/message_dialog.h"

namespace deskaid {
namespace {

struct ButtonSetRow {
  ButtonSpec buttons[3];
  int count;
  int layoutCount;
  unsigned closeFlags;
};

// Sets 0-9; Yes to All and No to All are inserted into sets 3 and 4 separately.
const ButtonSetRow kButtonSets[10] = {
    {{{IDOK, CAPTION_OK}}, 1, 1, kCloseOkOnly},
    {{{IDOK, CAPTION_OK}, {IDCANCEL, CAPTION_CANCEL}}, 2, 2, kCloseHasCancel},
    {{{IDABORT, CAPTION_ABORT}, {IDRETRY, CAPTION_RETRY}, {IDIGNORE, CAPTION_IGNORE}}, 3, 3, 0},
    {{{IDYES, CAPTION_YES}, {IDNO, CAPTION_NO}, {IDCANCEL, CAPTION_CANCEL}}, 3, 3, kCloseHasCancel},
    {{{IDYES, CAPTION_YES}, {IDNO, CAPTION_NO}}, 2, 2, 0},
    {{{IDRETRY, CAPTION_RETRY}, {IDCANCEL, CAPTION_CANCEL}}, 2, 2, kCloseHasCancel},
    {{{IDCANCEL, CAPTION_CANCEL}, {IDTRYAGAIN, CAPTION_TRYAGAIN}, {IDCONTINUE, CAPTION_CONTINUE}},
     3,
     3,
     kCloseHasCancel},
    {{{IDCONTINUE, CAPTION_CONTINUE}, {IDABORT, CAPTION_ABORT}}, 2, 2, 0},
    {{{IDSKIP, CAPTION_SKIP}, {IDSKIPALL, CAPTION_SKIPALL}, {IDCANCEL, CAPTION_CANCEL}},
     3,
     3,
     kCloseHasCancel},
    {{{IDIGNORE, CAPTION_IGNORE}, {IDIGNOREALL, CAPTION_IGNOREALL}, {IDCANCEL, CAPTION_CANCEL}},
     3,
     3,
     kCloseHasCancel},
};

}  // namespace

ButtonModel ResolveButtons(unsigned style, int customCount, bool help, bool report) {
  ButtonModel model{};
  if (customCount > 4) customCount = 4;
  if (customCount > 0) {
    for (int i = 0; i < customCount; ++i) model.buttons[model.count++] = {IDCUSTOM1 + i, -1};
    model.layoutCount = customCount;
  } else {
    const unsigned set = style & 0xF;
    if (set < 10) {
      const ButtonSetRow& row = kButtonSets[set];
      for (int i = 0; i < row.count; ++i) {
        model.buttons[model.count++] = row.buttons[i];
        // Yes to All follows Yes, No to All follows No, in the two Yes/No sets only.
        if (set == MB_YESNOCANCEL || set == MB_YESNO) {
          if (row.buttons[i].id == IDYES && (style & MDS_YESTOALL))
            model.buttons[model.count++] = {IDYESTOALL, CAPTION_YESTOALL};
          if (row.buttons[i].id == IDNO && (style & MDS_NOTOALL))
            model.buttons[model.count++] = {IDNOTOALL, CAPTION_NOTOALL};
        }
      }
      model.layoutCount = row.layoutCount;
      model.closeFlags = row.closeFlags;
    } else {
      // Undefined sets show a lone OK but make no room for it.
      model.buttons[model.count++] = {IDOK, CAPTION_OK};
    }
    // Each of the two bits widens the row for any set with a non-zero low three bits, also for
    // sets that never show the buttons.
    if (style & 7) {
      if (style & MDS_YESTOALL) ++model.layoutCount;
      if (style & MDS_NOTOALL) ++model.layoutCount;
    }
  }
  if (help) {
    model.buttons[model.count++] = {ID_HELPBUTTON, CAPTION_HELP};
    model.helpPosition = model.count;
    ++model.layoutCount;
  }
  if (report) {
    model.buttons[model.count++] = {ID_REPORTBUTTON, CAPTION_REPORT};
    model.reportPosition = model.count;
    ++model.layoutCount;
  }
  return model;
}

int DefaultButtonPosition(unsigned style, int layoutCount) {
  const unsigned bits = style & 0xF00;
  int position = bits <= 0x500 ? static_cast<int>(bits >> 8) + 1 : 1;
  if (position > layoutCount) position = 1;
  return position;
}

unsigned CheckBoxKind(unsigned style) {
  if (style & MDS_DONTASKAGAIN) return kCloseAskAgain;
  if (style & MDS_DONTTELLAGAIN) return kCloseTellAgain;
  if (style & MDS_DONTSHOWAGAIN) return kCloseShowAgain;
  return 0;
}

unsigned CheckBoxResultBit(unsigned closeFlags) {
  if (closeFlags & kCloseAskAgain) return MDS_DONTASKAGAIN;
  if (closeFlags & kCloseTellAgain) return MDS_DONTTELLAGAIN;
  if (closeFlags & kCloseShowAgain) return MDS_DONTSHOWAGAIN;
  return 0;
}

int CheckBoxCaptionSlot(unsigned closeFlags) {
  if (closeFlags & kCloseAskAgain) return CAPTION_DONTASKAGAIN;
  if (closeFlags & kCloseTellAgain) return CAPTION_DONTTELLAGAIN;
  if (closeFlags & kCloseShowAgain) return CAPTION_DONTSHOWAGAIN;
  return -1;
}

}  // namespace deskaid
