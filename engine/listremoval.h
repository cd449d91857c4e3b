// listremoval.h - deletes a list with everything that belongs to it.
//
// Errors   CLhvException when the list cannot be deleted; it is then still
//          there.  What was left behind of a deleted list is returned.
// Crash    The list is gone from the catalogue first; files that a crash leaves
//          behind bear a number that no list gets again.

#ifndef LISTHAVEN_ENGINE_LISTREMOVAL_H
#define LISTHAVEN_ENGINE_LISTREMOVAL_H

#include <cstdint>
#include <string>
#include <vector>

// index: of the catalogue.  A program that is sending for the list is told to
// stop, and is given some seconds to finish what it has begun.
std::vector<std::string> RemoveList(std::int32_t index);

#endif  // LISTHAVEN_ENGINE_LISTREMOVAL_H
