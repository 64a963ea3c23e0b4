// The dialog template as written for the platform: header, items, bytes, layout, button model
// and captions, read back from the written template without showing it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "msgbox/message_dialog.h"
#include "msgbox/xdialog_template.h"
#include "msgbox_test_util_win.h"
#include "test_resource_ids.h"

using msgbox_test::Decode;
using msgbox_test::DecodedItem;
using msgbox_test::DecodedTemplate;
using msgbox_test::TestResources;

namespace {

// The test machine's metrics, measured independently of the engine.
struct Screen {
  int bx, by, cxScreen, cxIcon, cyIcon;
  HDC dc;
  HFONT font;
  HGDIOBJ old;
  Screen() {
    LONG units = GetDialogBaseUnits();
    bx = static_cast<short>(LOWORD(units));
    by = static_cast<short>(HIWORD(units));
    cxScreen = GetSystemMetrics(SM_CXSCREEN);
    cxIcon = GetSystemMetrics(SM_CXICON);
    cyIcon = GetSystemMetrics(SM_CYICON);
    NONCLIENTMETRICSA m{};
    m.cbSize = 344;
    SystemParametersInfoA(SPI_GETNONCLIENTMETRICS, 344, &m, 0);
    dc = CreateDCA("DISPLAY", nullptr, nullptr, nullptr);
    font = CreateFontIndirectA(&m.lfMessageFont);
    old = SelectObject(dc, font);
  }
  ~Screen() {
    SelectObject(dc, old);
    DeleteObject(font);
    DeleteDC(dc);
  }
  SIZE Measure(const char* text, int maxWidth, UINT format) const {
    RECT r = {0, 0, maxWidth, format & DT_SINGLELINE ? 16 : maxWidth};
    DrawTextA(dc, text, -1, &r, format);
    return {r.right - r.left, r.bottom - r.top};
  }
  short X(int px) const { return static_cast<short>(px * 4 / bx); }
  short Y(int px) const { return static_cast<short>(px * 8 / by); }
};

DecodedTemplate Build(const char* text, unsigned style, const MessageDialogParams* params,
                      const char* caption = "Caption") {
  CXDialogTemplate dialog(nullptr, text, caption, style, params);
  std::vector<unsigned char> bytes = dialog.TemplateBytes();
  EXPECT_EQ(bytes.size(), dialog.TemplateSize());
  return Decode(bytes);
}

std::vector<int> Ids(const DecodedTemplate& t) {
  std::vector<int> ids;
  for (const DecodedItem& item : t.items) ids.push_back(item.id);
  return ids;
}

int DefaultId(const DecodedTemplate& t) {
  int id = 0;
  for (const DecodedItem& item : t.items)
    if (item.classAtom == 0x80 && (item.style & 0xF) == BS_DEFPUSHBUTTON) id = id ? -1 : item.id;
  return id;
}

}  // namespace

