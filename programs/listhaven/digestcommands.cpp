#include <cstdio>
#include <memory>
#include <string>

#include "engine/catalogue.h"
#include "engine/daemonhost.h"
#include "engine/incoming/cycletransaction.h"
#include "engine/incoming/digests.h"
#include "engine/utf8text.h"
#include "mime/mimemessage.h"
#include "platform/filestatus.h"
#include "platform/process.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/tableprinter.h"
#include "utility/files.h"
#include "utility/text.h"

namespace {

struct CArguments {
    std::string list;
    std::string format;
    bool json = false;
};

constexpr std::size_t HeaderStart = 64 * 1024;

std::uint32_t OpenList(const std::string& list) {
    OpenDataFolder();
    return GetCatalogue().GetListNumber(FindList(list));
}

const char* FormatName(DigestFormat format) {
    return format == DigestFormat::Plain ? "plain" : "multipart";
}

void Show(const CArguments& arguments) {
    const std::uint32_t list = OpenList(arguments.list);
    CDigestState state;
    if (!ReadDigestState(list, state)) FailWithLastError("the digest of list " + std::to_string(list));
    boost::json::array entries;
    CTablePrinter table({"From", "Subject", "File"});
    for (const std::string& path : state.entries) {
        std::string start;
        if (!ReadFileStart(path, HeaderStart, start)) continue;  // it went out meanwhile
        const CMimeSource source(std::move(start));
        const CMimeHeader header = ReadMimeHead(source.View()).header;
        const std::string from = HeaderFieldInUtf8(header, "From");
        const std::string subject = HeaderFieldInUtf8(header, "Subject");
        entries.push_back({{"from", JsonText(from)}, {"subject", JsonText(subject)}, {"path", JsonText(path)}});
        table.AddRow({from, subject, path});
    }
    if (arguments.json)
        return PrintJson({{"list", list},
                          {"format", FormatName(state.format)},
                          {"number", state.number},
                          {"lastSent", state.lastSent},
                          {"nextDue", state.nextDue},
                          {"entries", entries}});
    std::printf("Format:     %s\nLast sent:  %s", FormatName(state.format), PrintableTime(state.lastSent).c_str());
    if (state.number != 0) std::printf(" (number %u)", state.number);
    std::printf("\nNext due:   %s\nCollected:  %zu\n", PrintableTime(state.nextDue).c_str(), state.entries.size());
    if (!state.entries.empty()) table.Print();
}

void Send(const CArguments& arguments) {
    const std::uint32_t list = OpenList(arguments.list);
    Platform::CatchStopSignals();
    bool sent = false;
    {
        const CCycleLock lock(list);
        if (!lock.IsHeld()) throw CCommandFailure("another program is at the list's mail; try again in a moment");
        if (!SendDigest(list, Platform::SecondsSince1970(), sent)) FailWithLastError("the digest could not be made");
    }
    if (!sent) {
        std::printf("Nothing has been collected.\n");
        return;
    }
    RunNewBroadcasts([] { return Platform::StopSignalled(); });
    std::printf("The digest has been broadcast.\n");
}

void Set(const CArguments& arguments) {
    const bool isPlain = EqualNoCase(arguments.format, "plain");
    if (!isPlain && !EqualNoCase(arguments.format, "multipart"))
        throw CUsageFailure("--format: \"" + arguments.format + "\" is none; use multipart or plain");
    const std::uint32_t list = OpenList(arguments.list);
    if (!SetDigestFormat(list, isPlain ? DigestFormat::Plain : DigestFormat::Multipart))
        FailWithLastError("the format could not be set");
}

}  // namespace

void AddDigestCommands(CCommand app) {
    auto arguments = std::make_shared<CArguments>();
    CCommand digest = app.AddCommand("digest", "The messages collected for a list's digest");
    digest.RequireCommand();
    const auto add = [&](const char* name, const char* meaning, void (*run)(const CArguments&)) {
        CCommand command = digest.AddCommand(name, meaning);
        command.AddOption("LIST", arguments->list).Required();
        command.OnRun([arguments, run] { run(*arguments); });
        return command;
    };
    add("show", "Print what has been collected, and when it is due", Show).AddFlag("--json", arguments->json);
    add("send", "Broadcast it now to the members that want digests", Send);
    add("set", "Choose how digests are made", Set)
        .AddOption("--format", arguments->format, "multipart: whole messages; plain: their texts, one after the other")
        .NamesValue("multipart|plain")
        .Required();
}
