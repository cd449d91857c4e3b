// contenthash.h - SHA-256 of a text, as 64 hexadecimal digits.

#ifndef LISTHAVEN_PROGRAMS_LISTHAVEN_CONTENTHASH_H
#define LISTHAVEN_PROGRAMS_LISTHAVEN_CONTENTHASH_H

#include <string>
#include <string_view>

std::string Sha256Hex(std::string_view bytes);

#endif  // LISTHAVEN_PROGRAMS_LISTHAVEN_CONTENTHASH_H
