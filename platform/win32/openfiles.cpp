#include "platform/openfiles.h"

#include <windows.h>

#include "platform/guid.h"
#include "platform/knownfolders.h"
#include "platform/win32/handle.h"
#include "platform/win32/systempath.h"

namespace Platform {

namespace {

// Asks for nothing, in the way that only systems with POSIX semantics understand.
bool AskTheSystem() {
    constexpr DWORD ShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    constexpr auto DispositionClass = static_cast<FILE_INFO_BY_HANDLE_CLASS>(21);  // FileDispositionInfoEx
    const std::wstring path = SystemPath(TemporaryFolder() + "/lhv-" + std::to_string(NewGuid().data1) + ".tmp");
    const CHandle file(CreateFileW(path.c_str(), GENERIC_WRITE | DELETE, ShareAll, nullptr, CREATE_NEW,
                                   FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
    DWORD nothing = 0;
    return file && SetFileInformationByHandle(file.Get(), DispositionClass, &nothing, sizeof(nothing)) != 0;
}

}  // namespace

bool OpenFilesCanBeReplaced() {
    static const bool can = AskTheSystem();
    return can;
}

}  // namespace Platform
