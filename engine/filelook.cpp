#include "engine/filelook.h"

#include "platform/filestatus.h"
#include "platform/systemerror.h"
#include "utility/lhvexception.h"

namespace {

// Numbers are given once, so that a stay that has ended is not taken for a later one.
thread_local std::uint64_t t_stay = 0;  // 0: none
thread_local int t_stays = 0;

std::uint64_t NextStay() noexcept {
    static std::atomic<std::uint64_t> last{0};
    return ++last;
}

}  // namespace

CFileLookStay::CFileLookStay() noexcept {
    if (t_stays++ == 0) t_stay = NextStay();
}
CFileLookStay::~CFileLookStay() {
    if (--t_stays == 0) t_stay = 0;
}

CFileLook& CFileLook::operator=(const CFileLook& other) noexcept {
    m_isNoted = other.m_isNoted;
    m_look = other.m_look;
    m_notedAt = other.m_notedAt;
    m_stay = 0;
    return *this;
}

std::optional<FileLook> LookAtFile(const std::string& path) {
    Platform::FileStatus status;
    if (Platform::GetFileStatus(path, status)) return FileLook{status.identity, status.size, status.times.modified};
    if (Platform::IsNotFound(Platform::LastSystemError())) return std::nullopt;
    throw CLhvException("The file " + path + " cannot be read.", Platform::LastSystemError());
}

void CFileLook::Note(const std::string& path) {
    m_isNoted = false;
    m_stay = 0;
    m_notedAt = Platform::NanosecondsSince1970();
    m_look = LookAtFile(path);
    m_isNoted = true;
}

bool CFileLook::IsFresh(const std::string& path) const {
    if (!m_isNoted) return false;
    if (t_stay != 0 && m_stay == t_stay) return true;
    if (!Holds(path)) return false;
    if (t_stay != 0) m_stay = t_stay;
    return true;
}

bool CFileLook::Holds(const std::string& path) const {
    if (LookAtFile(path) != m_look) return false;
    const bool isSure = !m_look || m_notedAt - m_look->modified > FileClockTick;
    return isSure || Platform::NanosecondsSince1970() - m_notedAt <= FileClockTick;
}
