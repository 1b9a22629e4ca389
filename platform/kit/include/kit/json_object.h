#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Strict reading of JSON (RFC 8259) that was written by hand or comes from outside: all of it is checked, and what is
/// wrong throws std::runtime_error with one sentence in one form, the file first, then the value's place in it:
///
///     settings.json: outputs[1].port must be a whole number from 1 to 65535, not "x"
///
/// Values are const once read: any thread, nothing blocks.
namespace kit {

/// What a text may have at most; one that has more is refused as soon as that is seen.
struct JsonLimits {
    /// Length of the whole text; 4 GiB is the most, whatever stands here.
    std::size_t bytes = std::size_t{1} << 20U;
    /// Objects and lists inside one another; the outermost counts.
    std::size_t depth = 16;
    /// Values of all kinds, those inside others included.
    std::size_t values = 1000000;
};

struct JsonTree;
class JsonObject;

/// One value with its place. Refers to the JsonText that it comes from, which outlives it.
class JsonValue {
public:
    /// For JsonText and JsonObject, which give values out.
    JsonValue(const JsonTree& tree, std::uint32_t index) : tree_(&tree), index_(index) {}

    /// Whether it is `null`, which every As... refuses.
    [[nodiscard]] bool IsNull() const;
    /// Whether it is this text.
    [[nodiscard]] bool Is(std::string_view text) const { return IsText_(text); }
    /// Throws where it is neither true nor false, as every As... does where the value is not what is asked for.
    [[nodiscard]] bool AsFlag() const;
    /// UTF-8 of at most `longest` bytes.
    [[nodiscard]] std::string AsText(std::size_t longest = 10000) const;
    /// The same with at least one byte.
    [[nodiscard]] std::string AsFilledText() const;
    /// Written without point and exponent, [lowest, highest].
    [[nodiscard]] std::int64_t AsInteger(std::int64_t lowest, std::int64_t highest) const;
    /// The same from 0 on.
    [[nodiscard]] std::uint32_t AsUnsigned(std::uint32_t highest = UINT32_MAX) const;
    /// Finite, [lowest, highest].
    [[nodiscard]] double AsNumber(double lowest, double highest) const;
    /// Any finite number.
    [[nodiscard]] double AsNumber() const;
    /// The second of the pair of `words` whose first is the text.
    template <class Words>
    [[nodiscard]] auto AsOneOf(const Words& words) const {
        std::string choices;
        for (const auto& [word, value] : words) {
            if (IsText_(word)) return value;
            AppendChoice_(choices, word);
        }
        FailAs("must be " + choices);
    }
    /// Each call gives an object that has been asked for no key yet.
    [[nodiscard]] JsonObject AsObject() const;
    /// At most `most` elements, in order.
    [[nodiscard]] std::vector<JsonValue> AsList(std::size_t most = 100000) const;

    /// Throws "FILE: PLACE problem".
    [[noreturn]] void Fail(const std::string& problem) const;
    /// Throws "FILE: PLACE problem, not VALUE".
    [[noreturn]] void FailAs(const std::string& problem) const;

private:
    friend JsonObject;

    [[nodiscard]] bool IsText_(std::string_view text) const;
    static void AppendChoice_(std::string& choices, std::string_view word);

    const JsonTree* tree_;
    std::uint32_t index_;
};

/// A value that is an object. It remembers which keys it was asked for, so that the others can be named; one thread.
class JsonObject {
public:
    /// As JsonValue::AsObject.
    explicit JsonObject(const JsonValue& value);

    /// The value of a key that may be left out.
    [[nodiscard]] std::optional<JsonValue> Find(std::string_view key);
    /// The value of a key that must be there.
    [[nodiscard]] JsonValue Get(std::string_view key);
    /// Calls `read` with the value of `key`, if it is there.
    template <class Reader>
    void Read(std::string_view key, Reader read) {
        if (const std::optional<JsonValue> value = Find(key)) read(*value);
    }

    /// Throws where there is a key that was not asked for.
    void RefuseOtherKeys() const;
    /// "FILE: PLACE is not a known key and is ignored", for each key that was not asked for; at most ten.
    void WarnOfOtherKeys(std::vector<std::string>& warnings) const;

    /// Throws "FILE: PLACE problem", the place being the object's own.
    [[noreturn]] void Fail(const std::string& problem) const { value_.Fail(problem); }

private:
    [[nodiscard]] std::vector<JsonValue> OtherKeys_() const;

    JsonValue value_;
    const JsonTree* tree_;
    std::uint32_t index_;
    std::vector<std::uint32_t> asked_;
};

/// A whole text. `name` begins every sentence about it. Throws where the text is too long, not well-formed UTF-8, not
/// JSON (with the line), too deep or too large, where an object has a key twice, or a number is too large for a double.
class JsonText {
public:
    /// Reads all of it at once; `text` is not needed afterwards.
    JsonText(std::string_view text, std::string name, const JsonLimits& limits = {});
    ~JsonText();
    /// Values of the one that was moved from belong to this one now.
    JsonText(JsonText&&) noexcept;
    /// The same; those that this one had given out are void.
    JsonText& operator=(JsonText&&) noexcept;

    /// Refers to this.
    [[nodiscard]] JsonValue Root() const;
    /// Root() as an object.
    [[nodiscard]] JsonObject Object() const;

private:
    std::unique_ptr<const JsonTree> tree_;
};

/// `text` in quotation marks as JSON writes it, on one line; what is longer than a sentence bears is cut.
[[nodiscard]] std::string QuoteForSentence(std::string_view text);

}  // namespace kit
