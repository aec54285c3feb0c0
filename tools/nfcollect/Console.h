#pragma once

#include <cstdio>
#include <mutex>
#include <string>
#include <string_view>

// Where the collector writes: packets to stdout, statistics, warnings and errors to stderr, each as
// whole lines under one lock, so that the packets of several workers and the messages never
// interleave. When stderr is a terminal the statistics line stays one line, rewritten in place, and is
// cleared before anything else is written.
class CConsole {
public:
    CConsole(std::FILE* out, std::FILE* err);

    bool IsTerminal() const { return m_bTerminal; }

    // Output bytes (whole packets) to stdout.
    void Write(std::string_view text);
    // "nfcollect: <line>" on stderr, on a line of its own.
    void Message(std::string_view line);
    // The statistics line: rewritten in place on a terminal, else one more line.
    void Status(std::string_view line);
    // Ends an in-place statistics line, so that what follows starts on a fresh line.
    void EndStatus();
    void Flush();

private:
    void ClearStatus();

    std::mutex m_lock;
    std::FILE* m_out;
    std::FILE* m_err;
    bool m_bTerminal;
    bool m_bStatusShown = false;
};
