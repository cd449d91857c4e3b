#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "app/settings.h"
#include "app/settingslist.h"
#include "engine/incoming/cycleschedule.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
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

// What is no time of day would be left out, with a line in the log.
void CheckSchedule(const CArguments& arguments) {
    if (!EqualNoCase(arguments.section, "Service") || !EqualNoCase(arguments.key, "Schedule")) return;
    std::vector<std::string> invalid;
    ParseScheduleTimes(arguments.value, &invalid);
    if (!invalid.empty())
        throw CCommandFailure("[Service] Schedule: \"" + invalid.front() + "\" is no time of day; use 10;11:30;23");
}

void Set(const CArguments& arguments) {
    OpenDataFolder();
    const CSettingDescription* known = FindSetting(arguments.section, arguments.key);
    if (!known) throw CCommandFailure("there is no setting [" + arguments.section + "] " + arguments.key);
    std::string reason;
    if (!IsSettingValue(*known, arguments.value, reason))
        throw CCommandFailure("[" + arguments.section + "] " + arguments.key + ": " + reason);
    CheckSchedule(arguments);
    if (!WriteSettingText(arguments.section, arguments.key, arguments.value))
        FailWithLastError("the setting could not be written");
}

}  // namespace

void AddSettingsCommands(CCommand app) {
    auto arguments = std::make_shared<CArguments>();
    CCommand settings = app.AddCommand("settings", "Settings of both programs (Lhv.cfg)");
    settings.RequireCommand();

    CCommand get = settings.AddCommand("get", "Print a setting, or its default");
    get.AddOption("SECTION", arguments->section).Required();
    get.AddOption("KEY", arguments->key).Required();
    get.AddFlag("--json", arguments->json);
    get.OnRun([arguments] { Get(*arguments); });

    CCommand set = settings.AddCommand("set", "Change a setting");
    set.AddOption("SECTION", arguments->section).Required();
    set.AddOption("KEY", arguments->key).Required();
    set.AddOption("VALUE", arguments->value).Required();
    set.OnRun([arguments] { Set(*arguments); });
}
