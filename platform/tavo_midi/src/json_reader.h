#pragma once

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <utility>

namespace tavo_midi {

using Json = nlohmann::ordered_json;

constexpr std::uint64_t jsonLastTick = std::numeric_limits<std::uint32_t>::max();
constexpr std::size_t jsonMostListed = 100000;
constexpr std::size_t jsonLongestText = 10000;

/// An object of the text, with the place where it stands for sentences.
class JsonReader {
public:
    JsonReader(const Json& json, std::string place) : json_(json), place_(std::move(place)) {
        if (!json_.is_object()) throw std::runtime_error(place_ + " is not an object");
    }

    [[noreturn]] void Fail(const std::string& what) const { throw std::runtime_error(place_ + ": " + what); }

    [[nodiscard]] bool Has(const char* key) const { return json_.contains(key); }
    [[nodiscard]] std::string Text(const char* key) const {
        const Json& value = Get(key);
        if (!value.is_string()) Fail(fmt::format("\"{}\" is not a text", key));
        auto text = value.get<std::string>();
        if (text.size() > jsonLongestText) Fail(fmt::format("\"{}\" is longer than {} bytes", key, jsonLongestText));
        return text;
    }
    [[nodiscard]] std::uint64_t Number(const char* key, std::uint64_t highest = jsonLastTick) const {
        const Json& value = Get(key);
        if (!value.is_number_unsigned() || value.get<std::uint64_t>() > highest)
            Fail(fmt::format("\"{}\" is not a whole number from 0 to {}", key, highest));
        return value.get<std::uint64_t>();
    }
    [[nodiscard]] std::uint32_t Tick(const char* key) const { return static_cast<std::uint32_t>(Number(key)); }
    [[nodiscard]] double Decimal(const char* key) const {
        const Json& value = Get(key);
        if (!value.is_number()) Fail(fmt::format("\"{}\" is not a number", key));
        return value.get<double>();
    }
    [[nodiscard]] bool Flag(const char* key) const {
        const Json& value = Get(key);
        if (!value.is_boolean()) Fail(fmt::format("\"{}\" is neither true nor false", key));
        return value.get<bool>();
    }
    /// Calls `visit` with a reader of each element; an absent list is empty.
    template <class Visitor>
    void ForEach(const char* key, Visitor visit) const {
        if (!Has(key)) return;
        const Json& list = Get(key);
        if (!list.is_array()) Fail(fmt::format("\"{}\" is not a list", key));
        if (list.size() > jsonMostListed) Fail(fmt::format("\"{}\" has more than {} elements", key, jsonMostListed));
        for (std::size_t index = 0; index < list.size(); ++index)
            visit(JsonReader(list[index], fmt::format("{}, {}[{}]", place_, key, index)));
    }

private:
    [[nodiscard]] const Json& Get(const char* key) const {
        const auto found = json_.find(key);
        if (found == json_.end()) Fail(fmt::format("\"{}\" is missing", key));
        return *found;
    }

    const Json& json_;
    std::string place_;
};

inline Json ParseJson(const std::string& text, const std::string& place) {
    try {
        return Json::parse(text);
    } catch (const Json::parse_error& error) {
        throw std::runtime_error(fmt::format("{} is not JSON: it cannot be understood at byte {}", place, error.byte));
    } catch (const Json::out_of_range&) {
        throw std::runtime_error(fmt::format("{} holds a number that is too large", place));
    }
}

}  // namespace tavo_midi
