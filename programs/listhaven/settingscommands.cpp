#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>

#include "app/settings.h"
#include "app/settingslist.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/tableprinter.h"
#include "utility/text.h"

namespace {

struct CArguments {
    std::string section;
    std::string key;
    std::string value;
    bool json = false;
};

void Get(const CArguments& arguments) {
    OpenDataFolder();
    const CSettingDescription* known = FindSetting(arguments.section, arguments.key);
    const std::string value =
        ReadSettingText(arguments.section, arguments.key, known ? std::string(known->defaultValue) : std::string());
    if (arguments.json)
        PrintJson({{"section", JsonText(arguments.section)},
                   {"key", JsonText(arguments.key)},
                   {"value", JsonText(value)},
                   {"known", known != nullptr}});
    else
        std::printf("%s\n", Printable(value).c_str());
}

void Set(const CArguments& arguments) {
    OpenDataFolder();
    const CSettingDescription* known = FindSetting(arguments.section, arguments.key);
    if (!known) throw CCommandFailure("there is no setting [" + arguments.section + "] " + arguments.key);
    std::string reason;
    if (!IsSettingValue(*known, arguments.value, reason))
        throw CCommandFailure("[" + arguments.section + "] " + arguments.key + ": " + reason);
    if (!WriteSettingText(arguments.section, arguments.key, arguments.value))
        FailWithLastError("the setting could not be written");
}

}  // namespace

void AddSettingsCommands(CLI::App& app) {
    auto arguments = std::make_shared<CArguments>();
    CLI::App* settings = app.add_subcommand("settings", "Settings of both programs (Lhv.cfg)");
    settings->require_subcommand(1);

    CLI::App* get = settings->add_subcommand("get", "Print a setting, or its default");
    get->add_option("SECTION", arguments->section)->required();
    get->add_option("KEY", arguments->key)->required();
    get->add_flag("--json", arguments->json);
    get->callback([arguments] { Get(*arguments); });

    CLI::App* set = settings->add_subcommand("set", "Change a setting");
    set->add_option("SECTION", arguments->section)->required();
    set->add_option("KEY", arguments->key)->required();
    set->add_option("VALUE", arguments->value)->required();
    set->callback([arguments] { Set(*arguments); });
}
