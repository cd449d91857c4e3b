#include "platform/win32/namedobjects.h"

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <stdexcept>

#include "platform/knownfolders.h"
#include "platform/namedmutex.h"
#include "platform/systemerror.h"
#include "platform/win32/systempath.h"

namespace Platform {

namespace {

constexpr std::size_t LongestName = 200;  // of the 260 that the system takes
constexpr wchar_t Device[] = L"\\\\.\\mailslot\\";

struct Place {
    std::mutex guard;
    std::string suffix;  // "" for the machine's own names
};

Place& ThePlace() {
    static Place* const place = new Place;  // outlives every other static object
    return *place;
}

constexpr std::size_t HashLength = 17;

// FNV-1a
std::string HashDigits(std::string_view text) {
    std::uint64_t hash = 14695981039346656037U;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    std::string digits;
    for (int digit = 0; digit < 16; ++digit, hash <<= 4)
        digits += "0123456789abcdef"[hash >> 60];
    return digits;
}

// Printable, and without what the system reserves.
bool IsPlain(char c) {
    return c > ' ' && c < '\x7F' && c != '\\' && c != '/' && c != ':';
}

std::string PlainName(std::string_view name) {
    std::string plain;
    bool same = !name.empty() && name.size() <= LongestName;
    for (const char c : name) {
        same = same && IsPlain(c);
        plain += IsPlain(c) ? c : '_';
    }
    if (!same) {
        plain.resize(std::min(plain.size(), LongestName - HashLength));
        plain += '_' + HashDigits(name);
    }
    Place& place = ThePlace();
    const std::lock_guard lock(place.guard);
    return plain + place.suffix;
}

}  // namespace

void SetNamedObjectFolder(std::string_view locks, std::string_view, NamedObjectScope scope) {
    std::string suffix;
    if (scope == NamedObjectScope::Folder) {
        const std::string folder(locks.substr(0, std::min(locks.size(), locks.find_last_of("\\/"))));
        suffix = '.' + HashDigits(CanonicalFolder(folder));
    }
    Place& place = ThePlace();
    const std::lock_guard lock(place.guard);
    place.suffix = suffix;
}

std::wstring ObjectName(std::string_view name) {
    return L"Global\\" + ToWide(PlainName(name));
}

std::wstring MailslotName(std::string_view name) {
    const std::size_t separator = name.find_last_of("\\/");
    return Device + ToWide(PlainName(separator == name.npos ? name : name.substr(separator + 1)));
}

SECURITY_ATTRIBUTES* GetMutexSecurityAttributes() {
    struct Attributes {
        SECURITY_DESCRIPTOR descriptor{};
        SECURITY_ATTRIBUTES attributes{};
        DWORD fault = 0;

        Attributes() {
            if (!InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION) ||
                !SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE))
                fault = GetLastError();
            attributes = {sizeof attributes, &descriptor, TRUE};
        }
    };
    static Attributes* const built = new Attributes;
    if (built->fault == 0) return &built->attributes;
    throw std::runtime_error("Error in GetMutexSecurityAttributes function: " + SystemErrorText(built->fault));
}

}  // namespace Platform
