// normalizedtext.h - the form in which words are compared.
//
// The same reason comes as "Boîte pleine", "BOITE PLEINE" and, wrapped by
// transport, on two lines.
//
// Threads  Any.
// Cost     Linear in the text.

#ifndef LISTHAVEN_ENGINE_BOUNCES_NORMALIZEDTEXT_H
#define LISTHAVEN_ENGINE_BOUNCES_NORMALIZEDTEXT_H

#include <string>
#include <string_view>

// UTF-8: lower case (Latin, Cyrillic, Greek), Latin and Greek letters without accents, each run
// of white space one blank, none between Chinese or Japanese characters, words
// with an "@" left out: so "User <a@b>\n unknown" reads "user unknown".
// Bytes that are no UTF-8 stay.
std::string NormalizeReply(std::string_view text);

#endif  // LISTHAVEN_ENGINE_BOUNCES_NORMALIZEDTEXT_H
