// literaltext.h - texts that are expanded for each copy, and hold references that
// are to stay as they stand.
//
// The "$(" of such a reference is written as a reference itself, to a field whose
// value is "$(".  So the text can ride in a message file and through all that
// expands it, and the patterns of copypattern.h serve it as any other one.
//
// Threads  As datafields.h.

#ifndef LISTHAVEN_ENGINE_LITERALTEXT_H
#define LISTHAVEN_ENGINE_LITERALTEXT_H

#include <functional>
#include <string>
#include <string_view>

// Every "$(" but those of references to fields that isKept says are to be expanded.
std::string LiteralText(std::string_view text, const std::function<bool(std::string_view name)>& isKept = {});

// The text as it was, for people.
std::string ReadableText(std::string_view literalText);

void SetLiteralTextField();  // for the texts made above; broadcasts set it

#endif  // LISTHAVEN_ENGINE_LITERALTEXT_H
