#include "tavo_midi/how_to_play.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "tavo_core/as_string.h"
#include "tavo_core/beat_ticks.h"
#include "tavo_midi/tempo_map.h"
#include "value_track.h"

namespace tavo_midi {

namespace {

constexpr unsigned int ClocksPerQuarter = 24;
constexpr double MicrosecondsPerMinute = 60e6;

struct MarkerText {
    std::uint32_t tick = 0;
    std::string text;
    bool operator==(const MarkerText&) const = default;
};

/// What each Update query last answered true for; empty when it must answer true.
struct Reported {
    std::optional<std::size_t> beatCount;
    std::uint32_t beatReading = 0;
    std::optional<std::pair<unsigned int, unsigned int>> meter;
    std::optional<int> click;
    std::optional<int> transposition;
    std::optional<std::pair<int, bool>> key;
    std::optional<double> tempoScale;
    std::optional<double> tempo;
    std::optional<MarkerText> marker;
    std::optional<int> page;
};

/// Whether `value` is news; then it is what was last reported.
template <class Value>
bool Report(std::optional<Value>& reported, Value value) {
    if (reported == value) return false;
    reported = std::move(value);
    return true;
}

/// The key that lies `semitones` higher, spelt with the fewest accidentals; of six sharps and six flats, the flats.
TL::Key Transpose(const TL::Key& key, int semitones) {
    if (semitones % 12 == 0) return key;
    // A semitone up is seven steps along the circle of fifths, which closes after twelve.
    int sharps = (key.sharps() + 7 * semitones) % 12;
    if (sharps >= 6) sharps -= 12;
    if (sharps < -6) sharps += 12;
    return TL::Key(key.abs_time(), sharps, key.minor());
}

/// Two decimals at most.
std::string ShortText(double number) {
    return fmt::format("{}", std::round(number * 100) / 100);
}

template <class Sequence>
auto MakeTrack(const Sequence& sequence) {
    ValueTrack<typename Sequence::value_type> track;
    track.Reserve(sequence.size());
    for (const auto& entry : sequence)
        track.Append(entry.abs_time(), entry);
    return track;
}

std::vector<std::uint32_t> GetBarTicks(const TL::TimelineSequence<TL::BarsBeats>& beats) {
    std::vector<std::uint32_t> ticks;
    for (const TL::BarsBeats& beat : beats)
        if (beat.beat() == 1 || ticks.empty()) ticks.push_back(beat.abs_time());
    return ticks;
}

}  // namespace

struct HowToPlay::Impl {
    explicit Impl(UserControls& controls) : userControls(controls) {}

    void Load(const CL::SongLog& songLog, const TL::Timeline& timeline, unsigned int ticksPerQuarter);

    void MoveTo(std::uint32_t tick) {
        position = tick;
        beats.Follow(tick);
    }
    void JumpTo(std::uint32_t tick) {
        position = tick;
        beats.Find(tick);
    }
    [[nodiscard]] const TL::BarsBeats* Beat() const { return beats.InForceAt(position); }
    [[nodiscard]] const TL::Meter& Meter() const { return meters.FirstOrInForceAt(position, commonTime); }
    [[nodiscard]] int EditedClick() const { return InForceOr(clicks, 0); }
    [[nodiscard]] int ClickLength() const;
    [[nodiscard]] double ClocksPerClick() const;
    [[nodiscard]] int Semitones() const { return userControls.GetTransposition() + InForceOr(transpositions, 0); }
    [[nodiscard]] double TempoScale() const { return userControls.GetTempoScale() * InForceOr(tempoScales, 1.0); }
    [[nodiscard]] std::uint32_t MicrosecondsPerQuarter() const {
        const TL::Tempo* tempo = tempos.InForceAt(position);
        return tempo == nullptr ? TempoMap::DefaultMicrosecondsPerQuarter
                                : std::max<std::uint32_t>(tempo->microseconds_per_quarter(), 1);
    }
    [[nodiscard]] double WrittenClicksPerMinute() const {
        return MicrosecondsPerMinute / MicrosecondsPerQuarter() * ClocksPerQuarter / ClocksPerClick();
    }
    /// The marker in force; an empty one at the position where there is none.
    [[nodiscard]] MarkerText Marker() const {
        const MarkerText* marker = markers.InForceAt(position);
        return marker == nullptr ? MarkerText{position, ""} : *marker;
    }
    /// The same for comparisons: having none is one value, wherever the position is.
    [[nodiscard]] MarkerText MarkerToReport() const {
        const MarkerText* marker = markers.InForceAt(position);
        return marker == nullptr ? MarkerText{} : *marker;
    }

