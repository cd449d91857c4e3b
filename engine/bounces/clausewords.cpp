#include "engine/bounces/clausewords.h"

#include <algorithm>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "utility/text.h"

namespace {

// What a word can be in a clause; it may be several things.
enum Role : std::uint32_t {
    Not = 1U << 0,
    Reader = 1U << 1,  // who is told to do something
    Attempt = 1U << 2,
    Delivery = 1U << 3,
    Future = 1U << 4,
    Next = 1U << 5,
    Past = 1U << 6,
    Continuing = 1U << 7,
    Staying = 1U << 8,
    Waiting = 1U << 9,  // what somebody stays in, or at
    Over = 1U << 10,
    Need = 1U << 11,
    Act = 1U << 12,  // what the reader need not do
    PutOff = 1U << 13,
    Being = 1U << 14,
    Owner = 1U << 15,  // of an address
    Gone = 1U << 16,
    Denied = 1U << 17,  // what an address is not
    NoMore = 1U << 18,
    Full = 1U << 19,
    Foreign = 1U << 20,  // whatever it is, it is not the recipient's
    Yet = 1U << 21,
    So = 1U << 22,
    Far = 1U << 23,
    Soon = 1U << 24,
    Almost = 1U << 25,
    Again = 1U << 26,
    Once = 1U << 27,
    Leaving = 1U << 28,
};

struct CRoleWords {
    std::uint32_t role;
    std::string_view words;  // with a bar between them
};

constexpr CRoleWords Roles[] = {
    {Not,
     "not|no|never|won't|cannot|can't|unable|without|nor|couldn't|don't|doesn't|isn't|wasn't|hasn't|haven't|nobody|"
     "nothing|stop|stopped"},
    {Reader, "please|you|if|should|must|may"},
    {Attempt,
     "attempt|attempts|attempted|attempting|retry|retries|retried|retrying|try|tries|tried|trying|reattempt|"
     "re-attempt|reattempted|re-attempted|re-try|re-tried|redelivery"},
    {Delivery,
     "deliver|delivering|delivered|send|sending|sent|forward|forwarded|reach|reached|accepted|transmit|transmitted|"
     "pass|passed|hand|handed|relay|relayed|route|transfer|transferred|re-send|resend"},
    {Future, "will|we'll|shall"},
    {Next, "next|another|further|additional|subsequent|new|later|scheduled"},
    {Past, "after|despite|several|have|has|had|last|any"},
    {Continuing, "continue|continues|continuing|keep|keeps"},
    {Staying,
     "remain|remains|stay|stays|wait|waits|waiting|held|kept|sitting|pending|still|awaiting|awaits|stored|queued"},
    {Waiting, "queue|queued|spool|trying|attempting|attempted|retry|retrying|retried|delivery|redelivery"},
    {Over, "long|was|were|had|expired|failed|failing|failure|returned"},
    {Need, "need|needn't|action|necessary"},
    {Act, "resend|re-send|resending|again|anything|needed|required"},
    {PutOff, "deferred|postponed|delayed"},
    {Being, "is|been|being|are"},
    {Owner,
     "user|users|account|accounts|mailbox|mailboxes|inbox|recipient|recipients|address|addresses|addressee|domain|"
     "host|person|individual|customer|employee|subscriber|alias|destination|member|username|login"},
    {Gone,
     "closed|deleted|removed|terminated|cancelled|canceled|invalid|unknown|gone|discontinued|nonexistent|"
     "non-existent|retired|decommissioned|obsolete|incorrect|wrong|misspelled|misspelt|deceased|erased|shut|dissolved|"
     "unregistered"},
    {Denied, "exist|exists|existing|found|known|know|recognized|recognised|valid|listed|registered|resolved|located"},
    {NoMore, "longer|anymore"},
    {Full, "full|exceeded|exceeds|overflowing|overflowed|overfull|exhausted|filled|quota"},
    {Foreign, "sender|senders|sender's|your|from|server|ip|attachment|attachments|file|connection|queue"},
    {Yet, "yet"},
    {So, "so"},
    {Far, "far"},
    {Soon, "soon"},
    {Again, "again|automatically|hourly|every"},
    {Once, "once|when"},
    {Leaving, "goes|delivered|sent|forwarded|resumes|resume"},
    {Almost, "almost|nearly|percent|approaching|near"},
};

std::uint32_t RolesOf(std::string_view word) {
    static const std::unordered_map<std::string_view, std::uint32_t> Table = [] {
        std::unordered_map<std::string_view, std::uint32_t> table;
        for (const CRoleWords& roles : Roles)
            for (const std::string_view one : Split(roles.words, '|'))
                table[one] |= roles.role;
        return table;
    }();
    constexpr std::size_t MaxWord = 16;
    if (word.size() > MaxWord) return 0;
    const auto found = Table.find(word);
    return found == Table.end() ? 0 : found->second;
}

class CClause {
public:
    void Add(std::uint32_t roles, std::size_t position) {
        constexpr std::size_t MaxWords = 60;  // a longer one is none
        if (m_words.size() < MaxWords) m_words.push_back({roles, position});
    }
    void Clear() noexcept { m_words.clear(); }
    std::size_t Size() const noexcept { return m_words.size(); }
    std::size_t PositionOf(std::size_t at) const noexcept { return m_words[at].position; }

