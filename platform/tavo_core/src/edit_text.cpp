#include "tavo_core/edit_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <numeric>
#include <stdexcept>
#include <string_view>

#include "tavo_core/event_codes.h"

namespace CL {

namespace {

bool HasRange(const cmn::TavoEvent& edit) {
    return dynamic_cast<const PairedEvent*>(&edit) != nullptr;
}

std::string DescribeSemitones(int semitones) {
    if (semitones == 0) return "as written";
    return fmt::format("{} {} semitone{}", semitones > 0 ? "up" : "down", std::abs(semitones),
                       std::abs(semitones) == 1 ? "" : "s");
}

std::string DescribeSound(const Sfx& edit) {
    const std::string gain = edit.gain_db() == 0.0F ? "" : fmt::format(", {:+g} dB", edit.gain_db());
    return fmt::format("\"{}\"{}", edit.sound(), gain);
}

std::string DescribeCaesura(const Caesura& edit) {
    std::string text = edit.value().empty() ? "" : fmt::format("\"{}\"", edit.value());
    if (edit.VersionTarget() != 0) text += fmt::format("{}version {}", text.empty() ? "" : ", ", edit.VersionTarget());
    return text;
}

std::string DescribeMessage(const Osc& edit) {
    return edit.target().empty() ? edit.value() : fmt::format("{} to {}", edit.value(), edit.target());
}

}  // namespace

std::string DescribeKind(const cmn::TavoEvent& edit) {
    if (edit.code() == codes::Osc) return codes::EditName(edit.code());
    std::string name = codes::EditName(edit.code());
    for (char& c : name) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return name;
}

std::string DescribePlace(const cmn::TavoEvent& edit, const TL::BarPositions& positions) {
    const bool ringsOut = edit.code() == codes::Sfx && edit.end() == edit.start();
    if (HasRange(edit) && !ringsOut) return positions.DescribeRange(edit.start(), edit.end());
    return positions.DescribeTick(edit.abs_time());
}

std::string DescribeValue(const cmn::TavoEvent& edit) {
    switch (edit.code()) {
        case codes::Vamp:
            return edit.int_value() == 0 ? "" : fmt::format("at most {} times", edit.int_value());
        case codes::Repeat:
            return fmt::format("{} times", edit.int_value());
        case codes::Cut:
        case codes::Fermata:
            return "";
        case codes::Transposition:
            return DescribeSemitones(edit.int_value());
        case codes::TempoScale:
            return fmt::format("{:.6g}%",
                               static_cast<double>(dynamic_cast<const TempoScale&>(edit).float_value()) * 100);
        case codes::Click:
            return "every " + DescribeNoteLength(edit.int_value());
        case codes::Marker:
            return fmt::format("\"{}\"", edit.value());
        case codes::Caesura:
            return DescribeCaesura(dynamic_cast<const Caesura&>(edit));
        case codes::Sfx:
        case codes::SfxAmbient:
            return DescribeSound(dynamic_cast<const Sfx&>(edit));
        case codes::Osc:
            return DescribeMessage(dynamic_cast<const Osc&>(edit));
        default:
            throw std::logic_error("the event is not an edit");
    }
}

std::string JoinMarkerTexts(const std::string& there, const std::string& added) {
    constexpr std::string_view Separator = ", ";
    const auto split = [&](std::string_view text, auto take) {
        while (!text.empty()) {
            const std::size_t end = std::min(text.find(Separator), text.size());
            take(text.substr(0, end));
            text.remove_prefix(std::min(end + Separator.size(), text.size()));
        }
    };
    std::string joined = there;
    split(added, [&](std::string_view part) {
        bool isThere = false;
        split(joined, [&](std::string_view other) { isThere = isThere || other == part; });
        if (isThere) return;
        if (!joined.empty()) joined += Separator;
        joined += part;
    });
    return joined;
}

std::string DescribeNoteLength(int thirtySeconds) {
    const int divisor = std::max(std::gcd(thirtySeconds, 32), 1);
    return fmt::format("{}/{}", thirtySeconds / divisor, 32 / divisor);
}

std::string DescribeEdit(const cmn::TavoEvent& edit, const TL::BarPositions& positions) {
    const std::string value = DescribeValue(edit);
    return fmt::format("{} {}{}{}", DescribeKind(edit), DescribePlace(edit, positions), value.empty() ? "" : ", ",
                       value);
}

}  // namespace CL
