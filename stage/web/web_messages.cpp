#include "stage/web/web_messages.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "kit/utf8.h"
#include "kit/words.h"

namespace stage {

namespace {

using WireJson = nlohmann::ordered_json;

constexpr std::size_t LongestId = 64;
constexpr std::size_t MostWords = 100;

WireJson ParseObject(std::string_view text, const char* what) {
    WireJson object = WireJson::parse(text, nullptr, false);
    if (object.is_discarded()) throw std::invalid_argument(fmt::format("{} is not JSON", what));
    if (!object.is_object()) throw std::invalid_argument(fmt::format("{} is not a JSON object", what));
    return object;
}

std::string GetText(const WireJson& object, const char* name) {
    const auto found = object.find(name);
    if (found == object.end()) return "";
    if (!found->is_string()) throw std::invalid_argument(fmt::format("\"{}\" is not a text", name));
    return found->get<std::string>();
}

/// What the client names something by, as it is to be sent back.
std::string GetEcho(const WireJson& object, const char* name) {
    const auto found = object.find(name);
    if (found == object.end()) return "";
    if (!found->is_number() && !found->is_string())
        throw std::invalid_argument(fmt::format("\"{}\" is neither a number nor a text", name));
    std::string echo = found->dump(-1, ' ', true, WireJson::error_handler_t::replace);
    if (echo.size() > LongestId) throw std::invalid_argument(fmt::format("\"{}\" is too long", name));
    return echo;
}

int FindHexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string Unescape(std::string_view text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            plain += text[i];
            continue;
        }
        const int high = i + 2 < text.size() ? FindHexValue(text[i + 1]) : -1;
        const int low = i + 2 < text.size() ? FindHexValue(text[i + 2]) : -1;
        if (high < 0 || low < 0) throw std::invalid_argument("the address has a '%' that escapes nothing");
        plain += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return plain;
}

void RequirePlainPart(const std::string& part) {
    const auto isOdd = [](char c) {
        return c == '/' || c == '\\' || static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
    };
    if (part.empty() || part == "." || part == ".." || std::ranges::any_of(part, isOdd) || !kit::IsUtf8(part))
        throw std::invalid_argument("the address has a part that names nothing");
}

}  // namespace

ClientMessage ParseClientMessage(std::string_view text) {
    const WireJson object = ParseObject(text, "the message");
    ClientMessage message;
    const std::string type = GetText(object, "type");
    message.id = GetEcho(object, "id");
    if (type == "time") {
        message.kind = ClientMessage::Kind::Time;
        message.t = GetEcho(object, "t");
        return message;
    }
    if (type != "press" && type != "edit")
        throw std::invalid_argument(fmt::format("the type {} is not press, edit or time", kit::Quote(type)));
    message.kind = type == "edit" ? ClientMessage::Kind::Edit : ClientMessage::Kind::Press;
    message.line = GetText(object, "line");
    if (message.line.empty()) throw std::invalid_argument("\"line\" is missing");
    if (message.kind == ClientMessage::Kind::Edit) message.song = GetText(object, "song");
    return message;
}

std::vector<std::string> ParseArguments(std::string_view body) {
    std::vector<std::string> words;
    if (body.find_first_not_of(" \t\r\n") == std::string_view::npos) return words;
    const WireJson object = ParseObject(body, "the body");
    const auto arguments = object.find("arguments");
    if (arguments == object.end()) return words;
    if (!arguments->is_array()) throw std::invalid_argument("\"arguments\" is not a list");
    if (arguments->size() > MostWords) throw std::invalid_argument("\"arguments\" has too many elements");
    for (const WireJson& argument : *arguments) {
        if (!argument.is_string() && !argument.is_number())
            throw std::invalid_argument("\"arguments\" holds something else than texts and numbers");
        words.push_back(argument.is_string() ? argument.get<std::string>() : argument.dump());
    }
    return words;
}

std::string ParsePasscode(std::string_view body) {
    std::string passcode = GetText(ParseObject(body, "the body"), "passcode");
    if (passcode.empty()) throw std::invalid_argument("\"passcode\" is missing");
    return passcode;
}

WebTarget ParseTarget(std::string_view target) {
    WebTarget parsed;
    target = target.substr(0, target.find('?'));
    if (!target.starts_with('/')) throw std::invalid_argument("the address does not begin with a slash");
    parsed.path = target;
    for (std::string_view rest = target.substr(1); !rest.empty();) {
        const std::size_t end = std::min(rest.find('/'), rest.size());
        parsed.parts.push_back(Unescape(rest.substr(0, end)));
        RequirePlainPart(parsed.parts.back());
        if (end + 1 == rest.size()) throw std::invalid_argument("the address ends with a slash");
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return parsed;
}

std::string_view FindCookie(std::string_view header, std::string_view name) {
    while (!header.empty()) {
        const std::size_t end = std::min(header.find(';'), header.size());
        std::string_view pair = header.substr(0, end);
        header.remove_prefix(std::min(end + 1, header.size()));
        pair.remove_prefix(std::min(pair.find_first_not_of(" \t"), pair.size()));
        if (pair.size() > name.size() && pair.starts_with(name) && pair[name.size()] == '=')
            return pair.substr(name.size() + 1);
    }
    return {};
}

std::string_view FindBearer(std::string_view header) {
    constexpr std::string_view Scheme = "Bearer ";
    return header.starts_with(Scheme) ? header.substr(Scheme.size()) : std::string_view();
}

}  // namespace stage
