// The dialog template as written for the platform, read back without showing it: its exact
// length, layout, button model and captions.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include <deskaid/msgbox/internal/xdialog_template.h>
#include "support/msgbox_test_util_win.h"
#include "test_resource_ids.h"

using msgbox_test::TestResources;

namespace {

struct Item {
  int id;
  DWORD style;
  bool button;       // else a static
  int x, y, cx, cy;  // in the dialog's client area, in pixels
  std::string caption;
};

struct Template {
  DWORD style;  // as written
  std::string title;
  int cx;  // the client area's width
  std::vector<Item> items;
  std::vector<int> ids;  // of the items, in order, and their captions
  std::vector<std::string> captions;
  const Item* Find(int id) const {
    for (const Item& item : items)
      if (item.id == id) return &item;
    return nullptr;
  }
  int DefaultId() const {  // the one BS_DEFPUSHBUTTON, 0 for none, -1 for several
    int id = 0;
    for (const Item& item : items)
      if (item.button && (item.style & 0xF) == BS_DEFPUSHBUTTON) id = id ? -1 : item.id;
    return id;
  }
};

INT_PTR CALLBACK QuietProc(HWND, UINT, WPARAM, LPARAM) { return FALSE; }

// The template as the platform reads it, into a dialog created hidden. The bytes must be exactly
// as long as the header with its title and the items with their captions, each item on a 4-byte
// boundary and the last one unpadded.
Template Decode(std::vector<unsigned char> bytes) {
  Template t{};
  std::memcpy(&t.style, bytes.data(), sizeof t.style);
  const DWORD hidden = t.style & ~WS_VISIBLE;
  std::memcpy(bytes.data(), &hidden, sizeof hidden);
  HWND dialog = CreateDialogIndirectParamA(GetModuleHandleA(nullptr),
                                           reinterpret_cast<DLGTEMPLATE*>(bytes.data()), nullptr,
                                           QuietProc, 0);
  EXPECT_NE(dialog, nullptr);
  char text[4096] = {};
  GetWindowTextA(dialog, text, sizeof text);
  t.title = text;
  RECT r;
  GetClientRect(dialog, &r);
  t.cx = r.right;

  size_t length = 22 + 2 * (t.title.size() + 1);
  for (HWND c = GetWindow(dialog, GW_CHILD); c != nullptr; c = GetWindow(c, GW_HWNDNEXT)) {
    GetWindowRect(c, &r);
    MapWindowPoints(nullptr, dialog, reinterpret_cast<POINT*>(&r), 2);
    GetClassNameA(c, text, sizeof text);
    const bool button = lstrcmpiA(text, "Button") == 0;
    GetWindowTextA(c, text, sizeof text);
    t.items.push_back({GetDlgCtrlID(c), static_cast<DWORD>(GetWindowLongA(c, GWL_STYLE)), button,
                       r.left, r.top, r.right - r.left, r.bottom - r.top, text});
    t.ids.push_back(t.items.back().id);
    t.captions.push_back(text);
    length = ((length + 3) & ~size_t{3}) + 24 + 2 * (t.captions.back().size() + 1);
  }
  DestroyWindow(dialog);
  EXPECT_EQ(bytes.size(), length) << "the template's length";
  return t;
}

Template Build(const char* text, unsigned style, const MessageDialogParams* params = nullptr,
               const char* caption = "Caption") {
  CXDialogTemplate dialog(nullptr, text, caption, style, params);
  return Decode(dialog.TemplateBytes());
}

}  // namespace

// A framed box with a caption and a system menu, centred unless placed; Tab visits the buttons.
TEST(MessageDialogTemplate, StylesTitleAndItems) {
  const Template t =
      Build("Save the changes?", MB_YESNOCANCEL | MB_ICONQUESTION | MB_HELP | MDS_DONTASKAGAIN,
            nullptr, "A box");
  const DWORD frame = WS_POPUP | WS_CAPTION | WS_SYSMENU | DS_CENTER | DS_MODALFRAME;
  EXPECT_EQ(t.style & (frame | DS_SYSMODAL), frame);
  ASSERT_EQ(t.ids, (std::vector<int>{1000, 1001, 6, 7, 2, 300, 5555}));
  for (const Item& item : t.items) {  // the icon and the text are statics
    EXPECT_EQ(item.button, item.id != 1000 && item.id != 1001) << item.id;
    EXPECT_EQ(item.style & (WS_VISIBLE | WS_TABSTOP),
              static_cast<DWORD>(WS_VISIBLE | (item.button ? WS_TABSTOP : 0)));
  }
  EXPECT_NE(Build("x", MB_OK | MB_SYSTEMMODAL).style & DS_SYSMODAL, 0u);
}

