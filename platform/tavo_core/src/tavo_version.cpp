#include "tavo_core/tavo_version.h"

#include <charconv>
#include <optional>
#include <stdexcept>

#include "kit/path.h"
#include "kit/words.h"

namespace cmn {

namespace {

std::optional<std::uint16_t> ReadNumber(std::string_view text) {
    std::uint16_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

}  // namespace

std::string TAVOVersion::GetAsString() const {
    return std::to_string(major_number) + '.' + std::to_string(minor_number);
}

void TAVOVersion::SetWithString(std::string_view text) {
    const std::size_t point = text.find('.');
    const auto majorRead = ReadNumber(text.substr(0, point));
    const auto minorRead = point == std::string_view::npos ? std::nullopt : ReadNumber(text.substr(point + 1));
    if (!majorRead || !minorRead)
        throw std::invalid_argument(kit::Quote(text) +
                                    " is not a version: expected two numbers from 0 to 65535 with a point between");
    major_number = *majorRead;
    minor_number = *minorRead;
}

void TAVOVersion::SetWithFileName(std::string_view name) {
    const std::string base = kit::path::basename_no_ext(name);
    SetWithString(base.substr(base.rfind('-') + 1));
}

}  // namespace cmn
