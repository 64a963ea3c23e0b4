// deskaid in a UTF-8 host (by its manifest) and a code page 1252 host: texts go in in the host's
// code page and what the platform shows, stores or opens is read back as UTF-16.
#include <windows.h>
#include <commctrl.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include <deskaid/codec/md5.h>
#include <deskaid/diag/log_export.h>
#include <deskaid/diag/log_writer.h>
#include <deskaid/msgbox/internal/xdialog_template.h>
#include <deskaid/ui/hyperlink.h>

#include "support/link_dialog_win.h"
#include "support/msgbox_test_util_win.h"
#include "support/scratch_dir.h"

using msgbox_test::Needed;
using msgbox_test::TextOf;

namespace {

// Texts of the host's code page: the UTF-8 host gets scripts and symbols that no legacy code page
// holds together (Cyrillic, Chinese, characters outside the Basic Multilingual Plane); the
// legacy host gets the Western letters and signs of 1252.
struct Samples {
  const wchar_t *text, *buttons[3], *link, *target;
};

const Samples kUtf8 = {
    L"\u00DCberweisung 42 \u20AC an M\u00FCller \u2014 \u5DF2\u5B8C\u6210 \u0416 \U0001F4B6",
    {L"&Wiederholen", L"\u041E\u0442&\u043C\u0435\u043D\u0430", L"\u7A0D\u540E(&L)"},
    L"\u00DCberblick \u6982\u8981 \u0416",
    L"https://example.invalid/\u00FCbersicht/\u6982\u8981?q=\u0436",
};

const Samples kLegacy = {
    L"\u00DCberweisung 42 \u20AC an M\u00FCller \u2014 erledigt \u00B1 \u00AB na\u00EFve \u00BB",
    {L"&Wiederholen", L"Abbre&chen", L"Sp\u00E4&ter"},
    L"\u00DCberblick \u00BD Gr\u00F6\u00DFe",
    L"https://example.invalid/\u00FCbersicht?q=\u00DF",
};

const Samples& ForThisHost() { return GetACP() == CP_UTF8 ? kUtf8 : kLegacy; }

// The text in the host's code page; `whole` fails the test if a character has no place in it.
std::string Host(const std::wstring& wide, bool whole = true) {
  const int n = static_cast<int>(wide.size());
  std::string bytes(wide.size() * 4, '\0');
  bytes.resize(static_cast<size_t>(
      WideCharToMultiByte(CP_ACP, 0, wide.data(), n, &bytes[0], 4 * n, nullptr, nullptr)));
  std::wstring round(wide.size(), L'\0');
  round.resize(static_cast<size_t>(
      MultiByteToWideChar(CP_ACP, 0, bytes.data(), static_cast<int>(bytes.size()), &round[0], n)));
  EXPECT_TRUE(!whole || round == wide) << "a sample does not fit code page " << GetACP();
  return bytes;
}

// What a cut of `wide`'s host bytes at `limit` bytes keeps: as many whole characters as fit.
std::string Cut(const std::wstring& wide, size_t limit) {
  std::string kept;
  for (size_t i = 0, units; i < wide.size(); i += units) {
    units = IS_HIGH_SURROGATE(wide[i]) ? 2 : 1;
    const std::string one = Host(wide.substr(i, units), false);
    if (kept.size() + one.size() > limit) break;
    kept += one;
  }
  return kept;
}

}  // namespace

TEST(CodePageHost, RunsInItsCodePage) { EXPECT_EQ(GetACP(), static_cast<UINT>(DESKAID_HOST_ACP)); }

// Text, caption and custom buttons reach the dialog's controls as the same characters; the
// message is measured with them, and Ctrl+C copies them.
TEST(CodePageHost, MessageBoxShowsTheHostsTexts) {
  const Samples& s = ForThisHost();
  MessageDialogParams p{};
  const std::string buttons =
      Host(s.buttons[0]) + "\n" + Host(s.buttons[1]) + "\n" + Host(s.buttons[2]);
  ASSERT_LT(buttons.size(), sizeof p.szCustomButtons);
  std::strcpy(p.szCustomButtons, buttons.c_str());
  // The copy lists the captions without their access-key marks.
  std::wstring copied = std::wstring(s.buttons[0]) + L"   " + s.buttons[1] + L"   " + s.buttons[2];
  copied.erase(std::remove(copied.begin(), copied.end(), L'&'), copied.end());
  EXPECT_EQ(
      msgbox_test::Drive(
          Host(s.link).c_str(), MB_OK, &p,
          [&](HWND dialog) {
            HWND message = GetDlgItem(dialog, ID_FIRSTTEXT);
            EXPECT_EQ(TextOf(message), s.text);
            for (int i = 0; i < 3; ++i)
              EXPECT_EQ(TextOf(GetDlgItem(dialog, IDCUSTOM1 + i)), s.buttons[i]);
            // The message control holds the text as the dialog's font draws it.
            const RECT room = ClientRect(message);
            const RECT needed =
                Needed(message, s.text, DT_WORDBREAK | DT_EXPANDTABS | DT_NOPREFIX, room.right);
            EXPECT_TRUE(needed.right <= room.right && needed.bottom <= room.bottom);
            EXPECT_EQ(msgbox_test::CopyOf(dialog), msgbox_test::CopyText(s.link, s.text, copied));
            SendMessageW(GetDlgItem(dialog, IDCUSTOM2), BM_CLICK, 0, 0);
          },
          Host(s.text).c_str()),
      IDCUSTOM2);
}

