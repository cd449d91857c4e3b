#include "mime/transferencoding.h"

namespace {

// Input taken at once; a whole number of Base64 lines.
constexpr std::size_t SliceSize = 972;

constexpr std::array<std::uint8_t, 256> MakeBase64Values() {
    std::array<std::uint8_t, 256> values{};
    values.fill(CoderTables::Invalid);
    for (std::uint8_t i = 0; i < 64; ++i)
        values[static_cast<std::uint8_t>(CoderTables::Base64Alphabet[i])] = i;
    return values;
}

constexpr std::array<std::uint8_t, 256> MakeHexValues() {
    std::array<std::uint8_t, 256> values{};
    values.fill(CoderTables::Invalid);
    for (std::uint8_t i = 0; i < 10; ++i)
        values[static_cast<std::uint8_t>('0' + i)] = i;
    for (std::uint8_t i = 0; i < 6; ++i) {
        values[static_cast<std::uint8_t>('A' + i)] = static_cast<std::uint8_t>(10 + i);
        values[static_cast<std::uint8_t>('a' + i)] = static_cast<std::uint8_t>(10 + i);
    }
    return values;
}

constexpr std::array<bool, 256> MakeQpLiteral() {
    std::array<bool, 256> literal{};
    for (std::size_t c = 32; c < 127; ++c)
        literal[c] = c != '=';
    literal['\t'] = true;
    return literal;
}

// Runs a coder over the text in slices, each through a buffer on the stack.
template <class Coder, class Sink>
void RunSlices(Coder& coder, std::string_view text, const Sink& sink) {
    std::array<char, Coder::MaxOutput(SliceSize)> buffer{};
    for (std::size_t from = 0; from < text.size(); from += SliceSize) {
        const std::string_view slice = text.substr(from, SliceSize);
        char* const end = coder.Process(slice.data(), slice.data() + slice.size(), buffer.data());
        sink(std::string_view(buffer.data(), static_cast<std::size_t>(end - buffer.data())));
    }
}

template <class Coder, class Sink>
void RunCoder(std::string_view text, const Sink& sink) {
    Coder coder;
    RunSlices(coder, text, sink);
    std::array<char, 8> buffer{};
    char* const end = coder.Finish(buffer.data());
    sink(std::string_view(buffer.data(), static_cast<std::size_t>(end - buffer.data())));
}

}  // namespace

constinit const std::array<std::uint8_t, 256> CoderTables::Base64Values = MakeBase64Values();
constinit const std::array<std::uint8_t, 256> CoderTables::HexValues = MakeHexValues();
constinit const std::array<bool, 256> CoderTables::QpLiteral = MakeQpLiteral();

void EncodeBase64(const char* begin, const char* end, std::string& out) {
    const std::string_view bytes(begin, static_cast<std::size_t>(end - begin));
    out.reserve(out.size() + Base64Encoder<const char*, char*>::MaxOutput(bytes.size()));
    RunCoder<Base64Encoder<const char*, char*>>(bytes, [&out](std::string_view piece) { out.append(piece); });
}

void DecodeBase64(std::string_view text, std::vector<std::uint8_t>& bytes) {
    bytes.reserve(bytes.size() + Base64Decoder<const char*, char*>::MaxOutput(text.size()));
    RunCoder<Base64Decoder<const char*, char*>>(
        text, [&bytes](std::string_view piece) { bytes.insert(bytes.end(), piece.begin(), piece.end()); });
}

std::string DecodeBase64Text(std::string_view text) {
    std::string bytes;
    bytes.reserve(Base64Decoder<const char*, char*>::MaxOutput(text.size()));
    RunCoder<Base64Decoder<const char*, char*>>(text, [&bytes](std::string_view piece) { bytes.append(piece); });
    return bytes;
}

std::string EncodeQuotedPrintable(std::string_view text) {
    std::string result;
    result.reserve(text.size() + text.size() / 16);
    RunCoder<QpEncoder<const char*, char*>>(text, [&result](std::string_view piece) { result.append(piece); });
    return result;
}

void AppendQuotedPrintable(QpEncoder<const char*, char*>& coder, std::string_view text, std::string& out) {
    RunSlices(coder, text, [&out](std::string_view piece) { out.append(piece); });
}

std::string DecodeQuotedPrintable(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    RunCoder<QpDecoder<const char*, char*>>(text, [&result](std::string_view piece) { result.append(piece); });
    return result;
}
