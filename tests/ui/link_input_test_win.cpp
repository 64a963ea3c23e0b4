// What the hyperlink control reads: browser colours from the registry, colour texts, and the
// anchor mark-up of labels. (Robustness on arbitrary input is the link_text fuzz target's.)
#include <deskaid/ui/hyperlink.h>

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "support/link_dialog_win.h"

namespace {

const char kSettings[] = "Software\\Microsoft\\Internet Explorer\\Settings";

// "Anchor Color" and "Anchor Color Visited" are set in this test's own Wine prefix, where they
// are otherwise absent (the other tests need the default colours), and removed afterwards.
class BrowserColours : public ::testing::Test {
 protected:
  void TearDown() override {
    for (const char* name : kNames) ::RegDeleteKeyValueA(HKEY_CURRENT_USER, kSettings, name);
  }
  static constexpr const char* kNames[2] = {"Anchor Color", "Anchor Color Visited"};
  LinkDialog m_dialog;
};

// A valid text replaces its default: each component read as a decimal (leading blanks and
// trailing text allowed, none read as 0) and cut to its low byte. Anything else leaves the
// default: an empty or short text, -1 leading a component but the last, a value that is not a
// string, a text filling the 12-byte buffer without a terminator. No text at all is no colour.
TEST_F(BrowserColours, ValidTextsReplaceTheDefaults) {
  const char full[] = {'1', ',', '2', ',', '3', '3', '3', '3', '3', '3', '3', '3'};
  const DWORD number = 0x00123456;
  const struct Value {
    DWORD type;
    const void* data;
    DWORD size;
  } none{REG_SZ, "", 1};
  auto text = [](const char* t) { return Value{REG_SZ, t, static_cast<DWORD>(lstrlenA(t) + 1)}; };
  const struct {
    Value link, visited;
    COLORREF expectLink, expectVisited;
  } cases[] = {
      {text("0,128,255"), text("255,255,255"), 0x00FF8000, 0x00FFFFFF},  // the longest that fits
      {text(",,x"), none, 0, kPurple},
      {text("-2,256,-1"), text(" 1, 2,3 x"), RGB(254, 0, 255), RGB(1, 2, 3)},
      {text("0,128"), text("0,128,"), kBlue, kPurple},
      {text("-1,0,0"), text("0,-1,0"), kBlue, kPurple},
      {text("255,255,2555"), text("red"), kBlue, kPurple},
      {{REG_DWORD, &number, sizeof number}, {REG_BINARY, full, sizeof full}, kBlue, kPurple},
      {{REG_EXPAND_SZ, "1,2,3", 6}, {REG_SZ, full, sizeof full}, RGB(1, 2, 3), kPurple},
  };
  for (const auto& c : cases) {
    for (int i = 0; i < 2; ++i) {
      const Value& v = i ? c.visited : c.link;
      ASSERT_EQ(ERROR_SUCCESS,
                ::RegSetKeyValueA(HKEY_CURRENT_USER, kSettings, kNames[i], v.type, v.data, v.size));
    }
    CHyperLinkEx link;  // the colours a freshly attached control ends up with
    ::DestroyWindow(m_dialog.Attach(link, "colours", 0, 1));
    EXPECT_EQ(std::make_pair(c.expectLink, c.expectVisited),
              std::make_pair(link.GetLinkColor(), link.GetVisitedColor()))
        << &c - cases;
  }
  EXPECT_EQ(0xFFFFFFFFu, CHyperLinkEx::ParseColorText(nullptr));
}

using Parts = std::array<std::string, 3>;  // before, link, after

Parts Split(const char* label) {
  CHyperLinkEx link;
  link.SetLabelText(label);
  LinkLabelParts p = link.ParseTaggedLabel();
  auto piece = [](const char* s, int n) { return s ? std::string(s, static_cast<size_t>(n)) : ""; };
  return {piece(p.pszBefore, p.cchBefore), piece(p.pszLink, p.cchLink),
          piece(p.pszAfter, p.cchAfter)};
}

TEST(ParseTaggedLabel, SplitsAtTheAnchorTags) {
  const std::pair<const char*, Parts> cases[] = {
      {"Visit <a>our site</A> today", {"Visit ", "our site", " today"}},
      {"no <A>closing tag", {"no ", "", ""}},
      {"<A>a</A></A>", {"", "a", "</A>"}},
      {"<A><a>x</a>", {"", "<a>x", ""}},
      {"no tags at all", {}},
      {"</A> before <A", {}},
  };
  for (const auto& c : cases) EXPECT_EQ(c.second, Split(c.first)) << c.first;
  // Without a label the target is the text.
  CHyperLinkEx target;
  target.SetTarget("x<A>y</A>");
  EXPECT_EQ(1, target.ParseTaggedLabel().cchLink);
}

}  // namespace
