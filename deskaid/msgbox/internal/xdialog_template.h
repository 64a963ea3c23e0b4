// Turns one message box request into an in-memory Win32 dialog template: measures the text, lays
// out the icon, message, buttons and check box in pixels, converts them to dialog units, writes a
// DLGTEMPLATE with its items and runs it modally with MessageDialogProc.
#pragma once

#include <windows.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "deskaid/msgbox/internal/button_captions.h"
#include "deskaid/msgbox/message_dialog.h"
#include "deskaid/msgbox/internal/xdialog_item.h"

// The dialog procedure and the icon control's window procedure of the message box.
INT_PTR CALLBACK MessageDialogProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);
LRESULT CALLBACK IconPaintProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);

class CXDialogTemplate {
 public:
  static constexpr int kMaxItems = 20;
  static constexpr size_t kTextBufferSize = 65536;

  // Builds everything: texts, captions, button model and the layout. `text` and `caption` may
  // each be a string resource id below 0x10000. `params` may be null.
  CXDialogTemplate(HWND owner, const char* text, const char* caption, unsigned style,
                   const MessageDialogParams* params);
  virtual ~CXDialogTemplate();
  CXDialogTemplate(const CXDialogTemplate&) = delete;
  CXDialogTemplate& operator=(const CXDialogTemplate&) = delete;

  // Adds a control of `kind` (kItemKind*) with `rect` in pixels, or 10 by 10 units when null.
  void AddItem(int kind, unsigned id, const RECT* rect, const char* caption);

  // Lays out and adds the check box under the button row; widens the dialog to hold it.
  void AddCheckBox(HDC dc, int& x, int& y, RECT& itemRect, RECT& dialogRect, RECT& buttonRect,
                   RECT& measureRect, const char* caption);

  // Caption sources: the English table, string resources 9001-9019 of `module` (English where one
  // is missing), or the caller's set.
  void LoadButtonStrings();
  void LoadButtonStringsFromResources(HINSTANCE module);
  void LoadUserDefinedButtonStrings(const ButtonCaptionSet* captions);

  // The template as the platform reads it. TemplateSize is the allocation size; WriteTemplate
  // fills a zeroed block of that size and returns false when the object could not get its
  // buffers. TemplateBytes does both into a vector (empty on failure).
  size_t TemplateSize() const;
  bool WriteTemplate(unsigned char* dest) const;
  std::vector<unsigned char> TemplateBytes() const;

  // The box as text for the clipboard, in the layout of the system's message box: dashes, the
  // title, dashes, the message, dashes, every push button's caption without its access-key
  // ampersand and followed by three spaces, dashes. Every line ends in CR LF, the message's own
  // line breaks included. The check box is not part of it. Empty when the buffers are missing.
  std::string ClipboardText() const;

  // Writes the template into moveable memory and runs it modally. Returns the dialog's result,
  // 2 when the memory cannot be had, and DialogBoxIndirectParamA's failure value when it fails.
  int Display();

  // What the request settled.
  const char* ButtonCaption(int slot) const;
  const char* MessageText() const { return m_pszMessageText ? m_pszMessageText.get() : ""; }
  const char* Caption() const { return m_pszCaption ? m_pszCaption.get() : ""; }
  int DefaultButtonId() const { return m_nDefaultButtonId; }
  int DefaultPosition() const { return m_nDefaultPosition; }
  unsigned CloseFlags() const { return m_dwCloseFlags; }
  int ItemCount() const { return m_nItemCount; }
  const CXDialogItem* Item(int index) const;
  HICON Icon() const { return m_hIcon; }
  HFONT Font() const { return m_hFont; }

 private:
  friend INT_PTR CALLBACK MessageDialogProc(HWND, UINT, WPARAM, LPARAM);

  void LoadText(const char* source, char* buffer);
  void SettleReportCaption(const MessageDialogParams& params);
  int LoadCustomButtons(const MessageDialogParams& params, char (*names)[260]);
  void Layout(const MessageDialogParams& params, int customCount, char (*customNames)[260]);
  HICON LoadRequestedIcon(const MessageDialogParams& params, bool& makesRoom) const;

  std::unique_ptr<CXDialogItem> m_pItems[kMaxItems];
  ReportCallback m_pfnReport = nullptr;
  void* m_pReportData = nullptr;
  unsigned m_dwCloseFlags = 0;
  int m_nButtonCount = 0;       // push buttons added so far
  int m_nDefaultPosition = 1;   // 1-6
  int m_nTimeoutSeconds = 0;    // counts down while the dialog runs
  int m_nDisabledSeconds = 0;
  int m_nX = 0;
  int m_nY = 0;
  unsigned m_nNextTextId = ID_FIRSTTEXT;
  int m_nDefaultButtonId = 1;
  int m_nHelpContextId = 0;
  unsigned m_nStyle = 0;
  bool m_bRightJustify = false;
  DWORD m_dwReserved1 = 0;
  DWORD m_dwReserved2 = 0;
  HWND m_hOwner = nullptr;
  HINSTANCE m_hStringModule = nullptr;
  HINSTANCE m_hIconModule = nullptr;
  std::unique_ptr<char[]> m_pszMessageText;
  std::unique_ptr<char[]> m_pszCaption;
  char m_szCustomButtons[260] = {};
  char m_szReserved[260] = {};
  HICON m_hIcon = nullptr;
  HFONT m_hFont = nullptr;
  // DLGTEMPLATE header fields.
  DWORD m_dwDialogStyle = 0;
  DWORD m_dwDialogExtendedStyle = 0;
  WORD m_nItemCount = 0;
  short m_x = 0;
  short m_y = 0;
  short m_cx = 0;
  short m_cy = 0;
  char m_szDefaultCaption[deskaid::kCaptionSlotSize] = {};  // saved by the countdown
  char m_szCaptions[kButtonCaptionCount][deskaid::kCaptionSlotSize] = {};
};
