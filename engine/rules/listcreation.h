// listcreation.h - makes a list with its rules, its usage text and its sending
// account.
//
// Errors   CLhvException; nothing is then left of the list.
// Threads  One at a time in the process, as the catalogue.
// Crash    A list may lack what was to come: first its rules, then its usage
//          text (ResetRules() makes both), then the settings of its account,
//          without which what could be tried again later fails for good.

#ifndef LISTHAVEN_ENGINE_RULES_LISTCREATION_H
#define LISTHAVEN_ENGINE_RULES_LISTCREATION_H

#include <cstdint>

#include "engine/catalogue.h"

// The index in the catalogue.  New lists send their digest by time, and try
// again what fails for now.
std::int32_t CreateList(const NewList& list);

// Puts the standard rules of the list's kind in place of all that it has, in one
// step, then its usage text.
void ResetRules(std::int32_t index);

#endif  // LISTHAVEN_ENGINE_RULES_LISTCREATION_H
