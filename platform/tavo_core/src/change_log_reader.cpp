#include "change_log_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "change_log_format.h"
#include "edit_builder.h"
#include "kit/utf8.h"

namespace tavo_core {

namespace {

using logdata::Field;

std::size_t LineOf(const std::string& text, std::size_t offset) {
    const auto place = text.begin() + static_cast<std::ptrdiff_t>(std::min(offset, text.size()));
    return 1 + static_cast<std::size_t>(std::count(text.begin(), place, '\n'));
}

/// Reads a text and leaves word of how far it came, for the line numbers in sentences.
class WatchedIterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    WatchedIterator(const char* at, const char*& reached) : at_(at), reached_(&reached) {}
    reference operator*() const { return *at_; }
    WatchedIterator& operator++() { return *reached_ = ++at_, *this; }
    bool operator==(const WatchedIterator& other) const { return at_ == other.at_; }

private:
    const char* at_;
    const char** reached_;
};

/// The events of the JSON reader, in the manner of its SAX interface, turned into a change log. At every moment it
/// holds one edit in parts and one song's edits, and it refuses at once what has no place.
class Reader {
public:
    Reader(const std::string& text, const std::string& name) : text_(text), name_(name), reached_(text.data()) {}

    CL::ChangeLog Read() {
        const std::size_t illFormed = kit::FindIllFormedUtf8(text_);
        if (illFormed != std::string::npos)
            throw std::runtime_error(
                fmt::format("{}, line {}: the text is not well-formed UTF-8", name_, LineOf(text_, illFormed)));
        WatchedIterator begin(text_.data(), reached_);
        WatchedIterator end(text_.data() + text_.size(), reached_);
        nlohmann::json::sax_parse(begin, end, this);
        return std::move(log_);
    }

    bool null() { return Take(Value()); }
    bool boolean(bool) { return Take(Value{.type = Value::Type::Boolean, .number = 0, .integer = 0, .text = {}}); }
    bool number_integer(std::int64_t number) { return Take(Value::Whole(number)); }
    bool number_unsigned(std::uint64_t number) {
        constexpr auto Highest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
        return Take(Value::Whole(static_cast<std::int64_t>(std::min(number, Highest))));
    }
    bool number_float(double number, const std::string& token) { return Take(Value::Fraction(number, token)); }
    bool string(std::string& text) {
        if (text.size() > logdata::LongestText)
            Fail(fmt::format("a text is longer than {} bytes", logdata::LongestText));
        return Take(Value::Text(std::move(text)));
    }
    bool binary(nlohmann::json::binary_t&) { Fail("there is no binary data in a change log"); }

    bool start_object(std::size_t);
    bool key(std::string& name);
    bool end_object();
    bool start_array(std::size_t);
    bool end_array();
    bool parse_error(std::size_t, const std::string&, const nlohmann::json::exception& error) {
        constexpr int NumberOverflow = 406;
        if (error.id == NumberOverflow) Fail("a number is too large");
        Fail("the text is not valid JSON");
    }

private:
    enum class State { Start, Root, Songs, Song, Edits, Edit, Arguments };

    [[noreturn]] void Fail(const std::string& problem) const;
    [[noreturn]] void FailForType() const;
    bool Take(Value value);
    void TakeRootValue(const Value& value);
    void TakeSongValue(const Value& value);
    void Require(std::initializer_list<const char*> keys, const char* where) const;
    void FinishEdit();
    void FinishSong();

