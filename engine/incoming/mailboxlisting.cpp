#include "engine/incoming/mailboxlisting.h"

#include <algorithm>

void DropDoubledIds(std::vector<Net::Pop3Message>& messages) {
    std::vector<Net::Pop3Message*> sorted;
    for (Net::Pop3Message& message : messages)
        sorted.push_back(&message);
    const auto isLess = [](const Net::Pop3Message* a, const Net::Pop3Message* b) { return a->uid < b->uid; };
    std::sort(sorted.begin(), sorted.end(), isLess);
    for (auto at = sorted.begin(); at != sorted.end();) {
        const auto end = std::upper_bound(at, sorted.end(), *at, isLess);
        if (end - at > 1) std::for_each(at + 1, end, [](Net::Pop3Message* message) { message->uid.clear(); });
        if (end - at > 1) (*at)->uid.clear();
        at = end;
    }
}

bool AreSame(const Net::Pop3Message& a, const Net::Pop3Message& b) {
    return a.number == b.number && a.size == b.size && a.uid == b.uid;
}
