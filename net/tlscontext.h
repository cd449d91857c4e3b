// tlscontext.h - what OpenSSL is told before a handshake, and what its verdict
// on a certificate is in words.  Seen by connection.cpp only.
//
// The certificates that are trusted are read once per file and process, and
// again when the file has changed.
//
// Errors   nullptr or false, with the reason in the text given.
// Threads  MakeTls() any.  An SSL object belongs to one at a time.
// Source   RFC 6125 (names), 6066 (server name indication).

#ifndef LISTHAVEN_NET_TLSCONTEXT_H
#define LISTHAVEN_NET_TLSCONTEXT_H

#include <openssl/ssl.h>

#include <string>

namespace Net {

// An object of its own for one connection to host (a name or an address), to
// be freed by the caller.  nullptr with the reason in error.  The handshake
// goes through with any certificate: ask CheckCertificate() before anything
// is said.
SSL* MakeTls(const std::string& caFile, const std::string& host, std::string& error);

// code: an error number of OpenSSL, from a handshake.
std::string DescribeHandshakeFailure(unsigned long code);

// After the handshake.  text is the subject when it passes, else why it does not.
bool CheckCertificate(SSL* ssl, const std::string& host, std::string& text);

}  // namespace Net

#endif  // LISTHAVEN_NET_TLSCONTEXT_H
