// formattext.h - printf-style formatting into a string.

#ifndef LISTHAVEN_UTILITY_FORMATTEXT_H
#define LISTHAVEN_UTILITY_FORMATTEXT_H

#include <cstdarg>
#include <string>

#ifdef __GNUC__
#ifdef __MINGW32__
#define LHV_PRINTF(text, first) __attribute__((format(gnu_printf, text, first)))
#else
#define LHV_PRINTF(text, first) __attribute__((format(printf, text, first)))
#endif
#else
#define LHV_PRINTF(text, first)
#endif

std::string FormatText(const char* format, ...) LHV_PRINTF(1, 2);
std::string FormatTextV(const char* format, std::va_list arguments) LHV_PRINTF(1, 0);

#endif  // LISTHAVEN_UTILITY_FORMATTEXT_H
