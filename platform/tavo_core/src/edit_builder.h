#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "change_log_format.h"
#include "tavo_core/song_log.h"

namespace tavo_core {

/// `text` as a sentence can quote it: 64 bytes at most, without control characters.
[[nodiscard]] std::string Shorten(std::string_view text);

/// One value of a JSON text that is neither object nor list.
struct Value {
    enum class Type : unsigned char { Null, Boolean, Whole, Fraction, Text };

    static Value Whole(std::int64_t number);
    /// `token` is the number as written, `number` what it is as a double: only the former gives the exact float.
    static Value Fraction(double number, const std::string& token);
    static Value Text(std::string text);

    Type type = Type::Null;
    float number = 0;  ///< of Whole and Fraction; infinite where a float cannot hold it
    std::int64_t integer = 0;
    std::string text;
};

/// The edits of one song in the order of reading.
class EditsOfSong {
public:
    template <class Edit>
    void Add(Edit edit) {
        std::get<std::vector<Edit>>(edits_).push_back(std::move(edit));
    }
    /// Fills the song log's empty sequences. Sorts first, so that no order in a file is slow to read.
    void MoveTo(CL::SongLog& songLog);

private:
    std::tuple<std::vector<CL::Vamp>, std::vector<CL::Repeat>, std::vector<CL::Cut>, std::vector<CL::Transposition>,
               std::vector<CL::TempoScale>, std::vector<CL::Click>, std::vector<CL::Caesura>, std::vector<CL::Fermata>,
               std::vector<CL::Sfx>, std::vector<CL::SfxAmbient>, std::vector<CL::Osc>, std::vector<CL::Marker>>
        edits_;
};

/// What is wrong with an edit, as the end of a sentence without its full stop.
class BadEdit : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Gathers one edit's kind and fields, in whatever order they come, and makes the edit of them.
class EditBuilder {
public:
    [[nodiscard]] bool KnowsKey(std::string_view key) const;
    [[nodiscard]] bool HasKey(std::string_view key) const;

    /// The value of a known key; false where it has a type that the key never has.
    [[nodiscard]] bool Take(std::string_view key, Value value);
    void BeginArguments() { arguments_.emplace(); }
    [[nodiscard]] bool TakeArgument(Value value);
    [[nodiscard]] std::size_t CountArguments() const { return arguments_->size(); }

    /// Throws BadEdit where the kind is unknown, or a field is missing, too much or out of its range.
    void AddTo(EditsOfSong& edits);

private:
    using Field = logdata::Field;

    void AddPairedTo(EditsOfSong& edits, unsigned char code);
    void AddPointTo(EditsOfSong& edits, unsigned char code);
    [[nodiscard]] Value TakeOut(Field field);
    [[nodiscard]] std::int64_t TakeWhole(Field field, std::int64_t lowest, std::int64_t highest);
    [[nodiscard]] int TakeInt(Field field, int lowest, int highest);
    [[nodiscard]] unsigned int TakeUnsigned(Field field);
    [[nodiscard]] float TakeFloat(Field field, float lowest, float highest);
    [[nodiscard]] std::string TakeText(Field field);
    [[nodiscard]] std::vector<CL::OscArgument> TakeArguments();
    [[nodiscard]] std::string TakeAddress();
    [[nodiscard]] float TakeTempoScale();

    std::optional<std::string> kind_;
    std::array<std::optional<Value>, logdata::FieldCount> fields_;
    std::optional<std::vector<CL::OscArgument>> arguments_;
};

}  // namespace tavo_core
