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

we have received a request to subscribe the address $(Email) to
$(List-Name).

To confirm it, simply reply to this message and leave the subject as
it is. You need not write anything.

If you did not ask for this, you need not do anything: without your
reply the address will not be subscribed.
)text"},
    {StandardText::Welcome, "Welcome to $(List-Name)",
     R"text(Hello,

welcome to $(List-Name)! You are subscribed with the address
$(Email).

Please keep this message. It says how to leave, and what else you can
do:

$(List-Usage)
)text"},
    {StandardText::Goodbye, "You have left $(List-Name)",
     R"text(Hello,

the address $(Email) is no longer subscribed to $(List-Name),
and gets no more messages from us.

If this was a mistake, or if you would like to come back: send a
message to $(Command-Email) containing "SUBSCRIBE" in subject.
)text"},
    {StandardText::DigestOn, "$(List-Name): you get the digest now",
     R"text(Hello,

from now on $(Email) gets the digest of $(List-Name): one
message from time to time that holds what was written meanwhile.

To get each message by itself again, send a message to
$(Command-Email) containing "DIGEST OFF" in subject; to unsubscribe,
one containing "UNSUBSCRIBE".
)text"},
    {StandardText::DigestOff, "$(List-Name): you get each message now",
     R"text(Hello,

from now on $(Email) gets each message of $(List-Name) as it
comes.

To get the digest again, send a message to $(Command-Email)
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

only subscribers can write to $(List-Name), and the address
$(Email) is not subscribed. Your message "$(Original-Subject)"
was not passed on.

If you are subscribed with another address, please send it from there.
To subscribe, send a message to $(Command-Email) containing
"SUBSCRIBE" in subject, and reply to the message that you get.
)text"},
    {StandardText::OwnerOnly, "Your message to $(List-Name) was not understood",
     R"text(Hello,

$(List-Name) is a list for announcements: only its owner posts here.
Your message "$(Original-Subject)" is no command that the list
knows, and was not passed on.

$(List-Usage)
)text"},
    {StandardText::InvalidFormat, "Your message to $(List-Name) could not be passed on",
     R"text(Hello,

your message "$(Original-Subject)" has a format that
$(List-Name) cannot pass on. Perhaps it was empty, or damaged on its
way.

Please send it once more, as plain text if you can.
)text"},
    {StandardText::SampleAnswer, "Thank you for your message",
     R"text(Hello,

thank you for your message "$(Original-Subject)" to
$(List-Display-Name). It has arrived, and somebody will read it soon.

This answer was sent automatically; you need not reply to it.
)text"},
    {StandardText::TooLarge, "Your message to $(List-Name) is too large",
     R"text(Hello,

your message "$(Original-Subject)" is larger than
$(List-Name) accepts, and was not processed.

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
