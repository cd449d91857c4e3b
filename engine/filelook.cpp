#include "engine/filelook.h"

#include "platform/filestatus.h"
#include "platform/systemerror.h"
#include "utility/lhvexception.h"

std::optional<FileLook> LookAtFile(const std::string& path) {
    Platform::FileStatus status;
    if (Platform::GetFileStatus(path, status)) return FileLook{status.identity, status.size, status.times.modified};
    if (Platform::IsNotFound(Platform::LastSystemError())) return std::nullopt;
    throw CLhvException("The file " + path + " cannot be read.", Platform::LastSystemError());
}

void CFileLook::Note(const std::string& path) {
    m_isNoted = false;
    m_notedAt = Platform::NanosecondsSince1970();
    m_look = LookAtFile(path);
    m_isNoted = true;
}

bool CFileLook::IsFresh(const std::string& path) const {
    if (!m_isNoted || LookAtFile(path) != m_look) return false;
    const bool isSure = !m_look || m_notedAt - m_look->modified > FileClockTick;
    return isSure || Platform::NanosecondsSince1970() - m_notedAt <= FileClockTick;
}
