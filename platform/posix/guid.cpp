#include "platform/guid.h"

#include <sys/random.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace Platform {

// RFC 4122 section 4.4: version 4, random.
Guid NewGuid() {
    std::array<std::uint8_t, 16> bytes;
    FillRandom(bytes.data(), bytes.size());
    Guid guid;
    std::memcpy(&guid.data1, bytes.data(), 4);
    std::memcpy(&guid.data2, bytes.data() + 4, 2);
    std::memcpy(&guid.data3, bytes.data() + 6, 2);
    std::memcpy(guid.data4.data(), bytes.data() + 8, 8);
    guid.data3 = static_cast<std::uint16_t>((guid.data3 & 0x0FFF) | 0x4000);
    guid.data4[0] = static_cast<std::uint8_t>((guid.data4[0] & 0x3F) | 0x80);
    return guid;
}

void FillRandom(void* to, std::size_t size) {
    for (std::size_t done = 0; done < size;) {
        const ssize_t got = getrandom(static_cast<char*>(to) + done, size - done, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) throw std::runtime_error("The system has no random numbers.");
        done += static_cast<std::size_t>(got);
    }
}

}  // namespace Platform
