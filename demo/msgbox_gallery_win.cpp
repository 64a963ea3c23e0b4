// A gallery of message boxes: shows representative boxes one after another, photographs each
// from a second thread once it is on screen, saves the picture as a BMP file and dismisses the
// box; last, the crash box of a host that failed (crash_demo.exe).
// Usage: msgbox_gallery_win [output directory]   (default: the current directory)
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <deskaid/msgbox/message_dialog.h>

namespace {

struct Entry {
  const char* file;  // picture name, without extension
  const char* title;
  const char* text;
  unsigned style;
  MessageDialogParams params;
  int pressId;  // button the driver presses after the picture
};

HWND WaitForDialog(const char* title) {
  for (int i = 0; i < 1000; ++i) {
    HWND dialog = FindWindowA("#32770", title);
    if (dialog != nullptr && IsWindowVisible(dialog)) return dialog;
    Sleep(10);
  }
  return nullptr;
}

// Copies the window's screen area into a 24-bit bottom-up BMP file.
bool SaveWindowPicture(HWND window, const std::string& path) {
  RECT rect;
  if (!GetWindowRect(window, &rect)) return false;
  const int width = rect.right - rect.left;
  const int height = rect.bottom - rect.top;
  if (width <= 0 || height <= 0) return false;

  BITMAPINFO info{};
  info.bmiHeader.biSize = sizeof info.bmiHeader;
  info.bmiHeader.biWidth = width;
  info.bmiHeader.biHeight = height;  // bottom-up, as a BMP file stores rows
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = 24;
  info.bmiHeader.biCompression = BI_RGB;
  const DWORD stride = (static_cast<DWORD>(width) * 3 + 3) & ~3u;
  info.bmiHeader.biSizeImage = stride * static_cast<DWORD>(height);

  HDC screen = GetDC(nullptr);
  HDC memory = CreateCompatibleDC(screen);
  void* bits = nullptr;
  HBITMAP bitmap = CreateDIBSection(screen, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
  bool saved = false;
  if (memory != nullptr && bitmap != nullptr) {
    HGDIOBJ previous = SelectObject(memory, bitmap);
    BitBlt(memory, 0, 0, width, height, screen, rect.left, rect.top, SRCCOPY);
    GdiFlush();
    BITMAPFILEHEADER header{};
    header.bfType = 0x4D42;  // "BM"
    header.bfOffBits = sizeof header + sizeof info.bmiHeader;
    header.bfSize = header.bfOffBits + info.bmiHeader.biSizeImage;
    if (FILE* file = std::fopen(path.c_str(), "wb")) {
      saved = std::fwrite(&header, sizeof header, 1, file) == 1 &&
              std::fwrite(&info.bmiHeader, sizeof info.bmiHeader, 1, file) == 1 &&
              std::fwrite(bits, info.bmiHeader.biSizeImage, 1, file) == 1;
      saved = std::fclose(file) == 0 && saved;
    }
    SelectObject(memory, previous);
  }
  if (bitmap != nullptr) DeleteObject(bitmap);
  if (memory != nullptr) DeleteDC(memory);
  ReleaseDC(nullptr, screen);
  return saved;
}

// Under Wine on a display without a window manager (Xvfb), the title bars of managed windows are
// left to a manager that is not there. The gallery asks Wine to draw its windows itself, which it
// reads at process start: so the setting is made once and the program runs itself again.
bool UnderWine() {
  HMODULE ntdll = GetModuleHandleA("ntdll.dll");
  return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

// Asks Wine to draw the windows of the program `exe` itself (read when that program starts).
bool DrawWindowsUnmanaged(const char* exe) {
  const std::string key = std::string("Software\\Wine\\AppDefaults\\") + exe + "\\X11 Driver";
  HKEY handle;
  if (RegCreateKeyExA(HKEY_CURRENT_USER, key.c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr,
                      &handle, nullptr) != ERROR_SUCCESS)
    return false;
  RegSetValueExA(handle, "Managed", 0, REG_SZ, reinterpret_cast<const BYTE*>("N"), 2);
  RegCloseKey(handle);
  return true;
}

bool RelaunchedUnmanagedUnderWine(int& exitCode) {
  if (!UnderWine() || GetEnvironmentVariableA("MSGBOX_GALLERY_CHILD", nullptr, 0) != 0)
    return false;
  if (!DrawWindowsUnmanaged("msgbox_gallery_win.exe")) return false;
  SetEnvironmentVariableA("MSGBOX_GALLERY_CHILD", "1");
  STARTUPINFOA startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  if (!CreateProcessA(nullptr, GetCommandLineA(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                      &startup, &process))
    return false;
  WaitForSingleObject(process.hProcess, INFINITE);
  DWORD code = 1;
  GetExitCodeProcess(process.hProcess, &code);
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  exitCode = static_cast<int>(code);
  return true;
}

// The crash box of a host that failed: crash_demo.exe, beside this program, crashes with the box
// asked for; the box is photographed and closed, which ends that process.
bool PhotographCrashBox(const std::string& directory) {
  char self[MAX_PATH];
  GetModuleFileNameA(nullptr, self, MAX_PATH);
  std::string demo(self);
  demo.erase(demo.find_last_of('\\') + 1) += "crash_demo.exe";
  if (UnderWine()) DrawWindowsUnmanaged("crash_demo.exe");
  std::string line = "\"" + demo + "\" \"" + directory + "crash-box\" box";
  CreateDirectoryA((directory + "crash-box").c_str(), nullptr);
  STARTUPINFOA startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  if (!CreateProcessA(nullptr, &line[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                      &process))
    return false;
  bool saved = false;
  if (HWND box = WaitForDialog("crash_demo.exe")) {
    Sleep(600);
    saved = SaveWindowPicture(box, directory + "msgbox_crash.bmp");
    SendMessageA(GetDlgItem(box, IDCUSTOM1), BM_CLICK, 0, 0);
  }
  WaitForSingleObject(process.hProcess, 30000);
  DWORD code = 0;
  GetExitCodeProcess(process.hProcess, &code);
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  std::printf("%-28s exit 0x%08lX  %s\n", "msgbox_crash", static_cast<unsigned long>(code),
              saved ? (directory + "msgbox_crash.bmp").c_str() : "(no picture)");
  return saved;
}

void ReportProblem(const char* text, void*) { std::printf("  Report pressed for: %s\n", text); }

}  // namespace

int main(int argc, char** argv) {
  int exitCode = 0;
  if (RelaunchedUnmanagedUnderWine(exitCode)) return exitCode;

  std::string directory = argc > 1 ? argv[1] : ".";
  if (!directory.empty() && directory.back() != '\\' && directory.back() != '/') directory += '\\';

  std::vector<Entry> gallery(5);

  Entry& countdown = gallery[0];
  countdown = {"msgbox_countdown",
               "Unsaved changes",
               "The document has changed.\n\nSave it before closing?",
               MB_YESNOCANCEL | MB_ICONQUESTION,
               {},
               0};
  countdown.params.nTimeoutSeconds = 5;

  Entry& custom = gallery[1];
  custom = {"msgbox_custom_buttons",
            "Connection lost",
            "The server stopped answering while the upload was running.",
            MB_ICONEXCLAMATION,
            {},
            IDCUSTOM3};
  std::strcpy(custom.params.szCustomButtons, "Retry now\nWork offline\nWait\nGive up");

  Entry& checkBox = gallery[2];
  checkBox = {"msgbox_checkbox_help_report",
              "Import finished",
              "212 records were imported; 3 were skipped because their dates could not be read.",
              MB_OKCANCEL | MB_ICONASTERISK | MB_HELP | MDS_DONTSHOWAGAIN,
              {},
              IDOK};
  checkBox.params.pfnReport = &ReportProblem;

  Entry& icon = gallery[3];
  icon = {"msgbox_resource_icon",
          "Folder watch",
          "New files arrived in the watched folder.\nOpen the folder now?",
          MB_YESNO | MDS_DONTASKAGAIN,
          {},
          IDNO};
  // An icon resource of a system module, loaded by id as a caller's own module would be.
  icon.params.hIconModule = LoadLibraryA("shell32.dll");
  icon.params.nIconId = 4;

  Entry& right = gallery[4];
  right = {"msgbox_right_justified",
           "Disk error",
           "Drive E: could not be read.\nThe medium may have been removed while it was in use.",
           MB_ABORTRETRYIGNORE | MB_ICONHAND | MB_DEFBUTTON2,
           {},
           IDIGNORE};
  right.params.dwOptions = MDO_RIGHTJUSTIFY;

  int failures = 0;
  for (const Entry& entry : gallery) {
    const std::string path = directory + entry.file + ".bmp";
    bool saved = false;
    std::thread photographer([&] {
      HWND dialog = WaitForDialog(entry.title);
      if (dialog == nullptr) return;
      // Long enough for a countdown to show on its button.
      Sleep(entry.params.nTimeoutSeconds ? 2300 : 600);
      saved = SaveWindowPicture(dialog, path);
      if (entry.pressId != 0) SendMessageA(GetDlgItem(dialog, entry.pressId), BM_CLICK, 0, 0);
    });
    const int result =
        ShowMessageDialog(nullptr, entry.text, entry.title,
                          entry.style | MB_TOPMOST | MB_SETFOREGROUND | MDS_NOSOUND, &entry.params);
    photographer.join();
    std::printf("%-28s result 0x%08X  %s\n", entry.file, static_cast<unsigned>(result),
                saved ? path.c_str() : "(no picture)");
    if (!saved) ++failures;
  }
  if (!PhotographCrashBox(directory)) ++failures;
  if (icon.params.hIconModule != nullptr) FreeLibrary(icon.params.hIconModule);
  return failures == 0 ? 0 : 1;
}
