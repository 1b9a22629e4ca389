#include "stage/words/edit_changes.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>

#include "stage/show/edit_list.h"
#include "stage/words/edit_values.h"
#include "stage/words/value_checks.h"
#include "tavo_core/edit_text.h"

namespace stage {

namespace {

/// The edits of a song under their ids.
class NumberedEdits {
public:
    NumberedEdits(EditTarget& target, std::string song) : song_(std::move(song)), ids_(target.GetIds(song_)) {
        const std::shared_ptr<const CL::ChangeLog> log = target.GetLog();
        const auto songLog = log->GetSongLogs().find(song_);
        if (songLog != log->GetSongLogs().end()) edits_ = CopyListedEdits(songLog->second);
    }

    [[nodiscard]] const CL::AnyEdit& Get(std::size_t id) const {
        const auto found = std::find(ids_.begin(), ids_.end(), id);
        if (found != ids_.end()) return edits_[static_cast<std::size_t>(found - ids_.begin())];
        if (edits_.empty()) throw std::out_of_range(fmt::format("song {} has no edits", song_));
        std::vector<std::size_t> known = ids_;
        std::sort(known.begin(), known.end());
        throw std::out_of_range(
            known.back() - known.front() + 1 == known.size()
                ? fmt::format("song {} has no edit {}, its edits are {} to {}", song_, id, known.front(), known.back())
                : fmt::format("song {} has no edit {}, its edits are {}", song_, id, fmt::join(known, ", ")));
    }

private:
    const std::string song_;
    const std::vector<std::size_t> ids_;
    std::vector<CL::AnyEdit> edits_;
};

struct ChangeWords {
    std::string song;
    std::string toSongs;
    std::string place;
    std::vector<std::size_t> ids;
    std::vector<std::string> arguments;
    /// What stands after the options, by their names.
    std::map<std::string, std::string> values;
};

/// Takes the values that an edit of this kind has; those left over are refused.
class ValueTaker {
public:
    ValueTaker(EditTarget& target, std::string song, const ChangeWords& words)
        : target_(target), song_(std::move(song)), words_(words), left_(words.values) {}

