// Helpers of the message box tests: trace capture, the resource module, a template decoder and a
// second thread that drives a shown dialog.
#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <vector>

namespace msgbox_test {

// Collects every DebugTrace line while alive.
class TraceCapture {
 public:
  TraceCapture();
  ~TraceCapture();
  const std::vector<std::string>& Lines() const { return m_lines; }
  bool Has(const std::string& line) const;

 private:
  static void Sink(const char* line, void* context);
  std::vector<std::string> m_lines;
};

// The tests' resource DLL, loaded once from beside the test executable.
HINSTANCE TestResources();

struct DecodedItem {
  size_t offset;
  DWORD style, exStyle;
  short x, y, cx, cy;
  WORD id, classMarker, classAtom;
  std::string caption;  // UTF-16 caption narrowed (the tests use ASCII)
  WORD creationDataSize;
  size_t end;  // offset just past the item
};

struct DecodedTemplate {
  DWORD style, exStyle;
  WORD count;
  short x, y, cx, cy;
  WORD menu, windowClass;
  std::string title;
  std::vector<DecodedItem> items;
  size_t end;  // offset just past the last item
  const DecodedItem* Find(WORD id) const;
};

// Reads a DLGTEMPLATE as the platform would; a malformed block fails the current test.
DecodedTemplate Decode(const std::vector<unsigned char>& bytes);

// Waits for a top-level dialog titled `title` (up to 10 s); null when none appears.
HWND WaitForDialog(const char* title);

// Runs `show` on this thread while `drive` gets the dialog titled `title` on a second thread.
int ShowDriven(const char* title, const std::function<int()>& show,
               const std::function<void(HWND)>& drive);

std::string ControlText(HWND dialog, int id);

}  // namespace msgbox_test
