#include "stage/web/web_access.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sodium.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "kit/file.h"
#include "kit/json_object.h"

namespace stage {

namespace {

constexpr std::size_t LargestPasscodeFile = 16U << 10U;
constexpr std::size_t SecretBytes = crypto_auth_KEYBYTES;
constexpr std::array<std::string_view, 4> RoleNames{"none", "view", "operate", "edit"};
constexpr std::array<WebRole, 3> RolesWithPasscode{WebRole::Edit, WebRole::Operate, WebRole::View};

void RequireSodium() {
    if (sodium_init() < 0) throw std::runtime_error("the library for passcodes cannot be used on this computer");
}

std::string AsHex(const unsigned char* bytes, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i)
        text += fmt::format("{:02x}", bytes[i]);
    return text;
}

/// Empty where the text is not that many bytes.
std::vector<unsigned char> FromHex(std::string_view text, std::size_t count) {
    std::vector<unsigned char> bytes(count);
    std::size_t read = 0;
    const char* end = nullptr;
    if (text.size() != count * 2 ||
        sodium_hex2bin(bytes.data(), count, text.data(), text.size(), nullptr, &read, &end) != 0 || read != count)
        return {};
    return bytes;
}

bool IsHash(const std::string& text) {
    return text.starts_with(crypto_pwhash_argon2id_STRPREFIX) && text.size() < crypto_pwhash_STRBYTES;
}

bool FitsHash(const std::string& hash, const std::string& passcode) {
    return crypto_pwhash_str_verify(hash.c_str(), passcode.data(), passcode.size()) == 0;
}

std::string GetHostName() {
    std::array<char, 256> name{};
    return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

std::string LowerCase(std::string_view text) {
    std::string lower(text);
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return lower;
}

bool IsAddressInFigures(const std::string& host) {
    std::array<unsigned char, sizeof(in6_addr)> bytes{};
    if (host.size() > 2 && host.front() == '[' && host.back() == ']')
        return inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), bytes.data()) == 1;
    return inet_pton(AF_INET, host.c_str(), bytes.data()) == 1;
}

/// Without its port.
std::string FindName(std::string_view host) {
    const std::size_t bracket = host.rfind(']');
    const std::size_t colon = host.rfind(':');
    if (colon != std::string_view::npos && (bracket == std::string_view::npos || colon > bracket))
        host = host.substr(0, colon);
    return LowerCase(host);
}

