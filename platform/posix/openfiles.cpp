#include "platform/openfiles.h"

namespace Platform {

bool OpenFilesCanBeReplaced() {
    return true;
}

}  // namespace Platform
