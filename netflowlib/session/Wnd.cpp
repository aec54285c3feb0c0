#include "session/Wnd.h"

#include <asio/post.hpp>

#include <future>

CWnd::~CWnd() {
    DestroyWindow();
}

BOOL CWnd::CreateEx(asio::io_context& loop, const CString& windowName) {
    m_pLoop = &loop;
    m_threadId = std::this_thread::get_id();
    m_strWindowName = windowName;
    m_pAlive = std::make_shared<const bool>(true);
    return TRUE;
}

BOOL CWnd::DestroyWindow() {
    if (m_pLoop == nullptr)
        return FALSE;
    m_pLoop = nullptr;
    m_pAlive.reset();
    return TRUE;
}

LRESULT CWnd::SendMessage(UINT message, WPARAM wParam, LPARAM lParam) {
    if (m_pLoop == nullptr)
        return 0;
    if (std::this_thread::get_id() == m_threadId)
        return WindowProc(message, wParam, lParam);
    // The promise travels with the handler: a loop destroyed with the handler unrun breaks it.
    auto done = std::make_shared<std::promise<LRESULT>>();
    std::future<LRESULT> result = done->get_future();
    std::weak_ptr<const bool> alive = m_pAlive;
    asio::post(*m_pLoop, [this, alive, message, wParam, lParam, done] {
        if (alive.expired()) {
            done->set_value(0);
            return;
        }
        try {
            done->set_value(WindowProc(message, wParam, lParam));
        } catch (...) {
            done->set_exception(std::current_exception());
        }
    });
    try {
        return result.get();
    } catch (const std::future_error&) {
        return 0; // the loop was destroyed before it ran the message
    }
}

BOOL CWnd::PostMessage(UINT message, WPARAM wParam, LPARAM lParam) {
    if (m_pLoop == nullptr)
        return FALSE;
    std::weak_ptr<const bool> alive = m_pAlive;
    asio::post(*m_pLoop, [this, alive, message, wParam, lParam] {
        if (!alive.expired())
            WindowProc(message, wParam, lParam);
    });
    return TRUE;
}

LRESULT CWnd::WindowProc(UINT message, WPARAM wParam, LPARAM lParam) {
    return DefWindowProc(message, wParam, lParam);
}

LRESULT CWnd::DefWindowProc(UINT, WPARAM, LPARAM) {
    return 0;
}
