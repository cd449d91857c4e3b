// filespeed.h - sizes of tests that do little but work with files.

#ifndef LISTHAVEN_TESTS_PLATFORM_FILESPEED_H
#define LISTHAVEN_TESTS_PLATFORM_FILESPEED_H

#include "platform/openfiles.h"

// Where open files cannot be replaced, which is under Wine, there are more
// operations on files and each takes some ten times as long.
template <class T>
T ByFileSpeed(T usual, T slow) {
    return Platform::OpenFilesCanBeReplaced() ? usual : slow;
}

#endif  // LISTHAVEN_TESTS_PLATFORM_FILESPEED_H
