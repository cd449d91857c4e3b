#include "platform/systemclaim.h"

#include <windows.h>

#include <string>

#include "platform/namedmutex.h"
#include "platform/win32/handle.h"
#include "platform/win32/patience.h"
#include "platform/win32/systempath.h"

namespace Platform {

namespace {

constexpr DWORD Patience = 300;  // milliseconds
constexpr std::uint32_t PastAllParties = 1U << 30;

bool Lock(HANDLE file, DWORD kind, std::uint32_t start, std::uint32_t length) {
    OVERLAPPED at{};
    at.Offset = start;
    return LockFileEx(file, kind | LOCKFILE_FAIL_IMMEDIATELY, 0, length, 0, &at) != FALSE;
}

// False when somebody has it; a file system without locks never says so.
bool LockPatiently(HANDLE file, DWORD kind, std::uint32_t start, std::uint32_t length) {
    CPatience patience(Patience);
    while (!Lock(file, kind, start, length)) {
        if (GetLastError() != ERROR_LOCK_VIOLATION && GetLastError() != ERROR_IO_PENDING) return true;
        if (!patience.IsLeft()) return false;
    }
    return true;
}

// The system only tells by letting us lock it ourselves.
bool IsLocked(HANDLE file, std::uint32_t start, std::uint32_t length) {
    if (length == 0) return false;
    if (!LockPatiently(file, LOCKFILE_EXCLUSIVE_LOCK, start, length)) return true;
    OVERLAPPED at{};
    at.Offset = start;
    UnlockFileEx(file, 0, length, 0, &at);
    return false;
}

// What tells machines apart, also copies of one installation under other names.
std::string MachineIdentity() {
    wchar_t text[256] = {};
    DWORD size = sizeof text - sizeof(wchar_t);
    RegGetValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Cryptography", L"MachineGuid",
                 RRF_RT_REG_SZ | RRF_SUBKEY_WOW6464KEY, nullptr, text, &size);
    wchar_t name[256] = {};
    DWORD length = 256;
    GetComputerNameExW(ComputerNamePhysicalDnsFullyQualified, name, &length);
    return FromWide(std::wstring(text) + L' ' + name);
}

}  // namespace

struct CSystemClaim::CState {
    CHandle file;
};

CSystemClaim::CSystemClaim() : m_state(std::make_unique<CState>()) {}

CSystemClaim::~CSystemClaim() {
    Release();
}

CSystemClaim::Result CSystemClaim::Take(const std::string& file, std::uint32_t party) {
    Release();
    CHandle handle(CreateFileW(SystemPath(file).c_str(), GENERIC_READ | GENERIC_WRITE,
                               FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_ALWAYS,
                               FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!handle) return Result::Failed;
    if (!LockPatiently(handle.Get(), 0, party, 1)) return Result::OtherSystem;
    // Programs of this machine that look at one time would see each other look.
    CNamedMutex looking("Vantorel.Listhaven.3.SystemClaim");
    looking.Lock();
    const bool isAlone =
        !IsLocked(handle.Get(), 0, party) && !IsLocked(handle.Get(), party + 1, PastAllParties - party - 1);
    looking.Unlock();
    if (!isAlone) return Result::OtherSystem;
    m_state->file = std::move(handle);
    return Result::Taken;
}

void CSystemClaim::Release() noexcept {
    m_state->file.Reset();
}

std::uint32_t CSystemClaim::OwnParty() {
    static const std::uint32_t party = [] {
        std::uint32_t hash = 2166136261U;  // FNV-1a
        for (const char c : MachineIdentity())
            hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
        return 1 + hash % (PastAllParties - 2);
    }();
    return party;
}

}  // namespace Platform
