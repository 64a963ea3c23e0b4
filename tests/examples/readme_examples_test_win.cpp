// The Windows-only README examples: a message box and a hyperlink, shown for real.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstring>

#include <deskaid/deskaid.h>

#include "support/link_dialog_win.h"

namespace {

TEST(ReadmeExamples, MessageDialog) {
  // README: msgbox
  MessageDialogParams params{};
  params.nTimeoutSeconds = 2;  // the default button is pressed after a visible countdown
  std::strcpy(params.szCustomButtons, "Save\nDiscard");
  int result = ShowMessageDialog(nullptr, "The document has changed.", "Unsaved changes",
                                 MB_ICONQUESTION | MDS_DONTASKAGAIN | MDS_NOSOUND, &params);
  bool timedOut = (result & MDR_TIMEOUT) != 0;           // the countdown ended it
  bool dontAskAgain = (result & MDS_DONTASKAGAIN) != 0;  // the check box was ticked
  int button = result & 0xFFFF;                          // IDCUSTOM1 for "Save"
  // README: end
  EXPECT_TRUE(timedOut && !dontAskAgain && button == IDCUSTOM1) << std::hex << result;
}

TEST(ReadmeExamples, HyperLink) {
  LinkDialog box;
  HWND dialog = box.hwnd(), label = box.AddStatic("Read the <A>release notes</A> first.", 0, 100);
  // README: hyperlink
  CHyperLinkEx link;  // lives as long as the dialog
  link.SetExtendedStyle(LinkStyleUseTags);
  link.AttachToWindow(GetDlgItem(dialog, 100));
  link.SetTarget("https://www.example.com/notes");
  // README: end
  EXPECT_EQ(link.GetHwnd(), label);
}

}  // namespace
