#include "programs/listhaven/jsonoutput.h"

#include <cstdio>
#include <string>

#include "utility/text.h"

boost::json::string JsonText(std::string_view text) {
    if (IsValidUtf8(text)) return boost::json::string(text);
    return boost::json::string(Latin1ToUtf8(text));
}

void PrintJson(const boost::json::value& document) {
    const std::string text = boost::json::serialize(document) + "\n";
    std::fwrite(text.data(), 1, text.size(), stdout);
}
