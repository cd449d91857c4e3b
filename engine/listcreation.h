// listcreation.h - makes a list together with its sending account.
//
// Errors   CLhvException; nothing is then left of the list.
// Threads  One at a time in the process, as the catalogue.
// Crash    A list without account settings fails for good what could be tried again later.

#ifndef LISTHAVEN_ENGINE_LISTCREATION_H
#define LISTHAVEN_ENGINE_LISTCREATION_H

#include <cstdint>

#include "engine/catalogue.h"

// The index in the catalogue.  What fails for now is tried again for new lists.
std::int32_t CreateList(const NewList& list);

#endif  // LISTHAVEN_ENGINE_LISTCREATION_H
