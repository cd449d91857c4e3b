// mailboxlisting.h - what a POP3 server lists.
//
// Threads  Any; pure.

#ifndef LISTHAVEN_ENGINE_INCOMING_MAILBOXLISTING_H
#define LISTHAVEN_ENGINE_INCOMING_MAILBOXLISTING_H

#include <vector>

#include "net/pop3session.h"

void DropDoubledIds(std::vector<Net::Pop3Message>& messages);  // ids that several have are none
bool AreSame(const Net::Pop3Message& a, const Net::Pop3Message& b);

#endif  // LISTHAVEN_ENGINE_INCOMING_MAILBOXLISTING_H
