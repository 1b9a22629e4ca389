#include "stage/pages/page_tar.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>
#include <stdexcept>

namespace stage::tar {

namespace {

struct Field {
    std::size_t at;
    std::size_t bytes;
};

constexpr Field Name{0, 100};
constexpr Field Mode{100, 8};
constexpr Field User{108, 8};
constexpr Field Group{116, 8};
constexpr Field Size{124, 12};
constexpr Field Time{136, 12};
constexpr Field Checksum{148, 8};
constexpr Field Type{156, 1};
constexpr Field Magic{257, 8};
constexpr Field Prefix{345, 155};
// The magic ends in a zero byte, the version in none.
constexpr std::string_view UstarMagic("ustar\00000", 8);
constexpr std::uint64_t LargestSize = 077777777777;

void PutOctal(std::string& block, Field field, std::uint64_t value) {
    const std::string digits = fmt::format("{:0{}o}", value, field.bytes - 1);
    block.replace(field.at, digits.size(), digits);
}

/// The sum of all bytes, those of the checksum itself taken as blanks.
std::uint64_t AddBytes(std::string_view block) {
    std::uint64_t sum = Checksum.bytes * std::uint64_t{' '};
    for (std::size_t i = 0; i < block.size(); ++i) {
        if (i < Checksum.at || i >= Checksum.at + Checksum.bytes) sum += static_cast<std::uint8_t>(block[i]);
    }
    return sum;
}

std::string_view Take(std::string_view block, Field field) {
    return block.substr(field.at, field.bytes);
}

[[noreturn]] void Fail(const std::string& place, const char* problem) {
    throw std::runtime_error(fmt::format("{} {}", place, problem));
}

/// Octal digits up to a blank or a zero byte; blanks may come first.
std::uint64_t ReadOctal(std::string_view text, const std::string& place) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    const std::size_t end = text.find_first_of(std::string_view(" \0", 2));
    const std::string_view digits = text.substr(0, end);
    if (digits.empty() || digits.find_first_not_of("01234567") != std::string_view::npos)
        Fail(place, "has a tar header with an unreadable number");
    return std::accumulate(digits.begin(), digits.end(), std::uint64_t{0}, [](std::uint64_t value, char digit) {
        return value * 8 + static_cast<std::uint64_t>(digit - '0');
    });
}

}  // namespace

std::string MakeHeader(const Entry& entry) {
    if (entry.name.empty() || entry.name.size() > Name.bytes || entry.bytes > LargestSize)
        throw std::invalid_argument(fmt::format("\"{}\" does not fit into a tar header", entry.name));
    std::string block(BlockBytes, '\0');
    block.replace(Name.at, entry.name.size(), entry.name);
    PutOctal(block, Mode, 0644);
    PutOctal(block, User, 0);
    PutOctal(block, Group, 0);
    PutOctal(block, Size, entry.bytes);
    PutOctal(block, Time, 0);
    block[Type.at] = '0';
    block.replace(Magic.at, Magic.bytes, UstarMagic);
    // Six digits, a zero byte and a blank.
    const std::string sum = fmt::format("{:06o}", AddBytes(block));
    block.replace(Checksum.at, sum.size(), sum);
    block[Checksum.at + Checksum.bytes - 1] = ' ';
    return block;
}

Entry ParseHeader(std::string_view block, const std::string& place) {
    if (block.size() != BlockBytes) Fail(place, "has no whole tar header");
    if (Take(block, Magic) != UstarMagic) Fail(place, "has no ustar header");
    if (ReadOctal(Take(block, Checksum), place) != AddBytes(block)) Fail(place, "has a damaged tar header");
    if (block[Type.at] != '0') Fail(place, "is not a regular file");
    if (block[Prefix.at] != '\0') Fail(place, "has a name that is too long");
    const std::string_view name = Take(block, Name);
    Entry entry;
    entry.name = name.substr(0, name.find('\0'));
    entry.bytes = ReadOctal(Take(block, Size), place);
    if (entry.name.empty()) Fail(place, "has no name");
    return entry;
}

}  // namespace stage::tar
