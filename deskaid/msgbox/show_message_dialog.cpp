#include <cstring>
#include <memory>
#include <new>

#include "deskaid/msgbox/message_dialog.h"
#include "deskaid/msgbox/internal/xdialog_template.h"

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
  // Anything from 1000 seconds up is taken for a mistake and cut to ten seconds.
  if (request->nTimeoutSeconds >= 1000) request->nTimeoutSeconds = 10;
  if (request->nDisabledSeconds >= 1000) request->nDisabledSeconds = 10;

  CXDialogTemplate dialog(owner, text, caption, style, request.get());
  if (!(style & MDS_NOSOUND)) MessageBeep(style & 0xF0);
  return dialog.Display();
}
