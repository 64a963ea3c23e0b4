#include "deskaid/msgbox/internal/xdialog_template.h"

#include <mbstring.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>

#include "deskaid/common/ansi_text.h"
#include "deskaid/common/internal/platform.h"
#include "deskaid/diag/debug_trace.h"
#include "deskaid/msgbox/internal/button_model.h"
#include "deskaid/msgbox/internal/dialog_units.h"
#include "deskaid/msgbox/internal/template_bytes.h"
#include "deskaid/ui/scoped_gdi.h"

namespace {

using deskaid::PutU16;
using deskaid::PutU32;
using deskaid::PutWideText;
using deskaid::ScaleFor96Dpi;

// Text formats: measuring the message (word-wrapped, tabs expanded, '&' shown as is) and the
// check box caption (one line).
constexpr UINT kMeasureMessage = DT_CALCRECT | DT_WORDBREAK | DT_EXPANDTABS | DT_NOPREFIX;
constexpr UINT kMeasureCheckBox = DT_CALCRECT | DT_NOPREFIX | DT_SINGLELINE;

constexpr DWORD kDialogStyle =
    WS_POPUP | WS_VISIBLE | WS_CAPTION | WS_SYSMENU | DS_CENTER | DS_MODALFRAME;

// The size NONCLIENTMETRICSA has had since the padded border width was added.
constexpr UINT kNonClientMetricsSize = 344;

constexpr size_t kTitleLimit = 1023;

// The layout's pixel constants, for 96 dots per inch (ScaleFor96Dpi scales those that scale; the
// two used while measuring the message are screen pixels and stay as they are).
// The message is measured at most half the screen wide plus this much, less the room of a system
// icon and its gap when the style asks for one.
constexpr int kMessageWrapExtra = 80;
constexpr int kMeasuredIconGap = 16;
// The message control's top left corner, and how far its right and bottom edges lie beyond the
// measured text's width and height.
constexpr int kMessageLeft = 16;
constexpr int kMessageTop = 16;
constexpr int kMessageRightEdge = 28;
constexpr int kMessageBottomEdge = 21;
// The icon sits this far from the dialog's top left corner and pushes the message right by its
// width plus the same gap; its control reaches this far beyond the icon's size.
constexpr int kIconGap = 8;
constexpr int kIconFarEdge = 10;
// Push buttons: the size of one, the gap between two, and the room a countdown's " = N" adds.
constexpr int kButtonWidth = 78;
constexpr int kButtonHeight = 23;
constexpr int kButtonGap = 6;
constexpr int kButtonPitch = kButtonWidth + kButtonGap;
constexpr int kCountdownExtraWidth = 22;
// The row's distance below the message or icon, the dialog's bottom margin under it, the least
// width of dialog beside it (both sides together), and the room kept around it at the end.
constexpr int kRowTopGap = 10;
constexpr int kRowBottomMargin = 12;
constexpr int kRowSideRoom = 32;
constexpr int kRoomAroundRow = 16;
// The check box: its left edge, its top below the row's top, its height, and the dialog's bottom
// below its top.
constexpr int kCheckBoxLeft = 17;
constexpr int kCheckBoxBelowRowTop = 35;
constexpr int kCheckBoxHeight = 16;
constexpr int kCheckBoxBottomMargin = 24;

char (ButtonCaptionSet::*const kUserCaptionFields[kButtonCaptionCount])[260] = {
    &ButtonCaptionSet::szAbort,         &ButtonCaptionSet::szCancel,
    &ButtonCaptionSet::szContinue,      &ButtonCaptionSet::szDontAskAgain,
    &ButtonCaptionSet::szDontTellAgain, &ButtonCaptionSet::szDontShowAgain,
    &ButtonCaptionSet::szHelp,          &ButtonCaptionSet::szIgnore,
    &ButtonCaptionSet::szIgnoreAll,     &ButtonCaptionSet::szNo,
    &ButtonCaptionSet::szNoToAll,       &ButtonCaptionSet::szOK,
    &ButtonCaptionSet::szReport,        &ButtonCaptionSet::szRetry,
    &ButtonCaptionSet::szSkip,          &ButtonCaptionSet::szSkipAll,
    &ButtonCaptionSet::szTryAgain,      &ButtonCaptionSet::szYes,
    &ButtonCaptionSet::szYesToAll,
};

// Copies at most `limit` bytes of `source` (stopping at its end) and terminates the copy, so
// `dest` needs limit + 1 bytes; a source without a terminator within `limit` is never overread.
// A copy cut at the limit ends on a whole character.
void CopyBounded(char* dest, const char* source, size_t limit) {
  size_t n = 0;
  while (n < limit && source[n] != '\0') {
    dest[n] = source[n];
    ++n;
  }
  dest[n] = '\0';
  if (n == limit && source[n] != '\0') deskaid::platform::EndOnWholeCharacter(dest, n);
}

// The bytes of the caption that make the title: at most kTitleLimit, ending on a whole character.
size_t TitleBytes(const char* caption) {
  const size_t n = strnlen(caption, kTitleLimit);
  return n == kTitleLimit && caption[n] != '\0' ? deskaid::platform::WholeCharacters(caption, n)
                                                : n;
}

// A text argument below this address is a string resource id, as MAKEINTRESOURCE makes it.
constexpr std::uintptr_t kResourceIdLimit = 0x10000;

bool IsResourceId(const char* text) {
  return reinterpret_cast<std::uintptr_t>(text) < kResourceIdLimit;
}

}  // namespace

