#include "platform/systemclaim.h"

#include <windows.h>

#include <chrono>
#include <string>
#include <thread>

#include "platform/claimpause.h"
#include "platform/namedmutex.h"
#include "platform/win32/handle.h"
#include "platform/win32/systempath.h"

namespace Platform {

namespace {

constexpr std::uint32_t PastAllParties = 1U << 30;

bool Lock(HANDLE file, DWORD kind, std::uint32_t start, std::uint32_t length) {
    OVERLAPPED at{};
    at.Offset = start;
    return LockFileEx(file, kind | LOCKFILE_FAIL_IMMEDIATELY, 0, length, 0, &at) != FALSE;
}

void Unlock(HANDLE file, std::uint32_t start, std::uint32_t length) {
    OVERLAPPED at{};
    at.Offset = start;
    UnlockFileEx(file, 0, length, 0, &at);
}

bool IsHeldByAnother() {
    return GetLastError() == ERROR_LOCK_VIOLATION || GetLastError() == ERROR_IO_PENDING;
}

// The system only tells by letting us lock it ourselves; a file system without locks never says so.
bool IsLocked(HANDLE file, std::uint32_t start, std::uint32_t length) {
    if (length == 0) return false;
    if (!Lock(file, LOCKFILE_EXCLUSIVE_LOCK, start, length)) return IsHeldByAnother();
    Unlock(file, start, length);
    return false;
}

bool TryTake(HANDLE file, std::uint32_t party) {
    const bool isLocked = Lock(file, 0, party, 1);
    if (!isLocked && IsHeldByAnother()) return false;
    // Programs of this machine that look at one time would see each other look.
    CNamedMutex looking("Vantorel.Listhaven.3.SystemClaim");
    looking.Lock();
    const bool isAlone = !IsLocked(file, 0, party) && !IsLocked(file, party + 1, PastAllParties - party - 1);
    looking.Unlock();
    if (!isAlone && isLocked) Unlock(file, party, 1);
    return isAlone;
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
    const auto end = std::chrono::steady_clock::now() + ClaimPatience;
    while (!TryTake(handle.Get(), party)) {
        if (std::chrono::steady_clock::now() >= end) return Result::OtherSystem;
        std::this_thread::sleep_for(ClaimPause());
    }
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
