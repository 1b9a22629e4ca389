#include "json_line_reader.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <stdexcept>

namespace {

constexpr std::size_t LongestQuotedName = 40;

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// A name from outside, as far as a sentence can show it.
std::string Quoted(const std::string& name) {
    const bool isPlain = name.size() <= LongestQuotedName &&
                         std::all_of(name.begin(), name.end(), [](char c) { return c >= ' ' && c <= '~' && c != '"'; });
    return isPlain ? "\"" + name + "\"" : "with a name that is too long or not plain";
}

void AppendUtf8(std::string& text, std::uint32_t point) {
    const auto continued = [point](unsigned int shift) { return static_cast<char>(0x80U | (point >> shift & 0x3FU)); };
    if (point < 0x80) {
        text += static_cast<char>(point);
    } else if (point < 0x800) {
        text += static_cast<char>(0xC0U | point >> 6U);
        text += continued(0);
    } else if (point < 0x10000) {
        text += static_cast<char>(0xE0U | point >> 12U);
        (text += continued(6)) += continued(0);
    } else {
        text += static_cast<char>(0xF0U | point >> 18U);
        ((text += continued(12)) += continued(6)) += continued(0);
    }
}

}  // namespace

void JsonLineReader::Refuse(const std::string& reason) const {
    throw std::invalid_argument(std::string(subject_) + " cannot be read at character " + std::to_string(place_ + 1) +
                                ": " + reason);
}

/// The next character that is not space; 0 at the end.
char JsonLineReader::Next_() {
    const auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
    while (place_ < text_.size() && isSpace(text_[place_]))
        ++place_;
    return place_ < text_.size() ? text_[place_] : '\0';
}

bool JsonLineReader::Take_(char c) {
    if (Next_() != c || place_ == text_.size()) return false;
    ++place_;
    return true;
}

void JsonLineReader::Expect_(char c) {
    if (!Take_(c)) Refuse(std::string("'") + c + "' is expected");
}

bool JsonLineReader::TakeWord_(std::string_view word) {
    static_cast<void>(Next_());
    if (text_.substr(place_, word.size()) != word) return false;
    place_ += word.size();
    return true;
}

void JsonLineReader::ReadObject(const std::vector<Field>& fields) {
    std::uint64_t seen = 0;
    Expect_('{');
    for (bool isFirst = true; !Take_('}'); isFirst = false) {
        if (!isFirst) Expect_(',');
        const std::string name = ReadString();
        const auto field =
            std::find_if(fields.begin(), fields.end(), [&name](const Field& known) { return name == known.name; });
        if (field == fields.end()) Refuse("there is no field " + Quoted(name));
        const std::uint64_t bit = std::uint64_t{1} << static_cast<unsigned int>(field - fields.begin());
        if ((seen & bit) != 0) Refuse("the field " + Quoted(name) + " comes twice");
        seen |= bit;
        Expect_(':');
        field->read();
    }
    for (std::size_t i = 0; i < fields.size(); ++i)
        if ((seen >> i & 1U) == 0) Refuse(std::string("the field \"") + fields[i].name + "\" is missing");
}

void JsonLineReader::ReadArray(const std::function<void()>& readElement) {
    Expect_('[');
    for (bool isFirst = true; !Take_(']'); isFirst = false) {
        if (!isFirst) Expect_(',');
        readElement();
    }
}

bool JsonLineReader::TakeNull() {
    return TakeWord_("null");
}

bool JsonLineReader::ReadBool() {
    if (TakeWord_("true")) return true;
    if (!TakeWord_("false")) Refuse("true or false is expected");
    return false;
}

std::string JsonLineReader::ReadString() {
    if (!Take_('"')) Refuse("a text in quotation marks is expected");
    std::string value;
    for (;; ++place_) {
        if (place_ == text_.size()) Refuse("the text has no closing quotation mark");
        const char c = text_[place_];
        if (c == '"') break;
        if (static_cast<unsigned char>(c) < ' ') Refuse("a control character stands in the text");
        if (c == '\\') {
            ++place_;
            ReadEscape_(value);
        } else {
            value += c;
        }
    }
    ++place_;
    return value;
}