    bool Is(std::size_t at, std::uint32_t roles) const noexcept { return (m_words[at].roles & roles) != 0; }
    bool Has(std::uint32_t roles, std::size_t from = 0, std::size_t to = std::string_view::npos) const noexcept {
        for (std::size_t i = from; i < std::min(to, m_words.size()); ++i)
            if (Is(i, roles)) return true;
        return false;
    }
    bool HasBefore(std::size_t at, std::size_t count, std::uint32_t roles) const noexcept {
        return Has(roles, at - std::min(at, count), at);
    }
    bool HasBehind(std::size_t at, std::size_t count, std::uint32_t roles) const noexcept {
        return Has(roles, at + 1, at + 1 + count);
    }

private:
    struct CWord {
        std::uint32_t roles;
        std::size_t position;
    };
    std::vector<CWord> m_words;
};

bool IsWordCharacter(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '\'' || c == '-' ||
           static_cast<unsigned char>(c) >= 0x80;
}

// Calls with each clause until one is what is looked for.
template <typename TFunction>
bool AnyClause(std::string_view text, TFunction isIt) {
    CClause clause;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const std::size_t start = at;
        while (at < text.size() && IsWordCharacter(text[at]))
            ++at;
        if (at > start) clause.Add(RolesOf(text.substr(start, at - start)), start);
        if (at == text.size() || std::string_view(".,;:!?()[]").find(text[at]) == std::string_view::npos) continue;
        if (clause.Size() > 1 && isIt(clause)) return true;
        clause.Clear();
    }
    return clause.Size() > 1 && isIt(clause);
}

// "will be attempted again", "the server will make another try".
bool PromisesAttempt(const CClause& clause, std::size_t at) noexcept {
    if (!clause.Is(at, Future) || clause.HasBefore(at, 2, Reader)) return false;
    for (std::size_t i = at + 1; i < std::min(at + 7, clause.Size()) && !clause.Is(i, Not); ++i)
        if (clause.Is(i, Attempt)) return true;
    return false;
}

// "we will send it again", "it goes out once the line is up".
bool PromisesDelivery(const CClause& clause, std::size_t at) noexcept {
    if (clause.Is(at, Future)) {
        if (clause.HasBefore(at, 2, Reader) || clause.HasBehind(at, 6, Not | Over)) return false;
        return clause.HasBehind(at, 4, Delivery) && clause.HasBehind(at, 8, Again);
    }
    return clause.Is(at, Once) && clause.Has(Leaving, 0, at) && !clause.Has(Reader | Not | Over, 0, at);
}

// "next attempt", "further delivery attempts": not those that have been made.
bool NamesNextAttempt(const CClause& clause, std::size_t at) noexcept {
    if (!clause.Is(at, Next) || clause.HasBefore(at, 3, Not | Past) || clause.HasBefore(at, at, Reader)) return false;
    return clause.HasBehind(at, 2, Attempt) && !clause.HasBehind(at, 4, Over | Past);
}

