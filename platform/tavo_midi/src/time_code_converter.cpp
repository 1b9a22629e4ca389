#include "tavo_midi/time_code_converter.h"

#include <cmath>
#include <cstdint>
#include <limits>

#include "tavo_midi/tempo_map.h"

namespace tavo_midi {

struct TimeCodeConverter::Impl {
    const ShowData& showData;
    TempoMap tempoMap;
};

TimeCodeConverter::TimeCodeConverter(const ShowData& showData) : impl_(new Impl{showData, {}}) {}

TimeCodeConverter::~TimeCodeConverter() = default;

void TimeCodeConverter::UpdateToNewSong(const std::string& song, unsigned int ticksPerQuarter) {
    impl_->tempoMap = TempoMap(impl_->showData.GetSongData(song).GetTimeline().GetTempos(), ticksPerQuarter);
}

double TimeCodeConverter::GetSeconds(unsigned int tickIndex, double tempoScale) const {
    return impl_->tempoMap.GetSeconds(tickIndex) / tempoScale;
}

unsigned int TimeCodeConverter::GetTickIndex(double seconds, double tempoScale) const {
    const auto second = static_cast<double>(impl_->tempoMap.GetTickMicrosecondsPerSecond());
    // One tick-microsecond more: a time that GetSeconds gave may have been rounded down by less than that.
    const double written = std::floor(seconds * tempoScale * second + 0.5);
    if (!(written > 0)) return 0;
    constexpr auto Beyond = static_cast<double>(std::numeric_limits<std::uint64_t>::max());
    if (written >= Beyond) return std::numeric_limits<unsigned int>::max();
    return impl_->tempoMap.GetTick(static_cast<std::uint64_t>(written));
}

}  // namespace tavo_midi
