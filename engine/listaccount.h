// listaccount.h - a list's sending account: where it is, and its settings.
//
// Errors   false, with the reason in the last-error text; GetAccountRoot()
//          throws CLhvException when there is no data folder.

#ifndef LISTHAVEN_ENGINE_LISTACCOUNT_H
#define LISTHAVEN_ENGINE_LISTACCOUNT_H

#include <cstdint>
#include <string>

#include "senddaemon/configureaccount.h"

std::string GetSendDaemonFolder();                     // without trailing separator
std::string GetAccountRoot(std::uint32_t listNumber);  // SendDaemon/<n> in the data folder
std::string GetBroadcastsFolder();                     // Broadcasts in the data folder

bool ReadListSettings(std::uint32_t listNumber, SendDaemon::CListSettings& settings);  // from the catalogue

// Adds the account to the daemon and writes its configuration from the list's settings.
bool SetUpAccount(SendDaemon::CSendDaemon& daemon, std::uint32_t listNumber, SendDaemon::ISendEvents* sink);

// Brings account.cfg up to the list's settings, as the start of sending does; needs no daemon.
bool RefreshAccount(std::uint32_t listNumber);

#endif  // LISTHAVEN_ENGINE_LISTACCOUNT_H
