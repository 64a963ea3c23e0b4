#include <cstring>
#include <memory>
#include <new>

#include "deskaid/msgbox/message_dialog.h"
#include "deskaid/msgbox/internal/xdialog_template.h"

namespace {

// A countdown or disabled period from kMistakenSeconds up is taken for a mistake and cut to
// kSecondsForMistake.
constexpr int kMistakenSeconds = 1000;
constexpr int kSecondsForMistake = 10;

}  // namespace

int ShowMessageDialog(HWND owner, const char* text, const char* caption, unsigned style,
                      const MessageDialogParams* params) {
  if (owner == nullptr) {
    owner = GetActiveWindow();
    if (owner != nullptr) owner = GetLastActivePopup(owner);
  }

  // The most severe, system-modal message goes to the system box, exactly as asked.
  if ((style & MB_ICONHAND) && (style & MB_SYSTEMMODAL))
    return MessageBoxA(owner, text, caption, style);

  if (caption == nullptr || caption[0] == '\0') caption = "Error";

  std::unique_ptr<MessageDialogParams> request(new (std::nothrow) MessageDialogParams());
  if (!request) return 2;
  if (params != nullptr) *request = *params;
  if (request->nTimeoutSeconds >= kMistakenSeconds) request->nTimeoutSeconds = kSecondsForMistake;
  if (request->nDisabledSeconds >= kMistakenSeconds) request->nDisabledSeconds = kSecondsForMistake;

  CXDialogTemplate dialog(owner, text, caption, style, request.get());
  if (!(style & MDS_NOSOUND)) MessageBeep(style & MB_ICONMASK);  // the sound of the icon asked for
  return dialog.Display();
}