// The shown boxes check that the controls fit, in a row of equal buttons, at several DPIs; these
// are the sizes the layout gives at 96 DPI.
TEST(MessageDialogTemplate, LayoutSizes) {
  std::string words;  // many short words: wrapped close to the widest line the box allows
  for (int i = 0; i < 300; ++i) words += "ab ";
  MessageDialogParams countdown{};
  countdown.nTimeoutSeconds = 5;
  // A lone OK is 78 pixels wide and 23 high in a dialog at least 110 wide; with a countdown every
  // button is 100 pixels wide (give or take the rounding to dialog units and back).
  const Template hello = Build("Hello", MB_OK);
  EXPECT_NEAR(hello.Find(IDOK)->cx, 78, 3);
  EXPECT_NEAR(hello.Find(IDOK)->cy, 23, 3);
  EXPECT_GE(hello.cx, 107);
  const Template counting = Build("Right", MB_YESNO, &countdown);
  for (int id : {IDYES, IDNO}) EXPECT_NEAR(counting.Find(id)->cx, 100, 3);
  // Text wraps at half the screen plus 80 pixels (592 on a 1024-pixel screen); beside a style
  // icon it wraps narrower by the icon's room, so the box stays as wide.
  const Template plain = Build(words.c_str(), MB_OKCANCEL),
                 icon = Build(words.c_str(), MB_ICONEXCLAMATION | MB_OKCANCEL);
  EXPECT_NEAR(plain.cx, GetSystemMetrics(SM_CXSCREEN) / 2 + 80 + 28, 24);
  EXPECT_NEAR(icon.cx, plain.cx, 24);
  // Undefined set 12: a lone default OK, centred as if the row were -6 pixels wide.
  const Template twelve = Build("Twelve", 12);
  ASSERT_EQ(twelve.ids, (std::vector<int>{1001, 1}));
  EXPECT_EQ(twelve.DefaultId(), 1);
  EXPECT_NEAR(2 * twelve.items[1].x - twelve.cx, 6, 4);
  // Yes to All widens OK/Cancel without showing there: placed as a row of three would be.
  const Template two = Build("Hello there", MB_OKCANCEL | MDS_YESTOALL),
                 three = Build("Hello there", MB_YESNOCANCEL);
  ASSERT_EQ(two.ids, (std::vector<int>{1001, 1, 2}));
  EXPECT_EQ(two.cx, three.cx);
  for (int k : {1, 2}) EXPECT_EQ(two.items[k].x, three.items[k].x);
}

// A named icon loads but is neither shown nor given room; an id that does not load keeps its room
// and holder control. (The shown boxes paint an icon given by id.)
TEST(MessageDialogTemplate, IconSources) {
  MessageDialogParams p{};
  p.hIconModule = TestResources();
  std::strcpy(p.szIconName, "NAMEDICON");
  for (UINT id : {0u, 4242u}) {
    p.nIconId = id;
    CXDialogTemplate dialog(nullptr, "Icon", "c", MB_OK, &p);
    EXPECT_EQ(dialog.Icon() != nullptr, id == 0);
    const Template t = Decode(dialog.TemplateBytes());
    EXPECT_EQ(t.Find(1000) != nullptr, id != 0);
    EXPECT_EQ(t.Find(1001)->x > 40, id != 0) << t.Find(1001)->x;
  }
}

