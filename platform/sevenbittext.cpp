#include "platform/sevenbittext.h"

#include <algorithm>
#include <array>
#include <span>

namespace Platform {

namespace {

// Runs of text are switched between sets by escape sequences.
struct Switch {
    std::string_view sequence;
    enum class To : std::uint8_t { Ascii, Katakana, Pairs, Supplement, Nothing } to;
};

constexpr std::array JapaneseSwitches = {
    Switch{"\x1B(B", Switch::To::Ascii},       Switch{"\x1B(J", Switch::To::Ascii},
    Switch{"\x1B(I", Switch::To::Katakana},    Switch{"\x1B$@", Switch::To::Pairs},
    Switch{"\x1B$B", Switch::To::Pairs},       Switch{"\x1B$(B", Switch::To::Pairs},
    Switch{"\x1B$(D", Switch::To::Supplement},
};
constexpr std::array KoreanSwitches = {
    Switch{"\x1B$)C", Switch::To::Nothing},
    Switch{"\x0E", Switch::To::Pairs},
    Switch{"\x0F", Switch::To::Ascii},
};
constexpr std::array ChineseSwitches = {
    Switch{"~{", Switch::To::Pairs},
    Switch{"~}", Switch::To::Ascii},
    Switch{"~\n", Switch::To::Nothing},
};

std::span<const Switch> SwitchesOf(SevenBitSet set) {
    if (set == SevenBitSet::Iso2022Jp) return JapaneseSwitches;
    if (set == SevenBitSet::Iso2022Kr) return KoreanSwitches;
    return ChineseSwitches;
}

bool IsPrinting(char c) {
    return c > ' ' && c < '\x7F';
}

}  // namespace

std::string WithEighthBit(SevenBitSet set, std::string_view text) {
    const std::span<const Switch> switches = SwitchesOf(set);
    std::string bytes;
    auto state = Switch::To::Ascii;
    while (!text.empty()) {
        const auto found = std::find_if(switches.begin(), switches.end(),
                                        [&](const Switch& one) { return text.starts_with(one.sequence); });
        if (found != switches.end()) {
            if (found->to != Switch::To::Nothing) state = found->to;
            text.remove_prefix(found->sequence.size());
            continue;
        }
        const char c = text.front();
        if (c == '\n') state = Switch::To::Ascii;
        if (set == SevenBitSet::Hz && state == Switch::To::Ascii && text.starts_with("~~")) text.remove_prefix(1);
        if (state == Switch::To::Ascii || !IsPrinting(c)) {
            bytes += c;
            text.remove_prefix(1);
            continue;
        }
        if (state == Switch::To::Katakana) bytes += '\x8E';
        if (state == Switch::To::Supplement) bytes += '\x8F';
        const bool isPair = state != Switch::To::Katakana && text.size() > 1 && IsPrinting(text[1]);
        const std::size_t size = isPair ? 2 : 1;
        for (const char one : text.substr(0, size))
            bytes += static_cast<char>(one | '\x80');
        text.remove_prefix(size);
    }
    return bytes;
}

}  // namespace Platform
