#include "engine/broadcast.h"

#include <algorithm>

#include "app/settings.h"
#include "engine/catalogue.h"
#include "engine/eventlog.h"
#include "mime/mimemessage.h"
#include "platform/clock.h"
#include "platform/filestatus.h"
#include "senddaemon/batchfolder.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"

namespace {

struct Walk {
    CMemberStore store;
    CBroadcastMaker maker;
    CBatchFolder queue;
    std::uint32_t pause = 0;
    std::string text;
};

// False when the broadcast has to end.
bool WriteCopy(Walk& walk, const CMember& member, std::int32_t index, BroadcastCounts& counts) {
    switch (walk.maker.Make(member, Platform::SecondsSince1970(), walk.text, &walk.store, index)) {
        case CopyResult::Made:
            break;
        case CopyResult::Blocked:
            ++counts.blocked;
            return true;
        case CopyResult::Skipped:
            ++counts.skipped;
            return true;
        case CopyResult::Failed:
            return false;
    }
    std::string newPath;
    if (!walk.queue.AddMessageText(walk.text, newPath)) return false;
    ++counts.copies;
    if (walk.pause > 0) Platform::SleepMilliseconds(walk.pause);
    return true;
}

}  // namespace

bool ReadBroadcastList(std::uint32_t number, BroadcastList& list) {
    CCatalogue& catalogue = GetCatalogue();
    const std::int32_t index = catalogue.FindByNumber(number);
    if (index == CCatalogue::None) {
        SetLastErrorFormat("There is no list with the number %u.", static_cast<unsigned>(number));
        return false;
    }
    list.number = number;
    list.name = catalogue.GetName(index);
    list.guid = catalogue.GetGuid(index);
    list.usage = catalogue.GetText(index, ListColumn::Usage);
    list.address = catalogue.GetListAddress(index, "List");
    list.commandAddress = catalogue.GetListAddress(index, "Command");
    list.authorizedAddress = catalogue.GetListAddress(index, "Authorized");
    list.postAddress = catalogue.GetListAddress(index, "Post");
    list.loopProtection = catalogue.GetNumber(index, ListColumn::LoopProtection);
    list.emptySender = catalogue.GetFlag(index, ListColumn::EmptySender);
    return true;
}

bool GenerateBroadcast(const CMimeMessage& message, std::uint32_t listNumber, const BroadcastModes& modes,
                       std::string_view targetPath, const std::function<bool()>& cancel, BroadcastCounts& counts) {
    try {
        Log(LogInfo, "Generating messages for broadcast \"%s\".\n", message.GetRoot()->GetField("Subject").c_str());
        BroadcastList list;
        Walk walk;
        if (!ReadBroadcastList(listNumber, list) || !walk.maker.Open(message, list, "")) return false;
        if (!walk.queue.Open(targetPath)) return false;
        walk.store.Open(listNumber, CMemberStore::Access::ReadOnly);
        walk.pause = static_cast<std::uint32_t>(std::max(0, ReadSetting("Execution", "GenerationPause", 10)));
        bool succeeded = true;
        const std::int32_t end = walk.store.GetRecordCount();
        walk.store.ForEach(walk.maker.GetWantedSlots(), [&](std::int32_t index, const CMember& member) {
            if (index >= end || (cancel && cancel())) return false;
            if (!modes.Include(member.mode) || member.IsInactive()) {
                ++counts.skipped;
                return true;
            }
            succeeded = WriteCopy(walk, member, index, counts);
            return succeeded;
        });
        return succeeded;
    } catch (const CLhvException& exception) {
        SetLastErrorFromException(exception);
        return false;
    }
}
