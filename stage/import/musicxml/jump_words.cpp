#include "stage/import/musicxml/jump_words.h"

#include <algorithm>
#include <array>
#include <vector>

namespace stage::musicxml {

namespace {

struct Order {
    std::string_view words;
    MarkKind kind;
};

/// How an order begins; the longer beginnings stand before those that begin alike.
constexpr std::array Orders = std::to_array<Order>({
    {"da capo", MarkKind::DaCapo},
    {"d c", MarkKind::DaCapo},
    {"dc", MarkKind::DaCapo},
    {"dal segno", MarkKind::DalSegno},
    {"dal s", MarkKind::DalSegno},
    {"d s", MarkKind::DalSegno},
    {"ds", MarkKind::DalSegno},
    {"fine", MarkKind::Fine},
    {"to coda", MarkKind::ToCoda},
    {"al coda", MarkKind::ToCoda},
    {"alla coda", MarkKind::ToCoda},
    {"zur coda", MarkKind::ToCoda},
    {"coda", MarkKind::Coda},
});

/// What may follow: "D.C. al Fine e poi la Coda", "Da Capo senza repetizione".
constexpr auto Additions = std::to_array<std::string_view>(
    {"al",          "alla",   "fine",    "coda", "segno", "senza", "con", "rep",   "repetizione", "ripetizione",
     "ripetizioni", "repeat", "repeats", "no",   "e",     "poi",   "la",  "segue", "then",        "only"});
constexpr std::size_t LongestOrder = 60;

bool IsDigits(std::string_view word) {
    return !word.empty() && word.find_first_not_of("0123456789") == std::string_view::npos;
}

/// Lower case, the words with one blank between them, points and commas as blanks.
std::string SimplifyWords(std::string_view words) {
    std::string plain;
    for (char letter : words) {
        if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
        const bool isBlank = std::string_view(" .,:;()").find(letter) != std::string_view::npos;
        if (!isBlank)
            plain += letter;
        else if (!plain.empty() && plain.back() != ' ')
            plain += ' ';
    }
    if (plain.ends_with(' ')) plain.pop_back();
    return plain;
}

std::vector<std::string_view> Split(std::string_view text) {
    std::vector<std::string_view> words;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(' '), text.size());
        if (end > 0) words.push_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return words;
}

}  // namespace

std::optional<WrittenMark> ReadJumpWords(std::string_view words) {
    if (words.size() > LongestOrder) return std::nullopt;
    const std::string plain = SimplifyWords(words);
    for (const Order& order : Orders) {
        if (!plain.starts_with(order.words)) continue;
        const std::string_view rest = std::string_view(plain).substr(order.words.size());
        if (!rest.empty() && rest.front() != ' ') continue;
        WrittenMark mark;
        mark.kind = order.kind;
        const bool isReturn = order.kind == MarkKind::DaCapo || order.kind == MarkKind::DalSegno;
        bool isFirst = true;
        for (const std::string_view word : Split(rest)) {
            const bool isAddition = std::find(Additions.begin(), Additions.end(), word) != Additions.end();
            if (!IsDigits(word) && !(isReturn && isAddition)) return std::nullopt;
            // "D.S. 2 al Coda 2": the second number is the coda's.
            if (IsDigits(word) && (isFirst || !isReturn) && order.kind != MarkKind::DaCapo) mark.text = word;
            if (word == "fine") mark.aim = JumpAim::Fine;
            if (word == "coda") mark.aim = mark.aim == JumpAim::Any ? JumpAim::Coda : JumpAim::FineThenCoda;
            isFirst = false;
        }
        return mark;
    }
    return std::nullopt;
}

}  // namespace stage::musicxml
