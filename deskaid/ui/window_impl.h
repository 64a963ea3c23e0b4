// A small window-implementation base: binds one window to one C++ object and routes the window's
// messages to the object's message map, passing whatever the map leaves unhandled to the window
// procedure the window had before. No framework library is involved.
//
// The binding is a window property that holds the object, so no executable thunk is needed: the
// class-wide procedure looks the object up by window handle. A window carries at most one such
// binding at a time.
#pragma once

#include <windows.h>

#include "deskaid/ui/window.h"

// The message-map interface: slot 0 of every bound object.
class CMessageMap {
 public:
  // Handles `message` for `hWnd` when it can: stores the result in `lResult` and returns TRUE.
  // `dwMsgMapID` selects one of several maps; 0 is the main one.
  virtual BOOL ProcessMessage(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam,
                              LRESULT& lResult, DWORD dwMsgMapID) = 0;
};

// Window traits: the styles a window gets when the object creates it itself.
template <DWORD t_dwStyle = 0, DWORD t_dwExStyle = 0>
class CWinTraits {
 public:
  static DWORD GetWndStyle(DWORD dwStyle) { return dwStyle == 0 ? t_dwStyle : dwStyle; }
  static DWORD GetWndExStyle(DWORD dwExStyle) { return dwExStyle == 0 ? t_dwExStyle : dwExStyle; }
};

// The usual control.
typedef CWinTraits<WS_CHILD | WS_VISIBLE | WS_CLIPSIBLINGS | WS_CLIPCHILDREN, 0> CControlWinTraits;

namespace deskaid {

// Name of the window property that holds the bound object.
inline const char* WindowBindingProperty() { return "deskaid.WindowBinding"; }

// Instance handle of the module this code is linked into (the DLL or the host executable).
HINSTANCE ThisModuleInstance();

// Thread-local hand-over of an object whose window is being created, so that the first message
// of the new window can bind it (see CWindowImpl::Create).
void SetCreatingObject(void* object);
void* TakeCreatingObject();

}  // namespace deskaid

// The window handle plus the message map, and the bookkeeping of the message in progress.
template <class TBase = CWindow>
class CWindowImplRoot : public TBase, public CMessageMap {
 public:
  enum : DWORD { WINSTATE_DESTROYED = 0x00000001 };

  CWindowImplRoot() = default;
  CWindowImplRoot(const CWindowImplRoot&) = delete;
  CWindowImplRoot& operator=(const CWindowImplRoot&) = delete;
  virtual ~CWindowImplRoot() {}

  // The message being processed, or null outside message handling.
  const MSG* GetCurrentMessage() const { return m_pCurrentMsg; }

 protected:
  void* m_pThunk = nullptr;  // no executable thunk: the binding is a window property
  const MSG* m_pCurrentMsg = nullptr;
  DWORD m_dwState = 0;
};

template <class TBase = CWindow, class TWinTraits = CControlWinTraits>
class CWindowImplBaseT : public CWindowImplRoot<TBase> {
 public:
  typedef CWindowImplRoot<TBase> Root;

  CWindowImplBaseT() = default;

  // Unbinds a window that is still attached when the object goes away, so that no message can
  // reach a destroyed object.
  ~CWindowImplBaseT() override { UnsubclassWindow(); }

  virtual WNDPROC GetWindowProcedure() { return &WindowProc; }

  // Called with the window handle after the window's last message has been processed.
  virtual void FinalMessageHook(HWND /*hWnd*/) {}

  // Replaces the window procedure of `hWnd` by the bound one and remembers the previous one.
  // Fails when this object already has a window or the window is bound to another object.
  BOOL SubclassWindow(HWND hWnd) {
    if (this->m_hWnd != nullptr || hWnd == nullptr || !::IsWindow(hWnd) ||
        ::GetPropA(hWnd, deskaid::WindowBindingProperty()) != nullptr)
      return FALSE;
    if (!::SetPropA(hWnd, deskaid::WindowBindingProperty(), static_cast<HANDLE>(this)))
      return FALSE;
    WNDPROC previous = reinterpret_cast<WNDPROC>(
        ::SetWindowLongPtrA(hWnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(GetWindowProcedure())));
    if (previous == nullptr) {
      ::RemovePropA(hWnd, deskaid::WindowBindingProperty());
      return FALSE;
    }
    m_pfnSuperWindowProc = previous;
    this->m_hWnd = hWnd;
    return TRUE;
  }

  // Puts the previous procedure back (when ours is still installed) and forgets the window.
  HWND UnsubclassWindow() {
    HWND hWnd = this->m_hWnd;
    if (hWnd == nullptr) return nullptr;
    if (::IsWindow(hWnd)) {
      WNDPROC current = reinterpret_cast<WNDPROC>(::GetWindowLongPtrA(hWnd, GWLP_WNDPROC));
      if (current == GetWindowProcedure() && m_pfnSuperWindowProc != ::DefWindowProcA)
        ::SetWindowLongPtrA(hWnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(m_pfnSuperWindowProc));
      if (::GetPropA(hWnd, deskaid::WindowBindingProperty()) == static_cast<HANDLE>(this))
        ::RemovePropA(hWnd, deskaid::WindowBindingProperty());
    }
    m_pfnSuperWindowProc = ::DefWindowProcA;
    this->m_hWnd = nullptr;
    return hWnd;
  }

