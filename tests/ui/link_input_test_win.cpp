// What the hyperlink control reads: browser colours from the registry, colour texts, and the
// anchor mark-up of labels, including a few thousand random inputs.
#include <deskaid/ui/hyperlink.h>

#include <gtest/gtest.h>

#include <array>
#include <cctype>
#include <random>
#include <string>

#include "link_dialog.h"

namespace {

const COLORREF kBlue = RGB(0, 0, 255), kPurple = RGB(128, 0, 128);
const char kSettings[] = "Software\\Microsoft\\Internet Explorer\\Settings";

// Sets "Anchor Color" (0) / "Anchor Color Visited" (1) in this test's own Wine prefix, where they
// are otherwise absent (the other tests need the default colours), and removes them afterwards.
class BrowserColours : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(ERROR_SUCCESS, ::RegCreateKeyExA(HKEY_CURRENT_USER, kSettings, 0, nullptr, 0,
                                               KEY_ALL_ACCESS, nullptr, &m_key, nullptr));
  }
  void TearDown() override {
    for (const char* name : kNames) ::RegDeleteValueA(m_key, name);
    ::RegCloseKey(m_key);
  }
  void Set(int which, DWORD type, const void* data, DWORD size) {
    ASSERT_EQ(ERROR_SUCCESS, ::RegSetValueExA(m_key, kNames[which], 0, type,
                                              static_cast<const BYTE*>(data), size));
  }
  void SetText(int which, const char* text) { Set(which, REG_SZ, text, lstrlenA(text) + 1); }
  // The link and visited colours a freshly attached control ends up with.
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
};

TEST_F(BrowserColours, ValidTextsReplaceTheDefaults) {
  SetText(0, "0,128,255");
  SetText(1, "255,255,255");  // the longest text that fits
  EXPECT_EQ(std::make_pair(COLORREF{0x00FF8000}, COLORREF{0x00FFFFFF}), Attach());
  SetText(0, "256,0,0");  // components are cut to their low byte
  SetText(1, "");
  EXPECT_EQ(std::make_pair(COLORREF{0}, kPurple), Attach());
}

TEST_F(BrowserColours, BadValuesLeaveTheDefaults) {
  for (const char* text : {"0,128", "0,128,", "-1,0,0", "0,-1,0", "255,255,2555", "red"}) {
    SetText(0, text);
    SetText(1, text);
    EXPECT_EQ(std::make_pair(kBlue, kPurple), Attach()) << text;
  }
  const DWORD number = 0x00123456;
  // Fills the 12-byte buffer without a terminator.
  const char unterminated[] = {'1', ',', '2', ',', '3', '3', '3', '3', '3', '3', '3', '3'};
  Set(0, REG_DWORD, &number, sizeof(number));
  Set(1, REG_BINARY, unterminated, sizeof(unterminated));
  EXPECT_EQ(kBlue, Attach().first);
  Set(1, REG_SZ, unterminated, sizeof(unterminated));
  EXPECT_EQ(kPurple, Attach().second);
  Set(0, REG_EXPAND_SZ, "1,2,3", 6);
  EXPECT_EQ(RGB(1, 2, 3), Attach().first);
}

TEST(ParseColorText, ComponentsAndQuirks) {
  EXPECT_EQ(RGB(0, 128, 255), CHyperLinkEx::ParseColorText("0,128,255"));
  EXPECT_EQ(RGB(1, 2, 3), CHyperLinkEx::ParseColorText(" 1, 2,3 trailing"));
  EXPECT_EQ(RGB(254, 0, 255), CHyperLinkEx::ParseColorText("-2,256,-1"));  // only -1 leading
  EXPECT_EQ(RGB(0, 0, 0), CHyperLinkEx::ParseColorText(",,x"));
  for (const char* bad : {"", static_cast<const char*>(nullptr), "1;2;3"})
    EXPECT_EQ(0xFFFFFFFFu, CHyperLinkEx::ParseColorText(bad));
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
  EXPECT_EQ((Parts{"Visit ", "our site", " today"}), Split("Visit <A>our site</A> today"));
  EXPECT_EQ((Parts{"Visit ", "our site", " today"}), Split("Visit <a>our site</a> today"));
  EXPECT_EQ((Parts{"", "all", ""}), Split("<A>all</A>"));
  EXPECT_EQ((Parts{"no ", "", ""}), Split("no <A>closing tag"));
  EXPECT_EQ((Parts{"", "a", "</A>"}), Split("<A>a</A></A>"));
  for (const char* none : {"no tags at all", "</A> before <A", ""}) EXPECT_EQ(Parts{}, Split(none));
  // Without a label the target is the text.
  CHyperLinkEx target;
  target.SetTarget("x<A>y</A>");
  EXPECT_EQ(1, target.ParseTaggedLabel().cchLink);
}

// A plainly written splitter over ASCII text, to compare with on random inputs.
Parts ReferenceSplit(const std::string& s) {
  std::string upper = s;
  for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  const size_t open = upper.find("<A>");
  if (open == std::string::npos) return {};
  const size_t close = upper.find("</A>", open + 3);
  if (close == std::string::npos) return {s.substr(0, open), "", ""};
  return {s.substr(0, open), s.substr(open + 3, close - open - 3), s.substr(close + 4)};
}

TEST(RandomInputs, ParsersStayInRange) {
  std::mt19937 rng(20261121);
  const char alphabet[] = "<>/aA,-0123456789 x";
  for (int round = 0; round < 3000; ++round) {
    std::string text, bytes;
    for (size_t i = 0, length = rng() % 24; i < length; ++i) {
      text += alphabet[rng() % (sizeof(alphabet) - 1)];
      bytes += static_cast<char>(1 + rng() % 255);
    }
    for (const std::string& input : {text, bytes}) {
      COLORREF colour = CHyperLinkEx::ParseColorText(input.c_str());
      EXPECT_TRUE(colour == 0xFFFFFFFFu || colour <= 0x00FFFFFFu) << input;

      CHyperLinkEx link;
      ASSERT_TRUE(link.SetLabelText(input.c_str()));
      LinkLabelParts p = link.ParseTaggedLabel();
      const char* end = link.GetLabelText() + input.size();
      ASSERT_TRUE(p.cchBefore >= 0 && p.cchLink >= 0 && p.cchAfter >= 0) << input;
      ASSERT_LE(p.cchBefore + p.cchLink + p.cchAfter, static_cast<int>(input.size())) << input;
      if (p.pszLink != nullptr) {
        ASSERT_LE(p.pszLink + p.cchLink, end);
        ASSERT_EQ(link.GetLabelText() + p.cchBefore + 3, p.pszLink);
      }
      if (p.pszAfter != nullptr) {
        ASSERT_EQ(end, p.pszAfter + p.cchAfter);
      }
    }
    ASSERT_EQ(ReferenceSplit(text), Split(text.c_str())) << text;
  }
}

}  // namespace
