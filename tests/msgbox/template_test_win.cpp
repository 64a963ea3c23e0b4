// The dialog template as written for the platform, read back without showing it: bytes, layout,
// button model and captions.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include <deskaid/msgbox/internal/xdialog_template.h>
#include "msgbox_test_util_win.h"
#include "test_resource_ids.h"

using msgbox_test::TestResources;

namespace {

// The request record keeps its field order on every width: on a 64-bit host its handles and
// pointers grow, and nothing moves.
template <size_t... Offsets>
constexpr bool Ascending() {
  const size_t offsets[] = {Offsets...};
  for (size_t i = 1; i < sizeof...(Offsets); ++i)
    if (offsets[i - 1] >= offsets[i]) return false;
  return true;
}
#define DESKAID_AT(field) offsetof(MessageDialogParams, field)
static_assert(Ascending<DESKAID_AT(nHelpContextId), DESKAID_AT(nTimeoutSeconds),
                        DESKAID_AT(nDisabledSeconds), DESKAID_AT(nX), DESKAID_AT(nY),
                        DESKAID_AT(dwOptions), DESKAID_AT(hStringModule), DESKAID_AT(hIconModule),
                        DESKAID_AT(nIconId), DESKAID_AT(szIconName), DESKAID_AT(nCustomButtonsId),
                        DESKAID_AT(szCustomButtons), DESKAID_AT(nReportCaptionId),
                        DESKAID_AT(szReportCaption), DESKAID_AT(szReserved),
                        DESKAID_AT(dwReserved1), DESKAID_AT(dwReserved2), DESKAID_AT(pReportData),
                        DESKAID_AT(pfnReport), DESKAID_AT(bUserCaptions),
                        DESKAID_AT(UserCaptions)>(),
              "MessageDialogParams keeps its field order");
#undef DESKAID_AT

struct Item : DLGITEMTEMPLATE {
  size_t offset, end;  // end: just past the item
  WORD classMarker, classAtom, creationDataSize;
  std::string caption;  // narrowed (the tests use ASCII)
};

struct Template : DLGTEMPLATE {
  WORD menu, windowClass;
  std::string title;
  std::vector<Item> items;
  size_t end;
  const Item* Find(WORD id) const {
    for (const Item& item : items)
      if (item.id == id) return &item;
    return nullptr;
  }
};

// Reads a DLGTEMPLATE as the platform would; a malformed block fails the current test.
Template Decode(const std::vector<unsigned char>& b) {
  Template t{};
  size_t pos = 0;
  bool ok = true;
  auto fixed = [&](void* to, size_t n) {
    ok = ok && pos + n <= b.size();
    if (ok) std::memcpy(to, &b[pos], n);
    pos += n;
  };
  auto u16 = [&] {
    WORD v = 0;
    fixed(&v, 2);
    return v;
  };
  auto text = [&] {
    std::string s;
    for (WORD c = u16(); ok && c != 0; c = u16()) s += c < 0x80 ? static_cast<char>(c) : '?';
    return s;
  };
  fixed(static_cast<DLGTEMPLATE*>(&t), sizeof(DLGTEMPLATE));
  t.menu = u16();
  t.windowClass = u16();
  t.title = text();
  for (int i = 0; i < t.cdit && ok; ++i) {
    Item item{};
    item.offset = pos = (pos + 3) & ~size_t{3};
    fixed(static_cast<DLGITEMTEMPLATE*>(&item), sizeof(DLGITEMTEMPLATE));
    item.classMarker = u16();
    item.classAtom = u16();
    item.caption = text();
    item.creationDataSize = u16();
    item.end = pos;
    t.items.push_back(item);
  }
  t.end = pos;
  EXPECT_TRUE(ok) << "template ends inside an item";
  return t;
}

// Pixels in dialog units, from the test machine's dialog base units.
short X(int px) { return static_cast<short>(px * 4 / LOWORD(GetDialogBaseUnits())); }
short Y(int px) { return static_cast<short>(px * 8 / HIWORD(GetDialogBaseUnits())); }

enum Row { kCentred, kRight, kAnywhere };

// What holds for every box (the texts' fit is measured on shown boxes, at several DPIs): each
// control lies inside the dialog; the text right of the icon; the push buttons one row of equal,
// evenly spaced buttons below both, centred or at the right; the check box below the row.
void CheckLayout(const Template& t, Row align = kCentred) {
  for (const Item& i : t.items)
    EXPECT_TRUE(i.x >= 0 && i.y >= 0 && i.x + i.cx <= t.cx && i.y + i.cy <= t.cy) << i.id;
  const Item *icon = t.Find(1000), *message = t.Find(1001), *check = t.Find(5555);
  ASSERT_NE(message, nullptr);
  EXPECT_TRUE(!icon || message->x >= icon->x + icon->cx);
  std::vector<const Item*> row;
  for (const Item& i : t.items)
    if (i.classAtom == 0x80 && (i.style & 0xF) != BS_AUTOCHECKBOX) row.push_back(&i);
  ASSERT_FALSE(row.empty());
  for (size_t k = 0; k < row.size(); ++k) {
    const Item& b = *row[k];
    EXPECT_TRUE(b.y == row[0]->y && b.cx == row[0]->cx && b.cy == row[0]->cy) << b.id;
    EXPECT_GE(b.y, std::max(message->y + message->cy, icon ? icon->y + icon->cy : 0));
    if (k == 0) continue;
    EXPECT_NEAR(b.x - row[k - 1]->x, row[1]->x - row[0]->x, 1);
    EXPECT_GT(b.x, row[k - 1]->x + row[k - 1]->cx);
  }
  const int left = row.front()->x, right = t.cx - row.back()->x - row.back()->cx;
  if (align == kRight) {
    EXPECT_TRUE(right < left && right < X(20)) << left << " " << right;
  } else if (align == kCentred) {
    EXPECT_NEAR(left, right, 2);
  }
  EXPECT_TRUE(!check || check->y >= row[0]->y + row[0]->cy);
}

Template Build(const char* text, unsigned style, const MessageDialogParams* params = nullptr,
               const char* caption = "Caption") {
  CXDialogTemplate dialog(nullptr, text, caption, style, params);
  std::vector<unsigned char> bytes = dialog.TemplateBytes();
  EXPECT_EQ(bytes.size(), dialog.TemplateSize());
  return Decode(bytes);
}

std::vector<int> Ids(const Template& t) {
  std::vector<int> ids;
  for (const Item& item : t.items) ids.push_back(item.id);
  return ids;
}

std::vector<std::string> Captions(const Template& t) {
  std::vector<std::string> captions;
  for (const Item& item : t.items) captions.push_back(item.caption);
  return captions;
}

// The one BS_DEFPUSHBUTTON, 0 for none, -1 for several.
int DefaultId(const Template& t) {
  int id = 0;
  for (const Item& item : t.items)
    if (item.classAtom == 0x80 && (item.style & 0xF) == BS_DEFPUSHBUTTON) id = id ? -1 : item.id;
  return id;
}

}  // namespace

