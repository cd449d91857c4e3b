#include "programs/listhaven/commandline.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <limits>
#include <optional>
#include <type_traits>
#include <vector>

#include "utility/text.h"

namespace {

// The library takes 010 for 8, -1 for a very large number and nothing for 0.
CLI::Validator WholeNumber(std::uint64_t most) {
    const auto check = [most](std::string& text) -> std::string {
        if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos)
            return "\"" + text + "\" is no whole number";
        text.erase(0, std::min(text.find_first_not_of('0'), text.size() - 1));
        const auto number = ParseNumber(text);
        const bool fits = number && static_cast<std::uint64_t>(*number) <= most;
        return fits ? std::string() : text + " is too large";
    };
    return CLI::Validator(check, std::string());
}

std::string DescribeUnknown(const std::vector<std::string>& unknown, const char* otherwise) {
    if (unknown.empty()) return otherwise;
    const std::string& first = unknown.front();
    if (!first.starts_with('-')) return "there is no command \"" + first + "\"";
    return "there is no option \"" + first + "\"; a value that begins with \"-\" is given behind \"--\"";
}

}  // namespace

COption COption::Required() {
    m_option->required();
    return *this;
}

COption COption::NamesValue(const std::string& name) {
    m_option->type_name(name);
    return *this;
}

COption COption::ShowsDefault() {
    m_option->capture_default_str();
    return *this;
}

COption COption::Within(std::int64_t least, std::int64_t most) {
    m_option->check(CLI::Range(least, most));
    return *this;
}

COption COption::OneEachTime() {
    m_option->expected(1)->allow_extra_args(false);  // else "[a,b]" would be two
    m_option->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    return *this;
}

COption COption::Excludes(COption other) {
    m_option->excludes(other.m_option);
    return *this;
}

CCommand CCommand::AddCommand(const std::string& name, const std::string& meaning) {
    return CCommand(m_command->add_subcommand(name, meaning));
}

CCommand CCommand::GetGroup(const std::string& name) const {
    return CCommand(m_command->get_subcommand(name));
}

void CCommand::RequireCommand() {
    m_command->require_subcommand(1);
}

void CCommand::AllowCommand() {
    m_command->require_subcommand(0, 1);
}

bool CCommand::IsCommandGiven() const {
    return !m_command->get_subcommands().empty();
}

template <class T>
COption CCommand::AddOption(const std::string& name, T& variable, const std::string& meaning) {
    CLI::Option* const option = m_command->add_option(name, variable, meaning);
    if constexpr (std::is_integral_v<T>) option->transform(WholeNumber(std::uint64_t{std::numeric_limits<T>::max()}));
    return COption(option);
}

// An empty text is a text.
template <>
COption CCommand::AddOption(const std::string& name, std::optional<std::string>& variable, const std::string& meaning) {
    return AddOption(
        name, [&variable](const std::string& text) { variable = text; }, meaning);
}

template COption CCommand::AddOption(const std::string&, std::string&, const std::string&);
template COption CCommand::AddOption(const std::string&, std::vector<std::string>&, const std::string&);
template COption CCommand::AddOption(const std::string&, int&, const std::string&);
template COption CCommand::AddOption(const std::string&, std::int64_t&, const std::string&);
template COption CCommand::AddOption(const std::string&, std::uint32_t&, const std::string&);
template COption CCommand::AddOption(const std::string&, std::size_t&, const std::string&);

COption CCommand::AddOption(const std::string& name, const std::function<void(const std::string&)>& take,
                            const std::string& meaning) {
    return COption(m_command->add_option_function<std::string>(name, take, meaning));
}

COption CCommand::AddFlag(const std::string& name, bool& variable, const std::string& meaning) {
    return COption(m_command->add_flag(name, variable, meaning));
}

void CCommand::OnRun(const std::function<void()>& run) {
    m_command->callback(run);
}

CCommandLine::CCommandLine(const std::string& program, const std::string& meaning, const std::string& version)
    : m_app(std::make_unique<CLI::App>(meaning, program)) {
    m_app->allow_windows_style_options(false);
    m_app->require_subcommand(1);
    m_app->set_version_flag("--version", version);
}

CCommandLine::~CCommandLine() = default;

CCommand CCommandLine::GetRoot() {
    return CCommand(m_app.get());
}

COption CCommandLine::AddEarlyOption(const std::string& name, const std::function<void(const std::string&)>& take,
                                     const std::string& meaning) {
    return COption(m_app->add_option_function<std::string>(name, take, meaning)->trigger_on_parse());
}

bool CCommandLine::Run(int argc, char** argv, std::string& fault) {
    try {
        m_app->parse(argc, argv);
        return true;
    } catch (const CLI::CallForHelp& help) {
        m_app->exit(help);
        return true;
    } catch (const CLI::CallForAllHelp& help) {
        m_app->exit(help);
        return true;
    } catch (const CLI::CallForVersion& version) {
        m_app->exit(version);
        return true;
    } catch (const CLI::RequiredError& error) {
        fault = DescribeUnknown(m_app->remaining(true), error.what());
    } catch (const CLI::ExtrasError& error) {
        std::vector<std::string> unknown = m_app->remaining(true);
        std::erase_if(unknown, [](const std::string& word) { return !word.starts_with('-'); });
        fault = DescribeUnknown(unknown, error.what());
    } catch (const CLI::ParseError& error) {
        fault = error.what();
    }
    return false;
}
