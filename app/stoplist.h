// stoplist.h - threads that have been asked to stop.
//
// Record tables that allow it throw on such a thread at their next step.
//
// Threads  Any.

#ifndef LISTHAVEN_APP_STOPLIST_H
#define LISTHAVEN_APP_STOPLIST_H

#include "platform/process.h"

void RequestThreadStop(Platform::ThreadId thread);
void ClearThreadStop(Platform::ThreadId thread);
bool IsThreadStopRequested(Platform::ThreadId thread);  // one load while the list is empty

#endif  // LISTHAVEN_APP_STOPLIST_H
