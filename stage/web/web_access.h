#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stage {

/// What a client may do; each may what those before it may.
enum class WebRole : std::uint8_t {
    None,
    View,     ///< see everything
    Operate,  ///< press
    Edit,     ///< change the show
};

/// "view", "operate", "edit"; "none".
[[nodiscard]] std::string_view GetRoleName(WebRole role);
/// Nothing for a word that names no role which a passcode can give.
[[nodiscard]] std::optional<WebRole> FindRole(std::string_view name);

/// The passcodes of a show as its directory keeps them, hashed (Argon2id): a JSON file that only its owner can read.
struct WebPasscodes {
    static constexpr const char* FileName = "webPasscodes";
    static constexpr std::size_t FewestCharacters = 6;
    static constexpr std::size_t MostCharacters = 200;

    std::string secret;  ///< signs the tokens of clients that have logged in; hexadecimal
    std::map<WebRole, std::string> hashes;

    [[nodiscard]] bool IsEmpty() const { return hashes.empty(); }
};

/// Empty where the file is not there. Throws std::runtime_error with one sentence.
[[nodiscard]] WebPasscodes ReadPasscodes(const std::string& path);
/// Durable; the file is its owner's alone. Throws std::runtime_error with one sentence.
void WritePasscodes(const std::string& path, const WebPasscodes& passcodes);
/// Sets the role's passcode; every client of that role has to log in anew. Takes a good part of a second. Throws
/// std::invalid_argument with one sentence where it is too short or that of another role.
void SetPasscode(WebPasscodes& passcodes, WebRole role, const std::string& passcode);

/// How soon an address that has sent wrong passcodes may send another. A plain value with the time handed in; not
/// thread-safe.
class LoginGuard {
public:
    using Moment = std::chrono::steady_clock::time_point;

    static constexpr int FreeFailures = 5;
    static constexpr std::chrono::seconds LongestWait{60};
    /// More addresses than this are never remembered; the one that waits the shortest is forgotten.
    static constexpr std::size_t MostAddresses = 1000;

    /// Zero where it may try now.
    [[nodiscard]] std::chrono::milliseconds FindWait(const std::string& address, Moment now) const;
    /// Counts a failure; after the free ones each doubles the wait from one second on.
    void NoteFailure(const std::string& address, Moment now);
    void NoteSuccess(const std::string& address) { failures_.erase(address); }

private:
    struct Failures {
        int count = 0;
        Moment next;
        Moment last;
    };
    std::map<std::string, Failures> failures_;
};

/// Who may do what. Thread-safe.
class WebAccess {
public:
    static constexpr std::chrono::hours TokenLife{24 * 14};

    /// Whether the page comes as it is or enciphered.
    enum class Scheme : std::uint8_t { Http, Https };

    /// `isLoopback`: only programs of this computer reach it, which need no passcode where none is set.
    WebAccess(WebPasscodes passcodes, bool isLoopback, Scheme scheme = Scheme::Http);

    [[nodiscard]] bool AsksForPasscode() const { return !passcodes_.IsEmpty(); }

    /// Why a request to `host`, sent by a page of `origin` (empty: by no page), is refused; empty where it is not. A
    /// page of somebody else cannot speak for the user, nor under a name that was pointed here.
    [[nodiscard]] std::string FindProblem(std::string_view host, std::string_view origin) const;

    /// What a client with this token may do; an empty token is none.
    [[nodiscard]] WebRole FindRoleOfToken(std::string_view token) const;

    struct Login {
        WebRole role = WebRole::None;
        std::string token;
        /// Why not; empty where it was right.
        std::string sentence;
        std::chrono::milliseconds wait{0};  ///< until it may be tried again
    };
    /// Compares with each passcode: up to a second, and 64 MB for that time.
    [[nodiscard]] Login LogIn(const std::string& passcode, const std::string& address);

private:
    [[nodiscard]] std::string MakeToken_(WebRole role, std::int64_t endsAt) const;

    const WebPasscodes passcodes_;
    const bool isLoopback_;
    const Scheme scheme_;
    const std::string hostName_;
    std::mutex mutex_;
    LoginGuard guard_;  // guarded by mutex_
};

}  // namespace stage