TEST(MessageDialogTemplate, HeaderItemsAndBytesFollowTheTemplateFormat) {
  const char* kTitle = "A box";
  std::vector<unsigned char> bytes;
  {
    CXDialogTemplate dialog(nullptr, "Save the changes?", kTitle,
                            MB_YESNOCANCEL | MB_ICONQUESTION | MB_HELP | MDS_DONTASKAGAIN |
                                MDS_NORESOURCE | MB_DEFBUTTON2,
                            nullptr);
    bytes = dialog.TemplateBytes();
  }
  DecodedTemplate t = Decode(bytes);
  EXPECT_EQ(t.style, 0x90C80880u);
  EXPECT_EQ(t.exStyle, 0u);
  EXPECT_EQ(t.x, 0);
  EXPECT_EQ(t.y, 0);
  EXPECT_EQ(t.menu, 0);
  EXPECT_EQ(t.windowClass, 0);
  EXPECT_EQ(t.title, kTitle);
  ASSERT_EQ(t.count, 7);
  EXPECT_EQ(Ids(t), (std::vector<int>{1000, 1001, 6, 7, 2, 300, 5555}));
  const char* captions[] = {"", "Save the changes?", "&Yes", "&No", "Cancel", "&Help",
                            "Don't ask me again"};
  const DWORD styles[] = {0x50000000, 0x50000000, 0x50010000, 0x50010001,
                          0x50010000, 0x50010000, 0x50010003};
  size_t expectedOffset = (22 + 2 * (std::strlen(kTitle) + 1) + 3) & ~size_t{3};
  size_t sizeRule = (2 * std::strlen(kTitle) + 27) & ~size_t{3};
  for (size_t i = 0; i < t.items.size(); ++i) {
    const DecodedItem& item = t.items[i];
    SCOPED_TRACE(item.id);
    EXPECT_EQ(item.offset, expectedOffset);
    EXPECT_EQ(item.classMarker, 0xFFFF);
    EXPECT_EQ(item.classAtom, i < 2 ? 0x82 : 0x80);
    EXPECT_EQ(item.style, styles[i]);
    EXPECT_EQ(item.exStyle, 0u);
    EXPECT_EQ(item.caption, captions[i]);
    EXPECT_EQ(item.creationDataSize, 0);
    expectedOffset = (item.end + 3) & ~size_t{3};
    const size_t n = item.caption.size() + 1;
    sizeRule += i + 1 < t.items.size() ? (2 * n + 27) & ~size_t{3} : 2 * n + 24;
  }
  // The last item is not padded: the block ends where it ends.
  EXPECT_EQ(t.end, bytes.size());
  EXPECT_EQ(sizeRule, bytes.size());

  EXPECT_EQ(Build("x", MB_OK | MB_SYSTEMMODAL, nullptr).style, 0x90C80882u);
}

TEST(MessageDialogTemplate, OneWordWithoutIcon) {
  Screen s;
  DecodedTemplate t = Build("Hello", MB_OK, nullptr);
  const SIZE text = s.Measure("Hello", s.cxScreen / 2 + 80, 0xC50);
  ASSERT_EQ(Ids(t), (std::vector<int>{1001, 1}));
  const DecodedItem& message = t.items[0];
  EXPECT_EQ(message.x, s.X(16));
  EXPECT_EQ(message.y, s.Y(16));
  EXPECT_EQ(message.cx, s.X(text.cx + 12));
  EXPECT_EQ(message.cy, s.Y(text.cy + 5));
  // A lone 78-pixel button: the dialog is at least the row plus 32 wide.
  const int width = std::max<int>(text.cx + 28, 110);
  const int rowTop = text.cy + 31;
  const DecodedItem& ok = t.items[1];
  EXPECT_EQ(ok.x, s.X((width - 78) / 2));
  EXPECT_EQ(ok.y, s.Y(rowTop));
  EXPECT_EQ(ok.cx, s.X(78));
  EXPECT_EQ(ok.cy, s.Y(23));
  EXPECT_EQ(t.cx, s.X(width));
  EXPECT_EQ(t.cy, s.Y(rowTop + 35));
}

TEST(MessageDialogTemplate, LongTextWrapsBesideTheSystemIcon) {
  Screen s;
  std::string text;
  for (int i = 0; i < 80; ++i) text += "wrapping words ";
  DecodedTemplate t = Build(text.c_str(), MB_ICONEXCLAMATION | MB_OKCANCEL, nullptr);
  const SIZE size = s.Measure(text.c_str(), s.cxScreen / 2 + 80 - 16 - s.cxIcon, 0xC50);
  ASSERT_EQ(Ids(t), (std::vector<int>{1000, 1001, 1, 2}));
  const DecodedItem& icon = t.items[0];
  EXPECT_EQ(icon.x, s.X(8));
  EXPECT_EQ(icon.cx, s.X(s.cxIcon + 2));
  EXPECT_EQ(icon.cy, s.Y(s.cyIcon + 2));
  const DecodedItem& message = t.items[1];
  EXPECT_EQ(message.x, s.X(16 + s.cxIcon + 8));
  EXPECT_EQ(message.cx, s.X(size.cx + 12));
  EXPECT_EQ(message.cy, s.Y(size.cy + 5));
  const int width = size.cx + 28 + s.cxIcon + 16;
  EXPECT_EQ(t.cx, s.X(width));
  EXPECT_EQ(t.items[2].x, s.X((width - 162) / 2));
  EXPECT_EQ(t.items[3].x, s.X((width - 162) / 2 + 84));
}

