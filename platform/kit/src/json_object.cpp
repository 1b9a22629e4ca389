#include "kit/json_object.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "json_tree.h"
#include "kit/utf8.h"

namespace kit {

namespace {

using Kind = JsonTree::Kind;

constexpr std::size_t LongestQuoted = 40;
constexpr std::size_t MostWarnings = 10;

bool IsPlainKey(std::string_view key) {
    const auto isPlain = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
    };
    return !key.empty() && key.size() <= LongestQuoted && std::all_of(key.begin(), key.end(), isPlain);
}

/// As short as it reads back: "0.5", "1".
std::string NumberText(double number) {
    char digits[32];
    return {digits, std::to_chars(digits, digits + sizeof digits, number).ptr};
}

double NumberOf(const JsonTree& tree, const JsonTree::Value& value) {
    if (value.kind == Kind::Integer) return static_cast<double>(value.integer);
    const std::string_view written = tree.See(value.text);
    double number = 0;
    // The parser has refused what is too large; what is too small stays 0.
    std::from_chars(written.data(), written.data() + written.size(), number);
    return number;
}

std::string Describe(const JsonTree& tree, const JsonTree::Value& value) {
    switch (value.kind) {
        case Kind::Null:
            return "null";
        case Kind::Flag:
            return value.integer != 0 ? "true" : "false";
        case Kind::Integer:
            return std::to_string(value.integer);
        case Kind::Fraction:
            return std::string(tree.See(value.text).substr(0, LongestQuoted));
        case Kind::Text:
            return QuoteForSentence(tree.See(value.text));
        case Kind::List:
            return "a list";
        case Kind::Object:
            return "an object";
    }
    return {};
}

}  // namespace

std::string QuoteForSentence(std::string_view text) {
    constexpr const char* HexDigits = "0123456789abcdef";
    const std::size_t length = CutUtf8(text, LongestQuoted);
    std::string quoted = "\"";
    for (const char c : text.substr(0, length)) {
        const auto code = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            (quoted += '\\') += c;
        } else if (c == '\n') {
            quoted += "\\n";
        } else if (code < ' ' || code == 0x7F) {
            ((quoted += "\\u00") += HexDigits[code >> 4U]) += HexDigits[code & 0xFU];
        } else {
            quoted += c;
        }
    }
    if (length < text.size()) quoted += "...";
    return quoted += '"';
}

std::string JsonTree::NamePlace(std::uint32_t index) const {
    if (index == 0) return "the outermost value";
    std::string place;
    for (; index != 0; index = values[index].parent) {
        const std::uint32_t container = values[index].parent;
        std::string step;
        if (values[container].kind == Kind::Object) {
            const std::string_view key = See(values[index].key);
            step = IsPlainKey(key) ? std::string(key) : QuoteForSentence(key);
            if (container != 0) step.insert(0, 1, '.');
        } else {
            std::size_t position = 0;
            for (std::uint32_t before = FirstOf(container); before != index; before = values[before].next)
                ++position;
            step = "[" + std::to_string(position) + "]";
        }
        place.insert(0, step);
    }
    return place;
}

void JsonTree::Fail(std::uint32_t index, const std::string& problem) const {
    throw std::runtime_error(name + ": " + NamePlace(index) + " " + problem);
}

void JsonValue::Fail(const std::string& problem) const {
    tree_->Fail(index_, problem);
}

void JsonValue::FailAs(const std::string& problem) const {
    Fail(problem + ", not " + Describe(*tree_, tree_->values[index_]));
}

bool JsonValue::IsNull() const {
    return tree_->values[index_].kind == Kind::Null;
}

bool JsonValue::AsFlag() const {
    if (tree_->values[index_].kind != Kind::Flag) FailAs("must be true or false");
    return tree_->values[index_].integer != 0;
}

std::string JsonValue::AsText(std::size_t longest) const {
    const JsonTree::Value& value = tree_->values[index_];
    if (value.kind != Kind::Text) FailAs("must be text");
    if (value.text.length > longest) Fail("must not be longer than " + std::to_string(longest) + " bytes");
    return std::string(tree_->See(value.text));
}

std::string JsonValue::AsFilledText() const {
    std::string text = AsText();
    if (text.empty()) Fail("must not be empty");
    return text;
}

