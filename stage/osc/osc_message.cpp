#include "stage/osc/osc_message.h"

#include <fmt/format.h>
#include <lo/lo.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <type_traits>

namespace stage {

namespace {

using Packet = std::span<const char>;

constexpr std::string_view BundleMark("#bundle\0", 8);
constexpr std::size_t BundleHead = 16;  // the mark and the time tag
constexpr int DeepestBundle = 8;
constexpr std::size_t MostMessages = 1000;
constexpr std::size_t LongestAddress = 255;

struct FreeMessage {
    void operator()(lo_message message) const { lo_message_free(message); }
};
using LoMessage = std::unique_ptr<std::remove_pointer_t<lo_message>, FreeMessage>;

std::uint32_t ReadBigEndian(Packet bytes) {
    std::uint32_t number = 0;
    for (const char byte : bytes.first(4))
        number = number << 8U | static_cast<unsigned char>(byte);
    return number;
}

template <class Number>
Number ReadNumber(const void* argument) {
    Number number{};
    std::memcpy(&number, argument, sizeof number);
    return number;
}

/// `argument` lies at a multiple of four, whatever its type.
OscValue ReadValue(char tag, const void* argument) {
    switch (tag) {
        case LO_INT32:
            return std::int64_t{ReadNumber<std::int32_t>(argument)};
        case LO_INT64:
            return ReadNumber<std::int64_t>(argument);
        case LO_FLOAT:
            return static_cast<double>(ReadNumber<float>(argument));
        case LO_DOUBLE:
            return ReadNumber<double>(argument);
        case LO_STRING:
        case LO_SYMBOL:
            return std::string(static_cast<const char*>(argument));
        case LO_TRUE:
            return true;
        case LO_FALSE:
            return false;
        default:
            return OscOther{tag};
    }
}

/// The text at the front, which a zero ends and which zeros fill up to four bytes.
std::string_view ReadAddress(Packet packet) {
    const auto* const end = static_cast<const char*>(std::memchr(packet.data(), 0, packet.size()));
    if (end == nullptr) throw std::invalid_argument("the packet is not OSC: its address does not end");
    const std::string_view address(packet.data(), end);
    if (!address.starts_with('/')) throw std::invalid_argument("the packet is not OSC: it does not begin with /");
    if (address.size() > LongestAddress)
        throw std::invalid_argument(fmt::format("an address has at most {} characters", LongestAddress));
    if (std::ranges::any_of(address, [](char c) { return c <= ' ' || c > '~'; }))
        throw std::invalid_argument("the packet is not OSC: its address holds what is neither a letter nor a sign");
    return address;
}

OscMessage ReadMessage(Packet packet) {
    const std::string_view address = ReadAddress(packet);
    const std::size_t padded = (address.size() / 4 + 1) * 4;
    if (padded == packet.size()) return {std::string(address), {}};
    // It writes into what it is given.
    std::vector<char> bytes(packet.begin(), packet.end());
    int problem = 0;
    const LoMessage message(lo_message_deserialise(bytes.data(), bytes.size(), &problem));
    if (message == nullptr)
        throw std::invalid_argument("the packet is not OSC: its arguments do not fit their types or its length");
    OscMessage read{std::string(address), {}};
    const char* const tags = lo_message_get_types(message.get());
    lo_arg** const arguments = lo_message_get_argv(message.get());
    for (int i = 0; i < lo_message_get_argc(message.get()); ++i)
        read.arguments.push_back(ReadValue(tags[i], arguments[i]));
    return read;
}

void ReadElements(Packet packet, int depth, std::vector<OscMessage>& messages) {
    if (packet.empty() || packet.size() % 4 != 0)
        throw std::invalid_argument(
            fmt::format("the packet is not OSC: {} bytes are no multiple of four", packet.size()));
    if (!std::string_view(packet.data(), packet.size()).starts_with(BundleMark)) {
        if (messages.size() >= MostMessages)
            throw std::invalid_argument(fmt::format("a packet has at most {} messages", MostMessages));
        return messages.push_back(ReadMessage(packet));
    }
    if (depth > DeepestBundle || packet.size() < BundleHead)
        throw std::invalid_argument(depth > DeepestBundle ? "the bundle has too many others around it"
                                                          : "the packet is not OSC: the bundle has no time tag");
    for (Packet rest = packet.subspan(BundleHead); !rest.empty();) {
        const std::size_t size = ReadBigEndian(rest);
        rest = rest.subspan(4);
        if (size == 0 || size > rest.size())
            throw std::invalid_argument("the packet is not OSC: a part of the bundle is longer than the bundle");
        ReadElements(rest.first(size), depth + 1, messages);
        rest = rest.subspan(size);
    }
}

void Add(const LoMessage& message, const OscValue& value) {
    if (const auto* const whole = std::get_if<std::int64_t>(&value)) {
        using Small = std::numeric_limits<std::int32_t>;
        if (*whole >= Small::min() && *whole <= Small::max()) {
            lo_message_add_int32(message.get(), static_cast<std::int32_t>(*whole));
        } else {
            lo_message_add_int64(message.get(), *whole);
        }
    } else if (const auto* const number = std::get_if<double>(&value)) {
        lo_message_add_float(message.get(), static_cast<float>(*number));
    } else if (const auto* const text = std::get_if<std::string>(&value)) {
        lo_message_add_string(message.get(), text->c_str());
    } else if (const auto* const truth = std::get_if<bool>(&value)) {
        *truth ? lo_message_add_true(message.get()) : lo_message_add_false(message.get());
    } else {
        throw std::invalid_argument("an argument of that type cannot be sent");
    }
}

LoMessage MakeMessage(const OscMessage& message) {
    LoMessage made(lo_message_new());
    if (made == nullptr) throw std::bad_alloc();
    for (const OscValue& value : message.arguments)
        Add(made, value);
    return made;
}

void RequireLength(std::size_t length) {
    if (length > LongestOscPacket)
        throw std::invalid_argument(fmt::format("the message has more than {} bytes", LongestOscPacket));
}

/// Seconds since 1900 and their fraction, as the time protocol of the Internet counts (RFC 5905).
lo_timetag AsTimeTag(std::chrono::system_clock::time_point moment) {
    constexpr std::int64_t SecondsTo1970 = 2208988800;
    const std::int64_t sinceEpoch =
        std::chrono::duration_cast<std::chrono::nanoseconds>(moment.time_since_epoch()).count();
    constexpr std::int64_t PerSecond = 1'000'000'000;
    const auto rest = static_cast<double>(sinceEpoch % PerSecond);
    return {static_cast<std::uint32_t>(sinceEpoch / PerSecond + SecondsTo1970),
            static_cast<std::uint32_t>(rest / PerSecond * 4294967296.0)};
}

}  // namespace

std::vector<OscMessage> ReadOscPacket(Packet packet) {
    if (packet.size() > LongestOscPacket)
        throw std::invalid_argument(fmt::format("a packet has at most {} bytes", LongestOscPacket));
    std::vector<OscMessage> messages;
    ReadElements(packet, 0, messages);
    return messages;
}

std::vector<char> WriteOscPacket(const OscMessage& message) {
    const LoMessage made = MakeMessage(message);
    const std::size_t length = lo_message_length(made.get(), message.address.c_str());
    RequireLength(length);
    std::vector<char> packet(length);
    lo_message_serialise(made.get(), message.address.c_str(), packet.data(), nullptr);
    return packet;
}

std::vector<char> WriteOscBundle(std::span<const OscMessage> messages, std::chrono::system_clock::time_point moment) {
    struct FreeBundle {
        void operator()(lo_bundle bundle) const { lo_bundle_free_recursive(bundle); }
    };
    const std::unique_ptr<std::remove_pointer_t<lo_bundle>, FreeBundle> bundle(lo_bundle_new(AsTimeTag(moment)));
    if (bundle == nullptr) throw std::bad_alloc();
    for (const OscMessage& message : messages) {
        // It is the bundle's from here on.
        lo_bundle_add_message(bundle.get(), message.address.c_str(), MakeMessage(message).release());
    }
    const std::size_t length = lo_bundle_length(bundle.get());
    RequireLength(length);
    std::vector<char> packet(length);
    lo_bundle_serialise(bundle.get(), packet.data(), nullptr);
    return packet;
}

}  // namespace stage