TEST(MessageDialogTemplate, BytesFollowTheTemplateFormat) {
  const unsigned style = MB_YESNOCANCEL | MB_ICONQUESTION | MB_HELP | MDS_DONTASKAGAIN |
                         MDS_NORESOURCE | MB_DEFBUTTON2;
  CXDialogTemplate dialog(nullptr, "Save the changes?", "A box", style, nullptr);
  const std::vector<unsigned char> bytes = dialog.TemplateBytes();
  Template t = Decode(bytes);
  EXPECT_EQ(t.style, 0x90C80880u);
  EXPECT_EQ(t.dwExtendedStyle | t.x | t.y | t.menu | t.windowClass, 0u);
  EXPECT_EQ(t.title, "A box");
  ASSERT_EQ(Ids(t), (std::vector<int>{1000, 1001, 6, 7, 2, 300, 5555}));
  EXPECT_EQ(Captions(t), (std::vector<std::string>{"", "Save the changes?", "&Yes", "&No",
                                                   "Cancel", "&Help", "Don't ask me again"}));
  const DWORD styles[] = {0x50000000, 0x50000000, 0x50010000, 0x50010001,
                          0x50010000, 0x50010000, 0x50010003};
  size_t offset = (22 + 2 * 6 + 3) & ~size_t{3};
  for (size_t i = 0; i < t.items.size(); ++i) {
    const Item& item = t.items[i];
    SCOPED_TRACE(item.id);
    EXPECT_EQ(item.offset, offset);  // each item on the next 4-byte boundary
    EXPECT_EQ(item.classMarker, 0xFFFF);
    EXPECT_EQ(item.classAtom, i < 2 ? 0x82 : 0x80);
    EXPECT_EQ(item.style, styles[i]);
    EXPECT_EQ(item.dwExtendedStyle | item.creationDataSize, 0u);
    offset = (item.end + 3) & ~size_t{3};
  }
  EXPECT_EQ(t.end, bytes.size());  // the last item is not padded
  EXPECT_EQ(Build("x", MB_OK | MB_SYSTEMMODAL).style, 0x90C80882u);
  EXPECT_EQ(Build("t", MB_OK, nullptr, std::string(3000, 'T').c_str()).title,
            std::string(1023, 'T'));
}