    template <class Value>
    [[nodiscard]] Value InForceOr(const ValueTrack<Value>& track, Value other) const {
        const Value* value = track.InForceAt(position);
        return value == nullptr ? other : *value;
    }

    UserControls& userControls;
    const TL::Meter commonTime;

    std::string songTitle;
    std::uint32_t endTick = 0;
    /// As the performers count them, click edits applied.
    ValueTrack<TL::BarsBeats> beats;
    /// A number for what each beat reads as, packed for comparisons: different numbers read differently.
    std::vector<std::uint32_t> beatReadings;
    std::size_t beatsBeforeEnd = 0;
    /// The score's bar lines, which click edits do not move.
    std::vector<std::uint32_t> barTicks;
    ValueTrack<TL::Meter> meters;
    ValueTrack<TL::Key> keys;
    ValueTrack<TL::Tempo> tempos;
    ValueTrack<TL::PageNum> pages;
    ValueTrack<MarkerText> markers;
    ValueTrack<int> clicks;
    ValueTrack<int> transpositions;
    ValueTrack<double> tempoScales;

    std::uint32_t position = 0;
    Reported reported;
    bool isTitleToSend = false;
};

void HowToPlay::Impl::Load(const CL::SongLog& songLog, const TL::Timeline& timeline, unsigned int ticksPerQuarter) {
    songTitle = timeline.GetSongTitle();
    endTick = timeline.GetEndTickIndex();
    beats.Adopt(CollectBeats(timeline.GetBarsBeats(), songLog.GetClicks(), timeline.GetMeters(),
                             ticksPerQuarter == 0 ? TempoMap::DefaultTicksPerQuarter : ticksPerQuarter));
    beatReadings.clear();
    beatReadings.reserve(beats.Values().size());
    for (const TL::BarsBeats& beat : beats.Values())
        beatReadings.push_back(
            static_cast<std::uint32_t>(std::hash<std::string>()(beat.bar_number()) * 31 + beat.beat()));
    beatsBeforeEnd = endTick == 0 ? 0 : beats.CountAt(endTick - 1);
    barTicks = GetBarTicks(timeline.GetBarsBeats());
    meters = MakeTrack(timeline.GetMeters());
    keys = MakeTrack(timeline.GetKeys());
    tempos = MakeTrack(timeline.GetTempos());
    pages = MakeTrack(timeline.GetPageNums());
    markers = {};
    for (const CL::Marker& marker : songLog.GetMarkers())
        markers.Append(marker.abs_time(), {marker.abs_time(), marker.value()});
    clicks = MakeTrackOfRanges(songLog.GetClicks(), 0, [](const CL::Click& click) { return click.int_value(); });
    transpositions = MakeTrackOfRanges(songLog.GetTranspositions(), 0,
                                       [](const CL::Transposition& edit) { return edit.int_value(); });
    tempoScales = MakeTrackOfRanges(songLog.GetTempoScales(), 1.0, [](const CL::TempoScale& edit) {
        return double{std::clamp(edit.float_value(), CL::TempoScale::LowestPlayable, CL::TempoScale::HighestPlayable)};
    });
}

int HowToPlay::Impl::ClickLength() const {
    if (const int edited = EditedClick(); edited > 0) return edited;
    const TL::Meter& meter = Meter();
    return meter.clocks_per_click() * meter.thirty_seconds_per_quarter() / static_cast<int>(ClocksPerQuarter);
}

double HowToPlay::Impl::ClocksPerClick() const {
    const TL::Meter& meter = Meter();
    unsigned int clocks = meter.clocks_per_click();
    if (const int edited = EditedClick(); edited > 0)
        clocks = CL::Click(0, 0, edited).ClocksPerClick(meter.thirty_seconds_per_quarter());
    return clocks == 0 ? ClocksPerQuarter : clocks;
}

HowToPlay::SongEnd::SongEnd() : std::out_of_range("no bar begins later in this song") {}

HowToPlay::SongBegin::SongBegin() : std::out_of_range("no bar begins earlier in this song") {}

HowToPlay::HowToPlay(UserControls& controls) : impl_(std::make_unique<Impl>(controls)) {}

HowToPlay::~HowToPlay() = default;

void HowToPlay::Advance(unsigned int tickIndex) {
    impl_->MoveTo(tickIndex);
}

void HowToPlay::Reset() {
    impl_->MoveTo(0);
    impl_->reported = {};
}

void HowToPlay::Seek(unsigned int tickIndex) {
    impl_->JumpTo(tickIndex);
}

void HowToPlay::SetData(const CL::SongLog& songLog, const TL::Timeline& timeline, unsigned int ticksPerQuarter) {
    impl_->Load(songLog, timeline, ticksPerQuarter);
    impl_->isTitleToSend = true;
    Reset();
}

bool HowToPlay::UpdateBar() {
    const std::size_t count = impl_->beats.CountAt(impl_->position);
    std::optional<std::size_t>& reported = impl_->reported.beatCount;
    if (reported == count) return false;
    const std::size_t before = std::exchange(reported, count).value_or(0);
    const std::uint32_t reading = count == 0 ? 0 : impl_->beatReadings[count - 1];
    const bool mayReadTheSame = std::exchange(impl_->reported.beatReading, reading) == reading;
    if (!mayReadTheSame || before == 0 || count == 0) return true;
    // Another beat may read the same: a bar of one beat that is played again under its label.
    const std::vector<TL::BarsBeats>& beats = impl_->beats.Values();
    return beats[before - 1].beat() != beats[count - 1].beat() ||
           beats[before - 1].bar_number() != beats[count - 1].bar_number();
}

bool HowToPlay::UpdateMeter() {
    impl_->meters.Follow(impl_->position);
    const TL::Meter& meter = impl_->Meter();
    return Report(impl_->reported.meter, {meter.numerator(), meter.denominator()});
}

bool HowToPlay::UpdateClick() {
    impl_->meters.Follow(impl_->position);
    impl_->clicks.Follow(impl_->position);
    return Report(impl_->reported.click, impl_->ClickLength());
}

bool HowToPlay::UpdateTransposition() {
    impl_->transpositions.Follow(impl_->position);
    return Report(impl_->reported.transposition, impl_->Semitones());
}

bool HowToPlay::UpdateKey() {
    impl_->keys.Follow(impl_->position);
    // The written key: another transposition is reported as such, with the key.
    const TL::Key key = impl_->keys.FirstOrInForceAt(impl_->position, TL::Key());
    return Report(impl_->reported.key, {key.sharps(), key.minor()});
}

bool HowToPlay::UpdateTempoScale() {
    impl_->tempoScales.Follow(impl_->position);
    return Report(impl_->reported.tempoScale, impl_->TempoScale());
}

bool HowToPlay::UpdateTempo() {
    impl_->tempos.Follow(impl_->position);
    // The written tempo: another scale is reported as such, with the tempo.
    return Report(impl_->reported.tempo, impl_->WrittenClicksPerMinute());
}

bool HowToPlay::UpdateMarker() {
    impl_->markers.Follow(impl_->position);
    return Report(impl_->reported.marker, impl_->MarkerToReport());
}

bool HowToPlay::UpdatePageNumber() {
    impl_->pages.Follow(impl_->position);
    return Report(impl_->reported.page, GetPageNumberValue());
}

bool HowToPlay::GetSendMarkerAndSongTitle() {
    return std::exchange(impl_->isTitleToSend, false);
}

void HowToPlay::SetMarkerUpdated(bool updated) {
    impl_->reported.marker.reset();
    if (updated) impl_->reported.marker = impl_->MarkerToReport();
}

std::string HowToPlay::GetBarString() const {
    const TL::BarsBeats* beat = impl_->Beat();
    return beat == nullptr ? std::string() : as_string(*beat);
}

std::string HowToPlay::GetMeterString() const {
    return as_string(impl_->Meter());
}

std::string HowToPlay::GetKeyString() const {
    if (impl_->keys.Values().empty()) return {};
    return as_string(Transpose(impl_->keys.FirstOrInForceAt(impl_->position, TL::Key()), impl_->Semitones()));
}

std::string HowToPlay::GetTempoString() const {
    return ShortText(GetTempoDouble());
}

std::string HowToPlay::GetTempoScaleString() const {
    return ShortText(impl_->TempoScale() * 100) + "%";
}

std::string HowToPlay::GetMarkerString() const {
    return impl_->Marker().text;
}

std::string HowToPlay::GetSongTitle() const {
    return impl_->songTitle;
}

int HowToPlay::GetNotated32PerClick() const {
    return impl_->ClickLength();
}

int HowToPlay::GetTranspositionValue() const {
    return impl_->Semitones();
}

int HowToPlay::GetTempoInteger() const {
    return static_cast<int>(std::lround(GetTempoDouble()));
}

int HowToPlay::GetPageNumberValue() const {
    const TL::PageNum* page = impl_->pages.InForceAt(impl_->position);
    return page == nullptr ? 0 : static_cast<int>(page->page_number());
}

double HowToPlay::GetTempoDouble() const {
    return impl_->WrittenClicksPerMinute() * impl_->TempoScale();
}

unsigned int HowToPlay::GetMarkerTickIndex() const {
    return impl_->Marker().tick;
}

UserControls& HowToPlay::GetUserControls() const {
    return impl_->userControls;
}

unsigned int HowToPlay::GetTickIndex() const {
    return impl_->position;
}

double HowToPlay::GetTempoScale() const {
    return impl_->TempoScale();
}

unsigned int HowToPlay::GetMicrosecondsPerQuarter() const {
    return impl_->MicrosecondsPerQuarter();
}

int HowToPlay::GetClicksToSongEnd() const {
    if (impl_->position >= impl_->endTick) return 0;
    return static_cast<int>(impl_->beatsBeforeEnd - impl_->beats.CountAt(impl_->position)) + 1;
}

unsigned int HowToPlay::GetNextMeasureTickIndex(unsigned int tickIndex) const {
    const std::size_t next = CountNotAfter<std::uint32_t>(impl_->barTicks, tickIndex);
    if (next == impl_->barTicks.size()) throw SongEnd();
    return impl_->barTicks[next];
}

unsigned int HowToPlay::GetPreviousMeasureTickIndex(unsigned int tickIndex) const {
    const std::vector<std::uint32_t>& barTicks = impl_->barTicks;
    if (barTicks.empty() || tickIndex == barTicks.front()) throw SongBegin();
    const std::size_t count = CountNotAfter<std::uint32_t>(barTicks, tickIndex);
    const bool isOneBeforeTickZero = tickIndex == 0xFFFFFFFFU;
    return count == 0 || isOneBeforeTickZero ? barTicks.front() : barTicks[count - 1];
}

}  // namespace tavo_midi