CXDialogTemplate::CXDialogTemplate(HWND owner, const char* text, const char* caption,
                                   unsigned style, const MessageDialogParams* params) {
  // The request is copied whole; the heap keeps the 6 KiB record off a caller's small stack.
  std::unique_ptr<MessageDialogParams> copy(new (std::nothrow) MessageDialogParams());
  if (!copy) return;
  if (params != nullptr) *copy = *params;
  const MessageDialogParams& p = *copy;

  m_hOwner = owner;
  m_nStyle = style;
  m_pfnReport = p.pfnReport;
  m_pReportData = p.pReportData;
  m_nTimeoutSeconds = p.nTimeoutSeconds;
  m_nDisabledSeconds = p.nDisabledSeconds;
  m_nX = p.nX;
  m_nY = p.nY;
  m_nHelpContextId = p.nHelpContextId;
  m_bRightJustify = (p.dwOptions & MDO_RIGHTJUSTIFY) != 0;
  m_dwReserved1 = p.dwReserved1;
  m_dwReserved2 = p.dwReserved2;
  std::memcpy(m_szReserved, p.szReserved, sizeof m_szReserved);
  m_szReserved[sizeof m_szReserved - 1] = '\0';
  m_hStringModule = p.hStringModule != nullptr ? p.hStringModule : GetModuleHandleA(nullptr);
  m_hIconModule = p.hIconModule != nullptr ? p.hIconModule : GetModuleHandleA(nullptr);

  m_pszMessageText.reset(new (std::nothrow) char[kTextBufferSize]());
  m_pszCaption.reset(new (std::nothrow) char[kTextBufferSize]());
  if (!m_pszMessageText || !m_pszCaption) {
    // Without its buffers the object cannot make a template; Display reports it.
    m_pszMessageText.reset();
    m_pszCaption.reset();
    return;
  }
  LoadText(text, m_pszMessageText.get());
  LoadText(caption, m_pszCaption.get());

  // The Report caption comes first, so the caption sources below leave a given one alone.
  SettleReportCaption(p);
  if (p.bUserCaptions)
    LoadUserDefinedButtonStrings(&p.UserCaptions);
  else if (!(style & MDS_NORESOURCE))
    LoadButtonStringsFromResources(m_hStringModule);
  else
    LoadButtonStrings();

  char customNames[kMaxCustomButtons][kNameSize];
  const int customCount = LoadCustomButtons(p, customNames);
  m_dwCloseFlags = deskaid::CheckBoxKind(style);
  Layout(p, customCount, customNames);
}

