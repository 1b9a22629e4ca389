#include "stage/import/musicxml/general_midi.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <utility>

namespace stage::musicxml {

namespace {

using Name = std::pair<std::string_view, int>;
constexpr std::size_t LongestName = 200;

/// Without accents; a name stands for all that begin with it.
constexpr std::array Programs = std::to_array<Name>({
    {"piano", 0},
    {"pianoforte", 0},
    {"klavier", 0},
    {"fluegel", 0},
    {"flugel", 0},
    {"keyboard", 0},
    {"pianino", 0},
    {"electric piano", 4},
    {"e piano", 4},
    {"rhodes", 4},
    {"wurlitzer", 4},
    {"harpsichord", 6},
    {"cembalo", 6},
    {"clavicembalo", 6},
    {"clavecin", 6},
    {"clavinet", 7},
    {"clavichord", 7},
    {"celest", 8},
    {"glockenspiel", 9},
    {"campanelli", 9},
    {"jeu de timbres", 9},
    {"music box", 10},
    {"spieluhr", 10},
    {"vibraphon", 11},
    {"vibrafon", 11},
    {"marimba", 12},
    {"xylophon", 13},
    {"xilofono", 13},
    {"silofono", 13},
    {"tubular bells", 14},
    {"chimes", 14},
    {"roehrenglocken", 14},
    {"rohrenglocken", 14},
    {"glocken", 14},
    {"cloches", 14},
    {"campane", 14},
    {"dulcimer", 15},
    {"hackbrett", 15},
    {"cimbalom", 15},
    {"organ", 19},
    {"orgel", 19},
    {"orgue", 19},
    {"pipe organ", 19},
    {"hammond", 16},
    {"drawbar", 16},
    {"rock organ", 18},
    {"reed organ", 20},
    {"harmonium", 20},
    {"armonium", 20},
    {"accordion", 21},
    {"akkordeon", 21},
    {"fisarmonica", 21},
    {"ziehharmonika", 21},
    {"harmonica", 22},
    {"mundharmonika", 22},
    {"armonica", 22},
    {"bandoneon", 23},
    {"guitar", 24},
    {"gitarre", 24},
    {"guitare", 24},
    {"chitarra", 24},
    {"chitarre", 24},
    {"steel guitar", 25},
    {"western guitar", 25},
    {"westerngitarre", 25},
    {"jazz guitar", 26},
    {"electric guitar", 27},
    {"e gitarre", 27},
    {"e guitar", 27},
    {"guitare electrique", 27},
    {"chitarra elettrica", 27},
    {"distortion guitar", 30},
    {"bass", 32},
    {"acoustic bass", 32},
    {"bass guitar", 33},
    {"bassgitarre", 33},
    {"electric bass", 33},
    {"e bass", 33},
    {"guitare basse", 33},
    {"basso elettrico", 33},
    {"fretless", 35},
    {"synth bass", 38},
    {"violin", 40},
    {"fiddle", 40},
    {"geige", 40},
    {"violon", 40},
    {"viola", 41},
    {"viole", 41},
    {"bratsche", 41},
    {"viola da gamba", 42},
    {"gambe", 42},
    {"violoncell", 42},
    {"cello", 42},
    {"celli", 42},
    {"vcl", 42},
    {"contrabass", 43},
    {"kontrabass", 43},
    {"double bass", 43},
    {"string bass", 43},
    {"contrebass", 43},
    {"contrabbass", 43},
    {"violone", 43},
    {"harp", 46},
    {"harfe", 46},
    {"arpa", 46},
    {"arpe", 46},
    {"timpani", 47},
    {"pauken", 47},
    {"timbales", 47},
    {"kettledrum", 47},
    {"strings", 48},
    {"streicher", 48},
    {"cordes", 48},
    {"archi", 48},
    {"synth strings", 50},
    {"choir", 52},
    {"chorus", 52},
    {"chor", 52},
    {"choeur", 52},
    {"coro", 52},
    {"voice", 52},
    {"voix", 52},
    {"voce", 52},
    {"voci", 52},
    {"vocal", 52},
    {"singstimme", 52},
    {"gesang", 52},
    {"stimme", 52},
    {"chant", 52},
    {"canto", 52},
    {"soprano", 52},
    {"sopran", 52},
    {"mezzo", 52},
    {"alto", 52},
    {"alt", 52},
    {"contralto", 52},
    {"tenor", 52},
    {"tenore", 52},
    {"bariton", 52},
    {"baritono", 52},
    {"basso", 52},
    {"basse", 52},
    {"bassi", 52},
    {"lead vocal", 52},
    {"solo", 52},
    {"men", 52},
    {"women", 52},
    {"maenner", 52},
    {"frauen", 52},
    {"children", 52},
    {"kinderchor", 52},
    {"synth voice", 54},
    {"trumpet", 56},
    {"trompete", 56},
    {"trompette", 56},
    {"tromba", 56},
    {"trombe", 56},
    {"cornet", 56},
    {"kornett", 56},
    {"cornetta", 56},
    {"fluegelhorn", 56},
    {"flugelhorn", 56},
    {"flicorno", 56},
    {"trombone", 57},
    {"posaune", 57},
    {"tromboni", 57},
    {"euphonium", 57},
    {"tenorhorn", 57},
    {"bombardino", 57},
    {"tuba", 58},
    {"basstuba", 58},
    {"muted trumpet", 59},
    {"horn", 60},
    {"french horn", 60},
    {"waldhorn", 60},
    {"cor", 60},
    {"cors", 60},
    {"corno", 60},
    {"corni", 60},
    {"brass", 61},
    {"blechblaeser", 61},
    {"cuivres", 61},
    {"ottoni", 61},
    {"soprano sax", 64},
    {"sopransax", 64},
    {"sopran sax", 64},
    {"saxophone soprano", 64},
    {"alto sax", 65},
    {"altsax", 65},
    {"alt sax", 65},
    {"sax", 65},
    {"saxophone alto", 65},
    {"tenor sax", 66},
    {"tenorsax", 66},
    {"saxophone tenor", 66},
    {"bariton sax", 67},
    {"baritone sax", 67},
    {"baritonsax", 67},
    {"saxophone baryton", 67},
    {"oboe", 68},
    {"oboi", 68},
    {"hautbois", 68},
    {"english horn", 69},
    {"englischhorn", 69},
    {"cor anglais", 69},
    {"corno inglese", 69},
    {"bassoon", 70},
    {"fagott", 70},
    {"basson", 70},
    {"contrabassoon", 70},
    {"kontrafagott", 70},
    {"contrebasson", 70},
    {"controfagotto", 70},
    {"clarinet", 71},
    {"klarinette", 71},
    {"clarinett", 71},
    {"bass clarinet", 71},
    {"bassklarinette", 71},
    {"clarone", 71},
    {"altklarinette", 71},
    {"basset horn", 71},
    {"bassetthorn", 71},
    {"piccolo", 72},
    {"pikkolo", 72},
    {"ottavino", 72},
    {"petite flute", 72},
    {"piccolo trumpet", 56},
    {"piccolotrompete", 56},
    {"flute", 73},
    {"floete", 73},
    {"flote", 73},
    {"querfloete", 73},
    {"querflote", 73},
    {"altfloete", 73},
    {"altflote", 73},
    {"alto flute", 73},
    {"flauto", 73},
    {"flauti", 73},
    {"recorder", 74},
    {"blockfloete", 74},
    {"blockflote", 74},
    {"flute a bec", 74},
    {"flauto dolce", 74},
    {"pan flute", 75},
    {"panfloete", 75},
    {"ocarina", 79},
    {"okarina", 79},
    {"whistle", 78},
    {"synth", 81},
    {"synthesizer", 81},
    {"lead", 80},
    {"pad", 88},
    {"sitar", 104},
    {"banjo", 105},
    {"mandolin", 24},
    {"ukulele", 24},
    {"shamisen", 106},
    {"koto", 107},
    {"kalimba", 108},
    {"bagpipe", 109},
    {"dudelsack", 109},
    {"cornemuse", 109},
    {"steel drum", 114},
});

constexpr std::array Drums = std::to_array<Name>({
    {"drum", 38},
    {"schlagzeug", 38},
    {"batterie", 38},
    {"batteria", 38},
    {"percussion", 38},
    {"perkussion", 38},
    {"percussioni", 38},
    {"schlagwerk", 38},
    {"bass drum", 36},
    {"kick", 36},
    {"grosse trommel", 36},
    {"grosse caisse", 36},
    {"gran cassa", 36},
    {"grancassa", 36},
    {"snare", 38},
    {"side drum", 38},
    {"kleine trommel", 38},
    {"caisse claire", 38},
    {"rullante", 38},
    {"tamburo", 38},
    {"side stick", 37},
    {"rim", 37},
    {"hand clap", 39},
    {"tom", 45},
    {"low tom", 45},
    {"mid tom", 47},
    {"high tom", 50},
    {"floor tom", 43},
    {"hi hat", 42},
    {"hihat", 42},
    {"open hi hat", 46},
    {"hi hat open", 46},
    {"pedal hi hat", 44},
    {"cymbal", 49},
    {"crash", 49},
    {"becken", 49},
    {"cymbales", 49},
    {"piatti", 49},
    {"piatto", 49},
    {"ride", 51},
    {"suspended cymbal", 49},
    {"tambourin", 54},
    {"tamburin", 54},
    {"tamburello", 54},
    {"cowbell", 56},
    {"kuhglocke", 56},
    {"bongo", 60},
    {"conga", 63},
    {"timbale", 65},
    {"agogo", 67},
    {"cabasa", 69},
    {"maracas", 70},
    {"shaker", 70},
    {"guiro", 73},
    {"claves", 75},
    {"wood block", 76},
    {"woodblock", 76},
    {"holzblock", 76},
    {"triangle", 81},
    {"triangel", 81},
    {"triangolo", 81},
    {"tam tam", 52},
    {"gong", 52},
});

/// The letter without its accent of a character U+00C0 to U+00FF; blank where it has none.
char FoldLatin(std::uint8_t low) {
    constexpr std::string_view Plain = "aaaaaaaceeeeiiii nooooo ouuuuy s";
    return Plain[low & 0x1FU];
}

/// Lower case, without accents, one blank for anything else than letters.
std::string SimplifyName(std::string_view name) {
    std::string plain;
    for (std::size_t at = 0; at < name.size(); ++at) {
        char letter = name[at];
        const std::string_view rest = name.substr(at);
        if (rest.starts_with("\u00DF") || rest.starts_with("\u0153") || rest.starts_with("\u0152")) {
            plain += rest.starts_with("\u00DF") ? "ss" : "oe";
            ++at;
            continue;
        }
        if (static_cast<std::uint8_t>(letter) == 0xC3 && rest.size() > 1)
            letter = FoldLatin(static_cast<std::uint8_t>(name[++at]));
        if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
        if (letter >= 'a' && letter <= 'z')
            plain += letter;
        else if (!plain.empty() && plain.back() != ' ')
            plain += ' ';
    }
    return plain;
}

template <std::size_t count>
const Name* FindLongest(std::string_view name, const std::array<Name, count>& rows) {
    const std::string plain = SimplifyName(name.substr(0, LongestName));
    const Name* best = nullptr;
    for (std::size_t at = 0; at < plain.size(); ++at) {
        if (plain[at] == ' ' || (at > 0 && plain[at - 1] != ' ')) continue;
        for (const Name& row : rows)
            if ((best == nullptr || row.first.size() > best->first.size()) &&
                std::string_view(plain).substr(at).starts_with(row.first))
                best = &row;
    }
    return best;
}

std::optional<int> GetNumber(const Name* row) {
    return row == nullptr ? std::nullopt : std::optional(row->second);
}

}  // namespace

std::optional<int> FindProgram(std::string_view name) {
    return GetNumber(FindLongest(name, Programs));
}

std::optional<int> FindSoundProgram(std::string_view sound) {
    if (sound.starts_with("voice.")) return FindProgram("voice");
    // The family before the point says less than what follows: "strings.violin".
    const std::optional<int> program = FindProgram(sound.substr(std::min(sound.find('.'), sound.size())));
    return program ? program : FindProgram(sound);
}

bool IsPercussionName(std::string_view name) {
    const Name* drum = FindLongest(name, Drums);
    const Name* program = FindLongest(name, Programs);
    return drum != nullptr && (program == nullptr || drum->first.size() > program->first.size());
}

std::optional<int> FindDrumKey(std::string_view name) {
    return GetNumber(FindLongest(name, Drums));
}

}  // namespace stage::musicxml
