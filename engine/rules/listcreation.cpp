#include "engine/rules/listcreation.h"

#include <string>

#include "engine/listaccount.h"
#include "engine/listremoval.h"
#include "engine/rules/rulebuilder.h"
#include "engine/rules/rulestore.h"
#include "senddaemon/accountfolders.h"
#include "senddaemon/accountkeys.h"
#include "senddaemon/configuration.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"

namespace {

void ConfigureAccount(std::uint32_t number) {
    SendDaemon::CConfiguration config(SendDaemon::GetAccountConfigPath(GetAccountRoot(number)));
    if (config.SetValue("RetryTemporary", "1") && config.SetValue("KeepHeaders", SendDaemon::ListKeepHeaders)) return;
    throw CLhvException("The settings of the list's account could not be written: " + DescribeLastError());
}

}  // namespace

std::int32_t CreateList(const NewList& list) {
    CCatalogue& catalogue = GetCatalogue();
    const std::int32_t index = catalogue.Create(list);
    try {
        ResetRules(index);
        // The standard rules collect posts for the digest: it has to go out by itself.
        if (list.kind != ListKind::Autoresponder) catalogue.SetFlag(index, ListColumn::DigestByTime, true);
        ConfigureAccount(catalogue.GetListNumber(index));
    } catch (...) {
        RemoveList(index);
        throw;
    }
    return index;
}

void ResetRules(std::int32_t index) {
    CCatalogue& catalogue = GetCatalogue();
    CRuleBuilder builder;
    BuildStandardRules(builder, catalogue.GetKind(index), catalogue.GetFlag(index, ListColumn::LeaveCopies),
                       catalogue.GetFlag(index, ListColumn::RemoveMatched));
    CRuleStore(catalogue.GetListNumber(index)).Replace(builder.GetRules());
    catalogue.SetText(index, ListColumn::Usage, builder.GetUsage());
}
