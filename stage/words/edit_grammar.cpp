#include "stage/words/edit_grammar.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <memory>
#include <numeric>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "kit/words.h"
#include "stage/words/edit_changes.h"
#include "stage/words/edit_values.h"
#include "stage/words/usage_problem.h"
#include "stage/words/value_checks.h"

namespace stage {

namespace {

/// The words of one operation, filled in while the command line is parsed.
struct Words {
    std::string song;
    std::string from;
    std::string to;
    std::string at;
    std::string text;
    std::string sound;
    std::string length;
    std::string target;
    std::string address;
    std::vector<std::string> arguments;
    std::string attacca;
    int number = 0;
    double percent = 100;
    float gainDb = 0;
    unsigned int versionTarget = 0;
};

constexpr const char* PlaceHelp =
    "\nPlaces: 17 is a bar, 17:3 its third beat, 17:3+120 a place 120 ticks later, t9600 a tick, also start and end.\n"
    "A range ends after the whole bar where --to names a bar (--from 12 --to 15 is four bars), and before the beat\n"
    "where it names a beat (--to 16:1 ends at the same place).\n";

/// Adds what `make` makes for each song; where one of them is refused, none is added.
template <class Make>
void AddToAll(EditTarget& target, const std::vector<std::string>& songs, Make make) {
    std::vector<std::pair<std::string, CL::AnyEdit>> edits;
    for (const std::string& song : songs)
        edits.emplace_back(song, make(song));
    std::size_t added = 0;
    try {
        for (const auto& [song, edit] : edits) {
            target.Add(song, edit);
            ++added;
        }
    } catch (...) {
        while (added-- > 0)
            target.Remove(edits[added].first, {edits[added].second});
        throw;
    }
}

/// Where edits go, and whether their words have to name the song.
struct Grammar {
    EditTargetProvider target;
    bool needsSong = true;
};

CLI::App* AddOperation(CLI::App& parent, const Grammar& grammar, const char* name, const char* description,
                       const std::string& example, const std::shared_ptr<Words>& words) {
    CLI::App* operation = parent.add_subcommand(name, description);
    operation->add_option("--song", words->song, "Number of the song, as `stage info` shows it; 3,5..7 are several")
        ->required(grammar.needsSong)
        ->type_name("N");
    operation->footer("\nExample:\n  stage edit myshow " + example);
    return operation;
}

std::vector<std::string> FindSongs(EditTarget& target, const Words& words) {
    return FindSongs(target, words.song);
}

void AddRangeOptions(CLI::App& kind, Words& words) {
    kind.add_option("--from", words.from, "Where it begins")->required()->type_name("PLACE");
    kind.add_option("--to", words.to, "The last bar, or the beat or tick where it is over")
        ->required()
        ->type_name("PLACE");
    kind.footer(PlaceHelp + kind.get_footer());
}

void AddPointOption(CLI::App& kind, Words& words) {
    kind.add_option("--at", words.at, "Where it stands")->required()->type_name("PLACE");
    kind.footer(PlaceHelp + kind.get_footer());
}

/// Adds a kind of edit with a range; `make` builds the edit from its ticks and the other words.
template <class Make>
CLI::App* AddRangeKind(CLI::App& add, const Grammar& grammar, const char* name, const char* description,
                       const std::string& example, const std::shared_ptr<Words>& words, Make make) {
    CLI::App* kind = AddOperation(add, grammar, name, description, example, words);
    AddRangeOptions(*kind, *words);
    kind->callback([=] {
        EditTarget& target = grammar.target();
        AddToAll(target, FindSongs(target, *words), [&](const std::string& song) -> CL::AnyEdit {
            const unsigned int start = FindStart(target, song, words->from);
            return make(start, FindEnd(target, song, words->to), *words);
        });
    });
    return kind;
}

template <class Make>
CLI::App* AddPointKind(CLI::App& add, const Grammar& grammar, const char* name, const char* description,
                       const std::string& example, const std::shared_ptr<Words>& words, Make make) {
    CLI::App* kind = AddOperation(add, grammar, name, description, example, words);
    AddPointOption(*kind, *words);
    kind->callback([=] {
        EditTarget& target = grammar.target();
        AddToAll(target, FindSongs(target, *words), [&](const std::string& song) -> CL::AnyEdit {
            return make(FindStart(target, song, words->at), *words);
        });
    });
    return kind;
}

void AddLoopKinds(CLI::App& add, const Grammar& grammar) {
    auto words = std::make_shared<Words>();
    AddRangeKind(add, grammar, "vamp", "Plays a range again and again until the operator goes on",
                 "add vamp --song 3 --from 12 --to 15", words,
                 [](unsigned int from, unsigned int to, const Words& w) { return CL::Vamp(from, to, w.number); })
        ->add_option("--max", words->number, "Goes on by itself after this many times; 0 is never")
        ->type_name("TIMES")
        ->check(IsWholeNumber());

    words = std::make_shared<Words>();
    AddRangeKind(add, grammar, "repeat", "Plays a range a number of times in all",
                 "add repeat --song 3 --from 5 --to 8 --times 3", words,
                 [](unsigned int from, unsigned int to, const Words& w) { return CL::Repeat(from, to, w.number); })
        ->add_option("--times", words->number, "How often the range sounds, 2 or more")
        ->required()
        ->type_name("TIMES")
        ->check(IsWholeNumber());

    words = std::make_shared<Words>();
    AddRangeKind(add, grammar, "cut", "Leaves a range out", "add cut --song 3 --from 20 --to 24:3", words,
                 [](unsigned int from, unsigned int to, const Words&) { return CL::Cut(from, to); });
}

void AddHoldKinds(CLI::App& add, const Grammar& grammar) {
    auto words = std::make_shared<Words>();
    AddRangeKind(add, grammar, "fermata", "Holds what sounds in a range until the operator goes on",
                 "add fermata --song 3 --from 16:3 --to 16:4", words,
                 [](unsigned int from, unsigned int to, const Words&) { return CL::Fermata(from, to); });

    words = std::make_shared<Words>();
    CLI::App* caesura =
        AddPointKind(add, grammar, "caesura", "Stops after a countdown; the operator goes on",
                     "add caesura --song 3 --at 17 --text \"wait for the door\"", words,
                     [](unsigned int tick, const Words& w) { return CL::Caesura(tick, w.text, w.versionTarget); });
    caesura->add_option("--text", words->text, "A word for the operator")->type_name("TEXT");
    caesura
        ->add_option("--version-target", words->versionTarget,
                     "The version of the production it is noted for, 0 for none: it stops in all of them; 4294967295 "
                     "leaves it out")
        ->type_name("NUMBER")
        ->check(IsWholeNumber(0, 4294967295));
}

void AddEffectKinds(CLI::App& add, const Grammar& grammar) {
    auto words = std::make_shared<Words>();
    AddRangeKind(add, grammar, "tempo-scale", "Plays a range slower or faster than written",
                 "add tempo-scale --song 3 --from 1 --to 8 --percent 92", words,
                 [](unsigned int from, unsigned int to, const Words& w) {
                     return CL::TempoScale(from, to, static_cast<float>(w.percent / 100));
                 })
        ->add_option("--percent", words->percent, "Of the written tempo, 50 to 200")
        ->required()
        ->type_name("PERCENT")
        ->check(IsNumber());

    words = std::make_shared<Words>();
    AddRangeKind(
        add, grammar, "transposition", "Plays a range higher or lower",
        "add transposition --song 3 --from 1 --to end --semitones -2", words,
        [](unsigned int from, unsigned int to, const Words& w) { return CL::Transposition(from, to, w.number); })
        ->add_option("--semitones", words->number, "Up, or down where negative, -24 to 24")
        ->required()
        ->type_name("SEMITONES")
        ->check(IsWholeNumber());

    words = std::make_shared<Words>();
    AddRangeKind(add, grammar, "click", "Sets the length of the click in a range",
                 "add click --song 3 --from 9 --to 12 --every 1/8", words,
                 [](unsigned int from, unsigned int to, const Words& w) {
                     return CL::Click(from, to, ReadNoteLength(w.length));
                 })
        ->add_option("--every", words->length, "A note's length: 1/8, 3/8; it must divide the bar")
        ->required()
        ->type_name("LENGTH");
}

void AddSoundOptions(CLI::App& kind, Words& words) {
    kind.add_option("--sound", words.sound, "Sound file, relative to the show directory")
        ->required()
        ->type_name("FILE");
    kind.add_option("--gain", words.gainDb, "Louder or softer, -60 to 12 dB")->type_name("DB")->check(IsNumber());
}

void AddSoundKinds(CLI::App& add, const Grammar& grammar) {
    auto words = std::make_shared<Words>();
    CLI::App* sfx = AddOperation(add, grammar, "sfx", "Plays a sound once",
                                 "add sfx --song 3 --at 17:3 --sound sounds/door.wav --gain -6", words);
    AddPointOption(*sfx, *words);
    sfx->add_option("--to", words->to, "Where it is cut off; it rings out without")->type_name("PLACE");
    AddSoundOptions(*sfx, *words);
    sfx->callback([=] {
        EditTarget& target = grammar.target();
        AddToAll(target, FindSongs(target, *words), [&](const std::string& song) -> CL::AnyEdit {
            const unsigned int start = FindStart(target, song, words->at);
            const unsigned int end = words->to.empty() ? start : FindEnd(target, song, words->to);
            return CL::Sfx(start, end, words->sound, words->gainDb);
        });
    });

    words = std::make_shared<Words>();
    CLI::App* ambient = AddRangeKind(
        add, grammar, "ambient", "Plays a sound round and round through a range",
        "add ambient --song 3 --from 1 --to end --sound rain.wav", words,
        [](unsigned int from, unsigned int to, const Words& w) { return CL::SfxAmbient(from, to, w.sound, w.gainDb); });
    AddSoundOptions(*ambient, *words);
}

void AddCueKinds(CLI::App& add, const Grammar& grammar) {
    auto words = std::make_shared<Words>();
    CLI::App* osc =
        AddPointKind(add, grammar, "osc", "Sends an OSC message", "add osc --song 3 --at 17 --address /go --arg i:12",
                     words, [](unsigned int tick, const Words& w) {
                         std::vector<CL::OscArgument> arguments;
                         for (const std::string& argument : w.arguments)
                             arguments.push_back(ReadOscArgument(argument));
                         return CL::Osc(tick, w.target, w.address, std::move(arguments));
                     });
    osc->add_option("--address", words->address, "Address pattern, beginning with /")->required()->type_name("ADDRESS");
    osc->add_option("--arg", words->arguments, "An argument, may be given again: i:1, f:0.5 or s:text")
        ->type_name("ARGUMENT")
        ->allow_extra_args(false);
    osc->add_option("--target", words->target, "A target of settings.json; the first one without")->type_name("NAME");

    words = std::make_shared<Words>();
    AddPointKind(add, grammar, "marker", "Names a place", "add marker --song 3 --at 17 --text \"Dance\"", words,
                 [](unsigned int tick, const Words& w) { return CL::Marker(tick, w.text); })
        ->add_option("--text", words->text, "The name")
        ->required();
}

void AddAttacca(CLI::App& app, const Grammar& grammar) {
    auto words = std::make_shared<Words>();
    CLI::App* attacca =
        AddOperation(app, grammar, "attacca", "Sets how a song follows on", "attacca --song 3 attacca", words);
    attacca
        ->add_option("STATE", words->attacca,
                     "normal: stop at the end; attacca: the next song follows at once; skip: the song is passed over")
        ->required()
        ->check(IsOneOf({"normal", "attacca", "skip"}));
    attacca->callback([=] {
        const unsigned char state = words->attacca == "skip"      ? CL::AttaccaSkip
                                    : words->attacca == "attacca" ? CL::AttaccaNext
                                                                  : CL::AttaccaNormal;
        EditTarget& target = grammar.target();
        for (const std::string& song : FindSongs(target, *words))
            target.SetAttacca(song, state);
    });
}

/// Puts the names of places before bare words: "add vamp 12 15" is "add vamp --from 12 --to 15".
std::vector<std::string> NamePlaces(std::vector<std::string> words) {
    if (words.size() < 3 || words[0] != "add") return words;
    const bool isPoint = words[1] == "caesura" || words[1] == "marker" || words[1] == "osc" || words[1] == "sfx";
    const std::vector<std::string> names =
        isPoint ? std::vector<std::string>{"--at"} : std::vector<std::string>{"--from", "--to"};
    for (std::size_t i = 0; i < names.size(); ++i) {
        const std::size_t at = 2 + 2 * i;
        if (at >= words.size() || words[at].starts_with('-')) return words;
        words.insert(words.begin() + static_cast<std::ptrdiff_t>(at), names[i]);
    }
    return words;
}

}  // namespace

void AddEditOperations(CLI::App& app, const EditTargetProvider& target, bool needsSong) {
    const Grammar grammar{target, needsSong};
    CLI::App* add = app.add_subcommand("add", "Adds one edit");
    add->require_subcommand(1);
    add->footer("Example:\n  stage edit myshow add caesura --song 3 --at 17:3 --text \"wait for the door\"");
    AddLoopKinds(*add, grammar);
    AddHoldKinds(*add, grammar);
    AddEffectKinds(*add, grammar);
    AddSoundKinds(*add, grammar);
    AddCueKinds(*add, grammar);
    AddEditChanges(app, target, needsSong);
    AddAttacca(app, grammar);
}

void DoEditLine(const std::string& line, EditTarget& target) {
    CLI::App app;
    app.set_help_flag();
    app.require_subcommand(1);
    AddEditOperations(
        app, [&target]() -> EditTarget& { return target; }, target.GetUnnamedSong().empty());
    for (CLI::App* operation : app.get_subcommands({}))
        operation->set_help_flag();
    std::vector<std::string> words = CLI::detail::split_up(line);
    words = NamePlaces(std::move(words));
    // The parser begins at the end.
    std::reverse(words.begin(), words.end());
    try {
        app.parse(std::move(words));
    } catch (const CLI::ParseError& problem) {
        throw std::runtime_error(DescribeUsageProblem(app, problem));
    }
}

void DoEditLines(std::istream& lines, const std::string& name, EditTarget& target) {
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        const std::size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos || line[first] == '#') continue;
        try {
            DoEditLine(line.substr(first, line.find_last_not_of(" \t\r") - first + 1), target);
        } catch (const std::exception& problem) {
            throw std::runtime_error(fmt::format("{}, line {}: {}", name, number, problem.what()));
        }
    }
}

}  // namespace stage
