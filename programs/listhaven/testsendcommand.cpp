#include <cstdio>
#include <memory>
#include <string>

#include "engine/catalogue.h"
#include "engine/testsend.h"
#include "mime/mimemessage.h"
#include "platform/process.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
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

void AddTestSendCommand(CCommand app) {
    auto arguments = std::make_shared<CArguments>();
    CCommand test = app.AddCommand("test-send", "Send one personalised copy of a message, at once");
    test.AddOption("LIST", arguments->list).Required();
    test.AddOption("ADDRESS", arguments->address, "a member's, whose data are used, or any other").Required();
    test.AddOption("MESSAGE", arguments->message, "a message file (.eml)").Required();
    test.AddFlag("--json", arguments->json);
    test.OnRun([arguments] { TestSend(*arguments); });
}
