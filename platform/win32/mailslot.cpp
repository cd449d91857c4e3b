#include "platform/mailslot.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <utility>

#include "platform/win32/handle.h"
#include "platform/win32/namedobjects.h"

namespace Platform {

namespace {

constexpr std::size_t UsualSize = 65536;  // of a message, at most

}  // namespace

// Waiting is reading with a limit of time, the only wait that a mailslot has:
// what came is kept for the next Read().
struct CMailslot::CState {
    CHandle slot;
    std::optional<std::string> kept;

    bool GetNext(std::size_t& size, std::size_t& waiting) const {
        DWORD next = MAILSLOT_NO_MESSAGE;
        DWORD count = 0;
        if (!GetMailslotInfo(slot.Get(), nullptr, &next, &count, nullptr)) return false;
        const bool isThere = next != MAILSLOT_NO_MESSAGE;
        size = isThere ? next : 0;
        waiting = isThere ? std::max<std::size_t>(count, 1) : 0;
        return true;
    }

    bool ReadWithin(DWORD milliseconds, std::size_t size, std::string& message) const {
        if (!SetMailslotInfo(slot.Get(), milliseconds)) return false;
        message.resize(std::max<std::size_t>(size, 1));
        DWORD got = 0;
        const bool isRead = ReadFile(slot.Get(), message.data(), static_cast<DWORD>(message.size()), &got, nullptr) ||
                            GetLastError() == ERROR_BROKEN_PIPE;  // Wine's word for an empty message
        message.resize(isRead ? got : 0);
        return isRead;
    }
};

CMailslot::CMailslot() = default;

CMailslot::~CMailslot() {
    Close();
}

bool CMailslot::Create(std::string_view name) {
    Close();
    CHandle slot(CreateMailslotW(MailslotName(name).c_str(), 0, 0, GetMutexSecurityAttributes()));
    if (!slot) return false;
    m_state = std::make_unique<CState>();
    m_state->slot = std::move(slot);
    return true;
}

void CMailslot::Close() noexcept {
    m_state.reset();
}

bool CMailslot::GetInfo(std::size_t& size, std::size_t& waiting) {
    size = 0;
    waiting = 0;
    if (!m_state) {
        SetLastError(ERROR_INVALID_HANDLE);
        return false;
    }
    if (!m_state->kept) return m_state->GetNext(size, waiting);
    std::size_t next = 0;
    m_state->GetNext(next, waiting);
    size = m_state->kept->size();
    ++waiting;
    return true;
}

bool CMailslot::Read(std::string& message) {
    message.clear();
    if (m_state && m_state->kept) {
        message = std::move(*m_state->kept);
        m_state->kept.reset();
        return true;
    }
    std::size_t size = 0;
    std::size_t waiting = 0;
    if (!GetInfo(size, waiting)) return false;
    if (waiting > 0) return m_state->ReadWithin(0, size, message);
    SetLastError(ERROR_SEM_TIMEOUT);
    return false;
}

bool CMailslot::WaitFor(std::chrono::milliseconds limit) {
    std::size_t size = 0;
    std::size_t waiting = 0;
    if (!GetInfo(size, waiting)) return false;
    if (waiting > 0) return true;
    const auto milliseconds = static_cast<DWORD>(std::clamp<std::int64_t>(limit.count(), 0, MAXDWORD - 1));
    if (milliseconds == 0) return false;
    std::string message;
    if (m_state->ReadWithin(milliseconds, UsualSize, message)) {
        m_state->kept = std::move(message);
        return true;
    }
    return GetLastError() == ERROR_INSUFFICIENT_BUFFER;  // a larger one waits
}

// Does not wait for a reader that is stuck, on systems that limit what may lie
// in a slot.
bool WriteToMailslot(std::string_view name, std::string_view message) {
    const CHandle slot(CreateFileW(MailslotName(name).c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                   nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
    const CHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!slot || !event) return false;
    OVERLAPPED operation{};
    operation.hEvent = event.Get();
    DWORD written = 0;
    if (!WriteFile(slot.Get(), message.data(), static_cast<DWORD>(message.size()), &written, &operation)) {
        if (GetLastError() != ERROR_IO_PENDING) return false;
        CancelIoEx(slot.Get(), &operation);
        if (!GetOverlappedResult(slot.Get(), &operation, &written, TRUE)) return false;
    }
    return written == message.size();
}

}  // namespace Platform
