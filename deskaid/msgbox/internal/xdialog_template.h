// Turns one message box request into an in-memory Win32 dialog template: measures the text, lays
// out the icon, message, buttons and check box in pixels, converts them to dialog units, writes a
// DLGTEMPLATE with its items and runs it modally with MessageDialogProc, which hands the shown
// dialog's messages to the object's handlers (defined in message_dialog_proc.cpp).
#pragma once

#include <windows.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "deskaid/msgbox/internal/button_captions.h"
#include "deskaid/msgbox/message_dialog.h"
#include "deskaid/msgbox/internal/dialog_units.h"
#include "deskaid/msgbox/internal/xdialog_item.h"

// The dialog procedure and the icon control's window procedure of the message box.
INT_PTR CALLBACK MessageDialogProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);
LRESULT CALLBACK IconPaintProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);

class CXDialogTemplate {
 public:
  static constexpr int kMaxItems = 20;
  static constexpr size_t kTextBufferSize = 65536;
  // A name as the request gives it (icon name, custom button list, one custom caption) fills at
  // most kNameLimit bytes of kNameSize; the list's first kMaxCustomButtons entries count.
  static constexpr size_t kNameSize = 260;
  static constexpr size_t kNameLimit = kNameSize - 1;
  static constexpr int kMaxCustomButtons = 4;
  // The push buttons of the sets and the custom buttons have ids in this range; Help, Report, the
  // icon, the texts and the check box lie outside it and are never disabled.
  static constexpr int kFirstButtonId = IDOK;
  static constexpr int kLastButtonId = IDCUSTOM4;
  // The shown dialog's timers: the countdown ticks every second, the end of the disabled period
  // fires once.
  static constexpr UINT_PTR kCountdownTimer = 1;
  static constexpr UINT_PTR kEnableTimer = 2;
  static constexpr UINT kMillisecondsPerSecond = 1000;
  // Room after the default button's own caption for the countdown's " = N".
  static constexpr size_t kCountdownSuffixSize = 16;
  // The help file's path: the host's path is read into at most kHelpPathLimit bytes of the
  // buffer, which leaves room for ".hlp" in place of a shorter extension.
  static constexpr size_t kHelpPathSize = 524;
  static constexpr DWORD kHelpPathLimit = 519;
  // A control's class name, read to tell push buttons from the rest; any real name fits.
  static constexpr int kClassNameSize = 258;

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

  // The shown dialog's handlers, called by MessageDialogProc for its window `hwnd`. Each returns
  // what the dialog procedure returns for its message.
  INT_PTR OnInitDialog(HWND hwnd);
  INT_PTR OnTimer(HWND hwnd, WPARAM timer);
  INT_PTR OnCommand(HWND hwnd, WPARAM wParam);
  // Stops the countdown for good and gives the default button its own caption back.
  void StopCountdown(HWND hwnd);

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
  // The rectangles, in pixels, that the layout's steps settle one after another.
  struct LayoutRects {
    RECT text;    // the message control
    RECT dialog;  // the dialog's client room
    RECT icon;    // the icon holder; empty without one
    RECT row;     // the button row, down to the check box when there is one
  };

  void LoadText(const char* source, char* buffer);
  void SettleReportCaption(const MessageDialogParams& params);
  int LoadCustomButtons(const MessageDialogParams& params, char (*names)[kNameSize]);
  HICON LoadRequestedIcon(const MessageDialogParams& params, bool& makesRoom) const;

  // The layout, and its steps in the order it takes them.
  void Layout(const MessageDialogParams& params, int customCount, char (*customNames)[kNameSize]);
  void MeasureMessage(HDC dc, const deskaid::ScaleFor96Dpi& Px, LayoutRects& r) const;
  void AddIconItem(const MessageDialogParams& params, const deskaid::ScaleFor96Dpi& Px,
                   LayoutRects& r);
  void AddButtonRow(const deskaid::ScaleFor96Dpi& Px, int customCount,
                    char (*customNames)[kNameSize], LayoutRects& r);
  void AddCheckBoxIfAsked(HDC dc, LayoutRects& r);

  // The parts of the handlers.
  void SetUpControls(HWND hwnd) const;
  void AttachIconPainter(HWND hwnd) const;
  void Place(HWND hwnd) const;
  void CountDown(HWND hwnd);
  void EndDisabledPeriod(HWND hwnd) const;
  void OpenHelp(HWND hwnd) const;

  std::unique_ptr<CXDialogItem> m_pItems[kMaxItems];
  ReportCallback m_pfnReport = nullptr;
  void* m_pReportData = nullptr;
  unsigned m_dwCloseFlags = 0;
  int m_nButtonCount = 0;      // push buttons added so far
  int m_nDefaultPosition = 1;  // 1-6
  int m_nTimeoutSeconds = 0;   // counts down while the dialog runs
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
  char m_szCustomButtons[kNameSize] = {};
  char m_szReserved[kNameSize] = {};
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
