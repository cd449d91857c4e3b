// mailbox.h - names with addresses, as address header fields hold them.
//
// Errors   Nothing fails and nothing throws but std::bad_alloc.
// Threads  Any.
// Source   RFC 5322, 3.4 and 4.4; RFC 5321, 4.1.2, 4.1.3 and 4.5.3.1; RFC 6531, 3.3.

#ifndef LISTHAVEN_MIME_MAILBOX_H
#define LISTHAVEN_MIME_MAILBOX_H

#include <string>
#include <string_view>
#include <vector>

struct CMailbox {
    std::string displayName;  // without quotes; "" when there is none
    std::string address;      // as written: not checked, not in lower case

    bool operator==(const CMailbox&) const = default;
};

// The mailboxes of a From, To, Cc ... value in order; members of groups among
// them, routes dropped, "Name" of "address (Name)" as the display name.
// Lenient: semicolons separate too, closing quotes and brackets may be missing,
// a name may hold an unquoted comma as long as no address stands before it
// ("Berg, Anna <a@b>").  An element without "@" and without "<" is not an
// address and is dropped.  Linear in the length.
//
// Encoded words are not decoded.  A value that was decoded before can hold
// separators that the sender had hidden in a word: where it decides who gets a
// message, parse the value as stored and decode the display names afterwards.
std::vector<CMailbox> ParseMailboxes(std::string_view headerValue);

// "\"Name\" <address>", or the address alone without a name.  No CR, LF or NUL
// gets through.
std::string FormatMailbox(const CMailbox& mailbox);

// Whether mail to it can be tried: LOCAL@DOMAIN of at most 128 bytes, LOCAL (at
// most 64) a dot-atom or a quoted string, DOMAIN host name labels (one is
// enough, underscores do occur) or an address literal; letters beyond ASCII as UTF-8.  No comments,
// no blanks around it.  reason (if given) is one sentence when it cannot.
bool IsPlausibleAddress(std::string_view address, std::string* reason = nullptr);

#endif  // LISTHAVEN_MIME_MAILBOX_H
