#include "utility/lhvexception.h"

#include "platform/systemerror.h"
#include "utility/formattext.h"

CLhvException::CLhvException(std::string message, std::uint32_t code) : m_message(std::move(message)), m_code(code) {
    m_description = m_code == 0 ? m_message
                                : FormatText("%s : (0x%x) %s", m_message.c_str(), m_code,
                                             Platform::SystemErrorText(m_code).c_str());
}

std::string InternalErrorText(std::string_view source, int line, InternalErrorKind kind) {
    std::string text(source);
    text += "(" + std::to_string(line) + ") : An internal error has occurred.";
    if (kind == InternalErrorKind::InvalidArguments) text += " Invalid arguments have been passed to the function.";
    return text + " Please contact support and quote the product name and version: Vantorel Listhaven 3.0.";
}

void ThrowInternalError(std::string_view source, int line, InternalErrorKind kind) {
    throw CLhvException(InternalErrorText(source, line, kind));
}