TEST(MessageDialogTemplate, CountdownWidensButtonsAndRightJustifies) {
  Screen s;
  MessageDialogParams p{};
  p.nTimeoutSeconds = 5;
  p.dwOptions = MDO_RIGHTJUSTIFY;
  DecodedTemplate t = Build("Right", MB_YESNO, &p);
  const SIZE text = s.Measure("Right", s.cxScreen / 2 + 80, 0xC50);
  const int width = std::max<int>(text.cx + 28, 2 * 106 - 6 + 32);
  ASSERT_EQ(Ids(t), (std::vector<int>{1001, 6, 7}));
  const int x = width - 2 * 106 - 6;
  EXPECT_EQ(t.items[1].x, s.X(x));
  EXPECT_EQ(t.items[2].x, s.X(x + 106));
  EXPECT_EQ(t.items[1].cx, s.X(100));
  EXPECT_EQ(t.items[2].cx, s.X(100));
}

TEST(MessageDialogTemplate, CheckBoxRowAndItsWidth) {
  Screen s;
  DecodedTemplate t = Build("Hi", MB_OK | MDS_DONTSHOWAGAIN | MDS_NORESOURCE, nullptr);
  const SIZE text = s.Measure("Hi", s.cxScreen / 2 + 80, 0xC50);
  const int tw = s.Measure("Don't show again", s.cxScreen / 3, 0xC20).cx;
  const DecodedItem* box = t.Find(5555);
  ASSERT_NE(box, nullptr);
  const int y = text.cy + 31 + 35;
  EXPECT_EQ(box->x, s.X(17));
  EXPECT_EQ(box->y, s.Y(y));
  EXPECT_EQ(box->cx, s.X(tw + tw / 3));
  EXPECT_EQ(box->cy, s.Y(16));
  EXPECT_EQ(t.cy, s.Y(y + 24));
  EXPECT_EQ(t.cx, s.X(std::max<int>({text.cx + 28, 110, 17 + tw + tw / 3})));
}

TEST(MessageDialogTemplate, IconSources) {
  Screen s;
  MessageDialogParams p{};
  p.hIconModule = TestResources();
  ASSERT_NE(p.hIconModule, nullptr);
  // A named icon is loaded but gets neither control nor room.
  std::strcpy(p.szIconName, "NAMEDICON");
  {
    CXDialogTemplate dialog(nullptr, "Named", "c", MB_OK, &p);
    EXPECT_NE(dialog.Icon(), nullptr);
    DecodedTemplate t = Decode(dialog.TemplateBytes());
    EXPECT_EQ(t.Find(1000), nullptr);
    EXPECT_EQ(t.Find(1001)->x, s.X(16));
  }
  p.nIconId = 0x10000 | IDI_TEST_ICON;  // only the low 16 bits count
  {
    CXDialogTemplate dialog(nullptr, "By id", "c", MB_OK, &p);
    EXPECT_NE(dialog.Icon(), nullptr);
    EXPECT_NE(Decode(dialog.TemplateBytes()).Find(1000), nullptr);
  }
  // An id that does not load still makes the icon's room and control.
  p.nIconId = 4242;
  CXDialogTemplate missing(nullptr, "Missing", "c", MB_OK, &p);
  EXPECT_EQ(missing.Icon(), nullptr);
  DecodedTemplate t = Decode(missing.TemplateBytes());
  ASSERT_NE(t.Find(1000), nullptr);
  EXPECT_EQ(t.Find(1001)->x, s.X(16 + s.cxIcon + 8));
}

