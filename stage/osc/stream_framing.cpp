#include "stage/osc/stream_framing.h"

#include <fmt/format.h>

#include <cstdint>
#include <stdexcept>
#include <utility>

#include "stage/osc/osc_message.h"

namespace stage {

namespace {

constexpr char SlipEnd = '\xC0';
constexpr char SlipEscape = '\xDB';
constexpr char SlipEscapedEnd = '\xDC';
constexpr char SlipEscapedEscape = '\xDD';
constexpr std::size_t LengthBytes = 4;

}  // namespace

std::vector<char> Frame(StreamFraming framing, std::span<const char> packet) {
    std::vector<char> framed;
    framed.reserve(packet.size() + LengthBytes);
    if (framing == StreamFraming::Length) {
        const auto length = static_cast<std::uint32_t>(packet.size());
        for (int shift = 24; shift >= 0; shift -= 8)
            framed.push_back(static_cast<char>(length >> static_cast<unsigned int>(shift)));
        framed.insert(framed.end(), packet.begin(), packet.end());
        return framed;
    }
    framed.push_back(SlipEnd);
    for (const char byte : packet) {
        if (byte != SlipEnd && byte != SlipEscape) {
            framed.push_back(byte);
            continue;
        }
        framed.push_back(SlipEscape);
        framed.push_back(byte == SlipEnd ? SlipEscapedEnd : SlipEscapedEscape);
    }
    framed.push_back(SlipEnd);
    return framed;
}

void StreamReader::Take(std::span<const char> bytes) {
    if (bytes.empty()) return;
    if (!framing_) {
        const char first = bytes.front();
        if (first != 0 && first != SlipEnd && first != '/' && first != '#')
            throw std::invalid_argument("the stream is not OSC: it begins neither with a length nor with a packet");
        framing_ = first == 0 ? StreamFraming::Length : StreamFraming::Slip;
    }
    if (framing_ == StreamFraming::Slip) {
        for (const char byte : bytes)
            TakeSlip_(byte);
        return;
    }
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    TakeLengths_();
}

void StreamReader::TakeSlip_(char byte) {
    if (byte == SlipEnd) {
        isEscaped_ = false;
        // Two ends in a row have nothing between them.
        if (!bytes_.empty()) packets_.push_back(std::exchange(bytes_, {}));
        return;
    }
    if (byte == SlipEscape && !std::exchange(isEscaped_, true)) return;
    if (std::exchange(isEscaped_, false)) {
        if (byte != SlipEscapedEnd && byte != SlipEscapedEscape)
            throw std::invalid_argument("the stream is not OSC: an escape is followed by what cannot be escaped");
        byte = byte == SlipEscapedEnd ? SlipEnd : SlipEscape;
    }
    if (bytes_.size() >= LongestOscPacket)
        throw std::invalid_argument(fmt::format("a packet has at most {} bytes", LongestOscPacket));
    bytes_.push_back(byte);
}

void StreamReader::TakeLengths_() {
    std::size_t at = 0;
    while (bytes_.size() - at >= LengthBytes) {
        std::size_t length = 0;
        for (std::size_t i = 0; i < LengthBytes; ++i)
            length = length << 8U | static_cast<unsigned char>(bytes_[at + i]);
        if (length > LongestOscPacket)
            throw std::invalid_argument(fmt::format("a packet has at most {} bytes, not {}", LongestOscPacket, length));
        if (bytes_.size() - at - LengthBytes < length) break;
        const auto begin = bytes_.begin() + static_cast<std::ptrdiff_t>(at + LengthBytes);
        packets_.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(length));
        at += LengthBytes + length;
    }
    bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(at));
}

std::optional<std::vector<char>> StreamReader::Next() {
    if (packets_.empty()) return std::nullopt;
    std::vector<char> packet = std::move(packets_.front());
    packets_.pop_front();
    return packet;
}

}  // namespace stage
