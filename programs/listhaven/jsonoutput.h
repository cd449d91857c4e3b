// jsonoutput.h - one JSON document on standard output.

#ifndef LISTHAVEN_PROGRAMS_LISTHAVEN_JSONOUTPUT_H
#define LISTHAVEN_PROGRAMS_LISTHAVEN_JSONOUTPUT_H

#include <boost/json.hpp>
#include <string>
#include <string_view>

// Bytes that are not valid UTF-8 are taken as Latin-1.
boost::json::string JsonText(std::string_view text);

// On one line.  What is harmful to a terminal is written as an escape.
std::string SerializedJson(const boost::json::value& document);

void PrintJson(const boost::json::value& document);

#endif  // LISTHAVEN_PROGRAMS_LISTHAVEN_JSONOUTPUT_H
