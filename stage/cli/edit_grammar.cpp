#include "stage/cli/edit_grammar.h"

#include <fmt/format.h>

#include <charconv>
#include <cstdint>
#include <memory>
#include <numeric>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "kit/file.h"

namespace {

constexpr std::uintmax_t LongestEditFile = 4U << 20U;

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
    std::vector<std::size_t> ids;
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

CLI::App* AddOperation(CLI::App& parent, const char* name, const char* description, const std::string& example,
                       const std::shared_ptr<Words>& words) {
    CLI::App* operation = parent.add_subcommand(name, description);
    operation->add_option("--song", words->song, "Number of the song, as \"stage info\" shows it")
        ->required()
        ->type_name("N");
    operation->footer("\nExample:\n  stage edit SHOW " + example);
    return operation;
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

/// Runs `find` and puts the song before what it complains of.
template <class Find>
unsigned int FindTick(stage::EditedShow& session, const Words& words, Find find) {
    const TL::BarPositions& positions = session.GetPositions(words.song);
    try {
        return find(positions);
    } catch (const std::logic_error& problem) {
        throw std::invalid_argument(fmt::format("song {}: {}", words.song, problem.what()));
    }
}

unsigned int FindStart(stage::EditedShow& session, const Words& words, const std::string& place) {
    return FindTick(session, words, [&](const auto& positions) { return positions.FindStartTick(place); });
}

unsigned int FindEnd(stage::EditedShow& session, const Words& words, const std::string& place) {
    return FindTick(session, words, [&](const auto& positions) { return positions.FindEndTick(place); });
}

/// Adds a kind of edit with a range; `make` builds the edit from its ticks and the other words.
template <class Make>
CLI::App* AddRangeKind(CLI::App& add, const SessionProvider& session, const char* name, const char* description,
                       const std::string& example, const std::shared_ptr<Words>& words, Make make) {
    CLI::App* kind = AddOperation(add, name, description, example, words);
    AddRangeOptions(*kind, *words);
    kind->callback([=] {
        stage::EditedShow& target = session();
        const unsigned int start = FindStart(target, *words, words->from);
        target.Add(words->song, make(start, FindEnd(target, *words, words->to), *words));
    });
    return kind;
}

template <class Make>
CLI::App* AddPointKind(CLI::App& add, const SessionProvider& session, const char* name, const char* description,
                       const std::string& example, const std::shared_ptr<Words>& words, Make make) {
    CLI::App* kind = AddOperation(add, name, description, example, words);
    AddPointOption(*kind, *words);
    kind->callback([=] {
        stage::EditedShow& target = session();
        target.Add(words->song, make(FindStart(target, *words, words->at), *words));
    });
    return kind;
}

/// Thirty-second notes in a length such as "1/8" or "3/16".
int ReadNoteLength(const std::string& text) {
    const auto refuse = [&]() {
        throw std::invalid_argument(fmt::format("\"{}\" is not the length of a note: write 1/4, 1/8 or 3/8", text));
    };
    const std::size_t slash = text.find('/');
    if (slash == std::string::npos) refuse();
    const auto read = [&](const char* first, const char* last) {
        int number = 0;
        const auto [end, error] = std::from_chars(first, last, number);
        if (error != std::errc() || end != last || number < 1 || number > 128) refuse();
        return number;
    };
    const int numerator = read(text.data(), text.data() + slash);
    const int denominator = read(text.data() + slash + 1, text.data() + text.size());
    if (numerator * 32 % denominator != 0) refuse();
    return numerator * 32 / denominator;
}

/// "i:1", "f:0.5", "s:text".
CL::OscArgument ReadOscArgument(const std::string& text) {
    const std::string value = text.size() > 2 ? text.substr(2) : "";
    const char* const end = value.data() + value.size();
    if (text.starts_with("s:")) return value;
    if (text.starts_with("i:")) {
        int number = 0;
        const auto [stop, error] = std::from_chars(value.data(), end, number);
        if (error == std::errc() && stop == end) return number;
    }
    if (text.starts_with("f:")) {
        float number = 0;
        const auto [stop, error] = std::from_chars(value.data(), end, number);
        if (error == std::errc() && stop == end) return number;
    }
    throw std::invalid_argument(
        fmt::format("\"{}\" is not an OSC argument: write i:1, f:0.5 or s:text", text.substr(0, 64)));
}

void AddLoopKinds(CLI::App& add, const SessionProvider& session) {
    auto words = std::make_shared<Words>();
    AddRangeKind(add, session, "vamp", "Plays a range again and again until the operator goes on",
                 "add vamp --song 3 --from 12 --to 15", words,
                 [](unsigned int from, unsigned int to, const Words& w) { return CL::Vamp(from, to, w.number); })
        ->add_option("--max", words->number, "Goes on by itself after this many times; 0 is never")
        ->type_name("TIMES");

    words = std::make_shared<Words>();
    AddRangeKind(add, session, "repeat", "Plays a range a number of times in all",
                 "add repeat --song 3 --from 5 --to 8 --times 3", words,
                 [](unsigned int from, unsigned int to, const Words& w) { return CL::Repeat(from, to, w.number); })
        ->add_option("--times", words->number, "How often the range sounds, 2 or more")
        ->required()
        ->type_name("TIMES");

    words = std::make_shared<Words>();
    AddRangeKind(add, session, "cut", "Leaves a range out", "add cut --song 3 --from 20 --to 24:3", words,
                 [](unsigned int from, unsigned int to, const Words&) { return CL::Cut(from, to); });
}

void AddHoldKinds(CLI::App& add, const SessionProvider& session) {
    auto words = std::make_shared<Words>();
    AddRangeKind(add, session, "fermata", "Holds what sounds in a range until the operator goes on",
                 "add fermata --song 3 --from 16:3 --to 16:4", words,
                 [](unsigned int from, unsigned int to, const Words&) { return CL::Fermata(from, to); });

    words = std::make_shared<Words>();
    CLI::App* caesura =
        AddPointKind(add, session, "caesura", "Stops after a countdown; the operator goes on",
                     "add caesura --song 3 --at 17 --text \"wait for the door\"", words,
                     [](unsigned int tick, const Words& w) { return CL::Caesura(tick, w.text, w.versionTarget); });
    caesura->add_option("--text", words->text, "A word for the operator");
    caesura->add_option("--version-target", words->versionTarget, "Only in this version of the production; 0 is every")
        ->type_name("NUMBER");
}

void AddEffectKinds(CLI::App& add, const SessionProvider& session) {
    auto words = std::make_shared<Words>();
    AddRangeKind(add, session, "tempo-scale", "Plays a range slower or faster than written",
                 "add tempo-scale --song 3 --from 1 --to 8 --percent 92", words,
                 [](unsigned int from, unsigned int to, const Words& w) {
                     return CL::TempoScale(from, to, static_cast<float>(w.percent / 100));
                 })
        ->add_option("--percent", words->percent, "Of the written tempo, 50 to 200")
        ->required()
        ->type_name("PERCENT");

    words = std::make_shared<Words>();
    AddRangeKind(
        add, session, "transposition", "Plays a range higher or lower",
        "add transposition --song 3 --from start --to end --semitones -2", words,
        [](unsigned int from, unsigned int to, const Words& w) { return CL::Transposition(from, to, w.number); })
        ->add_option("--semitones", words->number, "Up, or down where negative, -24 to 24")
        ->required()
        ->type_name("SEMITONES");

    words = std::make_shared<Words>();
    AddRangeKind(add, session, "click", "Sets the length of the click in a range",
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
    kind.add_option("--gain", words.gainDb, "Louder or softer, -60 to 12 dB")->type_name("DB");
}

void AddSoundKinds(CLI::App& add, const SessionProvider& session) {
    auto words = std::make_shared<Words>();
    CLI::App* sfx = AddOperation(add, "sfx", "Plays a sound once",
                                 "add sfx --song 3 --at 17:3 --sound sounds/door.wav --gain -6", words);
    AddPointOption(*sfx, *words);
    sfx->add_option("--to", words->to, "Where it is cut off; it rings out without")->type_name("PLACE");
    AddSoundOptions(*sfx, *words);
    sfx->callback([=] {
        stage::EditedShow& target = session();
        const unsigned int start = FindStart(target, *words, words->at);
        const unsigned int end = words->to.empty() ? start : FindEnd(target, *words, words->to);
        target.Add(words->song, CL::Sfx(start, end, words->sound, words->gainDb));
    });

    words = std::make_shared<Words>();
    CLI::App* ambient = AddRangeKind(
        add, session, "ambient", "Plays a sound round and round through a range",
        "add ambient --song 3 --from 1 --to end --sound sounds/rain.wav", words,
        [](unsigned int from, unsigned int to, const Words& w) { return CL::SfxAmbient(from, to, w.sound, w.gainDb); });
    AddSoundOptions(*ambient, *words);
}

void AddCueKinds(CLI::App& add, const SessionProvider& session) {
    auto words = std::make_shared<Words>();
    CLI::App* osc = AddPointKind(add, session, "osc", "Sends an OSC message",
                                 "add osc --song 3 --at 17 --address /cue/go --arg i:12 --target lights", words,
                                 [](unsigned int tick, const Words& w) {
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
    AddPointKind(add, session, "marker", "Names a place", "add marker --song 3 --at 17 --text \"Dance\"", words,
                 [](unsigned int tick, const Words& w) { return CL::Marker(tick, w.text); })
        ->add_option("--text", words->text, "The name")
        ->required();
}

void AddRemoval(CLI::App& app, const SessionProvider& session) {
    auto words = std::make_shared<Words>();
    CLI::App* remove =
        AddOperation(app, "remove", "Removes edits of a song by their ids", "remove --song 3 2 5", words);
    remove->add_option("ID", words->ids, "Numbers that \"stage edit SHOW list\" shows")->required();
    remove->callback([=] { session().Remove(words->song, words->ids); });
}

void AddAttacca(CLI::App& app, const SessionProvider& session) {
    auto words = std::make_shared<Words>();
    CLI::App* attacca = AddOperation(app, "attacca", "Sets how a song follows on", "attacca --song 3 attacca", words);
    attacca
        ->add_option("STATE", words->attacca,
                     "normal: stop at the end; attacca: the next song follows at once; skip: the song is passed over")
        ->required()
        ->check(CLI::IsMember({"normal", "attacca", "skip"}));
    attacca->callback([=] {
        const unsigned char state = words->attacca == "skip"      ? CL::AttaccaSkip
                                    : words->attacca == "attacca" ? CL::AttaccaNext
                                                                  : CL::AttaccaNormal;
        session().SetAttacca(words->song, state);
    });
}

}  // namespace

void AddEditOperations(CLI::App& app, const SessionProvider& session) {
    CLI::App* add = app.add_subcommand("add", "Adds one edit");
    add->require_subcommand(1);
    AddLoopKinds(*add, session);
    AddHoldKinds(*add, session);
    AddEffectKinds(*add, session);
    AddSoundKinds(*add, session);
    AddCueKinds(*add, session);
    AddRemoval(app, session);
    AddAttacca(app, session);
}

void ApplyEditFile(const std::string& path, const SessionProvider& session) {
    std::istringstream lines(kit::ReadFile(path, LongestEditFile));
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        const std::size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos || line[first] == '#') continue;
        CLI::App app;
        app.set_help_flag();
        app.require_subcommand(1);
        AddEditOperations(app, session);
        for (CLI::App* operation : app.get_subcommands({}))
            operation->set_help_flag();
        try {
            app.parse(line.substr(first, line.find_last_not_of(" \t\r") - first + 1));
        } catch (const std::exception& problem) {
            throw std::runtime_error(fmt::format("{}, line {}: {}", path, number, problem.what()));
        }
    }
}
