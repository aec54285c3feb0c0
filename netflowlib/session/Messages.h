#pragma once

#include "util/Types.h"

// Message numbers are fixed: hosts compile against them.
constexpr UINT WM_NETFLOW_PACKET = 6365;         // session -> owner: one more packet is listed
constexpr UINT WM_NETFLOW_ERROR = 6366;          // session or socket -> owner: something failed
constexpr UINT WM_NETFLOW_DB_QUIT = 1245;        // session -> writer thread
constexpr UINT WM_NETFLOW_DB_OPEN_FAILED = 1247; // writer -> session window
constexpr UINT WM_NETFLOW_DB_EXITING = 1248;     // writer -> session window
constexpr UINT WM_NETFLOW_DB_OPEN = 1249;        // session -> writer thread
constexpr UINT WM_NETFLOW_DB_OPENED = 1250;      // writer -> session window
constexpr UINT WM_NETFLOW_DB_WRITE = 1251;       // session -> writer thread

// A thread message as a worker thread's queue carries it.
struct MSG {
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
};