CXDialogTemplate::~CXDialogTemplate() {
  if (m_hIcon != nullptr) DestroyIcon(m_hIcon);
  if (m_hFont != nullptr) DeleteObject(m_hFont);
}

void CXDialogTemplate::LoadText(const char* source, char* buffer) {
  buffer[0] = '\0';
  if (source == nullptr) {
    // Nothing to show.
  } else if (IsResourceId(source)) {
    const UINT id = static_cast<UINT>(reinterpret_cast<std::uintptr_t>(source));
    if (LoadStringA(m_hStringModule, id, buffer, static_cast<int>(kTextBufferSize - 1)) <= 0)
      buffer[0] = '\0';
  } else {
    _mbsnbcpy(reinterpret_cast<unsigned char*>(buffer),
              reinterpret_cast<const unsigned char*>(source), kTextBufferSize - 1);
    buffer[kTextBufferSize - 1] = '\0';
    if (strnlen(source, kTextBufferSize) == kTextBufferSize)  // cut at the limit
      deskaid::platform::EndOnWholeCharacter(buffer, std::strlen(buffer));
  }
  buffer[kTextBufferSize - 1] = '\0';
}

void CXDialogTemplate::SettleReportCaption(const MessageDialogParams& p) {
  char* slot = m_szCaptions[CAPTION_REPORT];
  if (p.nReportCaptionId != 0)
    LoadStringA(m_hStringModule, p.nReportCaptionId, slot, deskaid::kCaptionSlotSize - 1);
  if (slot[0] == '\0' && p.szReportCaption[0] != '\0')
    CopyBounded(slot, p.szReportCaption, deskaid::kCaptionSlotSize - 1);
  slot[deskaid::kCaptionSlotSize - 1] = '\0';
}

int CXDialogTemplate::LoadCustomButtons(const MessageDialogParams& p, char (*names)[kNameSize]) {
  char* list = m_szCustomButtons;
  std::memset(list, 0, sizeof m_szCustomButtons);
  if (p.nCustomButtonsId != 0)
    LoadStringA(m_hStringModule, p.nCustomButtonsId, list, static_cast<int>(kNameLimit));
  if (list[0] == '\0' && p.szCustomButtons[0] != '\0')
    CopyBounded(list, p.szCustomButtons, kNameLimit);
  list[kNameLimit] = '\0';

  // The tokeniser skips empty entries between two newlines; only the first four count.
  unsigned char work[kNameSize];
  std::memcpy(work, list, sizeof work);
  const unsigned char separators[] = "\n";
  int count = 0;
  for (unsigned char* token = _mbstok(work, separators);
       token != nullptr && count < kMaxCustomButtons; token = _mbstok(nullptr, separators)) {
    std::strcpy(names[count++], reinterpret_cast<const char*>(token));
  }
  return count;
}

HICON CXDialogTemplate::LoadRequestedIcon(const MessageDialogParams& p, bool& makesRoom) const {
  makesRoom = false;
  if (p.nIconId != 0) {
    makesRoom = true;
    return LoadIconA(m_hIconModule, MAKEINTRESOURCEA(p.nIconId & 0xFFFF));
  }
  if (p.szIconName[0] != '\0') {
    // Loaded and released, but given neither a control nor room: a named icon is never shown.
    char name[kNameSize];
    std::memcpy(name, p.szIconName, sizeof name);
    name[kNameLimit] = '\0';
    return LoadIconA(m_hIconModule, name);
  }
  const unsigned icon = m_nStyle & MB_ICONMASK;
  if (icon == 0) return nullptr;
  makesRoom = true;
  switch (icon) {
    case MB_ICONHAND: return LoadIconA(nullptr, IDI_HAND);
    case MB_ICONQUESTION: return LoadIconA(nullptr, IDI_QUESTION);
    case MB_ICONASTERISK: return LoadIconA(nullptr, IDI_ASTERISK);
    default: return LoadIconA(nullptr, IDI_EXCLAMATION);
  }
}

