#include "platform/guid.h"

#include <windows.h>
//
#include <bcrypt.h>
#include <objbase.h>

#include <algorithm>
#include <stdexcept>

namespace Platform {

Guid NewGuid() {
    GUID made{};
    const HRESULT result = CoCreateGuid(&made);
    Guid guid{made.Data1, made.Data2, made.Data3, {}};
    std::copy(std::begin(made.Data4), std::end(made.Data4), guid.data4.begin());
    if (result != S_OK || guid == Guid{}) throw std::runtime_error("The system makes no unique identifiers.");
    return guid;
}

void FillRandom(void* to, std::size_t size) {
    constexpr std::size_t MostAtOnce = 1U << 30;
    for (auto* at = static_cast<unsigned char*>(to); size > 0;) {
        const std::size_t part = std::min(size, MostAtOnce);
        if (BCryptGenRandom(nullptr, at, static_cast<ULONG>(part), BCRYPT_USE_SYSTEM_PREFERRED_RNG) != 0)
            throw std::runtime_error("The system has no random numbers.");
        at += part;
        size -= part;
    }
}

}  // namespace Platform
