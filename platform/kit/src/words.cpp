#include "kit/words.h"

#include <algorithm>
#include <vector>

#include "kit/utf8.h"

namespace kit {

namespace {

constexpr std::size_t LongestComparedWord = 40;

std::string ToLower(std::string_view text) {
    std::string lower(text);
    for (char& c : lower) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        if (c == '_' || c == ' ') c = '-';
    }
    return lower;
}

/// Letters to insert, remove, replace or swap with their neighbour until one word is the other.
std::size_t CountSlips(const std::string& a, const std::string& b) {
    std::vector<std::size_t> beforeLast;
    std::vector<std::size_t> last(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j)
        last[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::vector<std::size_t> row(b.size() + 1, i);
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const bool isSame = a[i - 1] == b[j - 1];
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (isSame ? 0 : 1)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                row[j] = std::min(row[j], beforeLast[j - 2] + 1);
        }
        beforeLast = std::move(last);
        last = std::move(row);
    }
    return last.back();
}

}  // namespace

std::string AsSentence(std::string words) {
    if (!words.empty() && words[0] >= 'a' && words[0] <= 'z') words[0] = static_cast<char>(words[0] - 'a' + 'A');
    return words + ".";
}

std::string CutToColumns(std::string_view text, std::size_t columns) {
    if (CountColumns(text) <= columns) return std::string(text);
    std::size_t taken = 0;
    std::size_t width = 0;
    while (taken < text.size()) {
        const Character next = ReadCharacter(text.substr(taken));
        if (width + next.columns + 1 > columns) break;
        width += next.columns;
        taken += next.bytes;
    }
    return std::string(text.substr(0, taken)) + (columns > 0 ? "…" : "");
}

std::string Quote(std::string_view text) {
    std::string line(text);
    for (char& c : line) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
    }
    return '"' + CutToColumns(line, LongestQuotedColumns) + '"';
}

std::string_view FindNearest(std::string_view word, std::span<const std::string_view> known) {
    if (word.empty() || word.size() > LongestComparedWord) return "";
    const std::string typed = ToLower(word);
    std::string_view nearest;
    std::size_t fewest = typed.size() < 3 ? 2 : typed.size() / 3 + 2;
    for (const std::string_view candidate : known) {
        const std::string other = ToLower(candidate);
        // A word that was only begun counts as one slip.
        const bool isBegun = typed.size() > 2 && other.starts_with(typed);
        const std::size_t slips =
            isBegun ? std::min<std::size_t>(1, other.size() - typed.size()) : CountSlips(typed, other);
        if (slips >= std::max(typed.size(), other.size()) || slips >= fewest) continue;
        fewest = slips;
        nearest = candidate;
    }
    return nearest;
}

}  // namespace kit