  // Passes the current message on to the previous window procedure.
  LRESULT DefWindowProc(UINT message, WPARAM wParam, LPARAM lParam) {
    return ::CallWindowProcA(m_pfnSuperWindowProc, this->m_hWnd, message, wParam, lParam);
  }

  // The procedure of every window bound to an object of this kind.
  static LRESULT CALLBACK WindowProc(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* self = static_cast<CWindowImplBaseT*>(::GetPropA(hWnd, deskaid::WindowBindingProperty()));
    if (self == nullptr) return ::DefWindowProcA(hWnd, message, wParam, lParam);
    return self->Dispatch(hWnd, message, wParam, lParam);
  }

  // The procedure a window created by the object starts with: it binds the window on its first
  // message and from then on behaves as WindowProc.
  static LRESULT CALLBACK StartWindowProc(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* self = static_cast<CWindowImplBaseT*>(deskaid::TakeCreatingObject());
    if (self == nullptr) return ::DefWindowProcA(hWnd, message, wParam, lParam);
    self->m_hWnd = hWnd;
    ::SetPropA(hWnd, deskaid::WindowBindingProperty(), static_cast<HANDLE>(self));
    ::SetWindowLongPtrA(hWnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(self->GetWindowProcedure()));
    return self->Dispatch(hWnd, message, wParam, lParam);
  }

 protected:
  LRESULT Dispatch(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam) {
    MSG msg = {hWnd, message, wParam, lParam, 0, {0, 0}};
    const MSG* outer = this->m_pCurrentMsg;
    this->m_pCurrentMsg = &msg;
    LRESULT result = 0;
    BOOL handled = this->ProcessMessage(hWnd, message, wParam, lParam, result, 0);
    this->m_pCurrentMsg = outer;
    if (!handled) {
      if (message != WM_NCDESTROY) {
        result = DefWindowProc(message, wParam, lParam);
      } else {
        // Give the window its own procedure back, unless someone subclassed it after us.
        result = DefWindowProc(message, wParam, lParam);
        if (m_pfnSuperWindowProc != ::DefWindowProcA &&
            reinterpret_cast<WNDPROC>(::GetWindowLongPtrA(hWnd, GWLP_WNDPROC)) ==
                GetWindowProcedure())
          ::SetWindowLongPtrA(hWnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(m_pfnSuperWindowProc));
        this->m_dwState |= Root::WINSTATE_DESTROYED;
      }
    }
    // The window is gone: forget it once the outermost message has returned, so that handlers
    // further up the stack still see a valid object.
    if ((this->m_dwState & Root::WINSTATE_DESTROYED) && outer == nullptr) {
      HWND gone = this->m_hWnd;
      this->m_hWnd = nullptr;
      this->m_dwState &= ~Root::WINSTATE_DESTROYED;
      m_pfnSuperWindowProc = ::DefWindowProcA;
      ::RemovePropA(gone, deskaid::WindowBindingProperty());
      FinalMessageHook(gone);
    }
    return result;
  }

  WNDPROC m_pfnSuperWindowProc = ::DefWindowProcA;
};

// Adds creation of the object's own window, of a window class registered once per type.
template <class T, class TBase = CWindow, class TWinTraits = CControlWinTraits>
class CWindowImpl : public CWindowImplBaseT<TBase, TWinTraits> {
 public:
  // The window class the object registers for its own windows; types override it.
  static const char* GetWndClassName() { return "deskaid.Window"; }

  // Creates the window as a child (or top-level window) of `hWndParent`. Style and extended style
  // 0 take the traits' defaults. Returns the window, or null on failure.
  HWND Create(HWND hWndParent, const RECT& rect, const char* windowName = nullptr,
              DWORD dwStyle = 0, DWORD dwExStyle = 0, UINT_PTR id = 0) {
    if (this->m_hWnd != nullptr) return nullptr;
    HINSTANCE instance = deskaid::ThisModuleInstance();
    WNDCLASSEXA wc = {};
    wc.cbSize = sizeof(wc);
    if (!::GetClassInfoExA(instance, T::GetWndClassName(), &wc)) {
      wc.cbSize = sizeof(wc);
      wc.style = CS_DBLCLKS;
      wc.lpfnWndProc = &CWindowImpl::StartWindowProc;
      wc.hInstance = instance;
      wc.hCursor = ::LoadCursorA(nullptr, reinterpret_cast<LPCSTR>(IDC_ARROW));
      wc.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_WINDOW + 1);
      wc.lpszClassName = T::GetWndClassName();
      if (!::RegisterClassExA(&wc)) return nullptr;
    }
    dwStyle = TWinTraits::GetWndStyle(dwStyle);
    dwExStyle = TWinTraits::GetWndExStyle(dwExStyle);
    HMENU menu = (dwStyle & WS_CHILD) ? reinterpret_cast<HMENU>(id) : nullptr;
    deskaid::SetCreatingObject(static_cast<CWindowImplBaseT<TBase, TWinTraits>*>(this));
    HWND hWnd = ::CreateWindowExA(dwExStyle, T::GetWndClassName(), windowName, dwStyle, rect.left,
                                  rect.top, rect.right - rect.left, rect.bottom - rect.top,
                                  hWndParent, menu, instance, nullptr);
    deskaid::TakeCreatingObject();
    return hWnd;
  }
};
