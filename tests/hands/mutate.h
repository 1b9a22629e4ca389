#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

#include "kit/zip_archive.h"

/// Files with mistakes in them: of disks, of copying, of editors and of people who know the format.
namespace test_support {

class Mutator {
public:
    enum class Form : std::uint8_t { Bytes, Text, Json, Archive };

    explicit Mutator(unsigned int seed) : random_(seed) {}

    /// One to three mistakes. Where `form` is an archive they may be in a member, of which `members` names some; the
    /// archive is put together again then.
    std::string Mutate(std::string bytes, Form form, const std::vector<std::string>& members = {}) {
        if (form == Form::Archive) {
            if (Choose(4) != 0) return MutateMember(bytes, members);
            form = Form::Bytes;
        }
        for (std::size_t mistakes = 1 + Choose(3); mistakes > 0; --mistakes) {
            if (form == Form::Json && Choose(3) != 0) {
                MutateJson(bytes);
            } else if (form != Form::Bytes && Choose(3) != 0) {
                MutateText(bytes);
            } else {
                MutateBytes(bytes);
            }
        }
        return bytes;
    }

private:
    using Json = nlohmann::ordered_json;

    std::size_t Choose(std::size_t below) {
        return below == 0 ? 0 : std::uniform_int_distribution<std::size_t>(0, below - 1)(random_);
    }

    std::string MutateMember(const std::string& bytes, const std::vector<std::string>& members) {
        const kit::ZipReader archive(bytes, "archive", 100);
        const std::size_t chosen = Choose(members.size());
        std::vector<std::string> contents;
        for (const std::string& member : members)
            contents.push_back(archive.Read(member, 1U << 26U));
        const std::string& name = members[chosen];
        const Form form = name.ends_with("json") ? Form::Json : name.ends_with("xml") ? Form::Text : Form::Bytes;
        contents[chosen] = Mutate(contents[chosen], form);
        kit::ZipWriter made;
        const std::size_t leftOut = Choose(12) == 0 ? Choose(members.size()) : members.size();
        for (std::size_t i = 0; i < members.size(); ++i)
            if (i != leftOut) made.Add(members[i], contents[i]);
        return made.Finish();
    }

    void MutateBytes(std::string& bytes) {
        const std::size_t place = Choose(bytes.size());
        switch (Choose(bytes.empty() ? 1 : 9)) {
            case 0:
                bytes.insert(place, std::string(1 + Choose(300), static_cast<char>(Choose(256))));
                break;
            case 1:
                bytes.resize(place);
                break;
            case 2:
                bytes[place] = static_cast<char>(bytes[place] ^ static_cast<char>(1U << Choose(8)));
                break;
            case 3:
                bytes.erase(place, 1 + Choose(200));
                break;
            case 4:
                bytes += bytes.substr(place);
                break;
            case 5:
                for (char& c : bytes)
                    c = static_cast<char>(Choose(256));
                break;
            case 6:
                bytes.clear();
                break;
            default:  // a number that is too large, or nothing
                for (std::size_t i = place; i < bytes.size() && i < place + 1 + Choose(4); ++i)
                    bytes[i] = std::array<char, 4>{'\0', '\x7F', '\xFF', '\x80'}[Choose(4)];
        }
    }