std::int64_t JsonValue::AsInteger(std::int64_t lowest, std::int64_t highest) const {
    const JsonTree::Value& value = tree_->values[index_];
    if (value.kind != Kind::Integer || value.integer < lowest || value.integer > highest)
        FailAs("must be a whole number from " + std::to_string(lowest) + " to " + std::to_string(highest));
    return value.integer;
}

std::uint32_t JsonValue::AsUnsigned(std::uint32_t highest) const {
    return static_cast<std::uint32_t>(AsInteger(0, highest));
}

double JsonValue::AsNumber(double lowest, double highest) const {
    const JsonTree::Value& value = tree_->values[index_];
    const bool isNumber = value.kind == Kind::Integer || value.kind == Kind::Fraction;
    const double number = isNumber ? NumberOf(*tree_, value) : 0;
    if (!isNumber || number < lowest || number > highest)
        FailAs("must be a number from " + NumberText(lowest) + " to " + NumberText(highest));
    return number;
}

double JsonValue::AsNumber() const {
    const JsonTree::Value& value = tree_->values[index_];
    if (value.kind != Kind::Integer && value.kind != Kind::Fraction) FailAs("must be a number");
    return NumberOf(*tree_, value);
}

JsonObject JsonValue::AsObject() const {
    return JsonObject(*this);
}

std::vector<JsonValue> JsonValue::AsList(std::size_t most) const {
    const JsonTree::Value& value = tree_->values[index_];
    if (value.kind != Kind::List) FailAs("must be a list");
    const auto count = static_cast<std::size_t>(value.integer);
    if (count > most) Fail("must not have more than " + std::to_string(most) + " elements");
    std::vector<JsonValue> elements;
    elements.reserve(count);
    for (std::uint32_t index = tree_->FirstOf(index_); index != 0; index = tree_->values[index].next)
        elements.emplace_back(*tree_, index);
    return elements;
}

bool JsonValue::IsText_(std::string_view text) const {
    const JsonTree::Value& value = tree_->values[index_];
    return value.kind == Kind::Text && tree_->See(value.text) == text;
}

void JsonValue::AppendChoice_(std::string& choices, std::string_view word) {
    choices += choices.empty() ? "one of \"" : ", \"";
    (choices += word) += '"';
}

JsonObject::JsonObject(const JsonValue& value) : value_(value), tree_(value.tree_), index_(value.index_) {
    if (tree_->values[index_].kind != Kind::Object) value_.FailAs("must be an object");
}

std::optional<JsonValue> JsonObject::Find(std::string_view key) {
    for (std::uint32_t index = tree_->FirstOf(index_); index != 0; index = tree_->values[index].next) {
        if (tree_->See(tree_->values[index].key) != key) continue;
        asked_.push_back(index);
        return JsonValue(*tree_, index);
    }
    return std::nullopt;
}

JsonValue JsonObject::Get(std::string_view key) {
    const std::optional<JsonValue> value = Find(key);
    if (value) return *value;
    const std::string place = index_ == 0 ? "" : tree_->NamePlace(index_) + ".";
    throw std::runtime_error(tree_->name + ": " + place + std::string(key) + " is missing");
}

std::vector<JsonValue> JsonObject::OtherKeys_() const {
    std::vector<std::uint32_t> asked = asked_;
    std::sort(asked.begin(), asked.end());
    std::vector<JsonValue> others;
    for (std::uint32_t index = tree_->FirstOf(index_); index != 0; index = tree_->values[index].next)
        if (!std::binary_search(asked.begin(), asked.end(), index)) others.emplace_back(*tree_, index);
    return others;
}

void JsonObject::RefuseOtherKeys() const {
    const std::vector<JsonValue> others = OtherKeys_();
    if (!others.empty()) others.front().Fail("is not a known key");
}

void JsonObject::WarnOfOtherKeys(std::vector<std::string>& warnings) const {
    std::vector<JsonValue> others = OtherKeys_();
    others.resize(std::min(others.size(), MostWarnings), value_);
    for (const JsonValue& other : others)
        warnings.push_back(tree_->name + ": " + tree_->NamePlace(other.index_) + " is not a known key and is ignored");
}

}  // namespace kit
