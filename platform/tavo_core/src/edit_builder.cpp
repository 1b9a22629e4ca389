#include "edit_builder.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <numeric>
#include <type_traits>
#include <utility>

#include "kit/utf8.h"
#include "number_text.h"

namespace tavo_core {

namespace {

constexpr std::string_view KindKey = "kind";

std::optional<logdata::Field> FindField(std::string_view key) {
    const auto found = std::find(logdata::FieldNames.begin(), logdata::FieldNames.end(), key);
    if (found == logdata::FieldNames.end()) return std::nullopt;
    return static_cast<logdata::Field>(found - logdata::FieldNames.begin());
}

std::optional<unsigned char> FindKind(const std::string& name) {
    for (const auto& [code, editName] : codes::editNameByTavoEventCode) {
        if (editName == name) return code;
    }
    return std::nullopt;
}

}  // namespace

std::string Shorten(std::string_view text) {
    constexpr std::size_t LongestQuote = 64;
    std::string quote(text.substr(0, kit::CutUtf8(text, LongestQuote)));
    std::replace_if(
        quote.begin(), quote.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }, ' ');
    return quote.size() < text.size() ? quote + "..." : quote;
}

Value Value::Whole(std::int64_t number) {
    return {.type = Type::Whole, .number = static_cast<float>(number), .integer = number, .text = {}};
}

Value Value::Fraction(double number, const std::string& token) {
    Value value{.type = Type::Fraction, .number = 0, .integer = 0, .text = {}};
    const auto result = std::from_chars(token.data(), token.data() + token.size(), value.number);
    if (result.ec == std::errc::result_out_of_range && std::abs(number) > 1)
        value.number = std::copysign(std::numeric_limits<float>::infinity(), number > 0 ? 1.0F : -1.0F);
    return value;
}

Value Value::Text(std::string text) {
    return {.type = Type::Text, .number = 0, .integer = 0, .text = std::move(text)};
}

void EditsOfSong::MoveTo(CL::SongLog& songLog) {
    songLog.ForEachSequence([this](auto& sequence) {
        using Edit = typename std::remove_reference_t<decltype(sequence)>::value_type;
        auto& edits = std::get<std::vector<Edit>>(edits_);
        std::vector<std::size_t> order(edits.size());
        std::iota(order.begin(), order.end(), std::size_t{0});
        std::sort(order.begin(), order.end(), [&edits](std::size_t a, std::size_t b) {
            return std::pair(edits[a].abs_time(), a) < std::pair(edits[b].abs_time(), b);
        });
        for (const std::size_t index : order)
            sequence.Add(std::move(edits[index]));
        edits.clear();
    });
}

bool EditBuilder::KnowsKey(std::string_view key) const {
    return key == KindKey || FindField(key).has_value();
}

bool EditBuilder::HasKey(std::string_view key) const {
    if (key == KindKey) return kind_.has_value();
    const auto field = FindField(key);
    if (field == Field::Arguments) return arguments_.has_value();
    return field && fields_[static_cast<std::size_t>(*field)].has_value();
}

bool EditBuilder::Take(std::string_view key, Value value) {
    if (key == KindKey) {
        if (value.type != Value::Type::Text) return false;
        kind_ = std::move(value.text);
        return true;
    }
    const Field field = FindField(key).value();
    if (field == Field::Arguments) return false;
    fields_[static_cast<std::size_t>(field)] = std::move(value);
    return true;
}

bool EditBuilder::TakeArgument(Value value) {
    if (value.type == Value::Type::Text) {
        arguments_->emplace_back(std::move(value.text));
    } else if (value.type == Value::Type::Fraction && std::isfinite(value.number)) {
        arguments_->emplace_back(value.number);
    } else if (value.type == Value::Type::Whole && std::in_range<int>(value.integer)) {
        arguments_->emplace_back(static_cast<int>(value.integer));
    } else {
        return false;
    }
    return true;
}

void EditBuilder::AddTo(EditsOfSong& edits) {
    if (!kind_) throw BadEdit("the edit lacks \"kind\"");
    const auto code = FindKind(*kind_);
    if (!code) throw BadEdit(fmt::format("\"{}\" is not a kind of edit", Shorten(*kind_)));
    if (*code == codes::Caesura || *code == codes::Marker || *code == codes::Osc)
        AddPointTo(edits, *code);
    else
        AddPairedTo(edits, *code);

    for (std::size_t i = 0; i < fields_.size(); ++i) {
        if (fields_[i]) throw BadEdit(fmt::format("the kind \"{}\" has no \"{}\"", *kind_, logdata::FieldNames[i]));
    }
    if (arguments_) throw BadEdit(fmt::format("the kind \"{}\" has no \"arguments\"", *kind_));
}

