#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>

#include "engine/catalogue.h"
#include "engine/testsend.h"
#include "mime/mimemessage.h"
#include "platform/process.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/tableprinter.h"
#include "utility/lasterror.h"

namespace {

struct CArguments {
    std::string list;
    std::string address;
    std::string message;
    bool json = false;
};

void TestSend(const CArguments& arguments) {
    OpenDataFolder();
    Platform::CatchStopSignals();
    const std::uint32_t number = GetCatalogue().GetListNumber(FindList(arguments.list));
    CMimeMessage message;
    if (!message.Load(arguments.message)) FailWithLastError(arguments.message);
    SendDaemon::CRecipientReport report;
    const bool isSent = SendTestCopy(
        number, arguments.address, message, [] { return Platform::StopSignalled(); }, report);
    std::string reason = DescribeLastError();
    if (arguments.json && !report.recipient.empty()) {
        PrintJson({{"recipient", JsonText(report.recipient)},
                   {"sent", isSent},
                   {"host", JsonText(report.host)},
                   {"code", report.code},
                   {"enhanced", JsonText(report.enhanced)},
                   {"text", JsonText(report.text)}});
    }
    if (!isSent) {
        if (reason.find(report.text) == std::string::npos) reason += ": " + report.text;
        throw CCommandFailure("the copy was not sent: " + reason);
    }
    if (arguments.json) return;
    if (report.host.empty())
        std::printf("Sent to %s.\n", Printable(report.recipient).c_str());
    else
        std::printf("%s took it for %s: %d %s\n", Printable(report.host).c_str(), Printable(report.recipient).c_str(),
                    report.code, Printable(report.text).c_str());
}

}  // namespace

void AddTestSendCommand(CLI::App& app) {
    auto arguments = std::make_shared<CArguments>();
    CLI::App* test = app.add_subcommand("test-send", "Send one personalised copy of a message, at once");
    test->add_option("LIST", arguments->list)->required();
    test->add_option("ADDRESS", arguments->address, "a member's, whose data are used, or any other")->required();
    test->add_option("MESSAGE", arguments->message, "a message file (.eml)")->required();
    test->add_flag("--json", arguments->json);
    test->callback([arguments] { TestSend(*arguments); });
}
