// What the hyperlink control reads: browser colours from the registry, colour texts, and the
// anchor mark-up of labels, including a few thousand random inputs.
#include "ui/hyperlink.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "link_dialog.h"

namespace {

const char kSettings[] = "Software\\Microsoft\\Internet Explorer\\Settings";

// Sets "Anchor Color" / "Anchor Color Visited" in this test's Wine prefix and restores the
// values that were there before.
class BrowserColours : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(ERROR_SUCCESS, ::RegCreateKeyExA(HKEY_CURRENT_USER, kSettings, 0, nullptr, 0,
                                               KEY_ALL_ACCESS, nullptr, &m_key, nullptr));
    for (int i = 0; i < 2; ++i) {
      DWORD size = sizeof(m_saved[i]);
      m_had[i] = ::RegQueryValueExA(m_key, kNames[i], nullptr, &m_type[i], m_saved[i], &size) ==
                 ERROR_SUCCESS;
      m_size[i] = size;
    }
  }
  void TearDown() override {
    for (int i = 0; i < 2; ++i) {
      if (m_had[i])
        ::RegSetValueExA(m_key, kNames[i], 0, m_type[i], m_saved[i], m_size[i]);
      else
        ::RegDeleteValueA(m_key, kNames[i]);
    }
    ::RegCloseKey(m_key);
  }
  void Set(int which, DWORD type, const void* data, DWORD size) {
    ASSERT_EQ(ERROR_SUCCESS, ::RegSetValueExA(m_key, kNames[which], 0, type,
                                              static_cast<const BYTE*>(data), size));
  }
  void SetText(int which, const char* text) { Set(which, REG_SZ, text, lstrlenA(text) + 1); }
  // The colours a freshly attached control ends up with.
  std::pair<COLORREF, COLORREF> Attach() {
    CHyperLinkEx link;
    HWND control = m_dialog.AddStatic("colours", SS_LEFT, 1);
    EXPECT_TRUE(link.AttachToWindow(control));
    ::DestroyWindow(control);
    return {link.GetLinkColor(), link.GetVisitedColor()};
  }

  static constexpr const char* kNames[2] = {"Anchor Color", "Anchor Color Visited"};
  LinkDialog m_dialog;
  HKEY m_key = nullptr;
  bool m_had[2] = {};
  DWORD m_type[2] = {}, m_size[2] = {};
  BYTE m_saved[2][256] = {};
};

TEST_F(BrowserColours, ValidTextsReplaceTheDefaults) {
  SetText(0, "0,128,255");
  SetText(1, "255,255,255");  // the longest text that fits
  auto colours = Attach();
  EXPECT_EQ(0x00FF8000u, colours.first);
  EXPECT_EQ(0x00FFFFFFu, colours.second);
  SetText(0, "256,0,0");  // components are cut to their low byte
  SetText(1, "");
  colours = Attach();
  EXPECT_EQ(0u, colours.first);
  EXPECT_EQ(RGB(128, 0, 128), colours.second);
}

TEST_F(BrowserColours, BadValuesLeaveTheDefaults) {
  const DWORD number = 0x00123456;
  // Fills the 12-byte buffer without a terminator.
  const char unterminated[] = {'1', ',', '2', ',', '3', '3', '3', '3', '3', '3', '3', '3'};
  for (const char* text : {"0,128", "0,128,", "-1,0,0", "0,-1,0", "255,255,2555", "red"}) {
    SetText(0, text);
    SetText(1, text);
    auto colours = Attach();
    EXPECT_EQ(RGB(0, 0, 255), colours.first) << text;
    EXPECT_EQ(RGB(128, 0, 128), colours.second) << text;
  }
  Set(0, REG_DWORD, &number, sizeof(number));
  Set(1, REG_BINARY, unterminated, sizeof(unterminated));
  EXPECT_EQ(RGB(0, 0, 255), Attach().first);
  Set(1, REG_SZ, unterminated, sizeof(unterminated));
  EXPECT_EQ(RGB(128, 0, 128), Attach().second);
  Set(0, REG_EXPAND_SZ, "1,2,3", 6);
  EXPECT_EQ(RGB(1, 2, 3), Attach().first);
}

TEST(ParseColorText, ComponentsAndQuirks) {
  EXPECT_EQ(RGB(0, 128, 255), CHyperLinkEx::ParseColorText("0,128,255"));
  EXPECT_EQ(RGB(1, 2, 3), CHyperLinkEx::ParseColorText(" 1, 2,3 trailing"));
  EXPECT_EQ(RGB(254, 0, 255), CHyperLinkEx::ParseColorText("-2,256,-1"));  // only -1 leading
  EXPECT_EQ(RGB(0, 0, 0), CHyperLinkEx::ParseColorText(",,x"));
  EXPECT_EQ(0xFFFFFFFFu, CHyperLinkEx::ParseColorText(""));
  EXPECT_EQ(0xFFFFFFFFu, CHyperLinkEx::ParseColorText(nullptr));
  EXPECT_EQ(0xFFFFFFFFu, CHyperLinkEx::ParseColorText("1;2;3"));
}

