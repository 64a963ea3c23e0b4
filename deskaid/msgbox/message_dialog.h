// The message box engine's request: the entry function, its style bits, the parameter record and
// the ids a message box can return. A message box built here goes beyond the system one: more
// button sets, localisable or caller-supplied captions, up to four caller-named buttons, Help and
// Report buttons, a "don't ask again" check box, a countdown, a disabled period, a custom icon and
// an explicit position. Nothing is remembered between calls; the check box state comes back in
// the result and keeping it is the caller's business.
#pragma once

#include <windows.h>

// Button sets beyond the Win32 ones (style & 0xF). MB_OK ... MB_CANCELTRYCONTINUE keep their
// Win32 values 0-6.
#ifndef MB_CANCELTRYCONTINUE
#define MB_CANCELTRYCONTINUE 0x00000006L
#endif
constexpr unsigned MDS_CONTINUEABORT = 7;
constexpr unsigned MDS_SKIPSKIPALLCANCEL = 8;
constexpr unsigned MDS_IGNOREIGNOREALLCANCEL = 9;

// Style bits of the engine's own (the high byte); the low bits keep their MB_* meanings.
constexpr unsigned MDS_DONTASKAGAIN = 0x01000000;   // check box "Don't ask me again"
constexpr unsigned MDS_DONTTELLAGAIN = 0x02000000;  // check box "Don't tell me again"
constexpr unsigned MDS_DONTSHOWAGAIN = 0x04000000;  // check box "Don't show again"
constexpr unsigned MDS_YESTOALL = 0x08000000;       // Yes to All (button sets 3 and 4)
constexpr unsigned MDS_NOTOALL = 0x10000000;        // No to All (button sets 3 and 4)
constexpr unsigned MDS_NORESOURCE = 0x20000000;     // built-in English captions only
constexpr unsigned MDS_NOSOUND = 0x40000000;        // no beep

// Option bits of MessageDialogParams::dwOptions.
constexpr unsigned MDO_RIGHTJUSTIFY = 0x1;

// Result bit: the countdown ended the dialog (the id is then the default button's).
constexpr unsigned MDR_TIMEOUT = 0x80000000u;

// Button and control ids beyond the Win32 IDOK ... IDCONTINUE.
#ifndef IDTRYAGAIN
#define IDTRYAGAIN 10
#endif
#ifndef IDCONTINUE
#define IDCONTINUE 11
#endif
constexpr int IDSKIP = 14;
constexpr int IDSKIPALL = 15;
constexpr int IDIGNOREALL = 16;
constexpr int IDYESTOALL = 19;
constexpr int IDNOTOALL = 20;
constexpr int IDCUSTOM1 = 23;
constexpr int IDCUSTOM2 = 24;
constexpr int IDCUSTOM3 = 25;
constexpr int IDCUSTOM4 = 26;
constexpr int ID_HELPBUTTON = 300;
constexpr int ID_REPORTBUTTON = 301;
constexpr int ID_ICON = 1000;
constexpr int ID_FIRSTTEXT = 1001;
constexpr int ID_CHECKBOX = 5555;

// Number of caption slots, and their fixed (alphabetical) order.
constexpr int kButtonCaptionCount = 19;
enum ButtonCaptionSlot {
  CAPTION_ABORT = 0,
  CAPTION_CANCEL,
  CAPTION_CONTINUE,
  CAPTION_DONTASKAGAIN,
  CAPTION_DONTTELLAGAIN,
  CAPTION_DONTSHOWAGAIN,
  CAPTION_HELP,
  CAPTION_IGNORE,
  CAPTION_IGNOREALL,
  CAPTION_NO,
  CAPTION_NOTOALL,
  CAPTION_OK,
  CAPTION_REPORT,
  CAPTION_RETRY,
  CAPTION_SKIP,
  CAPTION_SKIPALL,
  CAPTION_TRYAGAIN,
  CAPTION_YES,
  CAPTION_YESTOALL,
};

// Caller-supplied captions, one per slot in the order above. Keep each within 99 characters.
struct ButtonCaptionSet {
  char szAbort[260];
  char szCancel[260];
  char szContinue[260];
  char szDontAskAgain[260];
  char szDontTellAgain[260];
  char szDontShowAgain[260];
  char szHelp[260];
  char szIgnore[260];
  char szIgnoreAll[260];
  char szNo[260];
  char szNoToAll[260];
  char szOK[260];
  char szReport[260];
  char szRetry[260];
  char szSkip[260];
  char szSkipAll[260];
  char szTryAgain[260];
  char szYes[260];
  char szYesToAll[260];
};

// Called when the Report button is pressed, with the message text and the caller's data. The
// dialog stays open.
using ReportCallback = void (*)(const char* messageText, void* reportData);

// The request record. A default-constructed record is all zero (every number, pointer and
// text), which asks for nothing beyond the style bits.
struct MessageDialogParams {
  int nHelpContextId = 0;    // Help button context id; 0 opens the keyword search
  int nTimeoutSeconds = 0;   // countdown that presses the default button; 0 = none
  int nDisabledSeconds = 0;  // buttons disabled this long; negative = for good; 0 = none
  int nX = 0;                // screen position of the top-left corner; both 0 = centred
  int nY = 0;
  DWORD dwOptions = 0;                // MDO_* bits
  HINSTANCE hStringModule = nullptr;  // message, caption, captions; null = the host executable
  HINSTANCE hIconModule = nullptr;    // icon resources; null = the host executable
  UINT nIconId = 0;                   // icon resource id (low 16 bits); 0 = none
  char szIconName[260] = {};          // icon name, used when nIconId is 0 (loaded, never shown)
  UINT nCustomButtonsId = 0;          // string resource with newline-separated button captions
  char szCustomButtons[260] = {};     // the same list as text, when the resource gives nothing
  UINT nReportCaptionId = 0;          // string resource with the Report caption
  char szReportCaption[260] = {};     // Report caption text, when the resource gives nothing
  char szReserved[260] = {};
  DWORD dwReserved1 = 0;
  DWORD dwReserved2 = 0;
  void* pReportData = nullptr;         // handed to pfnReport
  ReportCallback pfnReport = nullptr;  // non-null adds a Report button
  BOOL bUserCaptions = FALSE;          // non-zero: every caption from UserCaptions
  ButtonCaptionSet UserCaptions = {};
};

// Shows a modal message box and returns the id of the button that ended it, OR the check box bit
// (the MDS_DONT* bit that asked for it) when the box was ticked, OR MDR_TIMEOUT when the countdown
// ended it. `text` may be a string resource id (below 0x10000) of the string module; `caption`
// must be text or null ("Error" is used for null or empty). MB_ICONHAND | MB_SYSTEMMODAL hands the
// whole request to the system message box.
int ShowMessageDialog(HWND owner, const char* text, const char* caption, unsigned style,
                      const MessageDialogParams* params);
