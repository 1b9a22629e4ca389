// The rendering of a block: what is due when, the sound in between, and what other threads ask for.

#include "stage/engine/engine.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>
#include <variant>

namespace stage {

namespace {

// More than a chord of the whole orchestra brings at one moment: beyond it the lists grow.
constexpr std::size_t OrdinaryOrders = 1024;
// With so many waiting nobody renders: a new one takes the place of those before it that do the same.
constexpr std::size_t MaxOrdersWaiting = 4096;
// Subscribers may answer events with operations that lead to events. Beyond this, time goes on whatever they do.
constexpr int MaxTurnsAtOneMoment = 512;
constexpr std::uint64_t MaxInterruptionsAtOneMoment = 8;
constexpr int MaxRoundsOfEvents = 16;

}  // namespace

Engine::Engine(StageShowControl& flow, Synth& synth, EngineHost& host, UserControls& controls,
               std::uint32_t framesPerSecond, std::uint32_t advanceFrames)
    : flow_(flow),
      host_(host),
      controls_(controls),
      framesPerSecond_(framesPerSecond),
      advanceFrames_(advanceFrames),
      sound_(synth, framesPerSecond),
      clock_(framesPerSecond) {
    ordersAtHand_.reserve(OrdinaryOrders);
    orders_.reserve(OrdinaryOrders);
    eventsAtHand_.reserve(OrdinaryOrders);
    events_.reserve(OrdinaryOrders);
}

void Engine::Subscribe(EngineSubscriber& subscriber) {
    subscribers_.push_back(&subscriber);
}

void Engine::Unsubscribe(EngineSubscriber& subscriber) {
    std::erase(subscribers_, &subscriber);
}

// Operations of any thread.

void Engine::SetSong(std::shared_ptr<const SongPlan> plan) {
    const Lock lock(mutex_);
    EndCountIn_();
    PutOut_(std::exchange(plan_, std::move(plan)));
    ++interruptions_;
    clock_.SetTempoMap(plan_->GetTempoMap());
    isHolding_ = false;
    leftCaesura_.reset();
    stoodSince_.reset();
    // While it rolls, the last song has just ended, at an exact moment.
    if (!isRolling_) {
        now_ = {frame_, 0};
        stoodSince_ = frame_.load();
    }
    playedFrames_ = 0;
    Order_({.kind = SoundOrder::Kind::EndNotes});
    // What rang on after the song before does so still.
    const bool ringsOn = isRolling_ || hasEnded_;
    Order_({.kind = ringsOn ? SoundOrder::Kind::EndAmbiences : SoundOrder::Kind::EndSounds});
    const std::uint32_t fromTick = position_;
    MoveTo_(plan_->GetStartTick());
    if (isRolling_) TakeUpAmbiences_(position_, false);
    looksOutside_ = true;
    // Where nobody renders only the last of several songs is reported.
    if (!events_.empty() && events_.back().kind == EngineEvent::Kind::SongPutIn) events_.pop_back();
    TellMove_(EngineEvent::Kind::SongPutIn, now_.Rounded(), fromTick, position_);
}

void Engine::ReplacePlan(std::shared_ptr<const SongPlan> plan) {
    const Lock lock(mutex_);
    if (plan_ == nullptr || &plan_->GetSong() != &plan->GetSong()) return;
    // The song's music and tempos are the same; only what lies on top of them is looked up anew, and what is held.
    const std::shared_ptr<const SongPlan> before = std::exchange(plan_, std::move(plan));
    EndWhatIsNotHeldAnyMore_(*before);
    PutOut_(before);
    clock_.SetTempoMap(plan_->GetTempoMap());
    nextEvent_ = plan_->FindEvent(nextEventTick_);
    // The cues of the tick that an advance began at have been set off.
    nextCue_ = plan_->FindCue(from_ == to_ ? to_ : from_ + 1);
    nextStop_ = 0;
    if (from_ != to_) FindNextEventFrame_();
    Order_({.kind = SoundOrder::Kind::FollowEdits, .plan = plan_.get()});
    if (isRolling_ || leftCaesura_) TakeUpAmbiences_(position_, from_ != to_);
    looksOutside_ = true;
}

// An end that was to wait for a fermata's release, and whose own place playback has passed, would never come.
void Engine::EndWhatIsNotHeldAnyMore_(const SongPlan& before) {
    const std::vector<HeldEnd>& held = plan_->GetHeldEnds();
    for (const HeldEnd& end : before.GetHeldEnds()) {
        if (end.tick >= nextEventTick_ || end.until < nextEventTick_) continue;
        const auto now = std::lower_bound(held.begin(), held.end(), end.index,
                                          [](const HeldEnd& one, std::size_t index) { return one.index < index; });
        if (now != held.end() && now->index == end.index && now->until >= nextEventTick_) continue;
        Order_({.kind = SoundOrder::Kind::Play, .event = before.GetSong().GetEvents()[end.index], .plan = plan_.get()});
    }
}

void Engine::PutOut_(std::shared_ptr<const SongPlan> plan) {
    if (plan != nullptr) plansInUse_.push_back(std::move(plan));
}

std::vector<std::shared_ptr<const SongPlan>> Engine::TakeOldPlans() {
    const Lock lock(mutex_);
    return std::exchange(oldPlans_, {});
}

void Engine::Start() {
    const Lock lock(mutex_);
    if (isRolling_ || plan_ == nullptr) return;
    if (!countIn_ && BeginCountIn_()) return;
    EndCountIn_();
    StartHere_();
}

void Engine::StartHere_() {
    isRolling_ = true;
    looksOutside_ = true;
    hasEnded_ = false;
    Order_({.kind = SoundOrder::Kind::ResumeSounds});
    TakeUpAmbiences_(position_, from_ != to_);
    if (stoodSince_) {
        clock_.StandStill(*stoodSince_, frame_);
        toTime_ = clock_.TimeOfTick(to_);
        FindNextEventFrame_();
        stoodSince_.reset();
    }
    startIsToTell_ = true;
}

bool Engine::Stop() {
    const Lock lock(mutex_);
    if (countIn_) {
        EndCountIn_();
        return true;
    }
    if (!isRolling_) return false;
    StopHere_();
    return true;
}

void Engine::StopHere_() {
    // An event finds the playhead where it was reported; elsewhere it may be some blocks old.
    if (!isTelling_) UpdatePosition_();
    isRolling_ = false;
    ++interruptions_;
    stoodSince_ = frame_.load();
    const Wait wait = std::exchange(wait_, Wait::None);
    hasEnded_ = wait == Wait::AtSongEnd;
    // A caesura that nobody has stopped at is met again.
    if (wait == Wait::AtCaesura) leftCaesura_.reset();
    Order_({.kind = SoundOrder::Kind::EndNotes});
    // A start that nobody has heard of was none.
    if (!std::exchange(startIsToTell_, false) && !isHolding_)
        TellMove_(EngineEvent::Kind::Stopped, frame_, position_, position_);
}

bool Engine::StopAtCaesura() {
    const Lock lock(mutex_);
    if (wait_ != Wait::AtCaesura) return false;
    wait_ = Wait::None;
    isRolling_ = false;
    ++interruptions_;
    stoodSince_ = frame_.load();
    TellMove_(EngineEvent::Kind::StoppedAtCaesura, now_.Rounded(), to_, to_);
    Tell_({.kind = EngineEvent::Kind::Arrived, .frame = now_.Rounded(), .fromTick = to_, .tick = to_});
    return true;
}

bool Engine::IsAtSongEnd() {
    const Lock lock(mutex_);
    return wait_ == Wait::AtSongEnd;
}

void Engine::Silence() {
    const Lock lock(mutex_);
    Order_({.kind = SoundOrder::Kind::Silence});
}

void Engine::EndSounds() {
    const Lock lock(mutex_);
    Order_({.kind = SoundOrder::Kind::EndSounds});
}

void Engine::EndAmbiences() {
    const Lock lock(mutex_);
    Order_({.kind = SoundOrder::Kind::EndAmbiences});
}

void Engine::PauseSounds() {
    const Lock lock(mutex_);
    Order_({.kind = SoundOrder::Kind::PauseSounds});
}

void Engine::SetWantedTicks(std::optional<std::uint32_t> tick, std::optional<std::uint32_t> another) {
    const Lock lock(mutex_);
    wantedTicks_ = {tick, another};
    // The advance under way was planned without them. Its search found more than is used, which does no harm.
    for (const std::optional<std::uint32_t>& wanted : wantedTicks_) {
        if (!wanted || !isRolling_ || isHolding_ || *wanted <= from_ || *wanted >= to_) continue;
        if (clock_.TimeOfTick(*wanted).Rounded() < frame_) continue;
        to_ = *wanted;
        toTime_ = clock_.TimeOfTick(to_);
        FindNextEventFrame_();
    }
}

void Engine::SetCountIn(unsigned int beats) {
    const Lock lock(mutex_);
    countInBeats_ = beats;
}

void Engine::SetSynthVolume(float volume) {
    const Lock lock(mutex_);
    Order_({.kind = SoundOrder::Kind::SetSynth, .level = volume});
}

void Engine::SetClickVolume(float volume) {
    const Lock lock(mutex_);
    Order_({.kind = SoundOrder::Kind::SetClick, .level = volume});
}

void Engine::SetMasterVolume(float volume) {
    const Lock lock(mutex_);
    Order_({.kind = SoundOrder::Kind::SetMaster, .level = volume});
}

void Engine::SetEffectsVolume(float volume) {
    const Lock lock(mutex_);
    Order_({.kind = SoundOrder::Kind::SetEffects, .level = volume});
}

void Engine::SetAmbienceVolume(float volume) {
    const Lock lock(mutex_);
    Order_({.kind = SoundOrder::Kind::SetAmbience, .level = volume});
}

void Engine::SetGroupLevel(std::size_t strip, float level) {
    const Lock lock(mutex_);
    Order_({.kind = SoundOrder::Kind::SetGroup, .strip = static_cast<std::uint32_t>(strip), .level = level});
}

void Engine::MoveFade(float target, double seconds, std::uint32_t fade) {
    const double frames = std::clamp(std::round(seconds * framesPerSecond_), 0.0, 4e9);
    const Lock lock(mutex_);
    Order_(
        {.kind = SoundOrder::Kind::Fade, .frames = static_cast<std::uint32_t>(frames), .fade = fade, .level = target});
}

void Engine::Order_(const SoundOrder& order) {
    if (orders_.size() >= MaxOrdersWaiting)
        std::erase_if(orders_, [&order](const SoundOrder& earlier) {
            return earlier.kind == order.kind && earlier.strip == order.strip;
        });
    orders_.push_back(order);
}

void Engine::Tell_(EngineEvent event) {
    event.plan = plan_.get();
    events_.push_back(event);
}

void Engine::TellMove_(EngineEvent::Kind kind, std::int64_t frame, std::uint32_t fromTick, std::uint32_t tick) {
    toldTick_ = tick;
    Tell_({.kind = kind, .frame = frame, .fromTick = fromTick, .tick = tick});
}

// The rendering thread.

void Engine::Render(float* left, float* right, std::uint32_t frames) {
    const StereoBuffer main{left, right};
    Render({&main, 1}, frames);
}

void Engine::RenderLater(float* left, float* right, std::uint32_t frames) {
    const StereoBuffer main{left, right};
    RenderLater({&main, 1}, frames);
}

void Engine::Render(std::span<const StereoBuffer> pairs, std::uint32_t frames) {
    RenderLater(pairs, frames);
    sound_.Write();
}

void Engine::FinishRendering() {
    sound_.Write();
    Lock lock(mutex_);
    DoOrders_(lock);
}

void Engine::RenderLater(std::span<const StereoBuffer> pairs, std::uint32_t frames) {
    sound_.SetBuffers(pairs);
    Lock lock(mutex_);
    const std::int64_t end = frame_ + frames;
    const EngineEvent begins{
        .kind = EngineEvent::Kind::BlockBegins, .frame = frame_, .tick = position_, .plan = plan_.get()};
    lock.unlock();
    Deliver_(begins);
    lock.lock();
    looksOutside_ = true;
    MakeProgress_(lock, end);
    mustFollow_ = false;
    UpdatePosition_();
}

void Engine::MakeProgress_(Lock& lock, std::int64_t end) {
    int turns = 0;
    std::uint64_t interruptions = interruptions_;
    for (;;) {
        if (startIsToTell_) TellStart_();
        if (!isRolling_ && looksOutside_) TellOfSeek_();
        // A subscriber may do anything: nothing that was seen before it is believed.
        CarryOut_(lock);
        if (frame_ >= end) return;
        const bool isOverrun = interruptions_ - interruptions > MaxInterruptionsAtOneMoment;
        if (wait_ != Wait::None && isToAsk_ && !isOverrun) {
            AskHost_(lock);
            continue;
        }
        if (looksOutside_ && isRolling_ && !isOverrun && ++turns < MaxTurnsAtOneMoment) {
            FollowOutside_(lock);
            continue;
        }
        const bool isMoving = isRolling_ && !isHolding_ && wait_ == Wait::None;
        std::int64_t due = isMoving && !isOverrun ? NextDueFrame_() : end;
        if (countIn_) due = countIn_->GetNextFrame();
        if (due <= frame_) {
            countIn_ ? CountBeatIn_() : DoWhatIsDue_(lock);
        } else {
            RenderSound_(lock, std::min(due, end));
            turns = 0;
            interruptions = interruptions_;
        }
    }
}

// Sound orders first, then events: a subscriber finds everything done that led to it.
void Engine::CarryOut_(Lock& lock) {
    for (int turns = 0; turns < MaxRoundsOfEvents && !(orders_.empty() && events_.empty()); ++turns) {
        DoOrders_(lock);
        // What is left there was not reported because a subscriber threw.
        eventsAtHand_.clear();
        std::swap(events_, eventsAtHand_);
        if (eventsAtHand_.empty()) continue;
        // Meanwhile any operation may come, from other threads or from a subscriber.
        isTelling_ = true;
        lock.unlock();
        for (const EngineEvent& event : eventsAtHand_)
            Deliver_(event);
        eventsAtHand_.clear();
        lock.lock();
        isTelling_ = false;
        looksOutside_ = true;
    }
    if (!orders_.empty() || !events_.empty()) return;
    std::move(plansInUse_.begin(), plansInUse_.end(), std::back_inserter(oldPlans_));
    plansInUse_.clear();
}

void Engine::DoOrders_(Lock& lock) {
    if (orders_.empty()) return;
    std::swap(orders_, ordersAtHand_);
    // Meanwhile any operation of another thread may come.
    lock.unlock();
    for (const SoundOrder& order : ordersAtHand_)
        sound_.Do(order);
    ordersAtHand_.clear();
    lock.lock();
}

void Engine::Deliver_(const EngineEvent& event) {
    if (event.kind == EngineEvent::Kind::Cue)
        if (const auto* message = std::get_if<CL::Osc>(&event.cue->edit)) flow_.SendOsc(*message);
    for (EngineSubscriber* subscriber : subscribers_)
        subscriber->OnEngineEvent(event);
}

void Engine::AskHost_(Lock& lock) {
    const Wait asked = wait_;
    isToAsk_ = false;
    // Meanwhile playback may be stopped or given another song, by the host or by others.
    lock.unlock();
    const bool isAnswered = asked == Wait::AtCaesura ? host_.TryToStopAtCaesura() : host_.TryToFollowOn();
    lock.lock();
    looksOutside_ = true;
    // Nothing follows and nobody stopped: this is not a place to play on from.
    if (isAnswered && wait_ == asked) StopHere_();
}

std::int64_t Engine::NextDueFrame_() const {
    return std::min(nextEventFrame_, toTime_.Rounded());
}

void Engine::DoWhatIsDue_(Lock& lock) {
    // Notes and cues lie before the advance's end, where the next arrival is.
    if (nextEvent_ < plan_->GetEvents().size() && plan_->GetEvents()[nextEvent_].tick < to_) {
        SendEvent_();
    } else {
        now_ = toTime_;
        ArriveAt_(lock, to_);
    }
}

// All events of a tick: within a chord the moment stays the same.
void Engine::SendEvent_() {
    const auto& events = plan_->GetEvents();
    const std::uint32_t tick = events[nextEvent_].tick;
    for (; nextEvent_ < events.size() && events[nextEvent_].tick == tick; ++nextEvent_) {
        Order_({.kind = SoundOrder::Kind::Play,
                .event = events[nextEvent_],
                .transposition = transposition_,
                .plan = plan_.get()});
    }
    nextEventTick_ = tick + 1;
    FindNextEventFrame_();
}

void Engine::FindNextEventFrame_() {
    const auto& events = plan_->GetEvents();
    const bool isInAdvance = nextEvent_ < events.size() && events[nextEvent_].tick < to_;
    nextEventFrame_ = isInAdvance ? clock_.TimeOfTick(events[nextEvent_].tick).Rounded() : toTime_.Rounded();
}

// Up to `end`, or until there is something else to do.
void Engine::RenderSound_(Lock& lock, std::int64_t end) {
    const auto frames = static_cast<std::uint32_t>(std::min<std::int64_t>(end - frame_, LongestBlockFrames));
    // The frames are taken on before they are made: what is asked for meanwhile comes after them.
    frame_ += frames;
    if (isRolling_) playedFrames_ += frames;
    const bool isWhole = frame_ == end;
    lock.unlock();
    sound_.Render(frames);
    const std::uint32_t fade = isWhole ? sound_.TakeFadeDone() : 0;
    lock.lock();
    if (fade != 0) Tell_({.kind = EngineEvent::Kind::FadeDone, .frame = frame_, .tick = position_, .fade = fade});
    isToAsk_ = true;
    if (!isWhole || std::exchange(lookedInVain_, false)) looksOutside_ = true;
}

void Engine::UpdatePosition_() {
    if (plan_ == nullptr || !isRolling_) return;
    if (isHolding_) {
        position_ = to_ > 0 ? to_ - 1 : 0;
    } else if (to_ > from_) {
        position_ = std::clamp(clock_.TickOfFrame(frame_), from_, to_ - 1);
    } else {
        position_ = to_;
    }
}

// Whether beats are counted first, from the frame that comes next. Where playback goes on inside a beat they go as that
// beat and those to come.
bool Engine::BeginCountIn_() {
    if (countInBeats_ == 0 || isHolding_) return false;
    const std::optional<std::uint32_t> jump = flow_.GetWaitingJump();
    const std::uint32_t tick = jump.value_or(position_);
    if (leftCaesura_ == tick) return false;
    const double scale = controls_.GetTempoScale();
    const BeatAtPlace place = FindBeatAtPlace(*plan_, tick, framesPerSecond_);
    double inside = (tick - place.tick) * place.framesPerTick / scale;
    // On its way it stands between two ticks.
    if (!jump && stoodSince_ && from_ != to_)
        inside = static_cast<double>(*stoodSince_ - clock_.TimeOfTick(place.tick).Rounded());
    countIn_.emplace(place, inside, countInBeats_, scale, frame_);
    beatsToCountIn_ = countInBeats_;
    return true;
}

void Engine::EndCountIn_() {
    countIn_.reset();
    beatsToCountIn_ = 0;
}

void Engine::CountBeatIn_() {
    const unsigned int left = countIn_->CountBeatsLeft();
    if (left == 0) {
        EndCountIn_();
        return StartHere_();
    }
    beatsToCountIn_ = left;
    Order_({.kind = SoundOrder::Kind::Click, .isAccent = countIn_->IsAccent()});
    Tell_({.kind = EngineEvent::Kind::CountIn, .frame = frame_, .tick = position_, .beats = left});
    countIn_->TakeBeat();
}

std::optional<StageShowControl::Outside> Engine::LookOutside_() {
    return mustFollow_ ? flow_.Look() : flow_.TryToLook();
}

std::optional<std::int64_t> Engine::FindNextSeam() {
    const Lock lock(mutex_);
    if (!isRolling_ || isHolding_ || wait_ != Wait::None || plan_ == nullptr) return std::nullopt;
    const std::vector<std::uint32_t>& seams = plan_->GetSeams();
    const auto next = std::lower_bound(seams.begin(), seams.end(), position_.load());
    if (next == seams.end()) return std::nullopt;
    return clock_.TimeOfTick(*next).Rounded();
}

void Engine::TellStart_() {
    startIsToTell_ = false;
    TellOfSeek_();
    if (!isHolding_) TellMove_(EngineEvent::Kind::Started, frame_, toldTick_, toldTick_);
}

// A playhead that stands has been put somewhere else, where playback will begin.
void Engine::TellOfSeek_() {
    if (!isRolling_) looksOutside_ = false;
    if (plan_ == nullptr) return;
    const std::optional<StageShowControl::Outside> outside = LookOutside_();
    lookedInVain_ = !outside;
    if (!outside || !outside->jump || *outside->jump == toldTick_) return;
    TellMove_(EngineEvent::Kind::Put, frame_, toldTick_, *outside->jump);
}

}  // namespace stage
