#include "stage/show/show_hold.h"

#include <fmt/format.h>
#include <pwd.h>
#include <unistd.h>

#include <array>
#include <ctime>
#include <nlohmann/json.hpp>

#include "kit/path.h"

namespace stage {

namespace {

using Json = nlohmann::ordered_json;

std::string LockPath(const std::string& showPath) {
    return kit::path::Join(showPath, "show.lock");
}

std::string FindUser() {
    std::array<char, 4096> buffer{};
    passwd entry{};
    passwd* found = nullptr;
    const bool isKnown = ::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0;
    return isKnown && found != nullptr ? found->pw_name : fmt::format("user {}", ::geteuid());
}

std::string FindHost() {
    std::array<char, 256> name{};
    return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

std::string MakeNote(const std::string& purpose) {
    const Json note{{"user", FindUser()},
                    {"host", FindHost()},
                    {"process", ::getpid()},
                    {"purpose", purpose},
                    {"since", static_cast<std::int64_t>(std::time(nullptr))}};
    return note.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace

std::string DescribeUser() {
    return FindUser() + "@" + FindHost();
}

namespace {

/// "19:02", or with the day where it is another one.
std::string DescribeMoment(std::time_t moment) {
    const std::time_t now = std::time(nullptr);
    std::tm then{};
    std::tm today{};
    ::localtime_r(&moment, &then);
    ::localtime_r(&now, &today);
    const bool isToday = then.tm_year == today.tm_year && then.tm_yday == today.tm_yday;
    std::array<char, 64> text{};
    return {text.data(), std::strftime(text.data(), text.size(), isToday ? "%H:%M" : "%Y-%m-%d %H:%M", &then)};
}

/// A word of the note, which anybody may have written.
std::string TakeWord(const Json& note, const char* key) {
    constexpr std::size_t Longest = 60;
    const auto found = note.find(key);
    if (found == note.end() || !found->is_string()) return "";
    std::string word = found->get<std::string>().substr(0, Longest);
    for (char& c : word) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = '?';
    }
    return word;
}

std::string Describe(const std::string& text) {
    const Json note = Json::parse(text, nullptr, false);
    if (!note.is_object()) return "another program";
    const std::string user = TakeWord(note, "user");
    const std::string host = TakeWord(note, "host");
    std::string words = user.empty() ? "somebody" : user;
    if (!host.empty()) words += " on " + host;
    const auto number = [&](const char* key) {
        const auto found = note.find(key);
        return found != note.end() && found->is_number_integer() ? found->get<std::int64_t>() : 0;
    };
    if (const std::int64_t since = number("since"); since > 0)
        words += " since " + DescribeMoment(static_cast<std::time_t>(since));
    if (const std::string purpose = TakeWord(note, "purpose"); !purpose.empty()) words += ", for " + purpose;
    if (const std::int64_t process = number("process"); process > 0) words += fmt::format(" (process {})", process);
    return words;
}

kit::LockFile TakeLock(const std::string& showPath, const std::string& purpose, std::chrono::milliseconds wait) {
    const std::string path = LockPath(showPath);
    try {
        return kit::LockFile(path, MakeNote(purpose), wait);
    } catch (const kit::FileInUseError&) {
        const std::string holder = ShowHold::DescribeHolder(showPath);
        throw ShowHeldError(fmt::format("the show is held by {}", holder.empty() ? "another program" : holder));
    }
}

}  // namespace

ShowHold::ShowHold(const std::string& showPath, const std::string& purpose, std::chrono::milliseconds wait)
    : lock_(TakeLock(showPath, purpose, wait)) {}

std::string ShowHold::DescribeHolder(const std::string& showPath) {
    const std::optional<std::string> note = kit::LockFile::FindHolder(LockPath(showPath));
    return note ? Describe(*note) : "";
}

}  // namespace stage
