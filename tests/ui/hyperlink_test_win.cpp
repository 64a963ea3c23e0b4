// The hyperlink control attached to static controls of a real dialog.
#include <deskaid/ui/hyperlink.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/input_win.h"
#include "support/link_dialog_win.h"
#include "support/scratch_dir.h"

namespace {

const int kId = 1001;

TEST(HyperLink, PlainStaticTargetsItsOwnText) {
  LinkDialog dialog;
  CHyperLinkEx link;
  // Its target, tooltip and link rectangle: the host tests.
  HWND control = dialog.Attach(link, "http://example.invalid/", 0, kId);
  EXPECT_NE(0u, ::GetWindowLongA(control, GWL_STYLE) & SS_NOTIFY);

  // Every SetTarget adds a tool; none is removed.
  HWND tip = link.GetToolTip();
  const LRESULT tools = ::SendMessageA(tip, TTM_GETTOOLCOUNT, 0, 0);
  ASSERT_TRUE(link.SetTarget("http://other.invalid/"));
  EXPECT_EQ(tools + 1, ::SendMessageA(tip, TTM_GETTOOLCOUNT, 0, 0));
  EXPECT_EQ(L"http://other.invalid/", ToolText(tip, static_cast<UINT>(tools)));

  EXPECT_EQ(reinterpret_cast<HFONT>(::SendMessageA(dialog.hwnd(), WM_GETFONT, 0, 0)),
            link.GetNormalFont());

  // Centred and right-aligned statics move the link's rectangle with their text.
  CHyperLinkEx centre, right;
  ASSERT_TRUE(centre.AttachToWindow(dialog.AddStatic("word", SS_CENTER, 2, {10, 40, 210, 60})));
  ASSERT_TRUE(right.AttachToWindow(dialog.AddStatic("word", SS_RIGHT, 3, {10, 70, 210, 90})));
  const LONG width = right.GetLinkRect().right - right.GetLinkRect().left;
  EXPECT_EQ(200, right.GetLinkRect().right);
  EXPECT_NEAR((200 - width) / 2, centre.GetLinkRect().left, 1);
  EXPECT_EQ(width, centre.GetLinkRect().right - centre.GetLinkRect().left);
}

TEST(HyperLink, TaggedLabelDrawsOnlyTheLinkInLinkColour) {
  LinkDialog dialog;
  CHyperLinkEx link, bold;
  HWND control = dialog.Attach(link, "Visit <A>our site</A> today", LinkStyleUseTags, kId);
  const RECT r = link.GetLinkRect();  // where it lies is measured in the host tests
  Picture picture = Render(control);
  const COLORREF text = ::GetSysColor(COLOR_BTNTEXT);
  EXPECT_GT(picture.Count(text, 0, r.left), 10);  // "Visit" and "today" plain
  EXPECT_GT(picture.Count(text, r.right), 10);
  EXPECT_EQ(0, picture.Count(kBlue, 0, r.left) + picture.Count(kBlue, r.right));
  EXPECT_GE(picture.LongestRun(kBlue), r.right - r.left - 2);  // underlined link

  Picture boldPicture = Render(
      dialog.Attach(bold, "<A>all link</A>", LinkStyleUseTagsBold, kId + 2, {10, 70, 250, 90}));
  LOGFONTA font = {};  // bold; not underlined, as the short runs below show
  ASSERT_EQ(int{sizeof font}, ::GetObjectA(bold.GetLinkFont(), sizeof font, &font));
  EXPECT_EQ(FW_BOLD, font.lfWeight);
  EXPECT_GT(boldPicture.Count(kBlue), 20);
  EXPECT_LT(boldPicture.LongestRun(kBlue), bold.GetLinkRect().right - 4);
}

// Enter and Space follow a link, other keys do not: through the shell, marking it visited (purple)
// only when the target opens; or by WM_COMMAND or NM_CLICK to the parent, which need no target
// and leave it unvisited. A disabled link is grey, visited or not.
TEST(HyperLink, KeysFollowTheLinkInEachMode) {
  const std::string probe = BesideThisProgram("link_target_probe.exe");
  const std::string marker = probe + ".marker";
  ::DeleteFileA(marker.c_str());
  const struct {
    DWORD style;
    const char* target;
    int commands, notifies;
    bool visited;
  } modes[] = {
      {0, probe.c_str(), 0, 0, true},
      {0, "C:\\deskaid-missing\\nothing-here.exe", 0, 0, false},
      {LinkStyleCommandButton, nullptr, 2, 0, false},
      {LinkStyleNotifyButton, nullptr, 0, 2, false},
  };
  HFONT made = nullptr;  // the link font each control made, gone with it
  for (const auto& m : modes) {
    SCOPED_TRACE(m.style);
    EXPECT_EQ(0u, ::GetObjectType(made));
    LinkDialog dialog;
    CHyperLinkEx link;
    if (m.target != nullptr) link.SetTarget(m.target);
    HWND control = dialog.Attach(link, "follow", m.style, kId);
    EXPECT_EQ(DLGC_WANTCHARS, ::SendMessageA(control, WM_GETDLGCODE, 0, 0));
    for (int key : {VK_RETURN, VK_SPACE, int{'a'}, VK_TAB})
      ::SendMessageA(control, WM_CHAR, key, 0);
    EXPECT_EQ(m.commands, dialog.record.commands);
    EXPECT_EQ(m.notifies, dialog.record.notifies);
    // Navigate is false only for a target that does not open. The parent hears from the control,
    // by its identifier (the notification code is 0).
    EXPECT_TRUE(m.style == LinkStyleCommandButton || link.Navigate() == (m.visited || !m.target));
    EXPECT_EQ(m.commands + m.notifies ? control : nullptr, dialog.record.from);
    EXPECT_EQ(m.commands + m.notifies ? UINT_PTR{kId} : 0, dialog.record.id);
    const Picture picture = Render(control);
    EXPECT_EQ(m.visited, picture.Count(kPurple) > 0);
    EXPECT_EQ(!m.visited, picture.Count(kBlue) > 0);
    ::EnableWindow(control, FALSE);
    const Picture grey = Render(control);
    EXPECT_EQ(0, grey.Count(kPurple) + grey.Count(kBlue));
    EXPECT_GE(grey.LongestRun(::GetSysColor(COLOR_GRAYTEXT)), link.GetLinkRect().right - 2);
    made = link.GetLinkFont();
  }
  EXPECT_TRUE(WaitUntil(
      [&] { return ::GetFileAttributesA(marker.c_str()) != INVALID_FILE_ATTRIBUTES; }, 10000))
      << marker;
}

TEST(HyperLink, MouseClickNeedsPressAndReleaseInsideTheLink) {
  LinkDialog dialog;
  CHyperLinkEx link;
  HWND control = dialog.Attach(link, "click", LinkStyleCommandButton, kId);
  const LPARAM inside = MAKELPARAM(3, 3), outside = MAKELPARAM(200, 3);
  ::SendMessageA(control, WM_LBUTTONDOWN, MK_LBUTTON, inside);
  EXPECT_EQ(control, ::GetCapture());
  ::SendMessageA(control, WM_LBUTTONUP, 0, outside);
  EXPECT_EQ(nullptr, ::GetCapture());
  ::SendMessageA(control, WM_LBUTTONDOWN, MK_LBUTTON, outside);
  ::SendMessageA(control, WM_LBUTTONUP, 0, inside);
  EXPECT_EQ(0, dialog.record.commands);
  ::SendMessageA(control, WM_LBUTTONDOWN, MK_LBUTTON, inside);
  EXPECT_EQ(control, ::GetFocus());
  ::SendMessageA(control, WM_LBUTTONUP, 0, inside);
  EXPECT_EQ(1, dialog.record.commands);

  ::SetCursor(::LoadCursorA(nullptr, IDC_ARROW));
  ::SendMessageA(control, WM_MOUSEMOVE, 0, inside);
  EXPECT_EQ(::LoadCursorA(nullptr, IDC_HAND), ::GetCursor());
  // WM_SETCURSOR keeps that cursor while the pointer is over the link.
  POINT pt = {3, 3};
  ::ClientToScreen(control, &pt);
  ASSERT_TRUE(::SetCursorPos(pt.x, pt.y));
  EXPECT_EQ(1, ::SendMessageA(control, WM_SETCURSOR, reinterpret_cast<WPARAM>(control),
                              MAKELPARAM(HTCLIENT, WM_MOUSEMOVE)));
}

TEST(HyperLink, UnderlineHoverSwitchesFontsInAndOut) {
  LinkDialog dialog;
  CHyperLinkEx link;
  link.SetTarget("http://example.invalid/");
  HWND control = dialog.Attach(link, "hover me", LinkStyleUnderlineHover, kId);
  const int width = link.GetLinkRect().right;
  EXPECT_LT(Render(control).LongestRun(kBlue), width / 2);
  ::SendMessageA(control, WM_MOUSEMOVE, 0, MAKELPARAM(3, 3));
  EXPECT_GE(Render(control).LongestRun(kBlue), width - 2);
  ::SendMessageA(control, WM_MOUSELEAVE, 0, 0);
  EXPECT_LT(Render(control).LongestRun(kBlue), width / 2);
  // Moving off the link inside the window also ends the hover.
  ::SendMessageA(control, WM_MOUSEMOVE, 0, MAKELPARAM(3, 3));
  ::SendMessageA(control, WM_MOUSEMOVE, 0, MAKELPARAM(230, 3));
  EXPECT_EQ(0, link.GetState() & LinkStateHover);
}

// An icon static paints itself; the whole of it is the link, which the mouse follows as any other
// (MouseClickNeedsPressAndReleaseInsideTheLink).
TEST(HyperLink, IconStaticKeepsItsPaintingAndIsAllLink) {
  LinkDialog dialog;
  HWND control = dialog.AddStatic("", SS_ICON, kId, {10, 10, 42, 42});
  ::SendMessageA(control, STM_SETICON,
                 reinterpret_cast<WPARAM>(::LoadIconA(nullptr, IDI_APPLICATION)), 0);
  CHyperLinkEx link;
  link.SetTarget("http://icon.invalid/");
  ASSERT_TRUE(link.AttachToWindow(control));
  Picture picture = Render(control);
  EXPECT_LT(picture.Count(picture.at(0, 0)), picture.width * picture.height);
  const RECT client = ClientRect(control), r = link.GetLinkRect();
  EXPECT_TRUE(::EqualRect(&client, &r));
  EXPECT_EQ(1, ::SendMessageA(control, WM_ERASEBKGND, 0, 0));
}

// Notes the window procedure each time the object forgets its window.
struct WatchedLink : CHyperLinkImplEx<WatchedLink> {
  void FinalMessageHook(HWND h) override { procs.push_back(::GetWindowLongPtrA(h, GWLP_WNDPROC)); }
  std::vector<LONG_PTR> procs;
};

TEST(HyperLink, OwnWindowAndWindowDestruction) {
  LinkDialog dialog;
  CHyperLinkEx link;
  HWND own = link.Create(dialog.hwnd(), RECT{10, 10, 200, 30}, "http://own.invalid/", 0, 0, kId);
  ASSERT_NE(nullptr, own);
  EXPECT_TRUE(::IsWindowVisible(own) && ::GetParent(own) == dialog.hwnd());
  EXPECT_STREQ("http://own.invalid/", link.GetTarget());
  EXPECT_EQ(0u, ::GetWindowLongA(own, GWL_STYLE) & SS_NOTIFY);  // not a static: left alone
  ::DestroyWindow(own);
  EXPECT_EQ(nullptr, link.GetHwnd());

  // An attached static has its own procedure back by the time the object lets go of it.
  HWND control = dialog.AddStatic("text", SS_LEFT, 2);
  LONG_PTR original = ::GetWindowLongPtrA(control, GWLP_WNDPROC);
  WatchedLink watched;
  ASSERT_TRUE(watched.AttachToWindow(control));
  EXPECT_FALSE(link.AttachToWindow(control));  // one binding per window
  ::SendMessageA(control, WM_SETFONT, 0, FALSE);
  EXPECT_EQ(0, ::SendMessageA(control, WM_GETFONT, 0, 0));
  ::DestroyWindow(control);
  EXPECT_EQ(nullptr, watched.GetHwnd());
  EXPECT_EQ(std::vector<LONG_PTR>{original}, watched.procs);
}

// The control's measuring and painting leave a context holding the font it held before; a first
// selection that failed puts nothing back.
TEST(ScopedGdi, SelectionGivesBackWhatTheContextHeld) {
  deskaid::ScopedDisplayDC dc;
  ASSERT_NE(nullptr, static_cast<HDC>(dc));
  const HGDIOBJ held = ::GetCurrentObject(dc, OBJ_FONT);
  const HGDIOBJ fixed = ::GetStockObject(ANSI_FIXED_FONT), var = ::GetStockObject(ANSI_VAR_FONT);
  ASSERT_TRUE(held != fixed && held != var);
  {
    deskaid::ScopedSelection font(dc, fixed);
    font.Select(var);
    EXPECT_EQ(var, ::GetCurrentObject(dc, OBJ_FONT));
  }
  EXPECT_EQ(held, ::GetCurrentObject(dc, OBJ_FONT));
  {
    deskaid::ScopedSelection font(dc, deskaid::ScopedSelection::kUnlessFailed);
    font.Select(nullptr);
    font.Select(fixed);
  }
  EXPECT_EQ(fixed, ::GetCurrentObject(dc, OBJ_FONT));
}

}  // namespace
