// productname.h - what the product is called, and the names its processes share.

#ifndef LISTHAVEN_APP_PRODUCTNAME_H
#define LISTHAVEN_APP_PRODUCTNAME_H

#include <string_view>

inline constexpr std::string_view ProductName = "Vantorel Listhaven";
inline constexpr std::string_view CompanyName = "Vantorel";
inline constexpr const char* ProductVersion = "3.0";
inline constexpr const char* ProductBuild = "1";

// "Vantorel Listhaven 3.0.1"
constexpr std::string_view ProductVersionText() {
    return "Vantorel Listhaven 3.0.1";
}

inline constexpr std::string_view InstanceMutexName = "Vantorel.Listhaven.3.InstancePresent";
inline constexpr std::string_view ServerMutexName = "Vantorel.Listhaven.3.LhvServerInstancePresent";
inline constexpr std::string_view MainWindowClassName = "Vantorel.Listhaven.3.MainWndClassName";
inline constexpr std::string_view LogMutexName = "Vantorel.Listhaven.3.Log";
inline constexpr std::string_view FileMutexPrefix = "Vantorel.Listhaven.3.SSArray";             // and the file's path
inline constexpr std::string_view DeliveryLogMutexPrefix = "Vantorel.Listhaven.3.DeliveryLog";  // likewise

inline constexpr std::string_view NotificationMailslotName = "\\\\.\\mailslot\\VtrlLhv1";

#endif  // LISTHAVEN_APP_PRODUCTNAME_H
