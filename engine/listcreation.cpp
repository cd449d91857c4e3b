#include "engine/listcreation.h"

#include "engine/listaccount.h"
#include "engine/listremoval.h"
#include "senddaemon/accountfolders.h"
#include "senddaemon/configuration.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"

std::int32_t CreateList(const NewList& list) {
    CCatalogue& catalogue = GetCatalogue();
    const std::int32_t index = catalogue.Create(list);
    SendDaemon::CConfiguration config(SendDaemon::GetAccountConfigPath(GetAccountRoot(catalogue.GetListNumber(index))));
    if (config.SetValue("RetryTemporary", "1")) return index;
    const std::string reason = DescribeLastError();
    RemoveList(index);
    throw CLhvException("The settings of the list's account could not be written: " + reason);
}
