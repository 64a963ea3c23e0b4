// Helpers shared by the message box tests: trace capture and the tests' resource module.
#pragma once

#include <windows.h>

#include <algorithm>
#include <string>
#include <vector>

#include <deskaid/diag/debug_trace.h>

namespace msgbox_test {

// Collects every DebugTrace line while alive.
struct TraceCapture {
  std::vector<std::string> lines;
  TraceCapture() {
    SetDebugTraceSink([](const char* l, void* c) {
      static_cast<TraceCapture*>(c)->lines.push_back(l);
    }, this);
  }
  ~TraceCapture() { SetDebugTraceSink(nullptr, nullptr); }
  bool Has(const std::string& l) const {
    return std::find(lines.begin(), lines.end(), l) != lines.end();
  }
};

// The tests' resource DLL, loaded once from beside the test executable.
inline HINSTANCE TestResources() {
  static HINSTANCE module = [] {
    char path[MAX_PATH];
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    std::string dll(path);
    dll.erase(dll.find_last_of('\\') + 1) += "msgbox_test_resources.dll";
    return LoadLibraryA(dll.c_str());
  }();
  return module;
}

}  // namespace msgbox_test
