#include "senddaemon/senderfactory.h"

#include <exception>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "senddaemon/directmessagesender.h"
#include "senddaemon/nullmessagesender.h"
#include "senddaemon/smtpmessagesender.h"
#include "utility/lasterror.h"

namespace SendDaemon {

namespace {

struct CKinds {
    std::mutex lock;
    std::map<std::string, SenderCreator, std::less<>> creators;
};

// The kinds that come with the daemon are entered here: registration by static
// objects would be dropped when the library is linked.
template <class Sender>
std::unique_ptr<CMessageSender> MakeSender() {
    return std::make_unique<Sender>();
}

CKinds& GetKinds() {
    static CKinds kinds = {
        .lock = {},
        .creators = {{std::string(SmtpMessageSender2::MethodName), MakeSender<SmtpMessageSender2>},
                     {std::string(CDirectMessageSender::MethodName), MakeSender<CDirectMessageSender>},
                     {std::string(CNullMessageSender::MethodName), MakeSender<CNullMessageSender>}}};
    return kinds;
}

}  // namespace

void RegisterSenderKind(std::string_view name, SenderCreator creator) {
    CKinds& kinds = GetKinds();
    const std::lock_guard guard(kinds.lock);
    kinds.creators.insert_or_assign(std::string(name), std::move(creator));
}

std::unique_ptr<CMessageSender> CreateSender(std::string_view name) {
    CKinds& kinds = GetKinds();
    SenderCreator creator;
    {
        const std::lock_guard guard(kinds.lock);
        const auto found = kinds.creators.find(name);
        if (found != kinds.creators.end()) creator = found->second;
    }
    std::unique_ptr<CMessageSender> sender;
    try {
        if (creator) sender = creator();
    } catch (const std::exception& exception) {  // the system has no more threads
        SetLastErrorFromException(exception);
        return nullptr;
    }
    if (!sender) SetLastErrorFormat("There is no send method \"%s\".", std::string(name).c_str());
    return sender;
}

}  // namespace SendDaemon