TEST(MessageDialogTemplate, LayoutsFitAndCentre) {
  std::string words;  // many short words: wrapped close to the widest line the box allows
  for (int i = 0; i < 300; ++i) words += "ab ";
  MessageDialogParams report{}, countdown{}, custom{};
  report.pfnReport = [](const char*, void*) {};
  countdown.nTimeoutSeconds = 5;
  countdown.dwOptions = MDO_RIGHTJUSTIFY;
  std::strcpy(custom.szCustomButtons, "One\nTwo\nThree\nFour");
  custom.pfnReport = report.pfnReport;
  const struct {
    const char* text;
    unsigned style;
    const MessageDialogParams* p;
    Row align;
  } cases[] = {
      {"Hello", MB_OK, nullptr, kCentred},
      {words.c_str(), MB_ICONEXCLAMATION | MB_OKCANCEL, nullptr, kCentred},
      {"Line one\nLine two\n\n\tfour", MB_ICONQUESTION | MB_ABORTRETRYIGNORE, nullptr, kCentred},
      // The check box row widens the dialog after the button row has been placed.
      {"Hi", MB_OK | MDS_DONTSHOWAGAIN | MDS_NORESOURCE, nullptr, kAnywhere},
      {"Save the changes?", MB_YESNOCANCEL | MB_HELP | MDS_DONTASKAGAIN, &report, kCentred},
      {"Pick", MB_ICONASTERISK | MB_HELP, &custom, kCentred},
      {"Right", MB_YESNO | MDS_DONTTELLAGAIN, &countdown, kRight},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    CheckLayout(Build(c.text, c.style, c.p), c.align);
  }
  // A lone OK is 78 pixels wide and 23 high in a dialog at least 110 wide; with a countdown every
  // button is 100 pixels wide.
  Template hello = Build("Hello", MB_OK);
  EXPECT_EQ(hello.Find(IDOK)->cx, X(78));
  EXPECT_EQ(hello.Find(IDOK)->cy, Y(23));
  EXPECT_GE(hello.cx, X(110));
  for (int id : {IDYES, IDNO}) EXPECT_EQ(Build("Right", MB_YESNO, &countdown).Find(id)->cx, X(100));
  // Text wraps at half the screen plus 80 pixels (592 on a 1024-pixel screen); beside a style
  // icon it wraps narrower by the icon's room, so the box stays as wide.
  const Template plain = Build(words.c_str(), MB_OKCANCEL),
                 icon = Build(words.c_str(), MB_ICONEXCLAMATION | MB_OKCANCEL);
  EXPECT_NEAR(plain.cx, X(GetSystemMetrics(SM_CXSCREEN) / 2 + 80 + 28), X(24));
  EXPECT_NEAR(icon.cx, plain.cx, X(24));
  // Undefined set 12: a lone default OK, centred as if the row were -6 pixels wide.
  const Template twelve = Build("Twelve", 12);
  ASSERT_EQ(Ids(twelve), (std::vector<int>{1001, 1}));
  EXPECT_EQ(DefaultId(twelve), 1);
  EXPECT_NEAR(2 * twelve.items[1].x - twelve.cx, X(6), 2);
  // Yes to All widens OK/Cancel without showing there: placed as a row of three would be.
  const Template two = Build("Hello there", MB_OKCANCEL | MDS_YESTOALL),
                 three = Build("Hello there", MB_YESNOCANCEL);
  ASSERT_EQ(Ids(two), (std::vector<int>{1001, 1, 2}));
  EXPECT_EQ(two.cx, three.cx);
  EXPECT_EQ(two.items[1].x, three.items[1].x);
  EXPECT_EQ(two.items[2].x, three.items[2].x);
}

