#include "engine/rules/standardtexts.h"

#include <array>
#include <string>
#include <string_view>

namespace {

struct TextRow {
    StandardText text;
    std::string_view subject;
    std::string_view body;
};

constexpr std::array<TextRow, static_cast<std::size_t>(StandardText::Count)> Texts = {{
    {StandardText::ConfirmationRequest, "Please confirm your subscription to $(List-Name)",
     R"text(Hello,

somebody, probably you, would like to subscribe this address to
$(List-Name):

    $(Email)

To confirm it, simply reply to this message and leave the subject as
it is. You need not write anything.

If it was not you, just ignore this message: without your reply the
address will not be subscribed.
)text"},
    {StandardText::Welcome, "Welcome to $(List-Name)",
     R"text(Hello,

welcome to $(List-Name)! You are subscribed with this address:

    $(Email)

Please keep this message. It says how to leave, and what else you can
do:

$(List-Usage)
)text"},
    {StandardText::Goodbye, "You have left $(List-Name)",
     R"text(Hello,

this address is not subscribed to $(List-Name) any more:

    $(Email)

If messages still reach you, you are subscribed with another address:
please send the same request from there.

If you would like to come back, send a message to
$(Command-Email)
containing "SUBSCRIBE" in subject.
)text"},
    {StandardText::DigestOn, "$(List-Name): you get the digest now",
     R"text(Hello,

from now on you get the digest of $(List-Name):
one message from time to time that holds what was written meanwhile.

To get each message by itself again, send a message to
$(Command-Email)
containing "DIGEST OFF" in subject; to unsubscribe, one containing
"UNSUBSCRIBE".
)text"},
    {StandardText::DigestOff, "$(List-Name): you get each message now",
     R"text(Hello,

from now on you get each message of $(List-Name)
as it comes.

To get the digest again, send a message to
$(Command-Email)
containing "DIGEST ON" in subject; to unsubscribe, one containing
"UNSUBSCRIBE".
)text"},
    {StandardText::Help, "How to use $(List-Name)",
     R"text(Hello,

this is what you can do with $(List-Name). Commands stand alone in
the subject of a message; its text does not matter.

$(List-Usage)
)text"},
    {StandardText::MembersOnly, "Your message to $(List-Name) was not passed on",
     R"text(Hello,

only subscribers can write to $(List-Name). This message
was not passed on:

    $(Original-Subject)

It came from an address that is not subscribed:

    $(Email)

If you are subscribed with another address, please send it from there.
To subscribe, send a message to
$(Command-Email)
containing "SUBSCRIBE" in subject, and reply to the message that you
get.
)text"},
    {StandardText::OwnerOnly, "Your message to $(List-Name) was not understood",
     R"text(Hello,

$(List-Name) is a list for announcements.
Only its owner posts here, and this is not a command that it knows:

    $(Original-Subject)

Your message was not passed on. This is what you can do:

$(List-Usage)
)text"},
    {StandardText::InvalidFormat, "Your message to $(List-Name) could not be passed on",
     R"text(Hello,

this message could not be passed on to $(List-Name):

    $(Original-Subject)

Perhaps it was empty, damaged on its way, or had only attachments.
Please send it once more, as plain text if you can.
)text"},
    {StandardText::SampleAnswer, "Thank you for your message",
     R"text(Hello,

thank you for your message to $(List-Display-Name):

    $(Original-Subject)

It has arrived. This answer was sent automatically; there is no need
to reply to it.
)text"},
    {StandardText::TooLarge, "Your message to $(List-Name) is too large",
     R"text(Hello,

this message is larger than $(List-Name) accepts,
and was not processed:

    $(Original-Subject)

Please send it without attachments, or with smaller ones.
)text"},
}};

constexpr bool RowsStandInOrder() {
    for (std::size_t i = 0; i < Texts.size(); ++i) {
        if (Texts[i].text != static_cast<StandardText>(i)) return false;
    }
    return true;
}
static_assert(RowsStandInOrder());

}  // namespace

CMimeMessage MakeStandardMessage(StandardText text) {
    const TextRow& row = Texts[static_cast<std::size_t>(text)];
    std::string source = "From: $(List-Display-Name) <$(Command-Email)>\nSubject: ";
    source.append(row.subject);
    source += "\nMIME-Version: 1.0\nContent-Type: text/plain; charset=\"utf-8\"\n\n";
    source.append(row.body);
    CMimeMessage message;
    message.LoadText(std::move(source));
    return message;
}
