#include "engine/incoming/toolargereply.h"

#include "app/datafolder.h"
#include "app/settings.h"
#include "engine/eventlog.h"
#include "engine/messagetemplate.h"
#include "engine/rules/standardtexts.h"
#include "platform/filestatus.h"
#include "utility/lhvexception.h"
#include "utility/paths.h"

CMimeMessage LoadTooLargeReply() {
    const std::string name = ReadSettingText("Service", "TooLargeReply", "toolarge.dat");
    const std::string path = JoinPath(GetDataFolder(), name);
    if (!name.empty() && Platform::FileIsThere(path)) {
        try {
            const CMessageTemplate stored(path, TemplateAccess::ReadOnly);
            return stored.Clone();
        } catch (const CLhvException& exception) {
            Log(LogError, "The message for senders of too large messages: %s", exception.GetDescription().c_str());
        }
    }
    return MakeStandardMessage(StandardText::TooLarge);
}
