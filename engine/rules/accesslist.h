// accesslist.h - who may, and who may not, subscribe and post: n.ACL.
//
// A pattern is an address, "*@domain", or "*@*.domain" for the subdomains; case
// of A-Z does not count.  A denied sender can neither subscribe nor post,
// whatever else the list says of him; an allowed one may post where members may.
//
// Errors   CLhvException: the system's faults, a text that is no pattern.
// Sharing  Each operation holds the named mutex of the table, or finds by the
//          file that nothing has changed; it sees what others have done by then.
// Threads  One at a time.
// Crash    An entry is there whole or not at all.

#ifndef LISTHAVEN_ENGINE_RULES_ACCESSLIST_H
#define LISTHAVEN_ENGINE_RULES_ACCESSLIST_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/blockedset.h"
#include "engine/filelook.h"

enum class Access : std::uint8_t { Unlisted, Allowed, Denied };

struct CAccessEntry {
    Access access = Access::Denied;  // Allowed or Denied
    std::string pattern;
};

class CAccessList {
public:
    explicit CAccessList(std::uint32_t listNumber);  // of the data folder

    Access Check(std::string_view address);  // Denied wins; costs a look at the file and no more for many entries
    std::vector<CAccessEntry> GetEntries();
    bool Add(const CAccessEntry& entry);    // false: it is there already; an entry of the other kind stays beside it
    bool Remove(std::string_view pattern);  // of both kinds; false: there is none

    static bool IsPattern(std::string_view pattern, std::string* reason = nullptr);

private:
    void Load();

    std::string m_path;
    CFileLook m_look;
    std::vector<CAccessEntry> m_entries;
    CBlockedSet m_allowed;
    CBlockedSet m_denied;
};

#endif  // LISTHAVEN_ENGINE_RULES_ACCESSLIST_H