TEST(MessageDialogTemplate, ButtonSetsAndDefaultButton) {
  const Template all = Build("t", MB_YESNOCANCEL | MDS_YESTOALL | MDS_NOTOALL | 0x400);
  EXPECT_EQ(all.ids, (std::vector<int>{1001, 6, 19, 7, 20, 2}));
  EXPECT_EQ(all.DefaultId(), 2);
  EXPECT_EQ(Build("t", MB_OK | MB_DEFBUTTON3).DefaultId(), 1);
  EXPECT_EQ(Build("t", MDS_SKIPSKIPALLCANCEL).ids, (std::vector<int>{1001, 14, 15, 2}));
  // Help and Report become the default when asked to.
  MessageDialogParams p{};
  p.pfnReport = [](const char*, void*) {};
  EXPECT_EQ(Build("t", MB_OK | MB_DEFBUTTON2 | MB_HELP).DefaultId(), 300);
  EXPECT_EQ(Build("t", MB_OK | MB_DEFBUTTON2, &p).DefaultId(), 301);
  // Position 3 lies within the layout count but holds no button: no default push button.
  CXDialogTemplate gap(nullptr, "t", "c", MB_OKCANCEL | MDS_YESTOALL | MB_DEFBUTTON3, nullptr);
  EXPECT_EQ(gap.DefaultButtonId(), 1);
  EXPECT_EQ(Decode(gap.TemplateBytes()).DefaultId(), 0);

  // Custom lists replace the set: empty entries skipped, four at most; a resource list wins.
  std::strcpy(p.szCustomButtons, "Save\nDiscard\n\nLater\nNever\nMaybe");
  const Template custom = Build("t", MB_YESNOCANCEL | MDS_YESTOALL, &p);
  EXPECT_EQ(custom.captions,
            (std::vector<std::string>{"t", "Save", "Discard", "Later", "Never", "Re&port"}));
  p.hStringModule = TestResources();
  p.nCustomButtonsId = IDS_TEST_CUSTOM;
  EXPECT_EQ(Build("t", MB_OK, &p).captions,
            (std::vector<std::string>{"t", "Alpha", "Beta", "Gamma", "Re&port"}));
}

TEST(MessageDialogTemplate, CaptionMessageAndTitleSources) {
  MessageDialogParams p{};
  p.hStringModule = TestResources();
  // The module's captions (its Report caption starts with R, the others with L); the English
  // ones when asked for (the shown boxes show them where the host has none of its own).
  CXDialogTemplate module(nullptr, "t", "c", MB_OK, &p);
  for (int i = 0; i < kButtonCaptionCount; ++i)  // 9016 is never read
    EXPECT_EQ(module.ButtonCaption(i)[0], i == CAPTION_REPORT ? 'R' : 'L') << i;
  EXPECT_STREQ(module.ButtonCaption(CAPTION_IGNOREALL), "L-IgnoreAll");
  CXDialogTemplate builtIn(nullptr, "t", "c", MB_OK | MDS_NORESOURCE, &p);
  std::string english;
  for (int i = 0; i < kButtonCaptionCount; ++i)
    english += builtIn.ButtonCaption(i) + std::string("|");
  EXPECT_EQ(english,
            "&Abort|Cancel|&Continue|Don't ask me again|Don't tell me again|Don't show again|&Help|"
            "&Ignore|I&gnore All|&No|N&o to All|OK|Re&port|&Retry|&Skip|S&kip All|&Try Again|&Yes|"
            "Y&es to All|");
  // The caller's captions go in as they stand; a Report caption from the module wins, then the
  // text, then the caller's entry.
  p.bUserCaptions = TRUE;
  std::strcpy(p.UserCaptions.szNo, "Nope");
  std::strcpy(p.UserCaptions.szReport, "User report");
  p.nReportCaptionId = IDS_TEST_REPORT;
  p.pfnReport = [](const char*, void*) {};
  const Template user = Build("t", MB_YESNO, &p);
  EXPECT_EQ(user.captions, (std::vector<std::string>{"t", "", "Nope", "Send it"}));
  p.nReportCaptionId = 9999;
  std::strcpy(p.szReportCaption, "Text report");
  EXPECT_EQ(Build("t", MB_OK, &p).Find(301)->caption, "Text report");
  p.szReportCaption[0] = '\0';
  EXPECT_EQ(Build("t", MB_OK, &p).Find(301)->caption, "User report");
  // Message and title given as resource ids; an id that does not load, or none, is no text.
  CXDialogTemplate fromId(nullptr, MAKEINTRESOURCEA(IDS_TEST_MESSAGE),
                          MAKEINTRESOURCEA(IDS_TEST_REPORT), MB_OK, &p);
  EXPECT_STREQ(fromId.MessageText(), "Message from the resource module");
  EXPECT_STREQ(fromId.Caption(), "Send it");
  EXPECT_STREQ(CXDialogTemplate(nullptr, MAKEINTRESOURCEA(4321), "c", 0, &p).MessageText(), "");
  EXPECT_STREQ(CXDialogTemplate(nullptr, nullptr, "c", 0, &p).MessageText(), "");
}
