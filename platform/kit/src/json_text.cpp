#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "json_tree.h"
#include "kit/json_object.h"
#include "kit/utf8.h"

namespace kit {

namespace {

using Kind = JsonTree::Kind;

/// Takes the events of the library's parser, in the manner of its SAX interface, and makes the tree of them. Refuses
/// what goes beyond the limits as soon as it comes.
class TreeMaker {
public:
    TreeMaker(std::string_view text, JsonTree& tree, const JsonLimits& limits)
        : text_(text), tree_(tree), limits_(limits) {}

    bool null() { return Add_(Kind::Null); }
    bool boolean(bool value) { return Add_(Kind::Flag, value ? 1 : 0); }
    bool number_integer(std::int64_t number) { return Add_(Kind::Integer, number); }
    bool number_unsigned(std::uint64_t number) {
        if (number <= std::uint64_t{INT64_MAX}) return Add_(Kind::Integer, static_cast<std::int64_t>(number));
        return Add_(Kind::Fraction, 0, std::to_string(number));
    }
    bool number_float(double, const std::string& token) { return Add_(Kind::Fraction, 0, token); }
    bool string(const std::string& text) { return Add_(Kind::Text, 0, text); }
    bool binary(const nlohmann::json::binary_t&) { return false; }
    bool key(const std::string& name) {
        key_ = Keep_(name);
        return true;
    }
    bool start_object(std::size_t) { return Open_(Kind::Object); }
    bool end_object() {
        RefuseTwins_();
        return Close_();
    }
    bool start_array(std::size_t) { return Open_(Kind::List); }
    bool end_array() { return Close_(); }
    bool parse_error(std::size_t position, const std::string& token, const nlohmann::json::exception& error) {
        constexpr int NumberOverflow = 406;
        const std::size_t offset = std::min(position > 0 ? position - 1 : 0, text_.size());
        FailAtOffset(
            error.id == NumberOverflow ? "the number " + token.substr(0, 40) + " is too large" : "the text is not JSON",
            offset);
    }

    [[noreturn]] void FailAtOffset(const std::string& problem, std::size_t offset) const {
        const auto line = std::count(text_.begin(), text_.begin() + static_cast<std::ptrdiff_t>(offset), '\n') + 1;
        throw std::runtime_error(tree_.name + ", line " + std::to_string(line) + ": " + problem);
    }

private:
    struct Container {
        std::uint32_t index = 0;
        std::uint32_t last = 0;
    };

    JsonTree::Piece Keep_(std::string_view characters) {
        const auto from = static_cast<std::uint32_t>(tree_.characters.size());
        tree_.characters += characters;
        return {from, static_cast<std::uint32_t>(characters.size())};
    }

    bool Add_(Kind kind, std::int64_t integer = 0, std::string_view text = {}) {
        if (tree_.values.size() == limits_.values)
            throw std::runtime_error(tree_.name + ": the text holds more than " + std::to_string(limits_.values) +
                                     " values");
        const auto index = static_cast<std::uint32_t>(tree_.values.size());
        JsonTree::Value& value = tree_.values.emplace_back();
        value.kind = kind;
        value.text = Keep_(text);
        value.integer = integer;
        if (open_.empty()) return true;
        Container& container = open_.back();
        value.parent = container.index;
        value.key = std::exchange(key_, {});
        if (container.last != 0) tree_.values[container.last].next = index;
        container.last = index;
        ++tree_.values[container.index].integer;
        return true;
    }

    bool Open_(Kind kind) {
        if (open_.size() == limits_.depth)
            throw std::runtime_error(tree_.name + ": the text is nested deeper than " + std::to_string(limits_.depth) +
                                     " levels");
        Add_(kind);
        open_.push_back({static_cast<std::uint32_t>(tree_.values.size() - 1), 0});
        return true;
    }

    bool Close_() {
        open_.pop_back();
        return true;
    }

    void RefuseTwins_() {
        keys_.clear();
        for (std::uint32_t index = tree_.FirstOf(open_.back().index); index != 0; index = tree_.values[index].next)
            keys_.emplace_back(tree_.See(tree_.values[index].key), index);
        std::sort(keys_.begin(), keys_.end());
        const auto twin = std::adjacent_find(
            keys_.begin(), keys_.end(), [](const auto& one, const auto& other) { return one.first == other.first; });
        if (twin != keys_.end()) tree_.Fail(twin->second, "is there twice");
    }

    std::string_view text_;
    JsonTree& tree_;
    const JsonLimits& limits_;
    std::vector<Container> open_;
    JsonTree::Piece key_;
    std::vector<std::pair<std::string_view, std::uint32_t>> keys_;
};

}  // namespace

JsonText::JsonText(std::string_view text, std::string name, const JsonLimits& limits) {
    auto tree = std::make_unique<JsonTree>();
    tree->name = std::move(name);
    // Offsets are kept in 32 bits.
    const std::size_t most = std::min(limits.bytes, std::size_t{UINT32_MAX});
    if (text.size() > most)
        throw std::runtime_error(tree->name + ": the text is longer than " + std::to_string(most) + " bytes");
    TreeMaker maker(text, *tree, limits);
    const std::size_t illFormed = FindIllFormedUtf8(text);
    if (illFormed != std::string_view::npos) maker.FailAtOffset("the text is not well-formed UTF-8", illFormed);
    nlohmann::json::sax_parse(text.begin(), text.end(), &maker);
    tree_ = std::move(tree);
}

JsonText::~JsonText() = default;
JsonText::JsonText(JsonText&&) noexcept = default;
JsonText& JsonText::operator=(JsonText&&) noexcept = default;

JsonValue JsonText::Root() const {
    return {*tree_, 0};
}

JsonObject JsonText::Object() const {
    return JsonObject(Root());
}

}  // namespace kit
