// Device contexts and the objects selected into them, given back on scope exit. The message box
// and the hyperlink control measure and draw text through these, so that no early return can
// leave a font selected or a context unreleased. Each class makes exactly the calls the hand-paired
// code made, failure paths included: a context that could not be had is still handed to
// ReleaseDC, a display context only to DeleteDC when there is one.
#pragma once

#include <windows.h>

namespace deskaid {

// A context for the whole display (CreateDCA "DISPLAY"), deleted at scope exit when there is one.
class ScopedDisplayDC {
 public:
  ScopedDisplayDC() : m_dc(::CreateDCA("DISPLAY", nullptr, nullptr, nullptr)) {}
  ~ScopedDisplayDC() {
    if (m_dc != nullptr) ::DeleteDC(m_dc);
  }
  ScopedDisplayDC(const ScopedDisplayDC&) = delete;
  ScopedDisplayDC& operator=(const ScopedDisplayDC&) = delete;

  operator HDC() const { return m_dc; }

 private:
  HDC m_dc;
};

// The client-area context of a window (GetDC), released at scope exit, even when GetDC failed.
class ScopedWindowDC {
 public:
  explicit ScopedWindowDC(HWND window) : m_window(window), m_dc(::GetDC(window)) {}
  ~ScopedWindowDC() { ::ReleaseDC(m_window, m_dc); }
  ScopedWindowDC(const ScopedWindowDC&) = delete;
  ScopedWindowDC& operator=(const ScopedWindowDC&) = delete;

  operator HDC() const { return m_dc; }

 private:
  HWND m_window;
  HDC m_dc;
};

// Selects objects into a context and, at scope exit, selects back what the context held before
// the first of them. Later selections only switch: the first one's predecessor is what returns.
// Nothing is restored when nothing was selected, nor, with kUnlessFailed, when the first
// selection failed (SelectObject gave null).
class ScopedSelection {
 public:
  enum Restore { kAlways, kUnlessFailed };

  explicit ScopedSelection(HDC dc, Restore restore = kAlways) : m_dc(dc), m_restore(restore) {}
  ScopedSelection(HDC dc, HGDIOBJ object, Restore restore = kAlways)
      : ScopedSelection(dc, restore) {
    Select(object);
  }
  ~ScopedSelection() {
    if (m_selected && (m_restore == kAlways || m_previous != nullptr))
      ::SelectObject(m_dc, m_previous);
  }
  ScopedSelection(const ScopedSelection&) = delete;
  ScopedSelection& operator=(const ScopedSelection&) = delete;

  void Select(HGDIOBJ object) {
    HGDIOBJ previous = ::SelectObject(m_dc, object);
    if (m_selected) return;
    m_previous = previous;
    m_selected = true;
  }

 private:
  HDC m_dc;
  Restore m_restore;
  HGDIOBJ m_previous = nullptr;
  bool m_selected = false;
};

}  // namespace deskaid