void CXDialogTemplate::Layout(const MessageDialogParams& p, int customCount,
                              char (*customNames)[kNameSize]) {
  deskaid::ScopedDisplayDC dc;
  NONCLIENTMETRICSA metrics;
  static_assert(sizeof metrics >= kNonClientMetricsSize, "NONCLIENTMETRICSA too small");
  std::memset(&metrics, 0, sizeof metrics);
  metrics.cbSize = kNonClientMetricsSize;
  SystemParametersInfoA(SPI_GETNONCLIENTMETRICS, kNonClientMetricsSize, &metrics, 0);
  m_hFont = CreateFontIndirectA(&metrics.lfMessageFont);
  // Texts are measured in the message font, given back before the context goes.
  deskaid::ScopedSelection font(dc);
  if (dc != nullptr) font.Select(m_hFont);
  const ScaleFor96Dpi Px(dc);

  LayoutRects r = {};
  MeasureMessage(dc, Px, r);

  // The dialog header: a centred modal frame, system modal when asked; no items yet.
  m_dwDialogStyle = kDialogStyle | ((m_nStyle & MB_SYSTEMMODAL) ? DS_SYSMODAL : 0);
  m_dwDialogExtendedStyle = 0;
  m_nItemCount = 0;
  m_x = m_y = 0;

  AddIconItem(p, Px, r);
  AddItem(kItemKindStatic, m_nNextTextId++, &r.text, m_pszMessageText.get());
  AddButtonRow(Px, customCount, customNames, r);
  AddCheckBoxIfAsked(dc, r);

  // Whatever ended lowest or widest, the dialog keeps a margin around the row (and check box).
  if (r.row.bottom >= r.dialog.bottom) r.dialog.bottom = r.row.bottom + Px(kRoomAroundRow);
  if (r.dialog.right < r.row.right + Px(kRoomAroundRow))
    r.dialog.right = r.row.right + Px(kRoomAroundRow);

  // The template gives the dialog's size in dialog units (a quarter of the base width, an eighth
  // of the base height); DS_CENTER or the dialog procedure places it.
  const deskaid::DialogBaseUnits units = deskaid::SystemDialogBaseUnits();
  m_cx = static_cast<short>((r.dialog.right - r.dialog.left) * 4 / units.x);
  m_cy = static_cast<short>((r.dialog.bottom - r.dialog.top) * 8 / units.y);
}

// The message is measured word-wrapped in the message font, at most half the screen wide plus a
// little (less a system icon's room whenever the style asks for one, even if another icon is shown
// instead). Its control and the dialog take the measure with their margins.
void CXDialogTemplate::MeasureMessage(HDC dc, const ScaleFor96Dpi& Px, LayoutRects& r) const {
  const int screenWidth = GetSystemMetrics(SM_CXSCREEN);
  int maxWidth = screenWidth / 2 + kMessageWrapExtra;
  if (m_nStyle & MB_ICONMASK) maxWidth -= kMeasuredIconGap + GetSystemMetrics(SM_CXICON);
  RECT measured = {0, 0, maxWidth, maxWidth};
  deskaid::DrawAnsiText(dc, m_pszMessageText.get(), -1, &measured, kMeasureMessage);
  const int textWidth = measured.right - measured.left;
  const int textHeight = measured.bottom - measured.top;
  SetRect(&r.text, Px(kMessageLeft), Px(kMessageTop), textWidth + Px(kMessageRightEdge),
          textHeight + Px(kMessageBottomEdge));
  // The dialog's height is settled by the button row below; there is no minimum.
  r.dialog = {0, 0, textWidth + Px(kMessageRightEdge), textHeight + Px(kMessageBottomEdge)};
}

// An icon goes in the top left corner and moves the message right of it.
void CXDialogTemplate::AddIconItem(const MessageDialogParams& p, const ScaleFor96Dpi& Px,
                                   LayoutRects& r) {
  bool iconMakesRoom = false;
  m_hIcon = LoadRequestedIcon(p, iconMakesRoom);
  if (!iconMakesRoom) return;
  const int cx = GetSystemMetrics(SM_CXICON);
  const int cy = GetSystemMetrics(SM_CYICON);
  r.text.left += cx + Px(kIconGap);
  r.text.right += cx + Px(kIconGap);
  r.dialog.right = r.text.right + Px(kIconGap);
  SetRect(&r.icon, Px(kIconGap), Px(kIconGap), cx + Px(kIconFarEdge), cy + Px(kIconFarEdge));
  AddItem(kItemKindStatic, ID_ICON, &r.icon, "");
}

