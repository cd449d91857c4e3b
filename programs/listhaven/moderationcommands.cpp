#include <algorithm>
#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/catalogue.h"
#include "engine/incoming/moderation.h"
#include "engine/rules/incomingmessage.h"
#include "engine/utf8text.h"
#include "mime/htmlconversion.h"
#include "mime/mimemessage.h"
#include "mime/mimetext.h"
#include "mime/mimewalk.h"
#include "platform/process.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/tableprinter.h"
#include "utility/lasterror.h"
#include "utility/text.h"

namespace {

struct CArguments {
    std::string list;
    std::optional<std::string> onlyList;
    std::string id;
    std::optional<std::string> note;
    bool noNote = false;
    bool yes = false;
    bool json = false;
};

std::uint32_t OpenList(const std::string& list) {
    OpenDataFolder();
    return GetCatalogue().GetListNumber(FindList(list));
}

std::string ListName(std::uint32_t number) {
    return GetCatalogue().GetName(GetCatalogue().FindByNumber(number));
}

boost::json::object AsJson(const CPendingMessage& message) {
    return {{"id", JsonText(message.id)},
            {"list", message.list},
            {"listName", JsonText(ListName(message.list))},
            {"state", message.isAccepted ? "accepted" : "pending"},
            {"received", message.received},
            {"from", JsonText(message.from)},
            {"subject", JsonText(message.subject)},
            {"size", message.size},
            {"path", JsonText(message.path)}};
}

std::vector<CPendingMessage> FindMessages(const std::optional<std::string>& onlyList) {
    std::vector<CPendingMessage> messages;
    if (onlyList) return ListPending(OpenList(*onlyList));
    OpenDataFolder();
    for (const std::int32_t index : GetCatalogue().GetLists()) {
        const auto found = ListPending(GetCatalogue().GetListNumber(index));
        messages.insert(messages.end(), found.begin(), found.end());
    }
    return messages;
}

void PrintGroup(const char* heading, const std::vector<CPendingMessage>& messages, bool isAccepted) {
    CTablePrinter table({"Id", "List", "Received", "Size", "From", "Subject"});
    bool isEmpty = true;
    for (const CPendingMessage& message : messages) {
        if (message.isAccepted != isAccepted) continue;
        isEmpty = false;
        table.AddRow({message.id, ListName(message.list), PrintableTime(message.received), std::to_string(message.size),
                      message.from, message.subject});
    }
    std::printf("%s\n", heading);
    isEmpty ? static_cast<void>(std::printf("(none)\n")) : table.Print();
}

void List(const CArguments& arguments) {
    const auto messages = FindMessages(arguments.onlyList);
    if (arguments.json) {
        boost::json::array document;
        for (const CPendingMessage& message : messages)
            document.push_back(AsJson(message));
        return PrintJson(document);
    }
    PrintGroup("Pending", messages, false);
    std::printf("\n");
    PrintGroup("Accepted", messages, true);
}

CPendingMessage Find(const CArguments& arguments) {
    CPendingMessage message;
    if (!FindPending(OpenList(arguments.list), arguments.id, message)) throw CCommandFailure(DescribeLastError());
    return message;
}

// The first text of the message, made readable.
std::string TextOf(CMimeMessage& message) {
    std::string text;
    if (!message.GetRoot()) return text;
    VisitEntities(*message.GetRoot(), [&](CMimeEntity& entity, int) {
        if (entity.GetKind() != MimeClass::Text || !entity.IsTextBody()) return true;
        BodyInUtf8(static_cast<const CMimeText&>(entity), text);
        if (entity.GetSubType() == "html") text = HtmlToText(text);
        return false;
    });
    return text;
}

void Show(const CArguments& arguments) {
    const CPendingMessage pending = Find(arguments);
    CMimeMessage message;
    if (!LoadIncoming(pending.path, CMimeSource::Sealed::Split, message))
        throw CCommandFailure("Message no longer exists.");
    const std::string text = TextOf(message);
    if (arguments.json) {
        boost::json::object document = AsJson(pending);
        document["to"] = JsonText(HeaderFieldInUtf8(message.GetRoot()->GetHeader(), "To"));
        document["attachments"] = message.GetAttachmentCount();
        document["text"] = JsonText(text);
        return PrintJson(document);
    }
    const auto line = [](const char* name, const std::string& value) {
        std::printf("%-12s %s\n", name, Printable(value).c_str());
    };
    line("Id:", pending.id);
    line("State:", pending.isAccepted ? "accepted" : "pending");
    line("Received:", PrintableTime(pending.received));
    line("From:", pending.from);
    line("To:", HeaderFieldInUtf8(message.GetRoot()->GetHeader(), "To"));
    line("Subject:", pending.subject);
    line("Attachments:", std::to_string(message.GetAttachmentCount()));
    line("File:", pending.path);
    std::printf("\n");
    for (const std::string_view textLine : Split(TrimRight(text), '\n'))
        std::printf("%s\n", Printable(TrimRight(textLine)).c_str());
}

bool AskYes(const std::string& question) {
    std::fprintf(stderr, "%s [y/N] ", question.c_str());
    std::string answer;
    std::getline(std::cin, answer);
    return EqualNoCase(Trim(answer), "y") || EqualNoCase(Trim(answer), "yes");
}

// What the moderator leaves as it is becomes the note as it is.
std::string AskForNote() {
    if (!AskYes("Add a note in front of the message?")) return {};
    std::fprintf(stderr, "The note, ended by a line with a single dot; only the dot takes this one:\n%s\n",
                 CrLfToLf(ModeratorNotePrefill).c_str());
    std::string note;
    std::string line;
    while (std::getline(std::cin, line) && TrimRight(line) != ".")
        note += std::string(TrimRight(line)) + "\n";
    if (!std::cin && note.empty()) throw CCommandFailure("no note was entered; the message stays pending");
    if (note.empty()) return std::string(ModeratorNotePrefill);
    note.pop_back();
    return note;
}

void Accept(const CArguments& arguments) {
    if (arguments.note && arguments.noNote) throw CUsageFailure("--note and --no-note exclude each other");
    const CPendingMessage message = Find(arguments);
    std::string note = arguments.note.value_or("");
    if (!arguments.note && !arguments.noNote && Platform::InputIsTerminal()) note = AskForNote();
    if (!AcceptPending(message.list, arguments.id, note)) throw CCommandFailure(DescribeLastError());
    std::printf("Accepted; the next mail-processing cycle takes it up.\n");
}

void Reject(const CArguments& arguments) {
    const CPendingMessage message = Find(arguments);
    if (!arguments.yes) {
        if (!Platform::InputIsTerminal()) throw CUsageFailure("without a terminal to ask on, --yes is required");
        if (!AskYes("Are you sure you want to reject this message?")) return;
    }
    if (!RejectPending(message.list, arguments.id)) throw CCommandFailure(DescribeLastError());
    std::printf("Rejected.\n");
}

}  // namespace

