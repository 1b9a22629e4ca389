#include "stage/import/musicxml/tempo_words.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

namespace stage::musicxml {

namespace {

struct TempoWord {
    std::string_view word;
    double beatsPerMinute;
};

// Accents are left out here and in what is compared: "mässig", "mäßig" and "massig" are one.
constexpr auto TempoWords = std::to_array<TempoWord>({
    {"grave", 44},      {"largo", 50},        {"lento", 54},      {"adagio", 58},       {"larghetto", 62},
    {"adagietto", 66},  {"sostenuto", 69},    {"andante", 72},    {"andte", 72},        {"tranquillo", 72},
    {"andantino", 84},  {"andno", 84},        {"maestoso", 88},   {"moderato", 96},     {"allegretto", 108},
    {"allegtto", 108},  {"moto", 112},        {"mosso", 116},     {"marcia", 116},      {"minuetto", 116},
    {"animato", 120},   {"allegro", 132},     {"allo", 132},      {"agitato", 132},     {"vivo", 144},
    {"vivace", 152},    {"vivacissimo", 168}, {"presto", 176},    {"prestissimo", 192}, {"breit", 54},
    {"langsam", 56},    {"feierlich", 60},    {"getragen", 60},   {"ruhig", 66},        {"gemessen", 72},
    {"gehend", 76},     {"massig", 76},       {"maessig", 76},    {"gemachlich", 84},   {"bewegt", 108},
    {"munter", 116},    {"marsch", 116},      {"menuett", 116},   {"lebhaft", 126},     {"frisch", 126},
    {"geschwind", 132}, {"rasch", 138},       {"schnell", 144},   {"walzer", 160},      {"lent", 54},
    {"lente", 54},      {"lentement", 54},    {"tranquille", 66}, {"modere", 88},       {"moderee", 88},
    {"marche", 116},    {"menuet", 116},      {"anime", 120},     {"animee", 120},      {"gai", 120},
    {"gaiment", 120},   {"gaiement", 120},    {"vif", 144},       {"vive", 144},        {"vivement", 144},
    {"vite", 152},      {"rapide", 152},      {"valse", 160},     {"slow", 60},         {"slowly", 60},
    {"ballad", 66},     {"flowing", 84},      {"moderate", 96},   {"moderately", 96},   {"medium", 112},
    {"march", 116},     {"lively", 126},      {"bright", 126},    {"brightly", 126},    {"brisk", 126},
    {"briskly", 126},   {"quick", 138},       {"quickly", 138},   {"fast", 144},        {"waltz", 160},
});

/// Words that turn the next one, or the whole, up or down.
enum class Degree { Strong, Mild, NotToo, Not, Spirited, More, Less };
constexpr auto Degrees = std::to_array<std::pair<std::string_view, Degree>>({
    {"molto", Degree::Strong},     {"assai", Degree::Strong},    {"sehr", Degree::Strong},
    {"ganz", Degree::Strong},      {"tres", Degree::Strong},     {"very", Degree::Strong},
    {"poco", Degree::Mild},        {"quasi", Degree::Mild},      {"moderato", Degree::Mild},
    {"etwas", Degree::Mild},       {"ziemlich", Degree::Mild},   {"massig", Degree::Mild},
    {"maessig", Degree::Mild},     {"peu", Degree::Mild},        {"assez", Degree::Mild},
    {"modere", Degree::Mild},      {"rather", Degree::Mild},     {"fairly", Degree::Mild},
    {"somewhat", Degree::Mild},    {"little", Degree::Mild},     {"bit", Degree::Mild},
    {"moderately", Degree::Mild},  {"medium", Degree::Mild},     {"lente", Degree::NotToo},
    {"troppo", Degree::NotToo},    {"tanto", Degree::NotToo},    {"zu", Degree::NotToo},
    {"trop", Degree::NotToo},      {"too", Degree::NotToo},      {"moto", Degree::Spirited},
    {"brio", Degree::Spirited},    {"fuoco", Degree::Spirited},  {"vivace", Degree::Spirited},
    {"animato", Degree::Spirited}, {"bewegt", Degree::Spirited}, {"piu", Degree::More},
    {"plus", Degree::More},        {"more", Degree::More},       {"meno", Degree::Less},
    {"moins", Degree::Less},       {"less", Degree::Less},
});

/// Before the tempo word itself: "nicht schnell".
constexpr auto Negations = std::to_array<std::string_view>({"nicht", "not", "non", "pas"});

/// They may stand between degrees and the tempo they belong to.
constexpr auto Joints = std::to_array<std::string_view>(
    {"un", "a", "not", "nicht", "non", "ma", "pas", "con", "tempo", "di", "alla", "mouvement", "de", "im", "of"});

constexpr auto Comparatives = std::to_array<std::pair<std::string_view, bool>>({
    {"schneller", true},
    {"geschwinder", true},
    {"bewegter", true},
    {"lebhafter", true},
    {"rascher", true},
    {"faster", true},
    {"quicker", true},
    {"langsamer", false},
    {"ruhiger", false},
    {"breiter", false},
    {"slower", false},
});

/// Gradual changes name the tempo they lead to, or none.
constexpr auto Gradual = std::to_array<std::string_view>(
    {"rit",       "ritard",    "ritardando",  "ritenuto",   "rall",    "rallentando", "allargando",
     "allarg",    "accel",     "accelerando", "stringendo", "string",  "calando",     "morendo",
     "smorzando", "cedez",     "retenu",      "ralentir",   "pressez", "allmahlich",  "nach",
     "immer",     "gradually", "sempre",      "becoming",   "getting", "werdend"});

constexpr auto FirstTempo = std::to_array<std::string_view>(
    {"tempo i", "tempo primo", "tempo 1", "1o tempo", "primo tempo", "i tempo", "1er mouvement", "premier mouvement",
     "erstes zeitmass", "erstes tempo", "first tempo", "original tempo", "tempo wie zu anfang", "wie zu anfang",
     "tempo 1o", "1er mouvt", "1 tempo"});

constexpr double SlowestQuick = 90;  // from here on a word is a quick one
constexpr std::size_t LongestText = 100;

/// The letter without its accent, of the two bytes that stand for it in UTF-8; empty for another sign.
std::string_view FoldLetter(unsigned char second) {
    static constexpr std::array<std::pair<unsigned char, std::string_view>, 26> Letters{{
        {0xA0, "a"}, {0xA1, "a"}, {0xA2, "a"}, {0xA3, "a"},  {0xA4, "a"}, {0xA7, "c"}, {0xA8, "e"},
        {0xA9, "e"}, {0xAA, "e"}, {0xAB, "e"}, {0xAC, "i"},  {0xAD, "i"}, {0xAE, "i"}, {0xAF, "i"},
        {0xB1, "n"}, {0xB2, "o"}, {0xB3, "o"}, {0xB4, "o"},  {0xB5, "o"}, {0xB6, "o"}, {0xB9, "u"},
        {0xBA, "u"}, {0xBB, "u"}, {0xBC, "u"}, {0x9F, "ss"}, {0xBF, "y"},
    }};
    // Capitals stand 32 before.
    const unsigned char small = second >= 0x80 && second < 0x9F ? static_cast<unsigned char>(second + 0x20) : second;
    for (const auto& [code, letter] : Letters)
        if (code == small) return letter;
    return {};
}

/// The words of a text in lower case and without accents.
std::vector<std::string> SplitWords(std::string_view text) {
    std::vector<std::string> words(1);
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const unsigned char next = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0;
        if ((byte >= 'a' && byte <= 'z') || (byte >= '0' && byte <= '9')) {
            words.back() += text[i];
        } else if (byte >= 'A' && byte <= 'Z') {
            words.back() += static_cast<char>(byte - 'A' + 'a');
        } else if (byte == 0xC3 && !FoldLetter(next).empty()) {
            words.back() += FoldLetter(next);
            ++i;
        } else if ((byte == 0xCC || byte == 0xCD) && next >= 0x80) {
            ++i;  // an accent that follows its letter
        } else if (!words.back().empty()) {
            words.emplace_back();
        }
    }
    if (words.back().empty()) words.pop_back();
    return words;
}

template <class List>
auto Find(const List& list, std::string_view word) {
    return std::find_if(list.begin(), list.end(), [word](const auto& entry) {
        if constexpr (requires { entry.word; })
            return entry.word == word;
        else if constexpr (requires { entry.first; })
            return entry.first == word;
        else
            return entry == word;
    });
}

template <class List>
bool Holds(const List& list, std::string_view word) {
    return Find(list, word) != list.end();
}

double GetFactor(Degree degree, bool isQuick) {
    switch (degree) {
        case Degree::Strong:
            return isQuick ? 1.15 : 0.75;
        case Degree::Mild:
            return isQuick ? 0.85 : 1.1;
        case Degree::NotToo:
            return isQuick ? 0.8 : 1.2;
        case Degree::Not:
            return isQuick ? 0.65 : 1.3;
        case Degree::Spirited:
            return 1.15;
        default:
            return 1;
    }
}

/// Two words that are one beginning, "mässig geschwind", "moderately fast": the first says how much of the second.
bool IsDegreeOfNext(const std::vector<std::string>& words, std::size_t at) {
    if (at + 1 >= words.size() || !Holds(Degrees, words[at])) return false;
    if (words[at] == "vivace" || words[at] == "animato" || words[at] == "bewegt") return false;
    return Holds(TempoWords, words[at + 1]) && words[at + 1] != "moderato";
}

/// Index of the word that names the tempo, or how it compares with the one before; words.size(): none.
std::size_t FindTempoWord(const std::vector<std::string>& words, bool isHead) {
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (Holds(Comparatives, words[i]) || (Holds(TempoWords, words[i]) && !IsDegreeOfNext(words, i))) return i;
        if (!isHead && !Holds(Degrees, words[i]) && !Holds(Joints, words[i])) break;
    }
    return words.size();
}