TEST(MessageDialogTemplate, IconSources) {
  MessageDialogParams p{};
  p.hIconModule = TestResources();
  ASSERT_NE(p.hIconModule, nullptr);
  std::strcpy(p.szIconName, "NAMEDICON");
  // A named icon loads but is neither shown nor given room; of an id only the low 16 bits count;
  // an id that does not load keeps its room and holder control.
  for (UINT id : {0u, 0x10000u | IDI_TEST_ICON, 4242u}) {
    SCOPED_TRACE(id);
    p.nIconId = id;
    CXDialogTemplate dialog(nullptr, "Icon", "c", MB_OK, &p);
    EXPECT_EQ(dialog.Icon() != nullptr, id != 4242);
    Template t = Decode(dialog.TemplateBytes());
    EXPECT_EQ(t.Find(1000) != nullptr, id != 0);
    EXPECT_TRUE(id != 0 || t.Find(1001)->x == X(16));
    CheckLayout(t);
  }
}

TEST(MessageDialogTemplate, ButtonSetsAndDefaultButton) {
  msgbox_test::TraceCapture trace;
  Template all = Build("t", MB_YESNOCANCEL | MDS_YESTOALL | MDS_NOTOALL | 0x400);
  EXPECT_EQ(Ids(all), (std::vector<int>{1001, 6, 19, 7, 20, 2}));
  EXPECT_EQ(DefaultId(all), 2);
  EXPECT_EQ(DefaultId(Build("t", MB_OK | MB_DEFBUTTON3)), 1);
  EXPECT_EQ(Ids(Build("t", MDS_SKIPSKIPALLCANCEL)), (std::vector<int>{1001, 14, 15, 2}));
  EXPECT_FALSE(trace.Has("ERROR:  Help button cannot be default button\n"));
  EXPECT_EQ(DefaultId(Build("t", MB_OK | MB_HELP | MB_DEFBUTTON2)), 300);
  EXPECT_TRUE(trace.Has("ERROR:  Help button cannot be default button\n"));
  MessageDialogParams p{};
  p.pfnReport = [](const char*, void*) {};
  EXPECT_FALSE(trace.Has("ERROR:  Report button cannot be default button\n"));
  EXPECT_EQ(DefaultId(Build("t", MB_OK | MB_DEFBUTTON2, &p)), 301);
  EXPECT_TRUE(trace.Has("ERROR:  Report button cannot be default button\n"));
  // Position 3 lies within the layout count but holds no button: no default push button.
  CXDialogTemplate gap(nullptr, "t", "c", MB_OKCANCEL | MDS_YESTOALL | MB_DEFBUTTON3, nullptr);
  EXPECT_EQ(gap.DefaultButtonId(), 1);
  EXPECT_EQ(DefaultId(Decode(gap.TemplateBytes())), 0);

  // Custom lists replace the set: empty entries skipped, four at most; a resource list wins.
  std::strcpy(p.szCustomButtons, "Save\nDiscard\n\nLater\nNever\nMaybe");
  Template custom = Build("t", MB_YESNOCANCEL | MDS_YESTOALL, &p);
  ASSERT_EQ(Ids(custom), (std::vector<int>{1001, 23, 24, 25, 26, 301}));
  EXPECT_EQ(Captions(custom), (std::vector<std::string>{"t", "Save", "Discard", "Later", "Never",
                                                        "Re&port"}));
  p.hStringModule = TestResources();
  p.nCustomButtonsId = IDS_TEST_CUSTOM;
  custom = Build("t", MB_OK, &p);
  ASSERT_EQ(Ids(custom), (std::vector<int>{1001, 23, 24, 25, 301}));
  EXPECT_EQ(Captions(custom), (std::vector<std::string>{"t", "Alpha", "Beta", "Gamma", "Re&port"}));
}

