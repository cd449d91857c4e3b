#include "engine/messagetemplate.h"

#include <utility>

#include "platform/file.h"
#include "platform/namedmutex.h"
#include "utility/lhvexception.h"
#include "utility/mutexguard.h"

namespace {

constexpr const char* MutexPrefix = "Vantorel.Listhaven.3.Template";

}  // namespace

CMessageTemplate::CMessageTemplate(std::string path, TemplateAccess access)
    : m_templatePath(std::move(path)),
      m_access(access),
      m_mutex(std::make_unique<Platform::CNamedMutex>(MutexPrefix + m_templatePath)) {
    const CMutexGuard guard(*m_mutex);
    LoadOrThrow(m_templatePath);
}

CMessageTemplate::~CMessageTemplate() = default;

void CMessageTemplate::Save() {
    if (IsReadOnly()) throw CLhvException("Internal error: Attempt to save readonly CMessageTemplate instance.");
    const CMutexGuard guard(*m_mutex);
    SaveOrThrow(m_templatePath);
}

void CMessageTemplate::Delete() {
    if (IsReadOnly()) throw CLhvException("Internal error: Attempt to delete readonly message template.");
    const CMutexGuard guard(*m_mutex);
    Platform::RemoveFile(m_templatePath);
}

std::string CMessageTemplate::GetControl(const char* header) const {
    return GetRoot()->GetField(header);
}

void CMessageTemplate::SetControl(const char* header, std::string_view value) {
    GetRoot()->SetField(header, std::string(value));
}
