#include "platform/posix/systemdunit.h"

#include <array>

namespace Platform {

namespace {

// The server ends within ten seconds.  A start may have a crash to repair.  An
// error that stays is tried again for ever: mail must flow when it has gone.
// Group ownership is part of a file's replacement, therefore @chown.
constexpr std::string_view Restrictions = R"(Type=notify
NotifyAccess=main
Restart=on-failure
RestartSec=10
RestartPreventExitStatus=2
TimeoutStartSec=10min
TimeoutStopSec=30
WatchdogSec=10min

UMask=0007
NoNewPrivileges=yes
CapabilityBoundingSet=
AmbientCapabilities=
ProtectSystem=strict
PrivateTmp=yes
PrivateDevices=yes
DevicePolicy=closed
ProtectClock=yes
ProtectControlGroups=yes
ProtectHostname=yes
ProtectKernelLogs=yes
ProtectKernelModules=yes
ProtectKernelTunables=yes
ProtectProc=invisible
ProcSubset=pid
RestrictAddressFamilies=AF_UNIX AF_INET AF_INET6
RestrictNamespaces=yes
RestrictRealtime=yes
RestrictSUIDSGID=yes
RemoveIPC=yes
LockPersonality=yes
MemoryDenyWriteExecute=yes
SystemCallArchitectures=native
SystemCallFilter=@system-service
SystemCallFilter=~@privileged @resources
SystemCallFilter=@chown
SystemCallErrorNumber=EPERM
)";

bool IsBelow(std::string_view path, std::string_view folder) {
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

// What PrivateTmp and ProtectHome take out of sight.
bool IsHidden(std::string_view path) {
    for (const std::string_view folder : {"/home", "/root", "/run/user", "/tmp", "/var/tmp"})
        if (IsBelow(path, folder)) return true;
    return false;
}

std::string Escape(std::string_view text, std::string_view backslashed) {
    std::string result;
    for (const char c : text) {
        if (backslashed.find(c) != std::string_view::npos) result += '\\';
        if (c == '%') result += '%';  // "%" begins a specifier
        result += c;
    }
    return result;
}

std::string QuotePath(std::string_view path) {
    return '"' + Escape(path, "\\\"") + '"';
}

std::string OneLine(std::string_view text) {
    std::string line(text);
    for (char& c : line)
        if (c == '\n' || c == '\r') c = ' ';
    return Escape(line, "");
}

}  // namespace

std::string QuoteForUnit(std::string_view argument) {
    std::string result = "\"";
    for (const char c : Escape(argument, "\\\"")) {
        if (c == '$') result += '$';  // "$" begins a variable
        result += c;
    }
    return result + '"';
}

std::string MakeUnit(const ServiceSetup& setup, const std::string& program) {
    std::string unit =
        "# Written by \"" + OneLine(program) + " install\"; \"systemctl edit\" makes changes that stay.\n";
    unit += "[Unit]\nDescription=" + OneLine(setup.description) + "\n";
    unit += "Wants=network-online.target\nAfter=network-online.target nss-lookup.target\nStartLimitIntervalSec=0\n\n";
    unit += "[Service]\nUser=" + OneLine(setup.account) + "\nExecStart=" + QuotePath(program);  // no variables there
    for (const std::string& argument : setup.arguments)
        unit += ' ' + QuoteForUnit(argument);
    unit += '\n';
    unit += Restrictions;
    const bool isHidden = IsHidden(setup.dataFolder) || IsHidden(program);
    unit += isHidden ? "ProtectHome=tmpfs\n" : "ProtectHome=yes\n";
    if (IsHidden(program)) unit += "BindReadOnlyPaths=" + QuotePath(program) + '\n';
    if (IsHidden(setup.dataFolder)) unit += "BindPaths=" + QuotePath(setup.dataFolder) + '\n';
    unit += "ReadWritePaths=" + QuotePath(setup.dataFolder) + "\n\n[Install]\nWantedBy=multi-user.target\n";
    return unit;
}

}  // namespace Platform