// The button row goes under the message and the icon, centred in the dialog (widening it when the
// row needs more room) or right-justified; a countdown widens every button to make room for its
// " = N" suffix. The buttons go in row order, Help and Report last; custom buttons take their
// names from the request, the others their slot's caption.
void CXDialogTemplate::AddButtonRow(const ScaleFor96Dpi& Px, int customCount,
                                    char (*customNames)[kNameSize], LayoutRects& r) {
  const deskaid::ButtonModel model = deskaid::ResolveButtons(
      m_nStyle, customCount, (m_nStyle & MB_HELP) != 0, m_pfnReport != nullptr);
  m_dwCloseFlags |= model.closeFlags;
  const int n = model.layoutCount;
  const int extra = m_nTimeoutSeconds != 0 ? Px(kCountdownExtraWidth) : 0;
  const int buttonWidth = Px(kButtonWidth) + extra;
  const int pitch = Px(kButtonPitch) + extra;
  const int buttonHeight = Px(kButtonHeight);
  const int rowTop = std::max(r.text.bottom, r.icon.bottom) + Px(kRowTopGap);
  r.row = {0, rowTop, n * pitch - Px(kButtonGap), rowTop + buttonHeight};
  const int rowWidth = r.row.right - r.row.left;
  r.dialog.bottom = r.row.bottom + Px(kRowBottomMargin);
  if (r.dialog.right <= rowWidth + Px(kRowSideRoom)) r.dialog.right = rowWidth + Px(kRowSideRoom);
  int x = (r.dialog.right - r.dialog.left - rowWidth) / 2;
  if (m_bRightJustify) x = r.dialog.right - n * pitch - Px(kButtonGap);

  m_nDefaultPosition = deskaid::DefaultButtonPosition(m_nStyle, n);
  // Help and Report make poor defaults, but the caller's choice stands; only a trace tells.
  if (model.helpPosition != 0 && m_nDefaultPosition == model.helpPosition)
    DebugTrace("ERROR:  Help button cannot be default button\n");
  if (model.reportPosition != 0 && m_nDefaultPosition == model.reportPosition)
    DebugTrace("ERROR:  Report button cannot be default button\n");

  for (int k = 0; k < model.count; ++k) {
    const deskaid::ButtonSpec& button = model.buttons[k];
    RECT rect = {x + k * pitch, rowTop, x + k * pitch + buttonWidth, rowTop + buttonHeight};
    const bool custom = button.id >= IDCUSTOM1 && button.id <= IDCUSTOM4;
    const char* text =
        custom ? customNames[button.id - IDCUSTOM1] : m_szCaptions[button.captionSlot];
    AddItem(kItemKindButton, static_cast<unsigned>(button.id), &rect, text);
  }
}

// A "don't ask again" style adds its check box under the row.
void CXDialogTemplate::AddCheckBoxIfAsked(HDC dc, LayoutRects& r) {
  const int checkSlot = deskaid::CheckBoxCaptionSlot(m_dwCloseFlags);
  if (checkSlot < 0) return;
  int boxX = 0, boxY = 0;
  RECT itemRect, measureRect;
  AddCheckBox(dc, boxX, boxY, itemRect, r.dialog, r.row, measureRect, m_szCaptions[checkSlot]);
}

void CXDialogTemplate::AddItem(int kind, unsigned id, const RECT* rect, const char* caption) {
  if (m_nItemCount >= kMaxItems) return;  // the message box adds at most ten
  std::unique_ptr<CXDialogItem> item(new (std::nothrow) CXDialogItem());
  if (!item) return;
  item->Initialize(kind, id, rect, caption);
  if (kind == kItemKindButton && ++m_nButtonCount == m_nDefaultPosition) {
    item->MakeDefault();
    m_nDefaultButtonId = static_cast<int>(id);
  }
  m_pItems[m_nItemCount++] = std::move(item);
}