std::int64_t SecondsNow() {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace

std::string_view GetRoleName(WebRole role) {
    return RoleNames.at(static_cast<std::size_t>(role));
}

std::optional<WebRole> FindRole(std::string_view name) {
    for (const WebRole role : RolesWithPasscode)
        if (GetRoleName(role) == name) return role;
    return std::nullopt;
}

// Passcodes.

WebPasscodes ReadPasscodes(const std::string& path) {
    WebPasscodes passcodes;
    std::error_code ignored;
    if (!std::filesystem::exists(std::filesystem::symlink_status(path, ignored))) return passcodes;
    const std::string text = kit::ReadFile(path, LargestPasscodeFile);
    const kit::JsonText json(text, WebPasscodes::FileName, {.bytes = LargestPasscodeFile});
    kit::JsonObject object = json.Object();
    const kit::JsonValue secret = object.Get("secret");
    passcodes.secret = secret.AsText();
    if (FromHex(passcodes.secret, SecretBytes).empty()) secret.FailAs("must be 64 hexadecimal figures");
    for (const WebRole role : RolesWithPasscode) {
        object.Read(GetRoleName(role).data(), [&](const kit::JsonValue& value) {
            const std::string hash = value.AsText();
            if (!IsHash(hash)) value.FailAs("must be a hash that \"stage passcode\" has written");
            passcodes.hashes[role] = hash;
        });
    }
    object.RefuseOtherKeys();
    return passcodes;
}

void WritePasscodes(const std::string& path, const WebPasscodes& passcodes) {
    nlohmann::ordered_json json{{"secret", passcodes.secret}};
    for (const auto& [role, hash] : passcodes.hashes)
        json[std::string(GetRoleName(role))] = hash;
    // Whoever may only read the show is not to try passcodes against their hashes.
    const mode_t before = ::umask(0077);
    try {
        kit::ReplaceFileDurably(path, json.dump(4) + "\n");
    } catch (...) {
        ::umask(before);
        throw;
    }
    ::umask(before);
    std::filesystem::permissions(path, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

void SetPasscode(WebPasscodes& passcodes, WebRole role, const std::string& passcode) {
    RequireSodium();
    if (passcode.size() < WebPasscodes::FewestCharacters || passcode.size() > WebPasscodes::MostCharacters)
        throw std::invalid_argument(fmt::format("a passcode has {} to {} characters", WebPasscodes::FewestCharacters,
                                                WebPasscodes::MostCharacters));
    for (const auto& [other, hash] : passcodes.hashes) {
        if (other != role && FitsHash(hash, passcode))
            throw std::invalid_argument(
                fmt::format("this is the passcode of \"{}\" already: choose another one", GetRoleName(other)));
    }
    std::array<char, crypto_pwhash_STRBYTES> hash{};
    if (crypto_pwhash_str_alg(hash.data(), passcode.data(), passcode.size(), crypto_pwhash_OPSLIMIT_INTERACTIVE,
                              crypto_pwhash_MEMLIMIT_INTERACTIVE, crypto_pwhash_ALG_ARGON2ID13) != 0)
        throw std::runtime_error("the memory is not enough to keep a passcode safely");
    if (passcodes.secret.empty()) {
        std::array<unsigned char, SecretBytes> secret{};
        randombytes_buf(secret.data(), secret.size());
        passcodes.secret = AsHex(secret.data(), secret.size());
    }
    passcodes.hashes[role] = hash.data();
}

// The guard.

std::chrono::milliseconds LoginGuard::FindWait(const std::string& address, Moment now) const {
    const auto found = failures_.find(address);
    if (found == failures_.end() || found->second.next <= now) return {};
    return std::chrono::ceil<std::chrono::milliseconds>(found->second.next - now);
}

void LoginGuard::NoteFailure(const std::string& address, Moment now) {
    if (failures_.size() >= MostAddresses && !failures_.contains(address))
        failures_.erase(std::ranges::min_element(
            failures_, {}, [](const auto& entry) { return std::max(entry.second.next, entry.second.last); }));
    Failures& failures = failures_[address];
    ++failures.count;
    failures.last = now;
    if (failures.count < FreeFailures) return;
    const int doublings = std::min(failures.count - FreeFailures, 16);
    failures.next = now + std::min<std::chrono::seconds>(std::chrono::seconds(1) * (1LL << doublings), LongestWait);
}

// Access.

WebAccess::WebAccess(WebPasscodes passcodes, bool isLoopback, Scheme scheme)
    : passcodes_(std::move(passcodes)), isLoopback_(isLoopback), scheme_(scheme), hostName_(LowerCase(GetHostName())) {
    RequireSodium();
    if (passcodes_.IsEmpty() && !isLoopback_)
        throw std::runtime_error(
            "the page is served to other computers only with a passcode: set one with \"stage passcode SHOW operate\"");
}

std::string WebAccess::FindProblem(std::string_view host, std::string_view origin) const {
    if (host.empty()) return "The request does not say to which host it goes.";
    const std::string name = FindName(host);
    const bool isOwnName = name == "localhost" || IsAddressInFigures(name) ||
                           (!isLoopback_ && (name == hostName_ || name == hostName_ + ".local"));
    if (!isOwnName)
        return fmt::format("This server is not known as \"{}\": ask for it by its address in figures.",
                           name.substr(0, 100));
    if (origin.empty()) return "";
    // What a browser adds to every request that another page may have caused.
    if (LowerCase(origin) == (scheme_ == Scheme::Https ? "https://" : "http://") + LowerCase(host)) return "";
    return "Requests of pages from elsewhere are refused.";
}

std::string WebAccess::MakeToken_(WebRole role, std::int64_t endsAt) const {
    const std::vector<unsigned char> secret = FromHex(passcodes_.secret, SecretBytes);
    const std::string claim = fmt::format("{}.{}", GetRoleName(role), endsAt);
    // With another passcode the tokens of the one before are worth nothing.
    const std::string signedText = claim + "." + passcodes_.hashes.at(role);
    std::array<unsigned char, crypto_auth_BYTES> mark{};
    crypto_auth(mark.data(), reinterpret_cast<const unsigned char*>(signedText.data()), signedText.size(),
                secret.data());
    return claim + "." + AsHex(mark.data(), mark.size());
}

WebRole WebAccess::FindRoleOfToken(std::string_view token) const {
    if (passcodes_.IsEmpty()) return WebRole::Edit;
    const std::size_t first = token.find('.');
    const std::size_t second = first == std::string_view::npos ? first : token.find('.', first + 1);
    if (second == std::string_view::npos) return WebRole::None;
    const std::optional<WebRole> role = FindRole(token.substr(0, first));
    std::int64_t endsAt = 0;
    const std::string_view end = token.substr(first + 1, second - first - 1);
    const auto [stop, error] = std::from_chars(end.data(), end.data() + end.size(), endsAt);
    if (!role || error != std::errc() || stop != end.data() + end.size() || endsAt < SecondsNow() ||
        !passcodes_.hashes.contains(*role))
        return WebRole::None;
    const std::string right = MakeToken_(*role, endsAt);
    if (right.size() != token.size() || sodium_memcmp(right.data(), token.data(), token.size()) != 0)
        return WebRole::None;
    return *role;
}

WebAccess::Login WebAccess::LogIn(const std::string& passcode, const std::string& address) {
    Login login;
    if (passcodes_.IsEmpty()) {
        login.role = WebRole::Edit;
        return login;
    }
    // One at a time: many at once would need memory without bound.
    const std::lock_guard lock(mutex_);
    login.wait = guard_.FindWait(address, std::chrono::steady_clock::now());
    if (login.wait.count() > 0) {
        login.sentence = fmt::format("Too many wrong passcodes: try again in {} s.", login.wait.count() / 1000 + 1);
        return login;
    }
    if (passcode.size() <= WebPasscodes::MostCharacters) {
        for (const auto& [role, hash] : passcodes_.hashes)
            if (FitsHash(hash, passcode)) login.role = role;
    }
    if (login.role == WebRole::None) {
        guard_.NoteFailure(address, std::chrono::steady_clock::now());
        login.wait = guard_.FindWait(address, std::chrono::steady_clock::now());
        login.sentence = "The passcode is wrong.";
        return login;
    }
    guard_.NoteSuccess(address);
    login.token =
        MakeToken_(login.role, SecondsNow() + std::chrono::duration_cast<std::chrono::seconds>(TokenLife).count());
    return login;
}

}  // namespace stage
