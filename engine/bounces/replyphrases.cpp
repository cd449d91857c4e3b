#include "engine/bounces/replyphrases.h"

#include <algorithm>
#include <vector>

#include "utility/text.h"

namespace {

// Phrases with a bar between them.

// The address or its host will never take mail.
constexpr std::string_view ClearHard =
    "account closed|account does not exist|account doesn't exist|account has been closed|"
    "account has been deleted|account is closed|account is unknown|account not found|address does not exist|"
    "address doesn't exist|address has been changed|address is invalid|address is no longer|"
    "address is not known|address is unknown|address not found|address not known|address unknown|"
    "addressee unknown|addresses unknown|bad address|bad destination mailbox|bad recipient|can't find user|"
    "cannot find user|could not find user|couldn't be found|couldn't find any host|dd this user doesn't have|"
    "delivery to this address is no longer|destinataire inconnu|destination mailbox address does not exist|"
    "does not accept email|does not accept mail|does not have a mailbox|does not have an account|"
    "does not like recipient|doesn't accept email|doesn't accept mail|doesn't have an account|"
    "domain couldn't be found|domain does not exist|domain doesn't exist|domain is invalid|"
    "domain is not known|domain is not reachable|domain is not valid|domain not found|domain not recognized|"
    "domain unknown|email account does not exist|email account no longer|email address could not be found|"
    "email address does not exist|empf\xC3\xA4nger unbekannt|empfaenger unbekannt|existiert nicht|"
    "exrecipnotfound|has moved to|has no mailbox|host does not exist|host not found|"
    "host or domain name not found|host unknown|illegal alias|illegal host|illegal user|inactive recipient|"
    "inconnu|indicated no smtp service|invalid address|invalid domain|invalid email|invalid host|"
    "invalid local part|invalid mailbox|invalid recipient|invalid user|is no longer at|is no longer valid|"
    "is no longer with|is not a known user|is not a registered|is not a valid mailbox|"
    "is not a valid recipient|is not a valid user|is not known here|is not known to|is not listed|"
    "is not recognized|is not registered|is not valid recipient|is unknown here|left the company|"
    "left the organization|mail address not found|mail receiving disabled|mailbox does not exist|"
    "mailbox doesn't exist|mailbox has been deleted|mailbox has moved|mailbox is invalid|mailbox is unknown|"
    "mailbox name not allowed|mailbox no longer|mailbox not exist|mailbox not found|mailbox unknown|"
    "name does not exist|name is not recognized|name not found|name not recognized|nicht bekannt|"
    "no account by|no account by this name|no email address|no existe|no hosts could be contacted by|"
    "no longer accepts mail|no longer active|no longer available|no longer employed|no longer exists|"
    "no longer in service|no longer in use|no longer on server|no longer valid|no longer works|"
    "no mailbox by that name|no mailbox found|no mailbox here|no matches to nameserver query|"
    "no matching directory entry|no mx or a records|no mx record|no recipient|no recipients found|"
    "no relevant answers|no such account|no such address|no such alias|no such destination|no such domain|"
    "no such email|no such host|no such local user|no such mail|no such mailbox|no such name|no such people|"
    "no such person|no such recipient|no such user|no such virtual user|no user by|no user found|"
    "no valid host|no valid recipient|no valid recipients|non existent|non-existent|non-existing|nonexistent|"
    "not a known|not a registered|not a valid mailbox|not a valid recipient|not a valid user|not an active|"
    "not found by smtp address lookup|not found in directory|not found in domino|not known at|"
    "not known at this site|not listed in|not local|not our customer|not registered|null mx|nullmx|nxdomain|"
    "recipient address is|recipient does not exist|recipient doesn't exist|recipient has moved|"
    "recipient is invalid|recipient no longer|recipient not exist|recipient not found|recipient not known|"
    "recipient not recognized|recipient unknown|recipientnotfound|recipnotfound|rejected: access denied|"
    "there is no such|this address no longer|unable to find recipient|unbekannter|undeliverable address|"
    "unknown account|unknown address|unknown alias|unknown destination|unknown domain|unknown e-mail|"
    "unknown email|unknown host|unknown local|unknown mail user|unknown mailbox|unknown or illegal|"
    "unknown or invalid|unknown recipient|unknown to address|unknown user|unknown virtual|unroutable|"
    "unrouteable|user account does not exist|user does not exist|user doesn't exist|user doesn't have|"
    "user has moved|user invalid|user is not found|user is unknown|user moved|user no longer|user not exist|"
    "user not found|user not known|user not local|user unknown|usu\xC3\xA1rio desconhecido|"
    "usu\xC3\xA1rio inexistente|usuario desconocido|usuario inexistente|utente sconosciuto|"
    "utilisateur inconnu|wasn't found at|wrong recipient";

// The address may be right; something was in the way.
constexpr std::string_view ClearSoft =
    "account disabled|account full|account has been disabled|account has been suspended|account inactive|"
    "account is disabled|account is full|account is inactive|account is locked|account is not active|"
    "account is over|account is suspended|account is temporarily|account suspended|"
    "account that you tried to reach is disabled|account that you tried to reach is inactive|"
    "account that you tried to reach is over quota|been in the queue|boite pleine|box is full|"
    "connect timed out|connection dropped|connection refused|connection reset|connection timed out|"
    "connection was dropped|could not connect to|could not find a gateway|couldn't connect to|"
    "delivery expired|delivery time expired|delivery timed out|did not accept our requests to connect|"
    "disk full|disk quota|disk space|does not have enough space|envelope expired|exceed the quota|"
    "exceeded its quota|exceeded quota|exceeded storage|exceeded the quota|exceeded the space|"
    "exceeded the storage|exceeded their quota|exceeding its mailbox quota|exceeds allowed message count|"
    "exceeds quota|exceeds the quota|excessive recursion|forwarding loop|full mail box|full mailbox|"
    "has been frozen|has too many messages|hop count exceeded|host is unreachable|host name lookup failure|"
    "host unreachable|in queue too long|in the queue too long|inbox is full|input/output error|"
    "insufficient disk|insufficient mail storage|insufficient storage|insufficient system|is full|kontingent|"
    "loops back to myself|lost connection|mail box full|mail loop|mail quota|mail system full|"
    "mailbox disabled|mailbox exceeds|mailbox for user is full|mailbox full|mailbox has exceeded|"
    "mailbox is disabled|mailbox is frozen|mailbox is full|mailbox is inactive|mailbox is over|mailbox over|"
    "mailbox quota|mailbox size is over|mailbox size limit|mailbox storage|mailbox would exceed|maildir over|"
    "mailfolder is full|maximum hop|maximum time exceeded|message expired|message has expired|"
    "message in queue|message timed out|name server: |network is unreachable|network unreachable|"
    "no route to host|no space left|not delivered within|not enough disk|not enough space|not enough storage|"
    "not responding|operation timed out|out of disk|out of memory|out of storage|over disk|over quota|"
    "over the allowed quota|over the maximum|over the quota|over their quota|overquota|pipe broken|"
    "queue too long|quota exceeded|quota full|quota has been|quota limit|quota violation|quotaexceeded|"
    "reached its quota|recipient reached disk quota|recipient storage full|recipsizelimit|retry time exceeded|"
    "retry time not reached|retry timeout exceeded|routing loop|space shortage|storage capacity|storage quota|"
    "storespace|system is full|temporary lookup failure|timed out while|too many hops|too many received|"
    "too much mail|undelivered for too long|user account is disabled|user has exhausted|"
    "user has too many messages|user is inactive|user is over|user mailbox is|user over|user over quota|voll|"
    "would be over quota|would exceed quota|zu viele nachrichten";

// The receiving side refused the sender, his server or the content.
constexpr std::string_view ClearBlocked =
    "access denied, banned|authentication checks|authentication required|authrequired|backscatter|"
    "bad reputation|banned sending ip|black list|blacklist|blacklisted|block list|blocked because|blocked by|"
    "blocked due|blocked for|blocked using|blocklist|bounce attack|bulk e-mail|bulk mail|client host blocked|"
    "client host rejected|contains a virus|content denied|content filter|content refused|content rejected|"
    "daily relay|deny list|denylist|dkim|dmarc|dnsbl|dnsrbl|does not accept mail from|does not have a ptr|"
    "doesn't accept mail from|domain of sender|email address is not verified|envelope sender|excessive spam|"
    "frequency limited|host network not allowed|invalid sender|ip address blacklisted|"
    "ip address sending this message does not have|is blacklisted|is blocked|is listed by|is listed in|junk|"
    "listed by|listed in rbl|local policy|low reputation|mail content|mail is blocked|malware|message blocked|"
    "message content rejected|message has been blocked|message was blocked|missing ptr|no ptr|"
    "not allowed to send|not authorized to send|not permitted to send|notauthorized|phishing|policy reasons|"
    "policy rejection|policy violation|poor reputation|potential security issue|ptr record|rbl|"
    "real-time blackhole|refused by spam|relay quota|reputation|reverse dns|security policy|"
    "sender address does not|sender address rejected|sender address verification|sender blocked|sender denied|"
    "sender domain|sender id|sender is blocked|sender is unauthenticated|sender not authenticated|"
    "sender rejected|sender verify failed|sender was rejected|sendernotauthenticated|"
    "sent to too many recipients|spam|spam-like|spamcop|spamhaus|spf|spf check|suspected bounce|suspicious|"
    "too many invalid|too many messages|too many recipients this hour|ube|uce|unable to verify sender|"
    "unauthenticated|unauthenticated email|undesirable|unsolicited|unusual rate|"
    "use the smtp server of your isp|user complaints|virus|was blocked|weren't sent|you are not allowed|"
    "you have been blocked|you're not authorized|your ip";

constexpr std::string_view LikelyHard =
    "account is invalid|address couldn't be found|address invalid|address rejected|cannot be found|"
    "could not be found|could not be resolved|does not exist|doesn't exist|has rejected address|"
    "mailbox is currently unavailable|mailbox is unavailable|mailbox not available|mailbox unavailable|"
    "ne peut pas recevoir|no address|no such|noconnector|not accepting mail for|not allowed to receive|"
    "not deliverable to|not exist|not found|not known|not recognized|not unique|permanently rejected|"
    "recipient address rejected|recipient refused|recipient rejected|rejected address|unable to lookup|"
    "unknown|user disabled|user inactive";

constexpr std::string_view LikelySoft =
    "bad dns|busy|cannot allocate|cannot connect|cannot update mailbox|command died|configuration error|"
    "connection closed|connection limit|connection rate limit|connections from|could not initiate|"
    "couldn't create|deferred|device error|error writing|exceeded|exceeds|expired|failed to connect|"
    "failing for a long time|graylisted|greylisted|greylisting|has been disabled|has been suspended|"
    "has exceeded|has timed out|i/o error|internal error|internal server error|is currently suspended|"
    "is disabled|length exceeds|local error|lock failure|lookup failure|mail server temporarily|"
    "mailbox is locked|malformed address|message exceeds|message is too large|message length|message size|"
    "message too big|message too large|message too long|name server timeout|not accepting messages|over limit|"
    "queue file|quota|resources|server error|server failure|servfail|service temporarily|size limit|"
    "socket error|software error|suspended|system error|temporarily|temporarily unavailable|temporary error|"
    "temporary failure|time out|timed out|timeout|too big|too large|too many concurrent|too many connections|"
    "too many errors|too many sessions|try again|try later|unable to connect|unable to establish|"
    "undeliverable after|unexpected error|unreachable|unrecoverable error|write error";

constexpr std::string_view LikelyBlocked =
    "abuse|access denied|access rejected|address has been blocked|administrative prohibition|administratively|"
    "anti-spam|antispam|attachment type|attachments of|authentication|bad helo|banned|blocked|can't verify|"
    "cannot be accepted|certificate|client host|client ip|denied by|dns blocked|does not resolve|"
    "failed starttls|failed to authenticate|forbidden|from header|header error|headers contain|"
    "headers too large|helo command rejected|illegal attachment|invalid helo|is not permitted|listed at|"
    "mail relay|message headers|message refused|message rejected|messages from|mismatches|"
    "multiple addresses in from|multiple subject headers|must authenticate|must issue a starttls|not a member|"
    "not accept mail from|not accept your message|not accepted|not accepting mail from|not allowed|"
    "not allowed to post|not authorised|not authorized|not permitted|not rfc|not trusted|not verified|"
    "only members|open relay|permission denied|permission to post|permits|policy|prohibited|rate limit|"
    "rate limited|rate that|recipient preferences|refused by|refused mail|refused to talk|rejected by|"
    "rejected due|rejected for|rejected your message|relay access denied|relay denied|relay not permitted|"
    "relay operation rejected|relaying denied|relaying is|relaying mail|relaying not|requires tls|restricted|"
    "rfc 2822|rfc 5321|rfc 5322|security|sender address|senderbase|sending limit|sending rate|"
    "starttls command first|starttls failed|starttls is required|starttls required|tls handshake|"
    "tls is required|tls negotiation|tls required|too many recipients|transaction failed: message|"
    "unable to relay|unacceptable|unverifiable|unverified|url|violates|volume|we do not relay|whitelist|"
    "won't accept";

constexpr std::string_view VagueHard =
    "all recipient addresses rejected|fatal error|invalid|invalid syntax|permanent error|permanent failure|"
    "permanent fatal|unknown address error|unknown error|unknown reason";

constexpr std::string_view VagueBlocked = "denied|refuse|refused|reject|rejected";

constexpr std::string_view VagueSoft =
    "connect to|connecting|delayed|dropped|full|insufficient|no longer accepting|not available|"
    "service unavailable|unavailable";

void Add(std::vector<CReplyPhrase>& phrases, std::string_view words, BounceClass bounceClass, ReplyWeight weight) {
    for (const std::string_view phrase : Split(words, '|'))
        phrases.push_back({phrase, bounceClass, weight});
}

}  // namespace

std::span<const CReplyPhrase> ReplyPhrases() {
    static const std::vector<CReplyPhrase> Phrases = [] {
        std::vector<CReplyPhrase> phrases;
        Add(phrases, ClearHard, BounceClass::Hard, ReplyWeight::Clear);
        Add(phrases, ClearSoft, BounceClass::Soft, ReplyWeight::Clear);
        Add(phrases, ClearBlocked, BounceClass::Blocked, ReplyWeight::Clear);
        Add(phrases, LikelyHard, BounceClass::Hard, ReplyWeight::Likely);
        Add(phrases, LikelySoft, BounceClass::Soft, ReplyWeight::Likely);
        Add(phrases, LikelyBlocked, BounceClass::Blocked, ReplyWeight::Likely);
        Add(phrases, VagueHard, BounceClass::Hard, ReplyWeight::Vague);
        Add(phrases, VagueSoft, BounceClass::Soft, ReplyWeight::Vague);
        Add(phrases, VagueBlocked, BounceClass::Blocked, ReplyWeight::Vague);
        std::stable_sort(phrases.begin(), phrases.end(),
                         [](const CReplyPhrase& a, const CReplyPhrase& b) { return a.words < b.words; });
        return phrases;
    }();
    return Phrases;
}