struct Parts {
  std::string before, link, after;
  bool operator==(const Parts& o) const {
    return before == o.before && link == o.link && after == o.after;
  }
};

Parts Split(const char* label) {
  CHyperLinkEx link;
  link.SetLabelText(label);
  LinkLabelParts p = link.ParseTaggedLabel();
  auto piece = [](const char* s, int n) { return s ? std::string(s, static_cast<size_t>(n)) : ""; };
  return {piece(p.pszBefore, p.cchBefore), piece(p.pszLink, p.cchLink),
          piece(p.pszAfter, p.cchAfter)};
}

TEST(ParseTaggedLabel, SplitsAtTheAnchorTags) {
  EXPECT_EQ((Parts{"Visit ", "our site", " today"}), Split("Visit <A>our site</A> today"));
  EXPECT_EQ((Parts{"Visit ", "our site", " today"}), Split("Visit <a>our site</a> today"));
  EXPECT_EQ((Parts{"", "all", ""}), Split("<A>all</A>"));
  EXPECT_EQ((Parts{"no ", "", ""}), Split("no <A>closing tag"));
  EXPECT_EQ((Parts{"", "", ""}), Split("no tags at all"));
  EXPECT_EQ((Parts{"", "", ""}), Split("</A> before <A"));
  EXPECT_EQ((Parts{"", "a", "</A>"}), Split("<A>a</A></A>"));
  EXPECT_EQ((Parts{"", "", ""}), Split(""));
  // Without a label the target is the text.
  CHyperLinkEx target;
  target.SetTarget("x<A>y</A>");
  EXPECT_EQ(1, target.ParseTaggedLabel().cchLink);
}

// A plainly written splitter over ASCII text, to compare with on random inputs.
Parts ReferenceSplit(const std::string& s) {
  auto at = [&](size_t i, const char* tag) {
    for (size_t k = 0; tag[k]; ++k)
      if (i + k >= s.size() || std::toupper(static_cast<unsigned char>(s[i + k])) != tag[k])
        return false;
    return true;
  };
  size_t open = std::string::npos;
  for (size_t i = 0; i < s.size(); ++i)
    if (at(i, "<A>")) { open = i; break; }
  if (open == std::string::npos) return {};
  Parts p{s.substr(0, open), "", ""};
  for (size_t i = open + 3; i < s.size(); ++i) {
    if (!at(i, "</A>")) continue;
    p.link = s.substr(open + 3, i - open - 3);
    if (i + 4 < s.size()) {
      p.after = s.substr(i + 4);
      break;
    }
  }
  return p;
}

TEST(RandomInputs, ParsersStayInRange) {
  std::mt19937 rng(20261121);
  const char alphabet[] = "<>/aA,-0123456789 x";
  for (int round = 0; round < 3000; ++round) {
    const size_t length = rng() % 24;
    std::string text, bytes;
    for (size_t i = 0; i < length; ++i) {
      text += alphabet[rng() % (sizeof(alphabet) - 1)];
      bytes += static_cast<char>(1 + rng() % 255);
    }
    for (const std::string& input : {text, bytes}) {
      COLORREF colour = CHyperLinkEx::ParseColorText(input.c_str());
      EXPECT_TRUE(colour == 0xFFFFFFFFu || colour <= 0x00FFFFFFu) << input;

      CHyperLinkEx link;
      ASSERT_TRUE(link.SetLabelText(input.c_str()));
      LinkLabelParts p = link.ParseTaggedLabel();
      const int n = static_cast<int>(input.size());
      ASSERT_TRUE(p.cchBefore >= 0 && p.cchLink >= 0 && p.cchAfter >= 0) << input;
      ASSERT_LE(p.cchBefore + p.cchLink + p.cchAfter, n) << input;
      if (p.pszLink != nullptr) {
        ASSERT_LE(p.pszLink + p.cchLink, link.GetLabelText() + n);
        ASSERT_EQ(link.GetLabelText() + p.cchBefore + 3, p.pszLink);
      }
      if (p.pszAfter != nullptr) ASSERT_EQ(link.GetLabelText() + n, p.pszAfter + p.cchAfter);
    }
    Parts got = Split(text.c_str());
    ASSERT_TRUE(got == ReferenceSplit(text)) << text;
  }
}

}  // namespace
