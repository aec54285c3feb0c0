#pragma once

#include <asio/io_context.hpp>

#include <memory>
#include <thread>

#include "util/Types.h"

// A window is a message target bound to an event loop and to the thread that created it (the thread that
// runs the loop). SendMessage from that thread runs WindowProc at once; from any other thread it posts
// the call to the loop and blocks until it has run, as a cross-thread send does on Windows.
// A message that reaches the loop after the window was destroyed is not delivered: the send returns 0.
class CWnd {
public:
    CWnd() = default;
    CWnd(const CWnd&) = delete;
    CWnd& operator=(const CWnd&) = delete;
    virtual ~CWnd();

    BOOL CreateEx(asio::io_context& loop, const CString& windowName);
    BOOL DestroyWindow();
    BOOL IsWindow() const { return m_pLoop != nullptr; }
    asio::io_context* GetLoop() const { return m_pLoop; }
    const CString& GetWindowName() const { return m_strWindowName; }

    LRESULT SendMessage(UINT message, WPARAM wParam = 0, LPARAM lParam = 0);
    BOOL PostMessage(UINT message, WPARAM wParam = 0, LPARAM lParam = 0);

    virtual LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam);
    virtual LRESULT DefWindowProc(UINT message, WPARAM wParam, LPARAM lParam);

protected:
    asio::io_context* m_pLoop = nullptr;
    std::thread::id m_threadId;
    CString m_strWindowName;
    // Queued cross-thread messages hold a weak reference; it expires when the window goes.
    std::shared_ptr<const bool> m_pAlive;
};
