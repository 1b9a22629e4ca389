#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

/// Reads one JSON text from front to back, as its caller expects it to be: nothing is skipped, so that no nesting in
/// the text makes the reader recurse. Whatever else is found throws std::invalid_argument in one sentence that begins
/// with `subject` and names the place. Refers to the text. Not thread-safe.
class JsonLineReader {
public:
    struct Field {
        const char* name;
        std::function<void()> read;
    };

    JsonLineReader(std::string_view text, const char* subject) : text_(text), subject_(subject) {}

    /// An object with exactly these fields, each once, in any order; at most 64.
    void ReadObject(const std::vector<Field>& fields);
    /// Calls `readElement` for each element.
    void ReadArray(const std::function<void()>& readElement);
    /// Takes a null, if one comes next.
    bool TakeNull();
    [[nodiscard]] bool ReadBool();
    /// Escapes are decoded, characters beyond them taken as they are.
    [[nodiscard]] std::string ReadString();
    [[nodiscard]] std::int64_t ReadInteger(std::int64_t lowest, std::int64_t highest);
    /// A number that a double can hold.
    [[nodiscard]] double ReadNumber();
    /// Nothing but space may be left.
    void ReadEnd();

    [[noreturn]] void Refuse(const std::string& reason) const;

private:
    [[nodiscard]] char Next_();
    bool Take_(char c);
    void Expect_(char c);
    bool TakeWord_(std::string_view word);
    [[nodiscard]] std::string_view ReadNumberToken_();
    std::size_t SkipDigits_();
    [[nodiscard]] std::uint32_t ReadHexDigits_();
    void ReadEscape_(std::string& value);
    void ReadUnicodeEscape_(std::string& value);

    std::string_view text_;
    const char* subject_;
    std::size_t place_ = 0;
};