bool BeginsWithCapital(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte >= 'A' && byte <= 'Z') return true;
        if (byte == 0xC3 && i + 1 < text.size()) return static_cast<unsigned char>(text[i + 1]) < 0x9F;
        if (byte >= 'a' && byte <= 'z') return false;
    }
    return false;
}

bool IsFirstTempo(const std::vector<std::string>& words) {
    std::string joined;
    for (const std::string& word : words)
        joined += (joined.empty() ? "" : " ") + word;
    return std::any_of(FirstTempo.begin(), FirstTempo.end(), [&joined](std::string_view beginning) {
        return joined.starts_with(beginning) && (joined.size() == beginning.size() || joined[beginning.size()] == ' ');
    });
}

}  // namespace

std::optional<WordTempo> ReadTempoWords(std::string_view text, bool isHead) {
    if (text.size() > LongestText) return std::nullopt;
    const std::vector<std::string> words = SplitWords(text);
    if (!isHead && IsFirstTempo(words)) return WordTempo{WordTempo::Kind::First, 1};
    if (!isHead && !BeginsWithCapital(text)) return std::nullopt;
    if (std::any_of(words.begin(), words.end(), [](const std::string& word) { return Holds(Gradual, word); }))
        return std::nullopt;
    const std::size_t place = FindTempoWord(words, isHead);
    if (place == words.size()) return std::nullopt;

    const auto comparative = Find(Comparatives, words[place]);
    const auto named = Find(TempoWords, words[place]);
    const bool isNamed = named != TempoWords.end();
    const bool isQuick = isNamed ? named->beatsPerMinute >= SlowestQuick : comparative->second;
    double factor = 1;
    bool isMore = comparative != Comparatives.end();
    bool isLess = false;
    bool isMild = false;
    if (place > 0 && Holds(Negations, words[place - 1])) factor = GetFactor(Degree::Not, isQuick);
    for (std::size_t i = 0; i < words.size(); ++i) {
        const auto degree = Find(Degrees, words[i]);
        if (i == place || degree == Degrees.end()) continue;
        if (i < place) isMore = isMore || degree->second == Degree::More;
        if (i < place) isLess = isLess || degree->second == Degree::Less;
        isMild = isMild || degree->second == Degree::Mild;
        factor *= GetFactor(degree->second, isQuick);
    }
    if (!isMore && !isLess) return WordTempo{WordTempo::Kind::Absolute, named->beatsPerMinute * factor};
    if (isHead) return std::nullopt;
    const bool isFaster = isQuick != isLess;
    if (isMild) return WordTempo{WordTempo::Kind::Relative, isFaster ? 1.07 : 0.93};
    return WordTempo{WordTempo::Kind::Relative, isFaster ? 1.15 : 0.87};
}

double GetQuartersPerMinute(double beatsPerMinute, const WrittenMeter& meter) {
    const double written = 4.0 / std::max(meter.beatType, 1);
    const int count = std::accumulate(meter.groups.begin(), meter.groups.end(), 0);
    if (count > 3 && count % 3 == 0 && meter.groups.size() == 1 && meter.beatType >= 4)
        return beatsPerMinute * written * 3 * (meter.beatType == 4 ? 0.6 : 0.8);
    if (meter.beatType <= 2) return beatsPerMinute * written * 0.6;
    if (meter.beatType == 4) return beatsPerMinute * (count == 2 ? 0.85 : 1);
    const bool countsShortNotes = count <= 4 && meter.groups.size() == 1;
    return beatsPerMinute * written * (countsShortNotes ? 1 : 2);
}

}  // namespace stage::musicxml
