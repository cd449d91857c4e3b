// commandline.h - the command line: groups of commands, and what each of them takes.
//
// A thin face of the library that reads the command line: its headers cost each
// file that includes them several seconds of compile time.  CCommand and COption
// are handles, valid as long as the CCommandLine they come from.

#ifndef LISTHAVEN_PROGRAMS_LISTHAVEN_COMMANDLINE_H
#define LISTHAVEN_PROGRAMS_LISTHAVEN_COMMANDLINE_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace CLI {
class App;
class Option;
}  // namespace CLI

class COption {
public:
    explicit COption(CLI::Option* option) : m_option(option) {}

    COption Required();
    COption NamesValue(const std::string& name);  // what help calls the value
    COption ShowsDefault();                       // what the variable holds already
    COption Within(std::int64_t least, std::int64_t most);
    COption OneEachTime();  // may be given several times, with one value each
    COption Excludes(COption other);

private:
    CLI::Option* m_option;
};

class CCommand {
public:
    explicit CCommand(CLI::App* command) : m_command(command) {}

    CCommand AddCommand(const std::string& name, const std::string& meaning);
    CCommand GetGroup(const std::string& name) const;  // one added before
    void RequireCommand();                             // exactly one of those below it
    void AllowCommand();                               // one of those below it, or none
    bool IsCommandGiven() const;                       // one of those below it

    // For std::string, one that may be missing, std::vector<std::string>, and whole numbers in
    // int, std::int64_t, std::uint32_t and std::size_t, written in digits only.  A NAME without dashes is given by its
    // position.
    template <class T>
    COption AddOption(const std::string& name, T& variable, const std::string& meaning = {});
    COption AddOption(const std::string& name, const std::function<void(const std::string&)>& take,
                      const std::string& meaning);
    COption AddFlag(const std::string& name, bool& variable, const std::string& meaning = {});

    // What the command does, once the whole line has been read.
    void OnRun(const std::function<void()>& run);

private:
    CLI::App* m_command;
};

class CCommandLine {
public:
    CCommandLine(const std::string& program, const std::string& meaning, const std::string& version);
    ~CCommandLine();
    CCommandLine(const CCommandLine&) = delete;
    CCommandLine& operator=(const CCommandLine&) = delete;

    CCommand GetRoot();

    // An option of the program itself, taken before any command runs.
    COption AddEarlyOption(const std::string& name, const std::function<void(const std::string&)>& take,
                           const std::string& meaning);

    // Reads the line and runs the command; help and version are printed.  False and what is
    // wrong when the line is none; what a command throws passes through.
    bool Run(int argc, char** argv, std::string& fault);

private:
    std::unique_ptr<CLI::App> m_app;
};

#endif  // LISTHAVEN_PROGRAMS_LISTHAVEN_COMMANDLINE_H