void CXDialogTemplate::AddCheckBox(HDC dc, int& x, int& y, RECT& itemRect, RECT& dialogRect,
                                   RECT& buttonRect, RECT& measureRect, const char* caption) {
  const ScaleFor96Dpi Px(dc);
  SetRect(&measureRect, 0, 0, GetSystemMetrics(SM_CXSCREEN) / 3, Px(kCheckBoxHeight));
  x = Px(kCheckBoxLeft);
  y = buttonRect.top + Px(kCheckBoxBelowRowTop);
  deskaid::DrawAnsiText(dc, caption, -1, &measureRect, kMeasureCheckBox);
  const int textWidth = measureRect.right - measureRect.left;
  // The box and its gap take about a third of the text's width again.
  const int width = textWidth + textWidth / 3;
  SetRect(&itemRect, x, y, x + width, y + Px(kCheckBoxHeight));
  AddItem(kItemKindCheckBox, ID_CHECKBOX, &itemRect, caption);
  buttonRect.bottom = y + Px(kCheckBoxHeight);
  dialogRect.bottom = y + Px(kCheckBoxBottomMargin);
  if (dialogRect.right - dialogRect.left < x + width)
    dialogRect.right = dialogRect.left + x + width;
}

void CXDialogTemplate::LoadButtonStrings() {
  DebugTrace("in CXDialogTemplate::LoadButtonStrings\n");
  for (int slot = 0; slot < kButtonCaptionCount; ++slot) {
    if (slot == CAPTION_REPORT && m_szCaptions[slot][0] != '\0') continue;
    std::strcpy(m_szCaptions[slot], deskaid::EnglishButtonCaption(slot));
  }
}

void CXDialogTemplate::LoadButtonStringsFromResources(HINSTANCE module) {
  DebugTrace("in CXDialogTemplate::LoadButtonStringsFromResources\n");
  LoadButtonStrings();
  for (int slot = 0; slot < kButtonCaptionCount; ++slot) {
    // The English table has filled the Report slot already, so its resource is not consulted.
    if (slot == CAPTION_REPORT && m_szCaptions[slot][0] != '\0') continue;
    if (LoadStringA(module, deskaid::ButtonCaptionResourceId(slot), m_szCaptions[slot],
                    deskaid::kCaptionSlotSize) == 0)
      std::strcpy(m_szCaptions[slot], deskaid::EnglishButtonCaption(slot));
    m_szCaptions[slot][deskaid::kCaptionSlotSize - 1] = '\0';
  }
}

void CXDialogTemplate::LoadUserDefinedButtonStrings(const ButtonCaptionSet* captions) {
  DebugTrace("in CXDialogTemplate::LoadUserDefinedButtonStrings\n");
  if (captions == nullptr) return;
  for (int slot = 0; slot < kButtonCaptionCount; ++slot) {
    if (slot == CAPTION_REPORT && m_szCaptions[slot][0] != '\0') continue;
    // Entries go in as they stand, empty ones included; a longer one is cut to the slot.
    CopyBounded(m_szCaptions[slot], captions->*kUserCaptionFields[slot],
                deskaid::kCaptionSlotSize - 1);
  }
}

const char* CXDialogTemplate::ButtonCaption(int slot) const {
  return slot >= 0 && slot < kButtonCaptionCount ? m_szCaptions[slot] : nullptr;
}

const CXDialogItem* CXDialogTemplate::Item(int index) const {
  return index >= 0 && index < m_nItemCount ? m_pItems[index].get() : nullptr;
}