void EditBuilder::AddPairedTo(EditsOfSong& edits, unsigned char code) {
    using namespace logdata;
    const unsigned int start = TakeUnsigned(Field::Start);
    const unsigned int end = TakeUnsigned(Field::End);
    switch (code) {
        case codes::Vamp:
            return edits.Add(CL::Vamp(start, end, TakeInt(Field::MaxCount, 0, HighestCount)));
        case codes::Repeat:
            return edits.Add(CL::Repeat(start, end, TakeInt(Field::Count, 0, HighestCount)));
        case codes::Cut:
            return edits.Add(CL::Cut(start, end));
        case codes::Fermata:
            return edits.Add(CL::Fermata(start, end));
        case codes::TempoScale:
            return edits.Add(CL::TempoScale(start, end, TakeTempoScale()));
        case codes::Transposition:
            return edits.Add(CL::Transposition(
                start, end,
                TakeInt(Field::Semitones, CL::Transposition::LowestSemitones, CL::Transposition::HighestSemitones)));
        case codes::Click:
            return edits.Add(CL::Click(start, end, TakeInt(Field::ThirtySecondsPerClick, 1, LongestClick)));
        default:
            break;
    }
    std::string sound = TakeText(Field::Sound);
    const float gainDb = TakeFloat(Field::GainDb, LowestGainDb, HighestGainDb);
    if (code == codes::Sfx)
        edits.Add(CL::Sfx(start, end, std::move(sound), gainDb));
    else
        edits.Add(CL::SfxAmbient(start, end, std::move(sound), gainDb));
}

void EditBuilder::AddPointTo(EditsOfSong& edits, unsigned char code) {
    const unsigned int tick = TakeUnsigned(Field::Tick);
    if (code == codes::Osc) {
        std::string target = TakeText(Field::Target);
        std::string address = TakeAddress();
        return edits.Add(CL::Osc(tick, std::move(target), std::move(address), TakeArguments()));
    }
    std::string text = TakeText(Field::Text);
    if (code == codes::Marker) return edits.Add(CL::Marker(tick, std::move(text)));
    edits.Add(CL::Caesura(tick, text, TakeUnsigned(Field::VersionTarget)));
}

Value EditBuilder::TakeOut(Field field) {
    auto& stored = fields_[static_cast<std::size_t>(field)];
    if (!stored) throw BadEdit(fmt::format("the kind \"{}\" needs \"{}\"", *kind_, logdata::NameOf(field)));
    return *std::exchange(stored, std::nullopt);
}

std::int64_t EditBuilder::TakeWhole(Field field, std::int64_t lowest, std::int64_t highest) {
    const Value value = TakeOut(field);
    if (value.type != Value::Type::Whole || value.integer < lowest || value.integer > highest)
        throw BadEdit(
            fmt::format("\"{}\" must be a whole number from {} to {}", logdata::NameOf(field), lowest, highest));
    return value.integer;
}

int EditBuilder::TakeInt(Field field, int lowest, int highest) {
    return static_cast<int>(TakeWhole(field, lowest, highest));
}

unsigned int EditBuilder::TakeUnsigned(Field field) {
    return static_cast<unsigned int>(TakeWhole(field, 0, std::numeric_limits<unsigned int>::max()));
}

float EditBuilder::TakeFloat(Field field, float lowest, float highest) {
    const Value value = TakeOut(field);
    const bool isNumber = value.type == Value::Type::Whole || value.type == Value::Type::Fraction;
    if (!isNumber || !(value.number >= lowest && value.number <= highest))
        throw BadEdit(fmt::format("\"{}\" must be a number from {} to {}", logdata::NameOf(field), lowest, highest));
    return value.number;
}

float EditBuilder::TakeTempoScale() {
    const float scale = TakeFloat(Field::Scale, 0.0F, logdata::HighestTempoScale);
    if (scale == 0.0F) throw BadEdit("\"scale\" must be above 0");
    return scale;
}

std::string EditBuilder::TakeText(Field field) {
    Value value = TakeOut(field);
    if (value.type != Value::Type::Text) throw BadEdit(fmt::format("\"{}\" must be text", logdata::NameOf(field)));
    return std::move(value.text);
}

std::string EditBuilder::TakeAddress() {
    std::string address = TakeText(Field::Address);
    if (address.empty() || address.front() != '/') throw BadEdit("an OSC \"address\" must begin with '/'");
    return address;
}

std::vector<CL::OscArgument> EditBuilder::TakeArguments() {
    if (!arguments_) throw BadEdit("the kind \"OSC\" needs \"arguments\"");
    return *std::exchange(arguments_, std::nullopt);
}

}  // namespace tavo_core
