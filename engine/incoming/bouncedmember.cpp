#include "engine/incoming/bouncedmember.h"

#include "mime/transferencoding.h"
#include "utility/text.h"

namespace {

// Pieces are written as LENGTH:BYTES, so that they may hold anything.
void AppendPiece(std::string& out, std::string_view piece) {
    out.append(std::to_string(piece.size())).append(":").append(piece);
}

bool TakePiece(std::string_view& in, std::string& piece) {
    const std::size_t colon = in.find(':');
    if (colon == std::string_view::npos) return false;
    const auto size = ParseNumber(in.substr(0, colon));
    in.remove_prefix(colon + 1);
    if (!size || *size < 0 || static_cast<std::uint64_t>(*size) > in.size()) return false;
    piece = in.substr(0, static_cast<std::size_t>(*size));
    in.remove_prefix(piece.size());
    return true;
}

}  // namespace

std::string EncodeBouncedMember(const CMember& member) {
    std::string plain;
    for (const std::string* piece :
         {&member.address, &member.firstName, &member.middleName, &member.lastName, &member.name, &member.properties})
        AppendPiece(plain, *piece);
    AppendPiece(plain, DeliveryModeName(member.mode));
    AppendPiece(plain, std::to_string(member.fields.size()));
    for (const std::string& field : member.fields)
        AppendPiece(plain, field);
    std::string encoded;
    EncodeBase64(plain.data(), plain.data() + plain.size(), encoded);
    ReplaceAll(encoded, "\r\n", "\n ");
    return std::string(TrimRight(encoded));
}

bool DecodeBouncedMember(std::string_view value, CMember& member) {
    const std::string plain = DecodeBase64Text(value);
    std::string_view rest = plain;
    CMember decoded;
    for (std::string* piece : {&decoded.address, &decoded.firstName, &decoded.middleName, &decoded.lastName,
                               &decoded.name, &decoded.properties})
        if (!TakePiece(rest, *piece)) return false;
    std::string mode;
    std::string count;
    if (!TakePiece(rest, mode) || !TakePiece(rest, count)) return false;
    decoded.mode = ParseDeliveryMode(mode).value_or(DeliveryMode::Regular);
    const auto fieldCount = ParseNumber(count);
    if (!fieldCount || *fieldCount < 0 || *fieldCount > CMember::SlotCount) return false;
    decoded.fields.resize(static_cast<std::size_t>(*fieldCount));
    for (std::string& field : decoded.fields)
        if (!TakePiece(rest, field)) return false;
    if (decoded.address.empty()) return false;
    member = std::move(decoded);
    return true;
}
