// The other process of the tests: does what its arguments say, COMMAND FOLDER ...,
// says that it got there by a file "ready" in the folder, and stays.

#include <cstdio>
#include <string>
#include <vector>

#include "platform/childprocess.h"
#include "platform/clock.h"
#include "platform/file.h"
#include "platform/mailslot.h"
#include "platform/namedmutex.h"
#include "platform/process.h"
#include "platform/profilefile.h"
#include "platform/systemclaim.h"
#include "temporaryfolder.h"

using namespace Platform;

namespace {

int Stay(const std::string& folder, const std::string& file = "ready") {
    Put(folder + "/" + file, "");
    for (;;)
        SleepMilliseconds(60'000);
}

int HoldMutex(const std::string& folder) {
    CNamedMutex mutex("m");
    mutex.Lock();
    return Stay(folder);
}

int HoldMutexInChild(const std::string& folder, const std::string& program) {
    CChildProcess child;
    return child.Start(program, {"mutex", folder}) ? Stay(folder, "started") : 1;
}

int HoldPresence(const std::string& folder) {
    CPresence presence;
    return presence.Acquire("p") == CPresence::Result::Acquired ? Stay(folder) : 1;
}

int HoldMailslot(const std::string& folder) {
    CMailslot slot;
    return slot.Create("\\\\.\\mailslot\\log") ? Stay(folder) : 1;
}

int HoldClaim(const std::string& folder) {
    CSystemClaim claim;
    return claim.Take(folder + "/claim") == CSystemClaim::Result::Taken ? Stay(folder) : 1;
}

// Adds one under the mutex, by reading and writing again.
int Count(const std::string& folder, const std::string& name, int times) {
    SetFlushEnabled(false);
    CFile file;
    bool good = file.Open(folder + "/counter", FileMode::ReadWrite);
    for (int time = 0; good && time < times; ++time) {
        CNamedMutex mutex("counter");
        mutex.Lock();
        unsigned char bytes[2];
        good = file.ReadAt(0, bytes, 2);
        const int sum = bytes[0] + 256 * bytes[1] + 1;
        bytes[0] = static_cast<unsigned char>(sum % 256);
        bytes[1] = static_cast<unsigned char>(sum / 256);
        good = good && file.WriteAt(0, bytes, 2);
        mutex.Unlock();
        good = good && WriteProfileText(folder + "/p.ini", "S", name + std::to_string(time), "x");
    }
    return good ? 0 : 1;
}

int NoticeStop(const std::string& folder) {
    CatchStopSignals();
    Put(folder + "/ready", "");
    while (!StopSignalled())
        SleepMilliseconds(2);
    return Stay(folder, "stopped");
}

int Print(const std::vector<std::string>& texts) {
    std::printf("%s\n", EnvironmentValue("LISTHAVEN_TEST").value_or("none").c_str());
    for (const std::string& text : texts)
        std::printf("[%s]\n", text.c_str());
    std::fputs("errors\n", stderr);
    return 3;
}

// In January and July 2024 at 12:00 UTC: bias, local time, daylight saving time.
int PrintZone() {
    for (const std::int64_t time : {1'705'320'000, 1'721'044'800}) {
        const std::tm local = LocalTime(time);
        std::printf("%d %02d:%02d %d, ", TimeZoneBias(time), local.tm_hour, local.tm_min, local.tm_isdst);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    PrepareProcess(argc, argv);
    if (argc < 3) return 2;
    const std::string command = argv[1];
    const std::string folder = argv[2];
    const std::vector<std::string> further(argv + 3, argv + argc);
    SetNamedObjectFolder(folder + "/locks", folder + "/slots", NamedObjectScope::Folder);
    if (command == "mutex") return HoldMutex(folder);
    if (command == "child" && further.size() == 1) return HoldMutexInChild(folder, further[0]);
    if (command == "presence") return HoldPresence(folder);
    if (command == "mailslot") return HoldMailslot(folder);
    if (command == "claim") return HoldClaim(folder);
    if (command == "count" && further.size() == 2) return Count(folder, further[0], std::stoi(further[1]));
    if (command == "stop") return NoticeStop(folder);
    if (command == "print") return Print(further);
    if (command == "zone") return PrintZone();
    if (command == "stay") return Stay(folder);
    return 2;
}