    const std::string& text_;
    const std::string& name_;
    const char* reached_;
    State state_ = State::Start;
    std::string key_;
    std::vector<std::string> rootKeys_;
    std::vector<std::string> songKeys_;
    std::size_t songsBegun_ = 0;
    std::string songNumber_;
    unsigned char attacca_ = 0;
    std::size_t editsBegun_ = 0;
    EditBuilder edit_;
    EditsOfSong edits_;
    CL::ChangeLog log_;
};

void Reader::Fail(const std::string& problem) const {
    const auto read = static_cast<std::size_t>(reached_ - text_.data());
    // A number is known to be over only when the character after it, perhaps a line's end, has been read.
    std::string place = fmt::format("{}, line {}", name_, LineOf(text_, read == 0 ? 0 : read - 1));
    if (state_ >= State::Song) {
        place += songNumber_.empty() ? fmt::format(", song entry {}", songsBegun_)
                                     : fmt::format(", song \"{}\"", Shorten(songNumber_));
    }
    if (state_ >= State::Edit) place += fmt::format(", edit {}", editsBegun_);
    throw std::runtime_error(place + ": " + problem);
}

void Reader::FailForType() const {
    switch (state_) {
        case State::Start:
            Fail("a change log must be a JSON object");
        case State::Songs:
            Fail("a song must be an object");
        case State::Edits:
            Fail("an edit must be an object");
        case State::Arguments:
            Fail("an OSC argument must be a whole number of 32 bits, a finite number or a text");
        case State::Root:
        case State::Song:
        case State::Edit:
            Fail(fmt::format("the value of \"{}\" has the wrong type", key_));
    }
    Fail("the value has the wrong type");
}

bool Reader::start_object(std::size_t) {
    switch (state_) {
        case State::Start:
            state_ = State::Root;
            return true;
        case State::Songs:
            if (++songsBegun_ > logdata::MostSongs)
                Fail(fmt::format("there are more than {} songs", logdata::MostSongs));
            state_ = State::Song;
            songKeys_.clear();
            songNumber_.clear();
            editsBegun_ = 0;
            return true;
        case State::Edits:
            ++editsBegun_;
            state_ = State::Edit;
            edit_ = EditBuilder();
            return true;
        default:
            FailForType();
    }
}

bool Reader::key(std::string& name) {
    key_ = Shorten(name);
    if (state_ == State::Edit) {
        if (!edit_.KnowsKey(name)) Fail(fmt::format("an edit has no \"{}\"", key_));
        if (edit_.HasKey(name)) Fail(fmt::format("\"{}\" is there twice", key_));
        return true;
    }
    static constexpr std::array<std::string_view, 5> RootNames{"format", "formatVersion", "show", "version", "songs"};
    static constexpr std::array<std::string_view, 3> SongNames{"number", "attacca", "edits"};
    const bool inRoot = state_ == State::Root;
    const bool known = inRoot ? std::find(RootNames.begin(), RootNames.end(), name) != RootNames.end()
                              : std::find(SongNames.begin(), SongNames.end(), name) != SongNames.end();
    if (!known) Fail(fmt::format("{} has no \"{}\"", inRoot ? "a change log" : "a song", key_));
    auto& seen = inRoot ? rootKeys_ : songKeys_;
    if (std::find(seen.begin(), seen.end(), name) != seen.end()) Fail(fmt::format("\"{}\" is there twice", key_));
    seen.push_back(name);
    return true;
}

bool Reader::start_array(std::size_t) {
    if (state_ == State::Root && key_ == "songs") {
        state_ = State::Songs;
    } else if (state_ == State::Song && key_ == "edits") {
        state_ = State::Edits;
    } else if (state_ == State::Edit && key_ == logdata::NameOf(Field::Arguments)) {
        edit_.BeginArguments();
        state_ = State::Arguments;
    } else {
        FailForType();
    }
    return true;
}

bool Reader::end_array() {
    state_ = state_ == State::Songs ? State::Root : state_ == State::Edits ? State::Song : State::Edit;
    return true;
}

bool Reader::end_object() {
    if (state_ == State::Edit) {
        FinishEdit();
        state_ = State::Edits;
    } else if (state_ == State::Song) {
        FinishSong();
        state_ = State::Songs;
    } else {
        Require({"format", "formatVersion", "show", "version", "songs"}, "the change log");
    }
    return true;
}

void Reader::Require(std::initializer_list<const char*> keys, const char* where) const {
    const auto& seen = state_ == State::Root ? rootKeys_ : songKeys_;
    for (const char* name : keys) {
        if (std::find(seen.begin(), seen.end(), name) == seen.end()) Fail(fmt::format("{} lacks \"{}\"", where, name));
    }
}

bool Reader::Take(Value value) {
    switch (state_) {
        case State::Root:
            TakeRootValue(value);
            break;
        case State::Song:
            TakeSongValue(value);
            break;
        case State::Edit:
            if (!edit_.Take(key_, std::move(value))) FailForType();
            break;
        case State::Arguments:
            if (edit_.CountArguments() == logdata::MostArguments)
                Fail(fmt::format("there are more than {} arguments", logdata::MostArguments));
            if (!edit_.TakeArgument(std::move(value))) FailForType();
            break;
        default:
            FailForType();
    }
    return true;
}

void Reader::TakeRootValue(const Value& value) {
    if (key_ == "formatVersion") {
        if (value.type != Value::Type::Whole) FailForType();
        if (value.integer != logdata::FormatVersion)
            Fail(fmt::format("the format version is {}, and only {} can be read", value.integer,
                             logdata::FormatVersion));
        return;
    }
    if (key_ == "songs" || value.type != Value::Type::Text) FailForType();
    if (key_ == "format" && value.text != logdata::FormatName)
        Fail(fmt::format("\"format\" is \"{}\", not \"{}\"", Shorten(value.text), logdata::FormatName));
    if (key_ == "show") log_.SetShowName(value.text);
    if (key_ == "version") {
        try {
            log_.GetVersion().SetWithString(value.text);
        } catch (const std::invalid_argument&) {
            Fail(fmt::format("\"{}\" is not a version (two numbers from 0 to 65535 with a point between)",
                             Shorten(value.text)));
        }
    }
}

void Reader::TakeSongValue(const Value& value) {
    if (key_ == "number" && value.type == Value::Type::Text) {
        if (value.text.empty()) Fail("the song's number is empty");
        songNumber_ = value.text;
        if (log_.GetSongLogs().contains(songNumber_)) Fail("the song is there twice");
    } else if (key_ == "attacca" && value.type == Value::Type::Whole) {
        if (value.integer < CL::AttaccaNormal || value.integer > CL::AttaccaSkip)
            Fail(fmt::format("\"attacca\" is {}, not 0, 1 or 2", value.integer));
        attacca_ = static_cast<unsigned char>(value.integer);
    } else {
        FailForType();
    }
}

void Reader::FinishEdit() {
    try {
        edit_.AddTo(edits_);
    } catch (const BadEdit& error) {
        Fail(error.what());
    }
}

void Reader::FinishSong() {
    Require({"number", "attacca", "edits"}, "the song");
    CL::SongLog songLog;
    songLog.SetAttacca(attacca_);
    edits_.MoveTo(songLog);
    log_.GetSongLogs().emplace(songNumber_, std::move(songLog));
}

}  // namespace

CL::ChangeLog ReadChangeLog(const std::string& text, const std::string& name) {
    return Reader(text, name).Read();
}

}  // namespace tavo_core