TEST(MessageDialogTemplate, CaptionMessageAndTitleSources) {
  const char* english[] = {"&Abort", "Cancel", "&Continue", "Don't ask me again",
                           "Don't tell me again", "Don't show again", "&Help", "&Ignore",
                           "I&gnore All", "&No", "N&o to All", "OK", "Re&port", "&Retry",
                           "&Skip", "S&kip All", "&Try Again", "&Yes", "Y&es to All"};
  MessageDialogParams p{};
  p.hStringModule = TestResources();
  {
    msgbox_test::TraceCapture trace;
    CXDialogTemplate module(nullptr, "t", "c", MB_OK, &p);
    for (int i = 0; i < kButtonCaptionCount; ++i)  // 9016 is never read
      EXPECT_EQ(module.ButtonCaption(i)[0], i == CAPTION_REPORT ? 'R' : 'L') << i;
    EXPECT_STREQ(module.ButtonCaption(CAPTION_IGNOREALL), "L-IgnoreAll");
    EXPECT_EQ(trace.lines,
              (std::vector<std::string>{"in CXDialogTemplate::LoadButtonStringsFromResources\n",
                                        "in CXDialogTemplate::LoadButtonStrings\n"}));
  }
  {
    msgbox_test::TraceCapture trace;
    CXDialogTemplate builtIn(nullptr, "t", "c", MB_OK | MDS_NORESOURCE, &p);
    CXDialogTemplate host(nullptr, "t", "c", MB_OK, nullptr);  // no caption resources there
    for (int i = 0; i < kButtonCaptionCount; ++i) {
      EXPECT_STREQ(builtIn.ButtonCaption(i), english[i]);
      EXPECT_STREQ(host.ButtonCaption(i), english[i]);
    }
    EXPECT_EQ(trace.lines[0], "in CXDialogTemplate::LoadButtonStrings\n");
  }
  // The caller's captions go in as they stand; a Report caption from the module wins.
  p.bUserCaptions = TRUE;
  std::strcpy(p.UserCaptions.szNo, "Nope");
  std::strcpy(p.UserCaptions.szReport, "User report");
  p.nReportCaptionId = IDS_TEST_REPORT;
  p.pfnReport = [](const char*, void*) {};
  msgbox_test::TraceCapture trace;
  Template user = Build("t", MB_YESNO, &p);
  EXPECT_TRUE(trace.Has("in CXDialogTemplate::LoadUserDefinedButtonStrings\n"));
  EXPECT_EQ(Ids(user), (std::vector<int>{1001, IDYES, IDNO, 301}));
  EXPECT_EQ(Captions(user), (std::vector<std::string>{"t", "", "Nope", "Send it"}));
  p.nReportCaptionId = 9999;  // does not load: the text, else the user's entry
  std::strcpy(p.szReportCaption, "Text report");
  EXPECT_EQ(Build("t", MB_OK, &p).Find(301)->caption, "Text report");
  p.szReportCaption[0] = '\0';
  EXPECT_EQ(Build("t", MB_OK, &p).Find(301)->caption, "User report");
  // Message and title given as resource ids.
  CXDialogTemplate fromId(nullptr, MAKEINTRESOURCEA(IDS_TEST_MESSAGE),
                          MAKEINTRESOURCEA(IDS_TEST_REPORT), MB_OK, &p);
  EXPECT_STREQ(fromId.MessageText(), "Message from the resource module");
  EXPECT_STREQ(fromId.Caption(), "Send it");
  EXPECT_STREQ(CXDialogTemplate(nullptr, MAKEINTRESOURCEA(4321), "c", 0, &p).MessageText(), "");
  EXPECT_STREQ(CXDialogTemplate(nullptr, nullptr, "c", 0, &p).MessageText(), "");
}