std::string CXDialogTemplate::ClipboardText() const {
  if (!m_pszCaption || !m_pszMessageText) return std::string();
  static const char kRule[] = "---------------------------\r\n";
  std::string text = kRule;
  text.append(m_pszCaption.get(), TitleBytes(m_pszCaption.get()));
  text += "\r\n";
  text += kRule;
  for (const char* p = m_pszMessageText.get(); *p != '\0'; ++p) {
    if (*p == '\n' && (p == m_pszMessageText.get() || p[-1] != '\r')) text += '\r';
    text += *p;
  }
  text += "\r\n";
  text += kRule;
  for (int i = 0; i < m_nItemCount; ++i) {
    const CXDialogItem& item = *m_pItems[i];
    // Push buttons only: the check box is written with the same class but its own style.
    if (item.ClassAtom() != kItemKindButton || (item.Style() & BS_TYPEMASK) > BS_DEFPUSHBUTTON)
      continue;
    for (const char* c = item.Caption(); *c != '\0'; ++c) {
      // "&x" marks x as the access key and shows "x"; "&&" shows a single "&".
      if (*c == '&' && *++c == '\0') break;
      text += *c;
    }
    text += "   ";
  }
  text += "\r\n";
  text += kRule;
  return text;
}

size_t CXDialogTemplate::TemplateSize() const {
  if (!m_pszCaption) return 0;
  // The title's room is reckoned from its byte length, which its UTF-16 form never exceeds.
  const size_t titleBytes = TitleBytes(m_pszCaption.get());
  size_t size = (2 * titleBytes + 27) & ~static_cast<size_t>(3);
  for (int i = 0; i < m_nItemCount; ++i) {
    const size_t n = static_cast<size_t>(m_pItems[i]->WideCaptionLength());
    // Every item but the last is padded to the next item's 4-byte boundary.
    size += i + 1 < m_nItemCount ? (2 * n + 27) & ~static_cast<size_t>(3) : 2 * n + 24;
  }
  return size;
}

bool CXDialogTemplate::WriteTemplate(unsigned char* dest) const {
  if (!m_pszCaption) return false;
  PutU32(dest + 0, m_dwDialogStyle);
  PutU32(dest + 4, m_dwDialogExtendedStyle);
  PutU16(dest + 8, m_nItemCount);
  PutU16(dest + 10, static_cast<unsigned short>(m_x));
  PutU16(dest + 12, static_cast<unsigned short>(m_y));
  PutU16(dest + 14, static_cast<unsigned short>(m_cx));
  PutU16(dest + 16, static_cast<unsigned short>(m_cy));
  PutU16(dest + 18, 0);  // no menu
  PutU16(dest + 20, 0);  // the predefined dialog class

  const std::string title(m_pszCaption.get(), TitleBytes(m_pszCaption.get()));
  int written = PutWideText(dest + 22, title.c_str());
  if (written < 0) return false;
  if (written == 0) {
    PutU16(dest + 22, 0);
    written = 2;
  }
  size_t offset = 22 + static_cast<size_t>(written);
  for (int i = 0; i < m_nItemCount; ++i) {
    offset = (offset + 3) & ~static_cast<size_t>(3);
    offset += m_pItems[i]->Write(dest + offset);
  }
  return true;
}

std::vector<unsigned char> CXDialogTemplate::TemplateBytes() const {
  std::vector<unsigned char> bytes(TemplateSize(), 0);
  if (bytes.empty() || !WriteTemplate(bytes.data())) bytes.clear();
  return bytes;
}

int CXDialogTemplate::Display() {
  const size_t size = TemplateSize();
  if (size == 0) return 2;
  HLOCAL memory = LocalAlloc(LHND, size);
  if (memory == nullptr) return 2;
  void* block = LocalLock(memory);
  if (block == nullptr || !WriteTemplate(static_cast<unsigned char*>(block))) {
    if (block != nullptr) LocalUnlock(memory);
    LocalFree(memory);
    return 2;
  }
  const INT_PTR result =
      DialogBoxIndirectParamA(GetModuleHandleA(nullptr), static_cast<LPCDLGTEMPLATEA>(block),
                              m_hOwner, MessageDialogProc, reinterpret_cast<LPARAM>(this));
  LocalUnlock(memory);
  LocalFree(memory);
  return static_cast<int>(result);
}