    /// Where the next run of what `isPart` says begins, from a random place on, and its length.
    template <class IsPart>
    std::pair<std::size_t, std::size_t> FindRun(const std::string& text, IsPart isPart) {
        std::size_t begin = Choose(text.size());
        while (begin < text.size() && !isPart(text[begin]))
            ++begin;
        while (begin > 0 && begin < text.size() && isPart(text[begin - 1]))
            --begin;
        std::size_t end = begin;
        while (end < text.size() && isPart(text[end]))
            ++end;
        return {begin, end - begin};
    }
    std::string ChooseNumber() {
        static const std::vector<std::string> numbers{"0",
                                                      "-1",
                                                      "1",
                                                      "65536",
                                                      "2147483647",
                                                      "4e9",
                                                      "4294967295",
                                                      "4294967296",
                                                      "1e308",
                                                      "1e-308",
                                                      "999999999999999999999",
                                                      "18446744073709551615",
                                                      "NaN",
                                                      "0.001"};
        return numbers[Choose(numbers.size())];
    }
    std::string ChooseWord() {
        static const std::vector<std::string> words{
            "",         std::string(20000, 'a'),         "../../../../../../etc/passwd", "/",
            "\xFF\xFE", "\xF0\x9F\x8E\xB5 \xE6\x97\xA5", std::string("a\0b", 3),         "%s%n{}",
            "\x1B[2J"};
        return words[Choose(words.size())];
    }

    void MutateText(std::string& text) {
        const auto isInLine = [](char c) { return c != '\n'; };
        switch (Choose(6)) {
            case 0:
            case 1: {
                const auto [begin, length] = FindRun(text, [](char c) { return c >= '0' && c <= '9'; });
                text.replace(begin, length, ChooseNumber());
                break;
            }
            case 2: {
                const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
                const auto [begin, length] = FindRun(text, isLetter);
                text.replace(begin, length, ChooseWord());
                break;
            }
            case 3: {
                const auto [begin, length] = FindRun(text, isInLine);
                text.erase(begin, length + 1);
                break;
            }
            case 4: {
                const auto [begin, length] = FindRun(text, isInLine);
                const std::string line = text.substr(begin, length) + '\n';
                const auto [place, ignored] = FindRun(text, isInLine);
                for (std::size_t count = Choose(20) == 0 ? 3000 : 1; count > 0; --count)
                    text.insert(place, line);
                break;
            }
            default:
                text.insert(Choose(text.size()), std::string(Choose(2) == 0 ? 1 : 50000, "[{(<\"|"[Choose(6)]));
        }
    }

    Json ChooseValue() {
        switch (Choose(10)) {
            case 0:
                return nullptr;
            case 1:
                return true;
            case 2:
                return -1;
            case 3:
                return 4294967295U;
            case 4:
                return 1e308;
            case 5:
                return ~std::uint64_t{0};
            case 6:
                return Json::array();
            case 7:
                return Json::object();
            default:
                return ChooseWord();
        }
    }
    static void Collect(Json& value, std::vector<Json*>& all) {
        all.push_back(&value);
        for (Json& child : value)
            if (value.is_structured()) Collect(child, all);
    }
    /// A wrong value, one that is missing or one too many, in JSON that is well-formed; line by line where each is a
    /// text of its own.
    void MutateJson(std::string& text) {
        Json root = Json::parse(text, nullptr, false);
        std::size_t begin = 0;
        std::size_t length = text.size();
        if (root.is_discarded()) {
            std::tie(begin, length) = FindRun(text, [](char c) { return c != '\n'; });
            root = Json::parse(text.substr(begin, length), nullptr, false);
            if (root.is_discarded()) return MutateText(text);
        }
        std::vector<Json*> all;
        Collect(root, all);
        Json& chosen = *all[Choose(all.size())];
        const std::size_t what = Choose(4);
        if (what == 0 && chosen.is_array() && !chosen.empty()) {
            chosen.erase(chosen.begin() + static_cast<std::ptrdiff_t>(Choose(chosen.size())));
        } else if (what == 1 && chosen.is_array() && !chosen.empty()) {
            chosen.push_back(chosen[Choose(chosen.size())]);
        } else if (what == 0 && chosen.is_object() && !chosen.empty()) {
            auto member = chosen.begin();
            std::advance(member, static_cast<std::ptrdiff_t>(Choose(chosen.size())));
            chosen.erase(member.key());
        } else {
            chosen = ChooseValue();
        }
        text.replace(begin, length, root.dump(-1, ' ', false, Json::error_handler_t::replace));
    }

    std::mt19937 random_;
};

}  // namespace test_support
