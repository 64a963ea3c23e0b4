#include "deskaid/msgbox/internal/xdialog_item.h"

#include <cstring>

#include "deskaid/msgbox/internal/dialog_units.h"
#include "deskaid/msgbox/internal/template_bytes.h"

namespace {

using deskaid::PutU16;
using deskaid::PutU32;
using deskaid::PutWideText;

DWORD StyleOfKind(int kind) {
  switch (kind) {
    case kItemKindScrollBar: return WS_CHILD | WS_VISIBLE | 0x3;
    case kItemKindButton: return WS_CHILD | WS_VISIBLE | WS_TABSTOP | BS_PUSHBUTTON;
    case kItemKindEdit: return WS_CHILD | WS_VISIBLE | WS_TABSTOP | 0x4;
    case kItemKindStatic: return WS_CHILD | WS_VISIBLE | SS_LEFT;
    case kItemKindCheckBox: return WS_CHILD | WS_VISIBLE | WS_TABSTOP | BS_AUTOCHECKBOX;
    default: return WS_CHILD | WS_VISIBLE;
  }
}

}  // namespace

void CXDialogItem::Initialize(int kind, unsigned id, const RECT* rect, const char* caption) {
  // The check box is a button control; its style tells the dialog manager what it is.
  m_dwClass = kind == kItemKindCheckBox ? kItemKindButton : static_cast<DWORD>(kind);
  if (rect != nullptr) {
    const deskaid::DialogBaseUnits units = deskaid::SystemDialogBaseUnits();
    m_x = static_cast<short>(rect->left * 4 / units.x);
    m_y = static_cast<short>(rect->top * 8 / units.y);
    m_cx = static_cast<short>((rect->right - rect->left) * 4 / units.x);
    m_cy = static_cast<short>((rect->bottom - rect->top) * 8 / units.y);
  } else {
    m_x = m_y = 0;
    m_cx = m_cy = 10;
  }
  m_dwExtendedStyle = 0;
  m_wId = static_cast<WORD>(id);
  m_dwStyle = StyleOfKind(kind);
  m_strCaption = caption != nullptr ? caption : "";
}

int CXDialogItem::WideCaptionLength() const {
  return MultiByteToWideChar(CP_ACP, 0, m_strCaption.c_str(), -1, nullptr, 0);
}

size_t CXDialogItem::Write(unsigned char* dest) const {
  PutU32(dest + 0, m_dwStyle);
  PutU32(dest + 4, m_dwExtendedStyle);
  PutU16(dest + 8, static_cast<unsigned short>(m_x));
  PutU16(dest + 10, static_cast<unsigned short>(m_y));
  PutU16(dest + 12, static_cast<unsigned short>(m_cx));
  PutU16(dest + 14, static_cast<unsigned short>(m_cy));
  PutU16(dest + 16, m_wId);
  PutU16(dest + 18, 0xFFFF);  // the class follows as an atom
  PutU16(dest + 20, static_cast<unsigned>(m_dwClass));
  // An empty caption stands when the text cannot be converted.
  int written = PutWideText(dest + 22, m_strCaption.c_str());
  if (written <= 0) {
    PutU16(dest + 22, 0);
    written = 2;
  }
  const size_t captionBytes = static_cast<size_t>(written);
  PutU16(dest + 22 + captionBytes, 0);  // no creation data
  return 24 + captionBytes;
}
