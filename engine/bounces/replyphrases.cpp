#include "engine/bounces/replyphrases.h"

#include <vector>

#include "engine/bounces/localphrases.h"
#include "utility/text.h"

namespace {

// Phrases with a bar between them.

// The address or its host will never take mail.
constexpr std::string_view ClearHard =
    "account canceled|account cancelled|account closed|account does not exist|account doesn't exist|"
    "account has been closed|account has been deleted|account has been removed|account is closed|"
    "account is unknown|account not found|account removed|account terminated|address does not exist|"
    "address doesn't exist|address has been changed|address has changed|address is invalid|address is no longer|"
    "address is not known|address is not valid|address is unknown|address no longer|address not found|"
    "address not known|address unknown|addressee unknown|addresses unknown|bad address|bad destination mailbox|"
    "bad rcpt|bad recipient|can't find user|cannot find user|could not find user|couldn't be found|"
    "couldn't find any host|dd this user doesn't have|deleted user|delivery to this address is no longer|"
    "destination mailbox address does not exist|dns hard error|does not accept email|does not accept mail|"
    "does not have a mailbox|does not have an account|does not like recipient|does not receive email|"
    "does not receive mail|doesn't accept email|doesn't accept mail|doesn't have an account|"
    "domain couldn't be found|domain does not exist|domain doesn't exist|domain is invalid|domain is not known|"
    "domain is not reachable|domain is not valid|domain name not found|domain not found|domain not recognized|"
    "domain unknown|email account does not exist|email account no longer|email address could not be found|"
    "email address does not exist|email address is not valid|empfaenger unbekannt|exrecipnotfound|"
    "has been cancelled|has been terminated|has left our|has left the|has moved to|has no mailbox|"
    "host does not exist|host not found|host or domain name not found|host unknown|illegal alias|illegal host|"
    "illegal user|inactive recipient|incorrect address|indicated no smtp service|invalid address|"
    "invalid addressee|invalid domain|invalid email|invalid host|invalid local part|invalid mailbox|invalid rcpt|"
    "invalid recipient|invalid subscriber|invalid user|is no longer at|is no longer valid|is no longer with|"
    "is not a known user|is not a registered|is not a valid mailbox|is not a valid recipient|is not a valid user|"
    "is not known here|is not known to|is not listed|is not recognized|is not registered|is not valid recipient|"
    "is unknown here|left the company|left the organization|mail address is wrong|mail address not found|"
    "mail receiving disabled|mailbox deleted|mailbox does not exist|mailbox doesn't exist|"
    "mailbox has been deleted|mailbox has been removed|mailbox has moved|mailbox is invalid|mailbox is unknown|"
    "mailbox name not allowed|mailbox no longer|mailbox not exist|mailbox not found|mailbox removed|"
    "mailbox terminated|mailbox unknown|name does not exist|name is not recognized|name not found|"
    "name not recognized|new address is|no account by|no account by this name|no dns records|no email address|"
    "no forwarding information|no hosts could be contacted by|no local user|no longer a customer|"
    "no longer accepts mail|no longer active|no longer available|no longer employed|no longer exists|"
    "no longer in service|no longer in use|no longer on server|no longer valid|no longer works|"
    "no mailbox by that name|no mailbox found|no mailbox here|no matches to nameserver query|"
    "no matching directory entry|no mx or a records|no mx record|no one here by|no recipient|no recipients found|"
    "no record of|no relevant answers|no such account|no such address|no such addressee|no such alias|"
    "no such customer|no such destination|no such domain|no such email|no such host|no such local user|"
    "no such mail|no such mailbox|no such name|no such people|no such person|no such recipient|"
    "no such subscriber|no such user|no such virtual user|no user by|no user found|no users here|"
    "no valid address|no valid host|no valid recipient|no valid recipients|nobody by that name|non existent|"
    "non-existent|non-existing|nonexistent|not a customer|not a known|not a registered|not a valid address|"
    "not a valid mailbox|not a valid recipient|not a valid user|not an active|not appear to be a valid|"
    "not exists|not found by smtp address lookup|not found in directory|not found in domino|not hosted here|"
    "not hosted on|not in a serviced domain|not known at|not known at this site|not known in|not listed in|"
    "not local|not our customer|not our user|not registered|null mx|nullmx|nxdomain|permanently deactivated|"
    "permanently moved|please update your address book|recipient address is|recipient could not be found|"
    "recipient does not exist|recipient doesn't exist|recipient has moved|recipient is invalid|"
    "recipient no longer|recipient not exist|recipient not found|recipient not known|recipient not recognized|"
    "recipient unknown|recipientnotfound|recipients address is invalid|recipnotfound|rejected: access denied|"
    "subscriber does not exist|subscriber not found|subscriber unknown|there is no such|this address no longer|"
    "unable to find recipient|unable to validate recipient|undefined user|undeliverable address|unknown account|"
    "unknown address|unknown addressee|unknown alias|unknown customer|unknown destination|unknown domain|"
    "unknown e-mail|unknown email|unknown host|unknown local|unknown mail user|unknown mailbox|"
    "unknown or illegal|unknown or invalid|unknown rcpt|unknown recipient|unknown subscriber|unknown to address|"
    "unknown user|unknown virtual|unroutable|unrouteable|user account does not exist|user account is unavailable|"
    "user deleted|user does not exist|user doesn't exist|user doesn't have|user has been deleted|user has left|"
    "user has moved|user invalid|user is not found|user is unknown|user moved|user no longer|user not exist|"
    "user not found|user not known|user not local|user unknown|wasn't found at|wrong address|wrong recipient|"
    "mailbox has been closed|mailbox closed|mailbox is closed|permanently closed|closed permanently|"
    "account has been terminated|no longer has an account|nobody called|not know anybody|no such employee|"
    "no account for|no account with|user is gone|does not work here|no dns entry|not in local recipient|"
    "has no account|may not exist|there is no mailbox|there is no account|there is no user|there is nobody|"
    "there is no one|no mailbox at|no user called|no user named";

// The address may be right; something was in the way.
constexpr std::string_view ClearSoft =
    "account deactivated|account disabled|account expired|account frozen|account full|"
    "account has been deactivated|account has been disabled|account has been locked|account has been suspended|"
    "account has expired|account inactive|account is deactivated|account is disabled|account is expired|"
    "account is full|account is inactive|account is locked|account is not active|account is over|"
    "account is suspended|account is temporarily|account locked|account suspended|"
    "account that you tried to reach is disabled|account that you tried to reach is inactive|"
    "account that you tried to reach is over quota|at its limit|been in the queue|box is full|cannot reach|"
    "closed connection|closed the connection|connect timed out|connection aborted|connection dropped|"
    "connection failed|connection failure|connection lost|connection refused|connection reset|"
    "connection timed out|connection was dropped|could not be contacted|could not connect to|"
    "could not find a gateway|could not reach the|couldn't connect to|delivery expired|delivery loop|"
    "delivery time expired|delivery timed out|did not accept our requests to connect|disk full|disk is full|"
    "disk quota|disk space|dns failure|dns server failure|dns timeout|does not have enough space|envelope expired|"
    "exceed the quota|exceeded its maximum|exceeded its quota|exceeded its storage|exceeded quota|"
    "exceeded storage|exceeded the allowed|exceeded the maximum|exceeded the quota|exceeded the space|"
    "exceeded the storage|exceeded their quota|exceeded their storage|exceeding its mailbox quota|"
    "exceeds allowed message count|exceeds quota|exceeds the quota|excessive recursion|file system full|"
    "filesystem is full|forwarding loop|full inbox|full mail box|full mailbox|gave up after|given up after|"
    "has been frozen|has reached its|has too many messages|hop count exceeded|host down|host is down|"
    "host is unreachable|host name lookup failure|host unreachable|in queue too long|in the queue too long|"
    "inbox is full|input/output error|insufficient disk|insufficient mail storage|insufficient space|"
    "insufficient storage|insufficient system|is at capacity|is full|loop count|loop detected|"
    "loops back to myself|lost connection|mail box full|mail loop|mail quota|mail system full|mailbox deactivated|"
    "mailbox disabled|mailbox exceeds|mailbox expired|mailbox for user is full|mailbox full|mailbox has exceeded|"
    "mailbox is deactivated|mailbox is disabled|mailbox is frozen|mailbox is full|mailbox is inactive|"
    "mailbox is over|mailbox is suspended|mailbox is too large|mailbox locked|mailbox over|mailbox quota|"
    "mailbox size is over|mailbox size limit|mailbox storage|mailbox suspended|mailbox usage|mailbox would exceed|"
    "maildir over|mailfolder is full|maximum capacity|maximum hop|maximum queue|maximum time exceeded|"
    "message expired|message has expired|message in queue|message timed out|name server: |network error|"
    "network is unreachable|network unreachable|no answer from|no more space|no response from|no route to host|"
    "no space left|not delivered within|not enough disk|not enough room|not enough space|not enough storage|"
    "not reachable|not responding|operation timed out|out of disk|out of memory|out of space|out of storage|"
    "over capacity|over disk|over its limit|over its quota|over quota|over size limit|over the allowed quota|"
    "over the limit|over the maximum|over the quota|over the size|over their quota|overquota|pipe broken|"
    "queue lifetime|queue too long|quota exceeded|quota full|quota has|quota has been|quota limit|quota usage|"
    "quota violation|quotaexceeded|reached its limit|reached its maximum|reached its quota|reached the limit|"
    "reached the maximum|recipient reached disk quota|recipient storage full|recipsizelimit|retry time exceeded|"
    "retry time not reached|retry timeout exceeded|routing loop|server is down|server not responding|space limit|"
    "space shortage|stopped trying|storage capacity|storage limit|storage quota|storage space|storespace|"
    "system is full|temporary dns|temporary lookup failure|timed out while|too many forwards|too many hops|"
    "too many received|too many recursive|too much mail|unable to contact|undelivered for too long|"
    "user account is disabled|user has exhausted|user has too many messages|user is disabled|user is inactive|"
    "user is over|user is suspended|user mailbox is|user over|user over quota|user suspended|voll|"
    "would be over quota|would exceed quota";

// The receiving side refused the sender, his server or the content.
constexpr std::string_view ClearBlocked =
    "access denied, banned|attachment blocked|authentication checks|authentication failed|"
    "authentication required|authrequired|backscatter|bad content|bad helo|bad reputation|bad sender|"
    "banned sending ip|black list|blacklist|blacklisted|block list|block-listed|blocked attachment|"
    "blocked because|blocked by|blocked due|blocked for|blocked sender|blocked senders|blocked using|blocklist|"
    "blocklisted|bounce attack|bulk e-mail|bulk mail|callback verification|client host blocked|"
    "client host rejected|con:b|contains a virus|contains an attachment|content denied|content filter|"
    "content filtering|content policy|content refused|content rejected|daily relay|daily sending|deny list|"
    "denylist|dial-up|dkim|dmarc|dnsbl|dnsrbl|do not accept mail from|does not accept mail from|"
    "does not accept messages from|does not have a ptr|doesn't accept mail from|domain of sender|"
    "domain reputation|dyn:t|dynamic address|dynamic ip|email address is not verified|emails per hour|"
    "envelope sender|excessive spam|failed authentication|fails authentication|fix reverse dns|forged|"
    "frequency limited|from your host|from your ip|from your network|from your server|helo command rejected|"
    "helo name|host network not allowed|hvu:b|impersonat|inappropriate content|infected|invalid sender|"
    "ip address blacklisted|ip address sending this message does not have|ip reputation|is blacklisted|"
    "is blocked|is listed by|is listed in|junk|listed by|listed in rbl|listed on|local policy|low reputation|"
    "mail content|mail is blocked|mails per hour|malware|max defers|message blocked|message content rejected|"
    "message has been blocked|message was blocked|message was refused|messages per hour|missing ptr|no ptr|"
    "not accept messages from|not allowed to send|not authorized to relay|not authorized to send|"
    "not permitted to send|notauthorized|only accepts mail from|only accepts messages from|our blacklist|"
    "outgoing messages|phishing|policy reasons|policy rejection|policy violation|poor reputation|"
    "potential security issue|prohibited content|ptr record|quarantined|rbl|rdns|real-time blackhole|"
    "refused by spam|region is blocked|relay quota|reputation|residential|reverse dns|rly:b|rtr:b|"
    "security policy|sender address does not|sender address does not exist|sender address rejected|"
    "sender address verification|sender blocked|sender denied|sender domain|sender id|sender is blocked|"
    "sender is denied|sender is unauthenticated|sender not allowed|sender not authenticated|sender policy|"
    "sender refused|sender rejected|sender verification|sender verify failed|sender was rejected|"
    "sendernotauthenticated|senders are allowed|sending quota|sending rate|sent to too many recipients|"
    "signature verification failed|slow down|spam|spam-like|spamcop|spamhaus|spammer|spf|spf check|spoof|"
    "suspected bounce|suspicious|too many bad|too many emails|too many invalid|too many messages|"
    "too many recipients this hour|too many unknown|trojan|ube|uce|unable to verify sender|unauthenticated|"
    "unauthenticated email|undesirable|unresolvable sender|unsolicited|unusual rate|unwanted|"
    "use the smtp server of your isp|user complaints|virus|was blocked|weren't sent|you are not allowed|"
    "you have been blocked|you're not authorized|your ip|sender score|sender reputation|dns ptr|ptr resource|"
    "ptr lookup";

constexpr std::string_view LikelyHard =
    "account is invalid|address couldn't be found|address invalid|address rejected|cannot be found|"
    "could not be found|could not be resolved|does not exist|doesn't exist|has rejected address|"
    "mailbox is currently unavailable|mailbox is unavailable|mailbox not available|mailbox unavailable|"
    "ne peut pas recevoir|no address|no such|noconnector|not accepting mail for|not allowed to receive|"
    "not deliverable to|not exist|not found|not known|not recognized|not unique|permanently rejected|"
    "recipient address rejected|recipient refused|recipient rejected|rejected address|unable to lookup|unknown|"
    "user disabled|user inactive";

constexpr std::string_view LikelySoft =
    "bad dns|busy|cannot allocate|cannot connect|cannot update mailbox|command died|configuration error|"
    "congestion|connection|connection closed|connection limit|connection rate limit|connections from|"
    "could not initiate|couldn't create|deactivated|deferral|deferred|device error|dns error|dormant|"
    "error writing|exceeded|exceeds|expired|failed to connect|failing for a long time|frozen|graylisted|"
    "greylisted|greylisting|has been disabled|has been suspended|has exceeded|has timed out|i/o error|inactivity|"
    "internal error|internal server error|is currently suspended|is disabled|length exceeds|limit exceeded|"
    "limit reached|load too high|local error|lock failure|locked|lookup failure|mail server temporarily|"
    "mailbox is locked|maintenance|malformed address|message exceeds|message is too large|message length|"
    "message size|message too big|message too large|message too long|name server timeout|no connection|"
    "not accepting email|not accepting mail|not accepting messages|not receiving mail|over limit|overloaded|"
    "queue file|quota|resources|retry later|server error|server failure|servfail|service temporarily|size limit|"
    "socket error|software error|suspended|system error|temporarily|temporarily rejected|temporarily unavailable|"
    "temporary|temporary error|temporary failure|time out|timed out|timeout|too big|too busy|too large|"
    "too many concurrent|too many connections|too many errors|too many sessions|try again|try later|"
    "unable to connect|unable to establish|undeliverable after|unexpected error|unreachable|unrecoverable error|"
    "write error";

constexpr std::string_view LikelyBlocked =
    "abuse|access denied|access rejected|acl|address has been blocked|administrative prohibition|"
    "administratively|anti-spam|antispam|attachment type|attachments of|authentication|banned|bare cr|bare lf|"
    "blocked|can't verify|cannot be accepted|certificate|client host|client ip|complaint|complaints|daily limit|"
    "denied by|denied due to|disallowed|dns blocked|does not resolve|failed starttls|failed to authenticate|"
    "filtered|forbidden|from header|header error|headers contain|headers too large|hourly limit|"
    "illegal attachment|infringes|invalid helo|is not permitted|line length|line too long|listed at|mail relay|"
    "members only|message headers|message refused|message rejected|messages from|mismatches|"
    "multiple addresses in from|multiple subject headers|must authenticate|must issue a starttls|no relaying|"
    "non-member|non-members|not a member|not accept mail from|not accept your message|not accepted|"
    "not accepting mail from|not accepting messages from|not allowed|not allowed to post|not authorised|"
    "not authorized|not in my list of allowed|not permitted|not rfc|not trusted|not verified|only members|"
    "open relay|permission denied|permission to post|permits|policy|privilege|privileges|prohibited|quarantine|"
    "rate limit|rate limited|rate that|recipient preferences|refused by|refused due|refused for|refused mail|"
    "refused to talk|rejected by|rejected due|rejected for|rejected your message|relay access denied|"
    "relay denied|relay not permitted|relay operation rejected|relaying denied|relaying is|relaying mail|"
    "relaying not|requires tls|restricted|rfc 2822|rfc 5321|rfc 5322|security|sender address|senderbase|"
    "sending limit|starttls command first|starttls failed|starttls is required|starttls required|"
    "subscribers only|throttl|tls|tls handshake|tls is required|tls negotiation|tls required|too many recipients|"
    "transaction failed: message|unable to relay|unacceptable|untrusted|unverifiable|unverified|url|violates|"
    "volume|we do not relay|whitelist|won't accept|permanently rejected message|message permanently rejected";

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
        for (const CPhraseTable& table : LocalPhrases())
            Add(phrases, table.words, table.bounceClass, table.weight);
        return phrases;
    }();
    return Phrases;
}
