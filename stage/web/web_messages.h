#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stage {

/// What comes from a client as values. Everything throws std::invalid_argument with one sentence for what it cannot
/// read; the texts may be anything, of any length that the server lets in.

/// A message of the socket.
struct ClientMessage {
    enum class Kind : std::uint8_t { Press, Edit, Time };

    Kind kind = Kind::Press;
    std::string line;
    std::string song;  ///< of Edit; empty for the one that is loaded
    /// As JSON, to be sent back: a number or a text of at most 64 bytes; empty where there is none.
    std::string id;
    std::string t;  ///< of Time, likewise

    bool operator==(const ClientMessage&) const = default;
};
[[nodiscard]] ClientMessage ParseClientMessage(std::string_view text);

/// The words of the body {"arguments": ["90%", 3]}; none where it is empty.
[[nodiscard]] std::vector<std::string> ParseArguments(std::string_view body);
/// The passcode of {"passcode": "..."}.
[[nodiscard]] std::string ParsePasscode(std::string_view body);

/// "/api/song/12%20a?from=1": {"api", "song", "12 a"}. A part that is empty, "." or "..", or that has a slash or a
/// control character in it, is refused; so is what is not UTF-8.
struct WebTarget {
    std::string path;  ///< as it was sent, without the query
    std::vector<std::string> parts;
};
[[nodiscard]] WebTarget ParseTarget(std::string_view target);

/// The value of a cookie in a Cookie header; empty where it is not there.
[[nodiscard]] std::string_view FindCookie(std::string_view header, std::string_view name);
/// The token of "Bearer TOKEN"; empty for anything else.
[[nodiscard]] std::string_view FindBearer(std::string_view header);

}  // namespace stage