    unsigned int Start(unsigned int old, const char* name = "--from") {
        const auto text = Take(name);
        return text ? FindStart(target_, song_, *text) : old;
    }
    unsigned int End(unsigned int old) {
        const auto text = Take("--to");
        return text ? FindEnd(target_, song_, *text) : old;
    }
    int Whole(const char* name, int old) {
        const auto text = Take(name);
        return text ? std::stoi(*text) : old;
    }
    float Number(const char* name, float old) {
        const auto text = Take(name);
        return text ? std::stof(*text) : old;
    }
    std::string Text(const char* name, const std::string& old) { return Take(name).value_or(old); }
    std::optional<std::string> Take(const char* name) {
        const auto found = left_.find(name);
        if (found == left_.end()) return std::nullopt;
        std::string text = found->second;
        left_.erase(found);
        return text;
    }
    void RequireNoneLeft(const CL::AnyEdit& edit) const {
        const bool hasArguments = !words_.arguments.empty() && !std::holds_alternative<CL::Osc>(edit);
        if (left_.empty() && !hasArguments) return;
        throw std::invalid_argument(fmt::format("song {}: a {} has no {}", song_, CL::DescribeKind(CL::EventOf(edit)),
                                                left_.empty() ? "--arg" : left_.begin()->first));
    }
    [[nodiscard]] const ChangeWords& GetWords() const { return words_; }

private:
    EditTarget& target_;
    const std::string song_;
    const ChangeWords& words_;
    std::map<std::string, std::string> left_;
};

// A value at a time, in the order of the braces.
CL::AnyEdit Rebuild(const CL::Vamp& e, ValueTaker& v) {
    return CL::Vamp{v.Start(e.start()), v.End(e.end()), v.Whole("--max", e.int_value())};
}
CL::AnyEdit Rebuild(const CL::Repeat& e, ValueTaker& v) {
    return CL::Repeat{v.Start(e.start()), v.End(e.end()), v.Whole("--times", e.int_value())};
}
CL::AnyEdit Rebuild(const CL::Cut& e, ValueTaker& v) {
    return CL::Cut{v.Start(e.start()), v.End(e.end())};
}
CL::AnyEdit Rebuild(const CL::Fermata& e, ValueTaker& v) {
    return CL::Fermata{v.Start(e.start()), v.End(e.end())};
}
CL::AnyEdit Rebuild(const CL::Transposition& e, ValueTaker& v) {
    return CL::Transposition{v.Start(e.start()), v.End(e.end()), v.Whole("--semitones", e.int_value())};
}
CL::AnyEdit Rebuild(const CL::TempoScale& e, ValueTaker& v) {
    const auto percent = v.Take("--percent");
    return CL::TempoScale{v.Start(e.start()), v.End(e.end()),
                          percent ? static_cast<float>(std::stod(*percent) / 100) : e.float_value()};
}
CL::AnyEdit Rebuild(const CL::Click& e, ValueTaker& v) {
    const auto length = v.Take("--every");
    return CL::Click{v.Start(e.start()), v.End(e.end()), length ? ReadNoteLength(*length) : e.int_value()};
}
CL::AnyEdit Rebuild(const CL::Caesura& e, ValueTaker& v) {
    const auto target = v.Take("--version-target");
    return CL::Caesura{v.Start(e.abs_time(), "--at"), v.Text("--text", e.value()),
                       target ? static_cast<unsigned int>(std::stoul(*target)) : e.VersionTarget()};
}
CL::AnyEdit Rebuild(const CL::Sfx& e, ValueTaker& v) {
    // One that rings out ends where it starts, wherever that is.
    const unsigned int start = v.Start(e.start(), "--at");
    const unsigned int end = v.End(e.end() == e.start() ? start : e.end());
    return CL::Sfx{start, end, v.Text("--sound", e.sound()), v.Number("--gain", e.gain_db())};
}
CL::AnyEdit Rebuild(const CL::SfxAmbient& e, ValueTaker& v) {
    return CL::SfxAmbient{v.Start(e.start()), v.End(e.end()), v.Text("--sound", e.sound()),
                          v.Number("--gain", e.gain_db())};
}
CL::AnyEdit Rebuild(const CL::Osc& e, ValueTaker& v) {
    std::vector<CL::OscArgument> arguments;
    for (const std::string& argument : v.GetWords().arguments)
        arguments.push_back(ReadOscArgument(argument));
    return CL::Osc{v.Start(e.abs_time(), "--at"), v.Text("--target", e.target()), v.Text("--address", e.address()),
                   arguments.empty() ? e.arguments() : arguments};
}
CL::AnyEdit Rebuild(const CL::Marker& e, ValueTaker& v) {
    return CL::Marker{v.Start(e.abs_time(), "--at"), v.Text("--text", e.value())};
}

/// The edit with its places from `getTick`.
template <class GetTick>
CL::AnyEdit Place(const CL::AnyEdit& edit, GetTick getTick) {
    return std::visit(
        [&](const auto& old) -> CL::AnyEdit {
            using Edit = std::remove_cvref_t<decltype(old)>;
            const unsigned int start = getTick(old.start());
            const unsigned int end = getTick(old.end());
            if constexpr (std::is_same_v<Edit, CL::Caesura>) {
                return CL::Caesura(start, old.value(), old.VersionTarget());
            } else if constexpr (std::is_same_v<Edit, CL::Osc>) {
                return CL::Osc(start, old.target(), old.address(), old.arguments());
            } else if constexpr (std::is_same_v<Edit, CL::Marker>) {
                return CL::Marker(start, old.value());
            } else if constexpr (std::is_same_v<Edit, CL::Sfx> || std::is_same_v<Edit, CL::SfxAmbient>) {
                return Edit(start, end, old.sound(), old.gain_db());
            } else if constexpr (std::is_same_v<Edit, CL::TempoScale>) {
                return Edit(start, end, old.float_value());
            } else if constexpr (std::is_same_v<Edit, CL::Cut> || std::is_same_v<Edit, CL::Fermata>) {
                return Edit(start, end);
            } else {
                return Edit(start, end, old.int_value());
            }
        },
        edit);
}

std::string RequireOneSong(EditTarget& target, const std::string& words) {
    const std::vector<std::string> songs = FindSongs(target, words);
    if (songs.size() > 1) throw std::invalid_argument("ids belong to one song: name one with --song");
    return songs.front();
}

void ChangeEdit(EditTarget& target, const ChangeWords& words) {
    const std::string song = RequireOneSong(target, words.song);
    const CL::AnyEdit old = NumberedEdits(target, song).Get(words.ids.front());
    if (words.values.empty() && words.arguments.empty())
        throw std::invalid_argument("nothing is to be changed: give the options that are to be others");
    ValueTaker values(target, song, words);
    const CL::AnyEdit changed = std::visit([&](const auto& edit) { return Rebuild(edit, values); }, old);
    values.RequireNoneLeft(old);
    target.Change(song, old, changed);
}

void MoveEdit(EditTarget& target, const ChangeWords& words) {
    const std::string song = RequireOneSong(target, words.song);
    const CL::AnyEdit old = NumberedEdits(target, song).Get(words.ids.front());
    const unsigned int start = FindStart(target, song, words.place);
    const unsigned int oldStart = CL::EventOf(old).start();
    target.Change(song, old, Place(old, [&](unsigned int tick) { return tick - oldStart + start; }));
}

// A place is the same bar and beat in the other song, whatever its ticks are.
void CopyEdits(EditTarget& target, const ChangeWords& words) {
    const std::string song = RequireOneSong(target, words.song);
    const NumberedEdits edits(target, song);
    std::vector<std::pair<std::string, CL::AnyEdit>> copies;
    for (const std::string& other : ParseSongList(words.toSongs, target.GetMusic())) {
        if (other == song) continue;
        for (const std::size_t id : words.ids) {
            const unsigned int end = target.GetMusic().GetSongData(song).GetTimeline().GetEndTickIndex();
            copies.emplace_back(other, Place(edits.Get(id), [&](unsigned int tick) {
                                    const std::string place =
                                        tick == end ? "end" : target.GetPositions(song).DescribeTick(tick);
                                    return FindStart(target, other, place);
                                }));
        }
    }
    std::size_t made = 0;
    try {
        for (; made < copies.size(); ++made)
            target.Add(copies[made].first, copies[made].second);
    } catch (...) {
        while (made-- > 0)
            target.Remove(copies[made].first, {copies[made].second});
        throw;
    }
}

void RemoveEdits(EditTarget& target, const ChangeWords& words) {
    const std::string song = RequireOneSong(target, words.song);
    const NumberedEdits edits(target, song);
    std::vector<std::size_t> ids = words.ids;
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    std::vector<CL::AnyEdit> removed;
    for (const std::size_t id : ids)
        removed.push_back(edits.Get(id));
    target.Remove(song, removed);
}

struct ValueOption {
    const char* name;
    const char* type;
    const char* help;
};
constexpr std::array<ValueOption, 14> ValueOptions{{
    {"--from", "PLACE", "Where it begins"},
    {"--to", "PLACE", "The last bar, or the beat or tick where it is over"},
    {"--at", "PLACE", "Where it stands"},
    {"--max", "TIMES", "Of a vamp: goes on by itself after this many times; 0 is never"},
    {"--times", "TIMES", "Of a repeat: how often the range sounds"},
    {"--percent", "PERCENT", "Of a tempo scale"},
    {"--semitones", "SEMITONES", "Of a transposition"},
    {"--every", "LENGTH", "Of a click: a note's length"},
    {"--text", "TEXT", "Of a caesura or marker"},
    {"--version-target", "NUMBER", "Of a caesura"},
    {"--sound", "FILE", "Of a sound"},
    {"--gain", "DB", "Of a sound"},
    {"--address", "ADDRESS", "Of an OSC message"},
    {"--target", "NAME", "Of an OSC message"},
}};

CLI::Validator FindCheck(const std::string& type) {
    if (type == "TIMES" || type == "SEMITONES") return IsWholeNumber();
    if (type == "NUMBER") return IsWholeNumber(0, 4294967295);
    return IsNumber();
}

}  // namespace

void AddEditChanges(CLI::App& app, const EditTargetProvider& target, bool needsSong) {
    const auto addOperation = [&](const char* name, const char* purpose, const std::string& example,
                                  void (*work)(EditTarget&, const ChangeWords&)) {
        auto words = std::make_shared<ChangeWords>();
        CLI::App* operation = app.add_subcommand(name, purpose);
        operation->add_option("--song", words->song, "Number of the song")->required(needsSong)->type_name("N");
        operation->footer("\nExample:\n  stage edit myshow " + example);
        operation->callback([=] { work(target(), *words); });
        return std::pair(operation, words);
    };
    const auto addIds = [](CLI::App& operation, ChangeWords& words, bool isOne) {
        CLI::Option* ids = operation.add_option("ID", words.ids, "As `stage edit SHOW list` shows it");
        ids->required()->check(IsWholeNumber(1, 999999));
        if (isOne) ids->expected(1);
    };
    const auto [change, changeWords] = addOperation("change", "Changes one edit in place; it keeps its id",
                                                    "change --song 3 2 --to 18 --max 4", ChangeEdit);
    addIds(*change, *changeWords, true);
    for (const ValueOption& option : ValueOptions) {
        CLI::Option* added = change->add_option_function<std::string>(
            option.name,
            [words = changeWords, name = option.name](const std::string& text) { words->values[name] = text; },
            option.help);
        const std::string type = option.type;
        added->type_name(type);
        if (type == "TIMES" || type == "SEMITONES" || type == "NUMBER" || type == "PERCENT" || type == "DB")
            added->check(FindCheck(type));
    }
    change->add_option("--arg", changeWords->arguments, "Of an OSC message: all its arguments, i:1, f:0.5 or s:text")
        ->type_name("ARGUMENT")
        ->allow_extra_args(false);
    const auto [move, moveWords] =
        addOperation("move", "Moves one edit; it keeps its length and its id", "move --song 3 2 --to 14", MoveEdit);
    addIds(*move, *moveWords, true);
    move->add_option("--to", moveWords->place, "Where it begins then")->required()->type_name("PLACE");
    const auto [copy, copyWords] = addOperation("copy", "Copies edits to the same bars of other songs",
                                                "copy --song 3 2 5 --to-song 4,7..9", CopyEdits);
    addIds(*copy, *copyWords, false);
    copy->add_option("--to-song", copyWords->toSongs, "The songs: 4, or 4,7..9")->required()->type_name("N");
    const auto [remove, removeWords] =
        addOperation("remove", "Removes edits of a song by their ids", "remove --song 3 2 5", RemoveEdits);
    addIds(*remove, *removeWords, false);
}

}  // namespace stage
