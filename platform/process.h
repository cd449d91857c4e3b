// process.h - this process: its threads, terminal, environment, stop signals.

#ifndef LISTHAVEN_PLATFORM_PROCESS_H
#define LISTHAVEN_PLATFORM_PROCESS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Platform {

using ThreadId = std::uint32_t;

ThreadId CurrentThreadId() noexcept;  // of the system; not reused while the thread lives
std::uint32_t CurrentProcessId() noexcept;

std::optional<std::string> EnvironmentValue(std::string_view name);

bool ErrorOutputIsTerminal() noexcept;
std::size_t ErrorOutputColumns() noexcept;  // of that terminal; 80 when it does not say
bool InputIsTerminal() noexcept;

// Writes out what was printed to the standard output.  ReaderGone: the program that
// it goes to has ended, or the terminal.  Failed: it is lost, now or earlier.
enum class OutputState { Written, ReaderGone, Failed };
OutputState FlushOutput() noexcept;

// From then on Ctrl-C, a request to end the process and the closing of its
// terminal only set a flag.  A second Ctrl-C ends the process.
void CatchStopSignals();
bool StopSignalled() noexcept;
void SignalStop() noexcept;  // sets that flag: for a service manager's request

// To be called first.  Creates nothing that others may read from here on, and
// writes output bytes as they are, to no file that is opened later.  Arguments become UTF-8 where they are not.
void PrepareProcess(int argumentCount = 0, char** arguments = nullptr);

// For a process that lives long, before its second thread begins: all threads
// get memory from one place, so that what is free can go back as a whole.
void KeepMemoryTogether() noexcept;
void ReturnFreeMemory() noexcept;  // to the system, where that does not happen by itself
std::uint64_t ResidentMemory();    // bytes; 0 when the system does not tell
std::size_t OpenFileLimit();       // files, connections and the like that this process may have open

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_PROCESS_H
