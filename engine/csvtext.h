// csvtext.h - writes cells of comma separated values (RFC 4180).
//
// Threads  Any.

#ifndef LISTHAVEN_ENGINE_CSVTEXT_H
#define LISTHAVEN_ENGINE_CSVTEXT_H

#include <string>
#include <string_view>

// In quotes only when the cell would be read differently without them.
void AppendCsvCell(std::string& text, std::string_view cell, char separator = ',');

#endif  // LISTHAVEN_ENGINE_CSVTEXT_H
