#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "engine/catalogue.h"
#include "engine/incoming/bouncerecords.h"
#include "mime/mimemessage.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/tableprinter.h"
#include "utility/lasterror.h"
#include "utility/text.h"

namespace {

struct CArguments {
    std::string list;
    std::string which;  // ID or ADDRESS
    std::vector<std::string> files;
    bool json = false;
};

std::uint32_t OpenList(const std::string& list) {
    OpenDataFolder();
    return GetCatalogue().GetListNumber(FindList(list));
}

boost::json::object AsJson(const CBouncedRecipient& recipient) {
    return {{"address", JsonText(recipient.address)},
            {"original", JsonText(recipient.original)},
            {"class", JsonText(BounceClassName(recipient.bounceClass))},
            {"status", JsonText(recipient.status)},
            {"replyCode", recipient.replyCode},
            {"evidence", JsonText(recipient.evidence)}};
}

boost::json::object AsJson(const CBounceRecord& record) {
    boost::json::object object = AsJson(record.bounce);
    object["id"] = JsonText(record.id);
    object["time"] = record.time;
    object["kind"] = JsonText(NoticeKindName(record.kind));
    object["effect"] = JsonText(BounceEffectName(record.effect));
    object["undone"] = record.isUndone;
    object["path"] = JsonText(record.path);
    return object;
}

boost::json::object AsJson(const CMember& member) {
    boost::json::array fields;
    for (const std::string& field : member.fields)
        fields.push_back(JsonText(field));
    return {{"address", JsonText(member.address)},
            {"name", JsonText(member.name)},
            {"mode", JsonText(DeliveryModeName(member.mode))},
            {"fields", std::move(fields)},
            {"properties", JsonText(member.properties)}};
}

std::string EffectText(const CBounceRecord& record) {
    return std::string(BounceEffectName(record.effect)) + (record.isUndone ? ", undone" : "");
}

void List(const CArguments& arguments) {
    const auto records = ListBounces(OpenList(arguments.list));
    boost::json::array document;
    CTablePrinter table({"Id", "Time", "Class", "Address", "Status", "Effect", "Evidence"});
    for (const CBounceRecord& record : records) {
        if (arguments.json) {
            document.push_back(AsJson(record));
            continue;
        }
        constexpr std::size_t EvidenceShown = 60;
        const bool isAbuse = record.kind == NoticeKind::AbuseReport;
        table.AddRow({record.id, PrintableTime(record.time),
                      isAbuse ? "abuse" : std::string(BounceClassName(record.bounce.bounceClass)),
                      record.bounce.address.empty() ? "-" : record.bounce.address, record.bounce.status,
                      EffectText(record), Shortened(record.bounce.evidence, EvidenceShown)});
    }
    arguments.json ? PrintJson(document) : table.Print();
}

void Print(const char* name, std::string_view value) {
    if (!value.empty()) std::printf("%-10s %s\n", name, Printable(value).c_str());
}

void Show(const CArguments& arguments) {
    CBounceRecord record;
    if (!FindBounce(OpenList(arguments.list), arguments.which, record)) FailWithLastError("bounce " + arguments.which);
    if (arguments.json) {
        boost::json::object object = AsJson(record);
        if (record.hasMember) object["member"] = AsJson(record.member);
        PrintJson(object);
        return;
    }
    Print("Id:", record.id);
    Print("Time:", PrintableTime(record.time));
    Print("Kind:", NoticeKindName(record.kind));
    Print("Class:", BounceClassName(record.bounce.bounceClass));
    Print("Address:", record.bounce.address);
    Print("Original:", record.bounce.original);
    Print("Status:", record.bounce.status);
    if (record.bounce.replyCode != 0) Print("Reply:", std::to_string(record.bounce.replyCode));
    Print("Evidence:", record.bounce.evidence);
    Print("Effect:", EffectText(record));
    if (record.hasMember)
        Print("Member:", record.member.name + " <" + record.member.address + ">, " +
                             std::string(DeliveryModeName(record.member.mode)));
    Print("File:", record.path);
}

void PrintReport(const std::string& file, const CBounceReport& report) {
    std::string line = file + ": " + std::string(NoticeKindName(report.kind));
    if (report.IsBounce()) line += ", " + std::string(BounceClassName(report.GetClass()));
    std::printf("%s\n", Printable(line).c_str());
    for (const CBouncedRecipient& recipient : report.recipients) {
        line = recipient.address.empty() ? "(no address)" : recipient.address;
        if (!recipient.original.empty()) line += " (" + recipient.original + ")";
        line += "  " + std::string(BounceClassName(recipient.bounceClass));
        if (recipient.replyCode != 0) line += "  " + std::to_string(recipient.replyCode);
        if (!recipient.status.empty()) line += "  " + recipient.status;
        std::printf("    %s\n        %s\n", Printable(line).c_str(), Printable(recipient.evidence).c_str());
    }
}

void Classify(const CArguments& arguments) {
    boost::json::array document;
    std::size_t unread = 0;
    for (const std::string& file : arguments.files) {
        CMimeMessage message;
        if (!message.Load(file)) {
            ++unread;
            const std::string reason = DescribeLastError();  // may begin with the name of the file
            const std::string line = reason.starts_with(file) ? reason : file + ": " + reason;
            std::fprintf(stderr, "listhaven: %s\n", Printable(line).c_str());
            continue;
        }
        const CBounceReport report = ClassifyMessage(message);
        if (!arguments.json) {
            PrintReport(file, report);
            continue;
        }
        boost::json::array recipients;
        for (const CBouncedRecipient& recipient : report.recipients)
            recipients.push_back(AsJson(recipient));
        document.push_back({{"file", JsonText(file)},
                            {"kind", JsonText(NoticeKindName(report.kind))},
                            {"isBounce", report.IsBounce()},
                            {"class", JsonText(BounceClassName(report.GetClass()))},
                            {"recipients", std::move(recipients)}});
    }
    if (arguments.json) PrintJson(document);
    if (unread != 0) throw CCommandFailure(std::to_string(unread) + " files could not be read");
}

}  // namespace

void AddBounceCommands(CCommand app) {
    auto arguments = std::make_shared<CArguments>();
    CCommand bounce = app.AddCommand("bounce", "Messages that came back, and what they did to members");
    bounce.RequireCommand();

    CCommand ls = bounce.AddCommand("ls", "The bounces of a list, oldest first");
    ls.AddOption("LIST", arguments->list).Required();
    ls.AddFlag("--json", arguments->json);
    ls.OnRun([arguments] { List(*arguments); });

    CCommand show = bounce.AddCommand("show", "One of them");
    show.AddOption("LIST", arguments->list).Required();
    show.AddOption("ID", arguments->which).Required();
    show.AddFlag("--json", arguments->json);
    show.OnRun([arguments] { Show(*arguments); });

    CCommand undo =
        bounce.AddCommand("undo", "Bring a member back, or make him active again, as if nothing had come back");
    undo.AddOption("LIST", arguments->list).Required();
    undo.AddOption("ADDRESS", arguments->which).Required();
    undo.OnRun([arguments] {
        if (!UndoBounce(OpenList(arguments->list), arguments->which)) FailWithLastError(arguments->which);
    });

    CCommand classify = bounce.AddCommand("classify", "What message files say of a delivery; needs no data folder");
    classify.AddOption("FILE", arguments->files).Required();
    classify.AddFlag("--json", arguments->json);
    classify.OnRun([arguments] { Classify(*arguments); });
}
