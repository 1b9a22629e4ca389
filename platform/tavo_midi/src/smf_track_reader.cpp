#include "smf_track_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <utility>

#include "kit/utf8.h"
#include "tavo_midi/midi_status.h"

namespace tavo_midi {

namespace {

constexpr std::uint8_t Meta = 0xFF;

constexpr std::uint8_t MetaTrackName = 0x03;
constexpr std::uint8_t MetaMarker = 0x06;
constexpr std::uint8_t MetaCuePoint = 0x07;
constexpr std::uint8_t MetaPort = 0x21;
constexpr std::uint8_t MetaEndOfTrack = 0x2F;
constexpr std::uint8_t MetaTempo = 0x51;
constexpr std::uint8_t MetaMeter = 0x58;
constexpr std::uint8_t MetaKey = 0x59;

constexpr std::size_t MaxSysexMessages = 65536;
constexpr unsigned int HighestPort = 15;

std::size_t KeyIndex(const MidiEvent& event) {
    return (event.status & 0x0FU) * 128U + event.data1;
}

}  // namespace

void SmfTrackReader::Read(std::size_t number, std::size_t begin, std::size_t end, bool isCutOff) {
    track_ = {};
    number_ = number;
    at_ = begin;
    end_ = end;
    tick_ = 0;
    runningStatus_ = 0;
    port_ = 0;
    isInSysex_ = false;
    lateNoteOffs_.clear();
    if (smf_.events.size() != eventStart_) keys_.fill({});
    eventStart_ = smf_.events.size();
    const std::size_t sysexBefore = smf_.sysex.size();
    try {
        if (!ReadEvents()) {
            if (isCutOff) Fail(end_, "the file ends here, before the track does");
            WarnAt(end_, "the track has no end-of-track event");
        }
    } catch (...) {
        smf_.events.resize(eventStart_);
        smf_.sysex.resize(sysexBefore);
        throw;
    }
    DropUnfinishedSysex();
    PutLateNoteOffsInPlace();
    track_.firstEvent = eventStart_;
    track_.eventCount = smf_.events.size() - eventStart_;
    track_.endTick = std::max(track_.endTick, tick_);
    smf_.tracks.push_back(std::move(track_));
}

void SmfTrackReader::Warn(const std::string& sentence) {
    if (smf_.warnings.size() < MaxSmfWarnings) smf_.warnings.push_back(sentence);
}

std::string SmfTrackReader::Place(std::size_t at) const {
    return fmt::format("\"{}\", track {}, byte {}: ", name_, number_, at);
}

void SmfTrackReader::Fail(std::size_t at, const std::string& what) const {
    throw std::runtime_error(Place(at) + what);
}

void SmfTrackReader::WarnAt(std::size_t at, const char* what) {
    if (smf_.warnings.size() < MaxSmfWarnings) Warn(Place(at) + what);
}

std::uint8_t SmfTrackReader::ReadByte() {
    if (at_ == end_) Fail(at_, "the track ends in the middle of an event");
    return ByteAt(at_++);
}

std::uint8_t SmfTrackReader::ReadDataByte() {
    const std::uint8_t byte = ReadByte();
    if (byte >= 0x80) Fail(at_ - 1, fmt::format("0x{:02X} stands where a data byte below 0x80 must", byte));
    return byte;
}

std::uint32_t SmfTrackReader::ReadVariableLength() {
    std::uint32_t value = 0;
    for (int count = 0; count < 4; ++count) {
        const std::uint8_t byte = ReadByte();
        value = value << 7U | (byte & 0x7FU);
        if (byte < 0x80) return value;
    }
    Fail(at_ - 4, "a variable-length number has more than four bytes");
}

std::size_t SmfTrackReader::ReadLengthAndSkip(const char* what, std::size_t& length) {
    const std::size_t lengthAt = at_;
    length = ReadVariableLength();
    if (length > end_ - at_) Fail(lengthAt, fmt::format("{} of {} bytes runs past the end of its track", what, length));
    at_ += length;
    return at_ - length;
}

bool SmfTrackReader::ReadEvents() {
    while (at_ < end_) {
        ReadPlainChannelMessages();
        if (at_ == end_) break;
        const std::size_t eventAt = at_;
        const std::uint32_t delta = ReadVariableLength();
        if (delta > std::numeric_limits<std::uint32_t>::max() - tick_)
            Fail(eventAt, "the track runs past tick 4294967295");
        tick_ += delta;
        std::uint8_t status = ReadByte();
        if (status < 0x80) {
            if (runningStatus_ == 0)
                Fail(at_ - 1, fmt::format("the data byte 0x{:02X} stands where a status byte must", status));
            status = runningStatus_;
            --at_;
        }
        if (status < status_byte::Sysex)
            ReadChannelMessage(status);
        else if (status == status_byte::Sysex || status == status_byte::SysexEnd)
            ReadSysexPacket(status);
        else if (status != Meta)
            SkipSystemMessage(status);
        else if (!ReadMeta())
            return true;
    }
    return false;
}

// Nearly all of a file are channel messages not far apart in time: these are read here with everything at hand, up to
// the first event that is not quite plain, which the general reader takes.
void SmfTrackReader::ReadPlainChannelMessages() {
    constexpr std::size_t LongestPlain = 5;
    constexpr std::uint32_t HighestPlainTick = std::numeric_limits<std::uint32_t>::max() - (1U << 14U);
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(bytes_.data());
    std::uint8_t running = runningStatus_;
    while (end_ - at_ >= LongestPlain && tick_ < HighestPlainTick) {
        const std::uint8_t* next = bytes + at_;
        std::uint32_t delta = *next++;
        if (delta >= 0x80) delta = (delta & 0x7FU) << 7U | *next;
        next += bytes[at_] >> 7U;
        const bool isOneByteDelta = bytes[at_] < 0x80;
        if (!isOneByteDelta && next[-1] >= 0x80) break;
        const bool isRunning = *next < 0x80;
        const std::uint8_t status = isRunning ? running : *next;
        next += isRunning ? 0 : 1;
        const std::uint8_t kind = status & 0xF0U;
        const bool hasTwo = kind != status_byte::ProgramChange && kind != status_byte::ChannelPressure;
        if (status < status_byte::NoteOff || status >= status_byte::Sysex || (next[0] | (hasTwo ? next[1] : 0)) >= 0x80)
            break;
        running = status;
        tick_ += delta;
        at_ = static_cast<std::size_t>(next - bytes) + (hasTwo ? 2 : 1);
        AddChannelMessage({tick_, status, next[0], hasTwo ? next[1] : std::uint8_t{0}, port_});
    }
    runningStatus_ = running;
}

void SmfTrackReader::ReadChannelMessage(std::uint8_t status) {
    runningStatus_ = status;
    MidiEvent event{tick_, status, ReadDataByte(), 0, port_};
    const std::uint8_t kind = status & 0xF0U;
    if (kind != status_byte::ProgramChange && kind != status_byte::ChannelPressure) event.data2 = ReadDataByte();
    AddChannelMessage(event);
}

void SmfTrackReader::AddChannelMessage(const MidiEvent& event) {
    const std::uint8_t kind = event.status & 0xF0U;
    if (kind > status_byte::NoteOn)
        smf_.events.push_back(event);
    else if (kind == status_byte::NoteOn && event.data2 != 0)
        AddNoteOn(event);
    else
        AddNoteOff(event);
}

void SmfTrackReader::AddNoteOn(const MidiEvent& event) {
    KeyState& key = keys_[KeyIndex(event)];
    if (key.latestTick != tick_) {
        key.latestTick = tick_;
        key.startedAtLatestTick = 0;
    } else if (!lateNoteOffs_.empty()) {
        DropLateNoteOff(event);
    }
    ++key.startedAtLatestTick;
    ++key.sounding;
    smf_.events.push_back(event);
}

// The late end of a note of no length would cut this one off.
void SmfTrackReader::DropLateNoteOff(const MidiEvent& noteOn) {
    const std::uint32_t index = lateNoteOffOfKey_[KeyIndex(noteOn)];
    if (index >= lateNoteOffs_.size()) return;
    MidiEvent& noteOff = lateNoteOffs_[index];
    if (noteOff.tick == noteOn.tick + 1 && KeyIndex(noteOff) == KeyIndex(noteOn)) noteOff.status = 0;
}

void SmfTrackReader::AddNoteOff(const MidiEvent& event) {
    MidiEvent noteOff = event;
    if (event.status >= status_byte::NoteOn) {
        noteOff.status = static_cast<std::uint8_t>(status_byte::NoteOff | (event.status & 0x0FU));
        noteOff.data2 = 0;
    }
    KeyState& key = keys_[KeyIndex(event)];
    const bool startedNow = key.latestTick == tick_ && key.sounding != 0 && key.startedAtLatestTick == key.sounding;
    if (key.sounding != 0) --key.sounding;
    if (!startedNow) {
        smf_.events.push_back(noteOff);
        return;
    }
    --key.startedAtLatestTick;
    if (noteOff.tick != std::numeric_limits<std::uint32_t>::max()) ++noteOff.tick;
    lateNoteOffOfKey_[KeyIndex(event)] = static_cast<std::uint32_t>(lateNoteOffs_.size());
    lateNoteOffs_.push_back(noteOff);
}

bool SmfTrackReader::ReadMeta() {
    const std::uint8_t type = ReadByte();
    // Nothing of an end of track but its type matters.
    if (type == MetaEndOfTrack) return false;
    std::size_t length = 0;
    const std::size_t at = ReadLengthAndSkip("a meta event", length);
    switch (type) {
        case MetaTrackName:
            if (track_.name.empty()) track_.name = kit::ToUtf8Line(bytes_.substr(at, length));
            break;
        case MetaMarker:
        case MetaCuePoint:
            track_.markers.emplace_back(tick_, kit::ToUtf8Line(bytes_.substr(at, length)));
            break;
        case MetaPort:
            ReadPort(at, length);
            break;
        case MetaTempo:
            ReadTempo(at, length);
            break;
        case MetaMeter:
            ReadMeter(at, length);
            break;
        case MetaKey:
            ReadKey(at, length);
            break;
        default:
            break;
    }
    return true;
}

void SmfTrackReader::ReadPort(std::size_t at, std::size_t length) {
    if (length < 1 || ByteAt(at) > HighestPort) return WarnAt(at, "the MIDI port is not from 0 to 15 and is left out");
    port_ = ByteAt(at);
}

void SmfTrackReader::ReadTempo(std::size_t at, std::size_t length) {
    std::uint32_t microseconds = 0;
    if (length >= 3)
        microseconds =
            std::uint32_t{ByteAt(at)} << 16U | std::uint32_t{ByteAt(at + 1)} << 8U | std::uint32_t{ByteAt(at + 2)};
    if (microseconds == 0) return WarnAt(at, "the tempo is not a number of microseconds and is left out");
    track_.tempos.emplace_back(tick_, microseconds);
}

void SmfTrackReader::ReadMeter(std::size_t at, std::size_t length) {
    constexpr std::uint8_t HighestPower = 7;
    if (length < 2 || ByteAt(at) == 0 || ByteAt(at + 1) > HighestPower)
        return WarnAt(at, "the meter is none that can be written and is left out");
    const auto denominator = static_cast<std::uint8_t>(1U << ByteAt(at + 1));
    std::uint8_t clocksPerClick = length > 2 ? ByteAt(at + 2) : 0;
    std::uint8_t thirtySeconds = length > 3 ? ByteAt(at + 3) : 0;
    if (clocksPerClick == 0) clocksPerClick = static_cast<std::uint8_t>(std::max(96 / denominator, 1));
    if (thirtySeconds == 0) thirtySeconds = 8;
    track_.meters.emplace_back(tick_, ByteAt(at), denominator, clocksPerClick, thirtySeconds);
}

void SmfTrackReader::ReadKey(std::size_t at, std::size_t length) {
    const int sharps = length < 2 ? 99 : static_cast<std::int8_t>(ByteAt(at));
    if (sharps < -7 || sharps > 7 || ByteAt(at + 1) > 1)
        return WarnAt(at, "the key is none of the thirty keys and is left out");
    track_.keys.emplace_back(tick_, sharps, ByteAt(at + 1) == 1);
}

void SmfTrackReader::ReadSysexPacket(std::uint8_t status) {
    std::size_t length = 0;
    const std::size_t at = ReadLengthAndSkip("a system-exclusive message", length);
    const std::string_view packet = bytes_.substr(at, length);
    if (status == status_byte::Sysex) {
        DropUnfinishedSysex();
        isInSysex_ = true;
        unfinishedSysex_.assign(1, status_byte::Sysex);
    } else if (!isInSysex_) {
        return WarnAt(at, "raw bytes outside a system-exclusive message are left out");
    }
    unfinishedSysex_.insert(unfinishedSysex_.end(), packet.begin(), packet.end());
    if (unfinishedSysex_.back() == status_byte::SysexEnd) FinishSysex();
}

void SmfTrackReader::FinishSysex() {
    if (smf_.sysex.size() == MaxSysexMessages)
        Fail(at_, fmt::format("there are more than {} system-exclusive messages", MaxSysexMessages));
    const std::size_t index = smf_.sysex.size();
    smf_.sysex.push_back(unfinishedSysex_);
    smf_.events.push_back({tick_, status_byte::Sysex, static_cast<std::uint8_t>(index & 0xFFU),
                           static_cast<std::uint8_t>(index >> 8U & 0xFFU), static_cast<std::uint8_t>(index >> 16U)});
    isInSysex_ = false;
}

void SmfTrackReader::DropUnfinishedSysex() {
    if (isInSysex_) WarnAt(at_, "a system-exclusive message before this place has no end and is left out");
    isInSysex_ = false;
}

void SmfTrackReader::SkipSystemMessage(std::uint8_t status) {
    WarnAt(at_ - 1, "a system message other than a system-exclusive one has no place in a file and is left out");
    if (status == status_byte::TimeCodeQuarter || status == status_byte::SongSelect) static_cast<void>(ReadDataByte());
    if (status == status_byte::SongPosition) {
        static_cast<void>(ReadDataByte());
        static_cast<void>(ReadDataByte());
    }
}

void SmfTrackReader::PutLateNoteOffsInPlace() {
    std::erase_if(lateNoteOffs_, [](const MidiEvent& event) { return event.status == 0; });
    if (lateNoteOffs_.empty()) return;
    std::vector<MidiEvent>& events = smf_.events;
    const auto begin = static_cast<std::ptrdiff_t>(eventStart_);
    const auto middle = static_cast<std::ptrdiff_t>(events.size());
    events.insert(events.end(), lateNoteOffs_.begin(), lateNoteOffs_.end());
    std::inplace_merge(events.begin() + begin, events.begin() + middle, events.end(),
                       [](const MidiEvent& left, const MidiEvent& right) { return left.tick < right.tick; });
    track_.endTick = events.back().tick;
}

}  // namespace tavo_midi