void AddModerationCommands(CCommand app) {
    auto arguments = std::make_shared<CArguments>();
    CCommand moderation = app.AddCommand("moderation", "Messages that wait for the moderator");
    moderation.RequireCommand();
    CCommand ls = moderation.AddCommand("ls", "Print the messages of every list, or of one");
    ls.AddOption("LIST", arguments->onlyList);
    ls.AddFlag("--json", arguments->json);
    ls.OnRun([arguments] { List(*arguments); });

    const auto add = [&](const char* name, const char* meaning, void (*run)(const CArguments&)) {
        CCommand command = moderation.AddCommand(name, meaning);
        command.AddOption("LIST", arguments->list).Required();
        command.AddOption("ID", arguments->id, "As moderation ls prints it").Required();
        command.OnRun([arguments, run] { run(*arguments); });
        return command;
    };
    CCommand show = add("show", "Print a message", Show);
    show.AddFlag("--json", arguments->json);
    CCommand accept = add("accept", "Let a message pass; it goes through the rules once more", Accept);
    accept.AddOption("--note", arguments->note, "Put this in front of its text").NamesValue("TEXT");
    accept.AddFlag("--no-note", arguments->noNote, "Leave its text as it is, without asking");
    CCommand reject = add("reject", "Delete a message; its author is not told", Reject);
    reject.AddFlag("--yes", arguments->yes, "Do not ask");
}