TEST(MessageDialogTemplate, LayoutCountQuirks) {
  Screen s;
  // Undefined set 12: a lone default OK, but a row width of -6.
  DecodedTemplate undefinedSet = Build("Twelve", 12, nullptr);
  const int width = s.Measure("Twelve", s.cxScreen / 2 + 80, 0xC50).cx + 28;
  ASSERT_EQ(Ids(undefinedSet), (std::vector<int>{1001, 1}));
  EXPECT_EQ(undefinedSet.items[1].x, s.X((width + 6) / 2));
  EXPECT_EQ(DefaultId(undefinedSet), 1);
  // Yes to All counts for OK/Cancel without being shown: room for three, two shown.
  DecodedTemplate okCancel = Build("Hello there", MB_OKCANCEL | MDS_YESTOALL, nullptr);
  const int w2 = std::max<int>(
      s.Measure("Hello there", s.cxScreen / 2 + 80, 0xC50).cx + 28, 3 * 84 - 6 + 32);
  ASSERT_EQ(Ids(okCancel), (std::vector<int>{1001, 1, 2}));
  EXPECT_EQ(okCancel.items[1].x, s.X((w2 - (3 * 84 - 6)) / 2));
}

TEST(MessageDialogTemplate, DefaultButtonRule) {
  msgbox_test::TraceCapture trace;
  DecodedTemplate all = Build("t", MB_YESNOCANCEL | MDS_YESTOALL | MDS_NOTOALL | 0x400, nullptr);
  EXPECT_EQ(Ids(all), (std::vector<int>{1001, 6, 19, 7, 20, 2}));
  EXPECT_EQ(DefaultId(all), 2);
  EXPECT_EQ(DefaultId(Build("t", MB_OK | MB_DEFBUTTON3, nullptr)), 1);
  EXPECT_EQ(DefaultId(Build("t", MB_YESNO | MDS_YESTOALL, nullptr)), 6);
  EXPECT_FALSE(trace.Has("ERROR:  Help button cannot be default button\n"));
  EXPECT_EQ(DefaultId(Build("t", MB_OK | MB_HELP | MB_DEFBUTTON2, nullptr)), 300);
  EXPECT_TRUE(trace.Has("ERROR:  Help button cannot be default button\n"));

  MessageDialogParams p{};
  p.pfnReport = [](const char*, void*) {};
  EXPECT_FALSE(trace.Has("ERROR:  Report button cannot be default button\n"));
  DecodedTemplate report = Build("t", MB_OK | MB_DEFBUTTON2, &p);
  EXPECT_EQ(Ids(report), (std::vector<int>{1001, 1, 301}));
  EXPECT_EQ(DefaultId(report), 301);
  EXPECT_TRUE(trace.Has("ERROR:  Report button cannot be default button\n"));
  // Position 3 is inside the layout count but holds no button: no default push button at all.
  CXDialogTemplate gap(nullptr, "t", "c", MB_OKCANCEL | MDS_YESTOALL | MB_DEFBUTTON3, nullptr);
  EXPECT_EQ(gap.DefaultButtonId(), 1);
  EXPECT_EQ(DefaultId(Decode(gap.TemplateBytes())), 0);
}

TEST(MessageDialogTemplate, CustomButtonLists) {
  MessageDialogParams p{};
  std::strcpy(p.szCustomButtons, "Save\nDiscard\n\nLater\nNever\nMaybe");
  DecodedTemplate t = Build("t", MB_YESNOCANCEL | MDS_YESTOALL | MB_HELP, &p);
  ASSERT_EQ(Ids(t), (std::vector<int>{1001, 23, 24, 25, 26, 300}));
  EXPECT_EQ(t.items[1].caption, "Save");
  EXPECT_EQ(t.items[2].caption, "Discard");
  EXPECT_EQ(t.items[3].caption, "Later");
  EXPECT_EQ(t.items[4].caption, "Never");
  // A list in the string module wins over the text.
  p.hStringModule = TestResources();
  p.nCustomButtonsId = IDS_TEST_CUSTOM;
  DecodedTemplate fromResource = Build("t", MB_OK, &p);
  ASSERT_EQ(Ids(fromResource), (std::vector<int>{1001, 23, 24, 25}));
  EXPECT_EQ(fromResource.items[3].caption, "Gamma");
}