// "keeps trying", "is still queued", "remains in the queue", "awaiting delivery".
bool GoesOn(const CClause& clause, std::size_t at) noexcept {
    if (!clause.Is(at, Continuing | Staying) || clause.HasBefore(at, at, Reader)) return false;
    if (clause.HasBefore(at, 3, Not | Over) || clause.HasBehind(at, 5, Not | Over)) return false;
    if (clause.Is(at, Continuing)) return clause.HasBehind(at, 4, Attempt | Delivery | Waiting);
    return clause.HasBehind(at, 4, Waiting);
}

// "not delivered yet", "5 retries so far".
bool IsNotOverYet(const CClause& clause, std::size_t at) noexcept {
    const bool isUndelivered = clause.Has(Not) && clause.Has(Delivery);
    if (clause.Is(at, Yet)) return isUndelivered;
    return clause.Is(at, Far) && at > 0 && clause.Is(at - 1, So) && (isUndelivered || clause.Has(Attempt));
}

// "no need to send it again", "no action is needed".
bool SparesReader(const CClause& clause, std::size_t at) noexcept {
    return clause.Is(at, Need) && clause.Has(Not, at - std::min<std::size_t>(at, 3), at + 1) &&
           clause.HasBehind(at, 7, Act);
}

// "delivery is deferred", "it is delivered as soon as there is room".
bool IsPutOff(const CClause& clause, std::size_t at) noexcept {
    if (clause.Is(at, PutOff)) return clause.HasBefore(at, 2, Being);
    return clause.Is(at, Soon) && clause.Has(Delivery) && !clause.Has(Reader | Act);
}

bool IsRetryClause(const CClause& clause) noexcept {
    for (std::size_t at = 0; at < clause.Size(); ++at)
        if (PromisesAttempt(clause, at) || PromisesDelivery(clause, at) || NamesNextAttempt(clause, at) ||
            GoesOn(clause, at) || IsNotOverYet(clause, at) || SparesReader(clause, at) || IsPutOff(clause, at))
            return true;
    return false;
}

// "could not be passed on", "unable to hand over".
bool DeniesDelivery(const CClause& clause) noexcept {
    for (std::size_t at = 1; at < clause.Size(); ++at)
        if (clause.Is(at, Delivery) && clause.HasBefore(at, 4, Not) && !clause.HasBefore(at, 4, Need)) return true;
    return false;
}

bool IsGone(const CClause& clause, std::size_t at) noexcept {
    if (clause.Is(at, Gone)) return !clause.HasBefore(at, 2, Not);
    if (clause.Is(at, Denied)) return clause.HasBefore(at, 5, Not);
    return clause.Is(at, NoMore) && clause.HasBefore(at, 1, Not);
}

}  // namespace

bool ClausesAnnounceRetry(std::string_view normalized) {
    return AnyClause(normalized, IsRetryClause);
}

bool ClausesDenyDelivery(std::string_view normalized) {
    return AnyClause(normalized, DeniesDelivery);
}

CReplyMeaning MeaningOfClauses(std::string_view normalized) {
    CReplyMeaning meaning;
    AnyClause(normalized, [&meaning](const CClause& clause) {
        constexpr std::size_t MaxDistance = 10;
        for (std::size_t at = 0; at < clause.Size(); ++at) {
            const bool isGone = IsGone(clause, at);
            if (!isGone && (!clause.Is(at, Full) || clause.HasBefore(at, 3, Almost))) continue;
            const std::size_t from = at - std::min(at, MaxDistance);
            const std::size_t to = at + (isGone ? 4 : 1);
            if (!clause.Has(Owner, from, to) || clause.Has(Foreign, from, to)) continue;
            meaning = {isGone ? BounceClass::Hard : BounceClass::Soft, ReplyWeight::Likely, clause.PositionOf(at)};
            return true;
        }
        return false;
    });
    return meaning;
}
