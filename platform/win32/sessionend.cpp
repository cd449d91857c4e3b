#include "platform/win32/sessionend.h"

#include <windows.h>

#include <atomic>
#include <thread>

namespace Platform {

namespace {

std::atomic<void (*)()> g_stop{nullptr};

LRESULT CALLBACK OnMessage(HWND window, UINT message, WPARAM first, LPARAM second) {
    if (message == WM_QUERYENDSESSION) return TRUE;
    if (message != WM_ENDSESSION || first == FALSE) return DefWindowProcW(window, message, first, second);
    g_stop.load()();
    Sleep(INFINITE);  // the system ends the process when this returns
    return 0;
}

// Not a window for messages only: those are not asked.
void RunWindow() {
    WNDCLASSW windowClass{};
    windowClass.lpfnWndProc = OnMessage;
    windowClass.hInstance = GetModuleHandleW(nullptr);
    windowClass.lpszClassName = L"Vantorel.Listhaven.3.SessionEnd";
    if (RegisterClassW(&windowClass) == 0 || !CreateWindowExW(0, windowClass.lpszClassName, L"", WS_OVERLAPPED, 0, 0, 0,
                                                              0, nullptr, nullptr, windowClass.hInstance, nullptr))
        return;
    MSG message;
    while (GetMessageW(&message, nullptr, 0, 0) > 0)
        DispatchMessageW(&message);
}

}  // namespace

void WatchSessionEnd(void (*stop)()) {
    g_stop = stop;
    std::thread(RunWindow).detach();
}

}  // namespace Platform
