#include "stage/words/value_checks.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <limits>
#include <utility>

#include "kit/words.h"

namespace stage {

namespace {

template <class Number>
bool ReadNumberText(const std::string& text, Number& number) {
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + (text.starts_with('+') ? 1 : 0), end, number);
    return error == std::errc() && stop == end;
}

CLI::Validator MakeCheck(std::function<std::string(std::string&)> check) {
    // Without a description, which would become part of the help.
    return {std::move(check), ""};
}

}  // namespace

CLI::Validator IsWholeNumber(long long lowest, long long highest) {
    return MakeCheck([=](const std::string& text) -> std::string {
        long long number = 0;
        if (ReadNumberText(text, number) && number >= lowest && number <= highest) return "";
        return fmt::format("needs a whole number from {} to {}, not {}", lowest, highest, kit::Quote(text));
    });
}

CLI::Validator IsWholeNumber() {
    return MakeCheck([](const std::string& text) -> std::string {
        int number = 0;
        if (ReadNumberText(text, number)) return "";
        return fmt::format("needs a whole number, not {}", kit::Quote(text));
    });
}

CLI::Validator IsNumberFrom(double lowest) {
    return MakeCheck([=](const std::string& text) -> std::string {
        double number = 0;
        if (ReadNumberText(text, number) && std::isfinite(number) && number >= lowest) return "";
        return fmt::format("needs a number from {} on, not {}", lowest, kit::Quote(text));
    });
}

CLI::Validator IsNumber() {
    return MakeCheck([](const std::string& text) -> std::string {
        double number = 0;
        if (ReadNumberText(text, number) && std::isfinite(number)) return "";
        return fmt::format("needs a number, not {}", kit::Quote(text));
    });
}

CLI::Validator IsOneOf(std::vector<std::string> words) {
    return MakeCheck([known = std::move(words)](const std::string& text) -> std::string {
        if (std::find(known.begin(), known.end(), text) != known.end()) return "";
        const std::vector<std::string_view> views(known.begin(), known.end());
        const std::string_view nearest = kit::FindNearest(text, views);
        return fmt::format("is one of {}, not {}{}", fmt::join(known, ", "), kit::Quote(text),
                           nearest.empty() ? "" : fmt::format("; did you mean {}?", nearest));
    });
}

}  // namespace stage
