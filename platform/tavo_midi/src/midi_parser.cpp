#include "midi_parser.h"

namespace tavo_midi {

namespace {

constexpr unsigned char SystemExclusive = 0xF0;
constexpr unsigned char EndOfExclusive = 0xF7;

/// Bytes of a message with that status; 0 for those that MIDI does not define.
std::size_t LengthOf(unsigned char status) {
    switch (status & 0xF0) {
        case 0xC0:
        case 0xD0:
            return 2;
        case 0xF0:
            break;
        default:
            return 3;
    }
    switch (status) {
        case 0xF1:
        case 0xF3:
            return 2;
        case 0xF2:
            return 3;
        case 0xF6:
            return 1;
        default:
            return 0;
    }
}

bool IsDefinedRealTime(unsigned char status) {
    return status != 0xF9 && status != 0xFD;
}

}  // namespace

void MidiParser::Feed(Message bytes) {
    for (const unsigned char byte : bytes)
        FeedByte_(byte);
}

void MidiParser::Reset() {
    message_.clear();
    length_ = 0;
    isSystemExclusive_ = false;
}

void MidiParser::FeedByte_(unsigned char byte) {
    if (byte >= 0xF8) {
        if (IsDefinedRealTime(byte)) deliver_(Message(&byte, 1));
    } else if (byte >= 0x80) {
        FeedStatus_(byte);
    } else {
        FeedData_(byte);
    }
}

void MidiParser::FeedStatus_(unsigned char status) {
    if (status == EndOfExclusive && isSystemExclusive_) {
        EndSystemExclusive_();
        return;
    }
    // A System Exclusive message that another status interrupts is lost.
    Reset();
    if (status == SystemExclusive) {
        message_.push_back(status);
        isSystemExclusive_ = true;
        isTooLong_ = false;
        return;
    }
    length_ = LengthOf(status);
    if (length_ == 0) return;
    message_.push_back(status);
    if (length_ == 1) {
        deliver_(message_);
        Reset();
    }
}

void MidiParser::FeedData_(unsigned char byte) {
    if (isSystemExclusive_) {
        // One byte of room is kept for the end.
        isTooLong_ = isTooLong_ || message_.size() + 1 >= LongestMessage;
        if (!isTooLong_) message_.push_back(byte);
        return;
    }
    if (message_.empty()) return;
    message_.push_back(byte);
    if (message_.size() < length_) return;
    deliver_(message_);
    // Running status: only channel messages may leave theirs out.
    if (message_.front() < SystemExclusive)
        message_.resize(1);
    else
        Reset();
}

void MidiParser::EndSystemExclusive_() {
    message_.push_back(EndOfExclusive);
    if (!isTooLong_) deliver_(message_);
    Reset();
}

}  // namespace tavo_midi