// A static whose text is an address targets it and shows it in its tooltip; a tagged label keeps
// its characters, its separate target goes to the tooltip, and its link part is measured where
// the characters before it end.
TEST(CodePageHost, HyperlinkShowsLabelsTargetsAndTooltip) {
  const Samples& s = ForThisHost();
  LinkDialog dialog;
  const std::string target = Host(s.target);
  CHyperLinkEx plain, tagged;
  HWND control = dialog.Attach(plain, target.c_str(), 0, 101, {10, 10, 390, 30});
  EXPECT_EQ(ToolText(plain.GetToolTip()), s.target);
  const LONG width = ClientRect(control).right;  // both statics are 380 pixels wide
  EXPECT_EQ(plain.GetLinkRect().right, Needed(control, s.target, DT_WORDBREAK, width).right);

  ASSERT_TRUE(tagged.SetTarget(target.c_str()));
  const std::wstring before = L"Weiter zu ", label = before + L"<a>" + s.link + L"</A> \u00F6ffnen";
  control = dialog.Attach(tagged, Host(label).c_str(), LinkStyleUseTags, 102, {10, 40, 390, 60});
  EXPECT_EQ(ToolText(tagged.GetToolTip()), s.target);
  const LONG left = Needed(control, before, DT_WORDBREAK, width).right;
  EXPECT_EQ(tagged.GetLinkRect().left, left);  // underlining leaves widths alone
  EXPECT_EQ(tagged.GetLinkRect().right,
            left + Needed(control, s.link, DT_WORDBREAK, width - left).right);
}

// Texts cut at a byte limit keep whole characters: in a single-byte code page the cut is made at
// the limit itself, in UTF-8 a character split there is left out. Debug trace lines (511 bytes),
// log records (1,023), log paths (259), the message box's text (65,535), title (1,023) and
// caption slots (99). The logs lie in a folder of the host's characters and are named in them;
// the converter writes the record's bytes out unchanged, enciphered or not, and the text file is
// hashed as its bytes are.
TEST(CodePageHost, CutsAtByteLimitsKeepWholeCharacters) {
  const Samples& s = ForThisHost();
  TraceCapture trace;
  ScratchDir scratch;
  const std::wstring folder = scratch.path().wstring() + L"\\" + s.link;
  ASSERT_TRUE(CreateDirectoryW(folder.c_str(), nullptr));
  bool shortened = false;  // in UTF-8 some cut must fall inside a character
  // Every alignment of the text's characters against the limits.
  const int alignments = static_cast<int>(Host(s.text).size());
  for (int pad = 0; pad < alignments; ++pad) {
    std::wstring wide(static_cast<size_t>(pad), L'x');
    for (int i = 0; i < 2000; ++i) wide += s.text;
    const std::string bytes = Host(wide);
    for (size_t limit : {99, 511, 1023, 65535}) shortened |= Cut(wide, limit).size() < limit;

    DebugTrace("%s", bytes.c_str());
    EXPECT_EQ(trace.lines.back(), Cut(wide, 511));

    const std::wstring log = folder + L"\\" + s.link + std::to_wstring(pad) + L".log";
    ASSERT_TRUE(g_LogWriter.Open(Host(log).c_str(), 1 << 20, static_cast<uint8_t>(pad % 2), 20));
    ASSERT_NE(LogPrintf(LOG_LEVEL_2, "%s", bytes.c_str()), 0u);
    g_LogWriter.Close();
    EXPECT_NE(GetFileAttributesW(log.c_str()), INVALID_FILE_ATTRIBUTES);
    const std::wstring text = log + L".txt";
    ASSERT_TRUE(ConvertLogToText(Host(log).c_str(), Host(text).c_str(), nullptr));
    const std::string exported = ReadFileBytes(Host(text));
    const size_t body = exported.find('\t') + 1;
    ASSERT_NE(body, 0u) << exported;
    EXPECT_EQ(exported.substr(body, exported.find('\r', body) - body), Cut(wide, 1023));
    EXPECT_EQ(HashFile(Host(text).c_str()).value_or("none"), HashString(exported.c_str()));

    // A log path too long for its buffer is cut the same way (the file is not opened then).
    const std::wstring longPath =
        scratch.path().wstring() + L"\\" + wide.substr(0, IS_HIGH_SURROGATE(wide[299]) ? 299 : 300);
    ASSERT_TRUE(g_LogWriter.SetPath(Host(longPath).c_str()));
    EXPECT_EQ(std::string(g_LogWriter.GetPath()), Cut(longPath, 259));

    MessageDialogParams p{};
    std::strcpy(p.szReportCaption, Cut(wide, 259).c_str());
    p.bUserCaptions = TRUE;
    std::strcpy(p.UserCaptions.szOK, Cut(wide, 259).c_str());
    CXDialogTemplate box(nullptr, bytes.c_str(), bytes.c_str(), MB_OK | MDS_NOSOUND, &p);
    EXPECT_EQ(std::string(box.MessageText()), Cut(wide, 65535));
    EXPECT_EQ(std::string(box.ButtonCaption(CAPTION_OK)), Cut(wide, 99));
    EXPECT_EQ(std::string(box.ButtonCaption(CAPTION_REPORT)), Cut(wide, 99));
    const std::string copy = box.ClipboardText();
    const size_t title = copy.find("\r\n") + 2;
    EXPECT_EQ(copy.substr(title, copy.find("\r\n", title) - title), Cut(wide, 1023));
  }
  // In 1252 every cut above kept exactly its limit.
  EXPECT_EQ(shortened, GetACP() == CP_UTF8);
}
