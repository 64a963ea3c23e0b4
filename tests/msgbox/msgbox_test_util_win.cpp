#include "msgbox_test_util_win.h"

#include <gtest/gtest.h>

#include <thread>

#include "diag/debug_trace.h"

namespace msgbox_test {

TraceCapture::TraceCapture() { SetDebugTraceSink(&TraceCapture::Sink, this); }
TraceCapture::~TraceCapture() { SetDebugTraceSink(nullptr, nullptr); }

void TraceCapture::Sink(const char* line, void* context) {
  static_cast<TraceCapture*>(context)->m_lines.push_back(line);
}

bool TraceCapture::Has(const std::string& line) const {
  for (const std::string& l : m_lines)
    if (l == line) return true;
  return false;
}

HINSTANCE TestResources() {
  static HINSTANCE module = [] {
    char path[MAX_PATH];
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    std::string dir(path);
    dir.erase(dir.find_last_of('\\') + 1);
    return LoadLibraryA((dir + "msgbox_test_resources.dll").c_str());
  }();
  return module;
}

namespace {

struct Reader {
  const std::vector<unsigned char>& bytes;
  size_t pos;
  bool ok = true;
  unsigned U16() {
    if (pos + 2 > bytes.size()) {
      ok = false;
      return 0;
    }
    unsigned v = bytes[pos] | (bytes[pos + 1] << 8);
    pos += 2;
    return v;
  }
  DWORD U32() {
    DWORD low = U16();
    return low | (static_cast<DWORD>(U16()) << 16);
  }
  std::string Text() {
    std::string s;
    for (unsigned c = U16(); ok && c != 0; c = U16()) s += c < 0x80 ? static_cast<char>(c) : '?';
    return s;
  }
};

}  // namespace

const DecodedItem* DecodedTemplate::Find(WORD id) const {
  for (const DecodedItem& item : items)
    if (item.id == id) return &item;
  return nullptr;
}

DecodedTemplate Decode(const std::vector<unsigned char>& bytes) {
  DecodedTemplate t{};
  Reader r{bytes, 0};
  t.style = r.U32();
  t.exStyle = r.U32();
  t.count = static_cast<WORD>(r.U16());
  t.x = static_cast<short>(r.U16());
  t.y = static_cast<short>(r.U16());
  t.cx = static_cast<short>(r.U16());
  t.cy = static_cast<short>(r.U16());
  t.menu = static_cast<WORD>(r.U16());
  t.windowClass = static_cast<WORD>(r.U16());
  t.title = r.Text();
  for (int i = 0; i < t.count && r.ok; ++i) {
    DecodedItem item{};
    r.pos = (r.pos + 3) & ~static_cast<size_t>(3);
    item.offset = r.pos;
    item.style = r.U32();
    item.exStyle = r.U32();
    item.x = static_cast<short>(r.U16());
    item.y = static_cast<short>(r.U16());
    item.cx = static_cast<short>(r.U16());
    item.cy = static_cast<short>(r.U16());
    item.id = static_cast<WORD>(r.U16());
    item.classMarker = static_cast<WORD>(r.U16());
    item.classAtom = static_cast<WORD>(r.U16());
    item.caption = r.Text();
    item.creationDataSize = static_cast<WORD>(r.U16());
    item.end = r.pos;
    t.items.push_back(item);
  }
  t.end = r.pos;
  EXPECT_TRUE(r.ok) << "template ends inside an item";
  return t;
}

HWND WaitForDialog(const char* title) {
  for (int i = 0; i < 1000; ++i) {
    HWND dialog = FindWindowA("#32770", title);
    if (dialog != nullptr && IsWindowVisible(dialog)) return dialog;
    ::Sleep(10);
  }
  return nullptr;
}

int ShowDriven(const char* title, const std::function<int()>& show,
               const std::function<void(HWND)>& drive) {
  std::thread driver([&] {
    HWND dialog = WaitForDialog(title);
    if (dialog == nullptr) {
      ADD_FAILURE() << "no dialog titled " << title;
      return;
    }
    drive(dialog);
    // A driver that stopped early (a failed check) must not leave the modal loop waiting.
    for (int i = 0; i < 300 && IsWindow(dialog); ++i) ::Sleep(10);
    if (IsWindow(dialog)) {
      ADD_FAILURE() << "the dialog " << title << " was still open after its driver finished";
      PostMessageA(dialog, WM_COMMAND, 0x7777, 0);
    }
  });
  const int result = show();
  driver.join();
  return result;
}

std::string ControlText(HWND dialog, int id) {
  char text[256] = {};
  GetWindowTextA(GetDlgItem(dialog, id), text, sizeof text);
  return text;
}

}  // namespace msgbox_test