/// Leaves the place at the escape's last character.
void JsonLineReader::ReadEscape_(std::string& value) {
    constexpr std::string_view Names = "\"\\/bfnrt";
    constexpr std::string_view Meanings = "\"\\/\b\f\n\r\t";
    const char c = place_ < text_.size() ? text_[place_] : '\0';
    if (c == 'u') return ReadUnicodeEscape_(value);
    const std::size_t which = c == '\0' ? std::string_view::npos : Names.find(c);
    if (which == std::string_view::npos) Refuse("JSON has no such escape");
    value += Meanings[which];
}

void JsonLineReader::ReadUnicodeEscape_(std::string& value) {
    std::uint32_t point = ReadHexDigits_();
    if (point >= 0xD800 && point < 0xDC00) {
        if (text_.substr(place_ + 1, 2) != "\\u") Refuse("half of a surrogate pair stands alone");
        place_ += 2;
        const std::uint32_t low = ReadHexDigits_();
        if (low < 0xDC00 || low >= 0xE000) Refuse("half of a surrogate pair stands alone");
        point = 0x10000 + ((point - 0xD800) << 10U) + (low - 0xDC00);
    } else if (point >= 0xDC00 && point < 0xE000) {
        Refuse("half of a surrogate pair stands alone");
    }
    AppendUtf8(value, point);
}

/// The four after the place, which then is at the last.
std::uint32_t JsonLineReader::ReadHexDigits_() {
    constexpr std::size_t DigitCount = 4;
    const std::string_view digits = text_.substr(place_ + 1, DigitCount);
    std::uint32_t value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    if (digits.size() != DigitCount || error != std::errc() || end != digits.data() + DigitCount)
        Refuse("four hexadecimal digits are expected");
    place_ += DigitCount;
    return value;
}

std::size_t JsonLineReader::SkipDigits_() {
    const std::size_t from = place_;
    while (place_ < text_.size() && IsDigit(text_[place_]))
        ++place_;
    return place_ - from;
}

std::string_view JsonLineReader::ReadNumberToken_() {
    const auto takeOneOf = [this](std::string_view characters) {
        if (place_ == text_.size() || characters.find(text_[place_]) == std::string_view::npos) return false;
        ++place_;
        return true;
    };
    static_cast<void>(Next_());
    const std::size_t from = place_;
    takeOneOf("-");
    const bool startsWithZero = place_ < text_.size() && text_[place_] == '0';
    const std::size_t digits = SkipDigits_();
    bool isNumber = digits == 1 || (digits > 1 && !startsWithZero);
    if (isNumber && takeOneOf(".")) isNumber = SkipDigits_() > 0;
    if (isNumber && takeOneOf("eE")) {
        takeOneOf("+-");
        isNumber = SkipDigits_() > 0;
    }
    if (!isNumber) {
        place_ = from;
        Refuse("a number is expected");
    }
    return text_.substr(from, place_ - from);
}

std::int64_t JsonLineReader::ReadInteger(std::int64_t lowest, std::int64_t highest) {
    const std::string_view token = ReadNumberToken_();
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(token.data(), token.data() + token.size(), value);
    if (error != std::errc() || end != token.data() + token.size() || value < lowest || value > highest) {
        place_ -= token.size();
        Refuse("a whole number from " + std::to_string(lowest) + " to " + std::to_string(highest) + " is expected");
    }
    return value;
}

double JsonLineReader::ReadNumber() {
    const std::string_view token = ReadNumberToken_();
    double value = 0;
    const auto [end, error] = std::from_chars(token.data(), token.data() + token.size(), value);
    if (error != std::errc() || end != token.data() + token.size() || !std::isfinite(value)) {
        place_ -= token.size();
        Refuse("the number is too large or too small");
    }
    return value;
}

void JsonLineReader::ReadEnd() {
    static_cast<void>(Next_());
    if (place_ != text_.size()) Refuse("something follows the end");
}
