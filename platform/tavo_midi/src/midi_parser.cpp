#include "midi_parser.h"

#include "tavo_midi/midi_status.h"

namespace tavo_midi {

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
    if (byte >= status_byte::FirstRealTime) {
        if (CountMessageBytes(byte) == 1) deliver_(Message(&byte, 1));
    } else if (byte >= 0x80) {
        FeedStatus_(byte);
    } else {
        FeedData_(byte);
    }
}

void MidiParser::FeedStatus_(unsigned char status) {
    if (status == status_byte::SysexEnd && isSystemExclusive_) {
        EndSystemExclusive_();
        return;
    }
    // A System Exclusive message that another status interrupts is lost.
    Reset();
    if (status == status_byte::Sysex) {
        message_.push_back(status);
        isSystemExclusive_ = true;
        isTooLong_ = false;
        return;
    }
    length_ = CountMessageBytes(status);
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
    if (message_.front() < status_byte::Sysex)
        message_.resize(1);
    else
        Reset();
}

void MidiParser::EndSystemExclusive_() {
    message_.push_back(status_byte::SysexEnd);
    if (!isTooLong_) deliver_(message_);
    Reset();
}

}  // namespace tavo_midi
