#include "platform/win32/namedobjects.h"

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <stdexcept>

#include "platform/namedmutex.h"
#include "platform/systemerror.h"
#include "platform/win32/handle.h"
#include "platform/win32/systempath.h"

namespace Platform {

namespace {

constexpr std::size_t LongestName = 200;  // of the 260 that the system takes
constexpr wchar_t Device[] = L"\\\\.\\mailslot\\";

struct Place {
    std::mutex guard;
    std::string folder;  // with slashes; what names of this process begin paths with
    std::string suffix;  // "" for the machine's own names
};

Place& ThePlace() {
    static Place* const place = new Place;  // outlives every other static object
    return *place;
}

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

std::string WithSlashes(std::string_view text) {
    std::string result(text);
    std::replace(result.begin(), result.end(), '\\', '/');
    return result;
}

// The folder as the system itself writes it, so that all ways to write its
// path give one text.  Of one that is missing the part that is there counts.
std::string CanonicalFolder(const std::string& path) {
    std::wstring wide = ToWide(path);
    std::wstring rest;
    while (!wide.empty()) {
        const CHandle folder(CreateFileW(wide.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                         nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
        std::wstring found(32768, L'\0');
        const DWORD size =
            folder ? GetFinalPathNameByHandleW(folder.Get(), found.data(), static_cast<DWORD>(found.size()), 0) : 0;
        if (size > 0 && size < found.size()) {
            wide = found.substr(0, size);
            break;
        }
        const std::size_t separator = wide.find_last_of(L"/\\");
        if (separator == std::wstring::npos) break;
        rest.insert(0, wide.substr(separator));
        wide.resize(separator);
    }
    wide += rest;
    CharLowerBuffW(wide.data(), static_cast<DWORD>(wide.size()));
    return WithSlashes(FromWide(wide));
}

// Printable, and without what the system reserves.
bool IsPlain(char c) {
    return c > ' ' && c < '\x7F' && c != '\\' && c != '/' && c != ':';
}

std::string PlainName(std::string_view name) {
    Place& place = ThePlace();
    const std::lock_guard lock(place.guard);
    std::string text = WithSlashes(name);
    // A path in the folder is the same for all whose folder it is, however they write it.
    if (const std::size_t at = place.folder.empty() ? text.npos : text.find(place.folder); at != text.npos)
        text.replace(at, place.folder.size(), "~/");
    std::string plain;
    bool same = !text.empty() && text.size() <= LongestName && text == name;
    for (const char c : text) {
        same = same && IsPlain(c);
        plain += IsPlain(c) ? c : '_';
    }
    if (!same) {
        plain.resize(std::min(plain.size(), LongestName - 17));
        plain += '_' + HashDigits(text);
    }
    return plain + place.suffix;
}

}  // namespace

void SetNamedObjectFolder(std::string_view locks, std::string_view) {
    std::string folder = WithSlashes(locks);
    while (folder.ends_with('/'))
        folder.pop_back();
    folder.resize(std::min(folder.size(), folder.find_last_of('/') + 1));
    const std::string suffix = folder.empty() ? std::string() : '.' + HashDigits(CanonicalFolder(folder));
    Place& place = ThePlace();
    const std::lock_guard lock(place.guard);
    place.folder = folder;
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
