// systemdunit.h - what systemd is told of the service.

#ifndef LISTHAVEN_PLATFORM_POSIX_SYSTEMDUNIT_H
#define LISTHAVEN_PLATFORM_POSIX_SYSTEMDUNIT_H

#include <string>
#include <string_view>

#include "platform/service.h"

namespace Platform {

// One argument of a command line of a unit: quoted, and nothing in it expanded.
std::string QuoteForUnit(std::string_view argument);

// setup.account must be named.  Paths must be free of control characters.
std::string MakeUnit(const ServiceSetup& setup, const std::string& program);

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_POSIX_SYSTEMDUNIT_H
