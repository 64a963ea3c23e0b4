// One control of an in-memory dialog template: its DLGITEMTEMPLATE fields in dialog units, the
// class atom written for it and its caption.
#pragma once

#include <windows.h>

#include <cstddef>
#include <string>

// Item kinds, which select the class atom and the style.
constexpr int kItemKindScrollBar = 0x7F;  // defined for completeness, not used by the message box
constexpr int kItemKindButton = 0x80;     // push button
constexpr int kItemKindEdit = 0x81;       // defined for completeness, not used by the message box
constexpr int kItemKindStatic = 0x82;     // icon holder and message text
constexpr int kItemKindCheckBox = 0x83;   // written as a button of the auto-check-box style

class CXDialogItem {
 public:
  CXDialogItem() = default;
  virtual ~CXDialogItem() = default;
  CXDialogItem(const CXDialogItem&) = delete;
  CXDialogItem& operator=(const CXDialogItem&) = delete;

  // Fills the item: `rect` in pixels is converted to dialog units with the system's dialog base
  // units; without a rect the item is 10 by 10 units at the origin. A null caption is empty.
  void Initialize(int kind, unsigned id, const RECT* rect, const char* caption);

  // Makes a push button the default one (BS_DEFPUSHBUTTON).
  void MakeDefault() { m_dwStyle |= BS_DEFPUSHBUTTON; }

  DWORD Style() const { return m_dwStyle; }
  short X() const { return m_x; }
  short Y() const { return m_y; }
  short Cx() const { return m_cx; }
  short Cy() const { return m_cy; }
  WORD Id() const { return m_wId; }
  DWORD ClassAtom() const { return m_dwClass; }
  const char* Caption() const { return m_strCaption.c_str(); }

  // Length of the caption in UTF-16 units, terminating zero included.
  int WideCaptionLength() const;

  // Writes the item (fields, class atom, UTF-16 caption, creation-data size) at `dest` and
  // returns the bytes written. `dest` must hold 24 + 2 * WideCaptionLength() bytes.
  size_t Write(unsigned char* dest) const;

 private:
  DWORD m_dwStyle = 0;
  DWORD m_dwExtendedStyle = 0;
  short m_x = 0;
  short m_y = 0;
  short m_cx = 0;
  short m_cy = 0;
  WORD m_wId = 0;
  DWORD m_dwClass = 0;
  std::string m_strCaption;
};
