#include <cstdio>
#include <memory>
#include <string>

#include "app/settings.h"
#include "mime/mimeattachment.h"
#include "mime/mimemessage.h"
#include "mime/mimemultipart.h"
#include "mime/mimetext.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
#include "programs/listhaven/contenthash.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/tableprinter.h"
#include "utility/text.h"

namespace {

// The parser bounds how deep entities nest, and so this recursion.
boost::json::object EntityAsJson(const CMimeEntity& entity) {
    const CMimeHeader& header = entity.GetHeader();
    boost::json::array fields;
    for (std::size_t i = 0; i < header.GetFieldCount(); ++i) {
        const auto& field = header.GetStoredField(i);
        fields.push_back({{"name", JsonText(field.name)},
                          {"stored", JsonText(field.value)},
                          {"value", JsonText(header.DecodeField(i))}});
    }
    const std::string_view body = entity.GetStoredBody();
    boost::json::object node{{"class", JsonText(entity.GetClass())},
                             {"mainType", JsonText(entity.GetMainType())},
                             {"subType", JsonText(entity.GetSubType())},
                             {"isAttachment", entity.IsAttachment()},
                             {"fields", std::move(fields)},
                             {"bodyLength", body.size()},
                             {"bodySha256", JsonText(Sha256Hex(body))}};
    boost::json::array children;
    if (const auto* multipart = dynamic_cast<const CMimeMultipart*>(&entity)) {
        node["boundary"] = JsonText(multipart->GetBoundary());
        for (std::size_t i = 0; i < multipart->GetPartCount(); ++i)
            children.push_back(EntityAsJson(*multipart->GetPart(i)));
    }
    if (const auto* attachment = dynamic_cast<const CMimeAttachment*>(&entity))
        node["fileName"] = JsonText(attachment->GetFileName());
    if (const auto* text = dynamic_cast<const CMimeText*>(&entity)) {
        const std::string decoded = text->GetBody();
        node["textLength"] = decoded.size();
        node["textSha256"] = JsonText(Sha256Hex(decoded));
    }
    node["children"] = std::move(children);
    return node;
}

void PrintEntity(const CMimeEntity& entity, int depth) {
    const std::string indent(static_cast<std::size_t>(depth) * 2, ' ');
    std::string line = indent + entity.GetMainType() + "/" + entity.GetSubType();
    if (const auto* attachment = dynamic_cast<const CMimeAttachment*>(&entity))
        line += "  attachment \"" + attachment->GetFileName() + "\"";
    line += "  " + std::to_string(entity.GetStoredBody().size()) + " bytes";
    std::printf("%s\n", Printable(line).c_str());
    const CMimeHeader& header = entity.GetHeader();
    for (std::size_t i = 0; i < header.GetFieldCount(); ++i)
        std::printf("%s  %s: %s\n", indent.c_str(), Printable(header.GetStoredField(i).name).c_str(),
                    Printable(header.DecodeField(i)).c_str());
    if (const auto* multipart = dynamic_cast<const CMimeMultipart*>(&entity)) {
        for (std::size_t i = 0; i < multipart->GetPartCount(); ++i)
            PrintEntity(*multipart->GetPart(i), depth + 1);
    }
}

void LoadMessage(CMimeMessage& message, const std::string& file) {
    if (!message.Load(file)) throw CCommandFailure(file + ": Error loading the message");
}

void Show(const std::string& file, bool json) {
    CMimeMessage message;
    LoadMessage(message, file);
    const CMimeEntity& root = *message.GetRoot();
    json ? PrintJson(EntityAsJson(root)) : PrintEntity(root, 0);
}

void Resave(const std::string& in, const std::string& out) {
    CMimeMessage message;
    LoadMessage(message, in);
    if (!message.Save(out)) throw CCommandFailure(out + ": Error saving the message");
}

}  // namespace

void AddMessageCommands(CCommand app) {
    struct CArguments {
        std::string in;
        std::string out;
        bool json = false;
    };
    auto arguments = std::make_shared<CArguments>();
    CCommand message = app.AddCommand("message", "Look into message files");
    message.RequireCommand();

    CCommand show = message.AddCommand("show", "Print the tree of entities with their headers");
    show.AddOption("FILE", arguments->in).Required();
    show.AddFlag("--json", arguments->json);
    show.OnRun([arguments] { Show(arguments->in, arguments->json); });

    CCommand resave = message.AddCommand("resave", "Load a message and save it as this program writes it");
    resave.AddOption("IN", arguments->in).Required();
    resave.AddOption("OUT", arguments->out).Required();
    resave.OnRun([arguments] { Resave(arguments->in, arguments->out); });
}
