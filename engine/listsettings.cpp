#include "engine/listsettings.h"

#include "utility/text.h"

const ListSetting* FindListSetting(std::string_view key) noexcept {
    for (const ListSetting& setting : ListSettings) {
        if (EqualNoCase(setting.key, key)) return &setting;
    }
    return nullptr;
}
