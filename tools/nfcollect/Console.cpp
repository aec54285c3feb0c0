#include "Console.h"

#include <unistd.h>

CConsole::CConsole(std::FILE* out, std::FILE* err)
    : m_out(out), m_err(err), m_bTerminal(isatty(fileno(err)) == 1) {}

void CConsole::Write(std::string_view text) {
    std::lock_guard<std::mutex> lock(m_lock);
    ClearStatus();
    std::fwrite(text.data(), 1, text.size(), m_out);
}

void CConsole::Message(std::string_view line) {
    std::lock_guard<std::mutex> lock(m_lock);
    ClearStatus();
    std::fflush(m_out);
    std::fprintf(m_err, "nfcollect: %.*s\n", static_cast<int>(line.size()), line.data());
}

void CConsole::Status(std::string_view line) {
    std::lock_guard<std::mutex> lock(m_lock);
    std::fflush(m_out);
    if (m_bTerminal) {
        // Carriage return and erase-line: the previous statistics line is replaced.
        std::fprintf(m_err, "\r\033[Knfcollect: %.*s", static_cast<int>(line.size()), line.data());
        std::fflush(m_err);
        m_bStatusShown = true;
    } else {
        std::fprintf(m_err, "nfcollect: %.*s\n", static_cast<int>(line.size()), line.data());
    }
}

void CConsole::EndStatus() {
    std::lock_guard<std::mutex> lock(m_lock);
    if (m_bStatusShown) {
        std::fputc('\n', m_err);
        m_bStatusShown = false;
    }
}

void CConsole::Flush() {
    std::lock_guard<std::mutex> lock(m_lock);
    std::fflush(m_out);
    std::fflush(m_err);
}

void CConsole::ClearStatus() {
    if (!m_bStatusShown)
        return;
    std::fputs("\r\033[K", m_err);
    std::fflush(m_err);
    m_bStatusShown = false;
}