TEST(MessageDialogTemplate, CaptionSources) {
  const char* english[] = {"&Abort",   "Cancel",      "&Continue",  "Don't ask me again",
                           "Don't tell me again", "Don't show again", "&Help", "&Ignore",
                           "I&gnore All", "&No",     "N&o to All", "OK",      "Re&port",
                           "&Retry",   "&Skip",       "S&kip All",  "&Try Again", "&Yes",
                           "Y&es to All"};
  const char* localised[] = {"L-Abort", "L-Cancel", "L-Continue", "L-Ask",     "L-Tell",
                             "L-Show",  "L-Help",   "L-Ignore",   "L-IgnoreAll", "L-No",
                             "L-NoAll", "L-OK",     "Re&port",    "L-Retry",   "L-Skip",
                             "L-SkipAll", "L-TryAgain", "L-Yes",  "L-YesAll"};
  MessageDialogParams p{};
  p.hStringModule = TestResources();
  {
    msgbox_test::TraceCapture trace;
    CXDialogTemplate fromModule(nullptr, "t", "c", MB_OK, &p);
    // 9016 is never read: the English Report caption is already in place.
    for (int i = 0; i < kButtonCaptionCount; ++i)
      EXPECT_STREQ(fromModule.ButtonCaption(i), localised[i]) << i;
    EXPECT_EQ(trace.Lines(),
              (std::vector<std::string>{"in CXDialogTemplate::LoadButtonStringsFromResources\n",
                                        "in CXDialogTemplate::LoadButtonStrings\n"}));
  }
  {
    msgbox_test::TraceCapture trace;
    CXDialogTemplate builtIn(nullptr, "t", "c", MB_OK | MDS_NORESOURCE, &p);
    for (int i = 0; i < kButtonCaptionCount; ++i)
      EXPECT_STREQ(builtIn.ButtonCaption(i), english[i]) << i;
    EXPECT_EQ(trace.Lines(),
              (std::vector<std::string>{"in CXDialogTemplate::LoadButtonStrings\n"}));
    // The host executable has no caption resources: English throughout.
    CXDialogTemplate host(nullptr, "t", "c", MB_OK, nullptr);
    for (int i = 0; i < kButtonCaptionCount; ++i) EXPECT_STREQ(host.ButtonCaption(i), english[i]);
  }
  // The caller's captions go in as they stand; a Report caption from the module wins.
  p.bUserCaptions = TRUE;
  std::strcpy(p.UserCaptions.szNo, "Nope");
  std::strcpy(p.UserCaptions.szReport, "User report");
  p.nReportCaptionId = IDS_TEST_REPORT;
  p.pfnReport = [](const char*, void*) {};
  msgbox_test::TraceCapture trace;
  DecodedTemplate user = Build("t", MB_YESNO, &p);
  EXPECT_TRUE(trace.Has("in CXDialogTemplate::LoadUserDefinedButtonStrings\n"));
  EXPECT_EQ(user.Find(IDYES)->caption, "");
  EXPECT_EQ(user.Find(IDNO)->caption, "Nope");
  EXPECT_EQ(user.Find(301)->caption, "Send it");
  // Without a loadable id the text is used, and without either the user's entry.
  p.nReportCaptionId = 9999;
  std::strcpy(p.szReportCaption, "Text report");
  EXPECT_EQ(Build("t", MB_OK, &p).Find(301)->caption, "Text report");
  p.szReportCaption[0] = '\0';
  EXPECT_EQ(Build("t", MB_OK, &p).Find(301)->caption, "User report");
}

TEST(MessageDialogTemplate, MessageAndTitleSources) {
  MessageDialogParams p{};
  p.hStringModule = TestResources();
  CXDialogTemplate fromId(nullptr, MAKEINTRESOURCEA(IDS_TEST_MESSAGE),
                          MAKEINTRESOURCEA(IDS_TEST_REPORT), MB_OK, &p);
  EXPECT_STREQ(fromId.MessageText(), "Message from the resource module");
  EXPECT_STREQ(fromId.Caption(), "Send it");
  CXDialogTemplate missing(nullptr, MAKEINTRESOURCEA(4321), "c", MB_OK, &p);
  EXPECT_STREQ(missing.MessageText(), "");
  CXDialogTemplate none(nullptr, nullptr, "c", MB_OK, &p);
  EXPECT_STREQ(none.MessageText(), "");
  // The title is cut to 1,023 bytes in the template.
  std::string longTitle(3000, 'T');
  EXPECT_EQ(Build("t", MB_OK, nullptr, longTitle.c_str()).title, std::string(1023, 'T'));
}
