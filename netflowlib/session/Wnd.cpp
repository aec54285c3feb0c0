#include "session/Wnd.h"

#include <asio/post.hpp>

#include <future>

BOOL CWnd::CreateEx(asio::io_context& loop, const CString& windowName) {
    m_pLoop = &loop;
    m_threadId = std::this_thread::get_id();
    m_strWindowName = windowName;
    return TRUE;
}

LRESULT CWnd::SendMessage(UINT message, WPARAM wParam, LPARAM lParam) {
    if (m_pLoop == nullptr)
        return 0;
    if (std::this_thread::get_id() == m_threadId)
        return WindowProc(message, wParam, lParam);
    std::promise<LRESULT> done;
    std::future<LRESULT> result = done.get_future();
    asio::post(*m_pLoop, [this, message, wParam, lParam, &done] {
        try {
            done.set_value(WindowProc(message, wParam, lParam));
        } catch (...) {
            done.set_exception(std::current_exception());
        }
    });
    return result.get();
}

BOOL CWnd::PostMessage(UINT message, WPARAM wParam, LPARAM lParam) {
    if (m_pLoop == nullptr)
        return FALSE;
    asio::post(*m_pLoop, [this, message, wParam, lParam] { WindowProc(message, wParam, lParam); });
    return TRUE;
}

LRESULT CWnd::WindowProc(UINT message, WPARAM wParam, LPARAM lParam) {
    return DefWindowProc(message, wParam, lParam);
}

LRESULT CWnd::DefWindowProc(UINT, WPARAM, LPARAM) {
    return 0;
}
