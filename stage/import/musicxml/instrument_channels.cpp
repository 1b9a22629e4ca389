#include "stage/import/musicxml/instrument_channels.h"

#include <fmt/format.h>

#include <array>
#include <set>

namespace stage::musicxml {

namespace {

constexpr std::uint8_t DrumChannel = 9;
constexpr std::uint8_t ChannelsOfPort = 16;
constexpr std::uint8_t Ports = 16;

class Assignment {
public:
    explicit Assignment(const std::vector<WrittenPart>& parts) : parts_(parts) {}

    InstrumentChannels Assign() {
        for (const WrittenPart& part : parts_)
            assigned_.ofPart.emplace_back(part.instruments.size());
        GiveWhatIsAskedFor();
        for (std::size_t part = 0; part < parts_.size(); ++part) {
            for (std::size_t i = 0; i < parts_[part].instruments.size(); ++i)
                if (!given_.contains({part, i})) Give(part, i, FindFree(parts_[part].instruments[i]));
        }
        if (lacking_ > 0)
            assigned_.notes.push_back(
                fmt::format("{} instruments share channels with others: there are {} channels only", lacking_,
                            Ports * (ChannelsOfPort - 1)));
        return std::move(assigned_);
    }

private:
    void Give(std::size_t part, std::size_t instrument, MidiChannel channel) {
        given_.insert({part, instrument});
        taken_.insert(channel);
        const auto program = static_cast<std::size_t>(parts_[part].instruments[instrument].program & 0x7F);
        if (channel.channel != DrumChannel) channelOfProgram_[program] = channel;
        assigned_.ofPart[part][instrument] = channel;
    }

    void GiveWhatIsAskedFor() {
        for (std::size_t part = 0; part < parts_.size(); ++part) {
            for (std::size_t i = 0; i < parts_[part].instruments.size(); ++i) {
                const WrittenInstrument& instrument = parts_[part].instruments[i];
                const MidiChannel asked{0, static_cast<std::uint8_t>(instrument.channel & 0x0F)};
                const bool isFree = instrument.channel >= 0 && asked.channel != DrumChannel && !taken_.contains(asked);
                if (instrument.isPercussion)
                    Give(part, i, {0, DrumChannel});
                else if (isFree)
                    Give(part, i, asked);
            }
        }
    }

    MidiChannel FindFree(const WrittenInstrument& instrument) {
        for (; next_.port < Ports; ++next_.port, next_.channel = 0) {
            for (; next_.channel < ChannelsOfPort; ++next_.channel)
                if (next_.channel != DrumChannel && !taken_.contains(next_)) return next_;
        }
        ++lacking_;
        return channelOfProgram_[static_cast<std::size_t>(instrument.program & 0x7F)];
    }

    const std::vector<WrittenPart>& parts_;
    InstrumentChannels assigned_;
    std::set<std::pair<std::size_t, std::size_t>> given_;
    std::set<MidiChannel> taken_;
    std::array<MidiChannel, 128> channelOfProgram_{};
    MidiChannel next_;
    std::size_t lacking_ = 0;
};

}  // namespace

InstrumentChannels AssignChannels(const std::vector<WrittenPart>& parts) {
    return Assignment(parts).Assign();
}

}  // namespace stage::musicxml
