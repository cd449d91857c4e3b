#include "utility/uniquename.h"

#include <utility>

#include "platform/filestatus.h"
#include "platform/guid.h"
#include "platform/namedmutex.h"
#include "platform/systemerror.h"
#include "utility/lasterror.h"
#include "utility/mutexguard.h"
#include "utility/paths.h"

namespace {

constexpr const char* NameMutex = "{483C076E-4CFA-4459-88C7-CADFD962C7F7}";
constexpr const char* TemporaryExtension = ".tmp";
constexpr int Attempts = 1000;

bool FailOn(std::string_view path) {
    const Platform::SystemError code = Platform::LastSystemError();
    SetLastErrorText(std::string(path) + ": " + Platform::SystemErrorText(code));
    Platform::SetLastSystemError(code);
    return false;
}

std::string NewNumber() {
    return std::to_string(Platform::RandomNumber() & 0x7FFFFFFFU);
}

std::string NamedFile(std::string_view folder, const std::string& number, std::string_view extension) {
    return JoinPath(folder, number + "." + std::string(extension));
}

}  // namespace

CNewFile::CNewFile(CNewFile&& other) noexcept
    : m_file(std::move(other.m_file)),
      m_temporaryPath(std::move(other.m_temporaryPath)),
      m_finalPath(std::move(other.m_finalPath)),
      m_owned(std::exchange(other.m_owned, false)) {}

CNewFile& CNewFile::operator=(CNewFile&& other) noexcept {
    if (this == &other) return *this;
    Discard();
    m_file = std::move(other.m_file);
    m_temporaryPath = std::move(other.m_temporaryPath);
    m_finalPath = std::move(other.m_finalPath);
    m_owned = std::exchange(other.m_owned, false);
    return *this;
}

CNewFile::~CNewFile() {
    Discard();
}

bool CNewFile::Discard() {
    if (!std::exchange(m_owned, false)) return false;
    const Platform::SystemError code = Platform::LastSystemError();
    m_file.Close();
    Platform::RemoveFile(m_temporaryPath);
    Platform::SetLastSystemError(code);
    return false;
}

// What was noted may be removed later, so it must not be another's: nobody else
// makes names while the mutex is held.
bool CNewFile::Create(std::string_view folder, std::string_view extension, const Note& note) {
    Discard();
    Platform::CNamedMutex mutex(NameMutex);
    const CMutexGuard guard(mutex);
    for (int attempt = 0; attempt < Attempts; ++attempt) {
        const std::string number = NewNumber();
        m_finalPath = NamedFile(folder, number, extension);
        m_temporaryPath = JoinPath(folder, number + TemporaryExtension);
        if (note) {
            if (Platform::FileIsThere(m_temporaryPath) || Platform::FileIsThere(m_finalPath)) continue;
            if (!note(m_temporaryPath)) return false;
        }
        if (!m_file.Open(m_temporaryPath, Platform::FileMode::CreateNew)) {
            if (!note && Platform::IsAlreadyThere(Platform::LastSystemError())) continue;
            return FailOn(folder);
        }
        m_owned = true;
        if (!Platform::FileIsThere(m_finalPath)) return true;
        Discard();
    }
    SetLastErrorText(std::string(folder) + ": no unique name was found");
    return false;
}

bool CNewFile::Write(std::string_view bytes) {
    return m_file.Write(bytes) || FailOn(m_temporaryPath) || Discard();
}

bool CNewFile::Overwrite(std::uint64_t offset, std::string_view bytes) {
    return m_file.WriteAt(offset, bytes.data(), bytes.size()) || FailOn(m_temporaryPath) || Discard();
}

// A flush that failed is not tried again: the system may have dropped the bytes.
bool CNewFile::FinishWriting() {
    if (!m_file.IsOpen()) return m_owned;
    return (m_file.Flush() && m_file.Close()) || FailOn(m_temporaryPath) || Discard();
}

bool CNewFile::CloseUnflushed() {
    if (!m_file.IsOpen()) return m_owned;
    m_file.StartFlush();
    return m_file.Close() || FailOn(m_temporaryPath) || Discard();
}

bool CNewFile::Publish() {
    if (!FinishWriting()) return false;
    if (!PublishAs(m_temporaryPath, m_finalPath)) return Discard();
    m_owned = false;
    if (Platform::FlushFolder(ParentFolder(m_finalPath))) return true;
    FailOn(m_finalPath);
    // Taken back, so that the caller may write it again.  If it is gone, somebody
    // has taken it for processing: then it counts as published.
    const Platform::SystemError code = Platform::LastSystemError();
    const bool isTakenBack = Platform::RemoveFile(m_finalPath);
    Platform::SetLastSystemError(code);
    return !isTakenBack;
}

bool CNewFile::PublishAs(std::string_view temporaryPath, std::string_view finalPath) {
    return Platform::RenameNew(temporaryPath, finalPath) || FailOn(finalPath);
}

void CNewFile::Keep() noexcept {
    m_owned = false;
}

bool MoveToUniqueName(std::string_view path, std::string_view folder, std::string_view extension,
                      std::string& newPath) {
    Platform::CNamedMutex mutex(NameMutex);
    const CMutexGuard guard(mutex);
    for (int attempt = 0; attempt < Attempts; ++attempt) {
        const std::string number = NewNumber();
        std::string candidate = NamedFile(folder, number, extension);
        if (Platform::FileIsThere(JoinPath(folder, number + TemporaryExtension))) continue;
        if (Platform::RenameNew(path, candidate)) {
            newPath = std::move(candidate);
            return true;
        }
        if (!Platform::IsAlreadyThere(Platform::LastSystemError())) return FailOn(path);
    }
    SetLastErrorText(std::string(folder) + ": no unique name was found");
    return false;
}

bool MakeUniqueFolder(std::string_view parent, std::string& newPath) {
    Platform::CNamedMutex mutex(NameMutex);
    const CMutexGuard guard(mutex);
    for (int attempt = 0; attempt < Attempts; ++attempt) {
        std::string candidate = JoinPath(parent, NewNumber());
        if (Platform::MakeFolder(candidate)) {
            newPath = std::move(candidate);
            return true;
        }
        if (!Platform::IsAlreadyThere(Platform::LastSystemError())) return FailOn(parent);
    }
    SetLastErrorText(std::string(parent) + ": no unique name was found");
    return false;
}
