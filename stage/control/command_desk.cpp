#include "stage/control/command_desk.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "kit/words.h"

namespace stage {

namespace {

/// Whether a press of the one, made twice by mistake, could come as the other.
bool AreOnePress(Verb a, Verb b) {
    if (a == b) return true;
    const auto isMeantByGo = [](Verb verb) {
        return verb == Verb::Play || verb == Verb::Continue || verb == Verb::Exit;
    };
    return (a == Verb::Go && isMeantByGo(b)) || (b == Verb::Go && isMeantByGo(a));
}

/// A word that is not one of its row's is the name of an output group.
std::string FindUnknownGroup(const Command& command, const OutputGroups* groups) {
    const VerbRow& row = GetVerbRow(command.verb);
    for (std::size_t i = 0; i < command.arguments.size(); ++i) {
        const ArgumentRow& argument = row.arguments[i];
        if (!argument.mayBeGroup) continue;
        const auto& word = std::get<std::string>(command.arguments[i]);
        if (std::ranges::find(argument.words, word) != argument.words.end()) continue;
        if (groups != nullptr && groups->Find(word)) continue;
        const std::string names = groups == nullptr || groups->Count() == 0 ? "" : ": " + groups->ListNames();
        if (argument.words.empty())
            return fmt::format("{} must be an output group of the settings{}, not {}", argument.name, names,
                               kit::Quote(word));
        return fmt::format("{} must be {} or an output group of the settings{}, not {}", argument.name,
                           fmt::join(argument.words, ", "), names, kit::Quote(word));
    }
    return "";
}

}  // namespace

CommandRecord CommandDesk::Execute_(Command command, const std::function<void()>& perform) {
    const std::lock_guard turn(turn_);
    CommandRecord record = Decide_(std::move(command));
    if (record.IsTaken()) {
        try {
            if (perform) {
                perform();
            } else {
                GetVerbRow(record.command.verb).perform(performer_, record.command);
            }
        } catch (const std::exception& problem) {
            record.outcome = CommandRecord::Outcome::Failed;
            record.sentence = problem.what();
        }
    }
    Keep_(record);
    return record;
}

CommandRecord CommandDesk::Admit(Command command) {
    const std::lock_guard turn(turn_);
    CommandRecord record = Decide_(std::move(command));
    Keep_(record);
    return record;
}

void CommandDesk::Post(Command command, std::function<void(const CommandRecord&)> onDecided,
                       std::function<void()> perform) {
    const std::lock_guard lock(postMutex_);
    posted_.push_back({std::move(command), std::move(onDecided), std::move(perform)});
    postedCount_ = posted_.size();
    if (wakeUp_) wakeUp_();
}

void CommandDesk::SetWakeUp(std::function<void()> wakeUp) {
    const std::lock_guard lock(postMutex_);
    wakeUp_ = std::move(wakeUp);
}

std::size_t CommandDesk::RunPosted() {
    std::size_t count = 0;
    while (postedCount_ > 0) {
        Posted posted;
        {
            const std::lock_guard lock(postMutex_);
            if (posted_.empty()) return count;
            posted = std::move(posted_.front());
            posted_.pop_front();
            postedCount_ = posted_.size();
        }
        const CommandRecord record = Execute_(std::move(posted.command), posted.perform);
        if (posted.onDecided) posted.onDecided(record);
        ++count;
    }
    return count;
}

void CommandDesk::NoteRelease(const CommandSource& source, Verb verb) {
    const std::lock_guard turn(turn_);
    if (Key* key = FindKey_(source, verb)) {
        key->isHeld = false;
    } else {
        // Whoever changes its address with every key would fill the list.
        if (keys_.size() >= MostKeys) keys_.erase(keys_.begin());
        keys_.push_back({source, verb});
    }
}

CommandRecord CommandDesk::Decide_(Command command) {
    command.id = ++lastId_;
    CommandRecord record;
    record.place = performer_.GetPlace();
    record.sentence = FindRefusal_(command, !record.place.song.empty());
    if (!record.sentence.empty()) record.outcome = CommandRecord::Outcome::Refused;
    record.command = std::move(command);
    return record;
}

std::string CommandDesk::FindRefusal_(const Command& command, bool hasSong) {
    std::string problem = CheckCommand(command, performer_.GetMusic());
    if (problem.empty()) problem = FindUnknownGroup(command, performer_.GetGroups());
    if (!problem.empty()) return problem + ".";
    const VerbRow& row = GetVerbRow(command.verb);
    if (row.needsSong && !hasSong) return fmt::format("\"{}\" is refused: no song is loaded", row.name);
    const bool isGuarded = row.goesOn && IsGuardedDoor(command.source.door);
    if (!isGuarded) return "";
    if (IsKeyRepeating_(command)) return fmt::format("\"{}\" is refused: its key was not released yet", row.name);
    problem = FindTooSoon_(command);
    if (problem.empty()) lastTaken_[command.verb] = command.moment;
    return problem;
}

std::string CommandDesk::FindTooSoon_(const Command& command) const {
    const std::chrono::milliseconds pressGuard = pressGuard_;
    for (const auto& [verb, moment] : lastTaken_) {
        if (!AreOnePress(verb, command.verb)) continue;
        // Doors read their clocks on threads of their own: the later press may bear the earlier time.
        const auto distance = std::chrono::abs(command.moment - moment);
        if (distance >= pressGuard) continue;
        return fmt::format("\"{}\" is refused: it came {} ms after \"{}\", and presses within {} ms are one press",
                           GetVerbRow(command.verb).name,
                           std::chrono::duration_cast<std::chrono::milliseconds>(distance).count(),
                           GetVerbRow(verb).name, pressGuard.count());
    }
    return "";
}

bool CommandDesk::IsKeyRepeating_(const Command& command) {
    Key* key = FindKey_(command.source, command.verb);
    if (key == nullptr) return false;
    const bool isRepeating = key->isHeld && command.moment - key->lastPress < LongestKeyRepeat;
    key->isHeld = true;
    key->lastPress = command.moment;
    return isRepeating;
}

CommandDesk::Key* CommandDesk::FindKey_(const CommandSource& source, Verb verb) {
    const auto found = std::find_if(keys_.begin(), keys_.end(),
                                    [&](const Key& key) { return key.verb == verb && key.source == source; });
    return found == keys_.end() ? nullptr : &*found;
}

void CommandDesk::Keep_(const CommandRecord& record) {
    {
        const std::lock_guard lock(recordMutex_);
        records_.push_back(record);
        if (records_.size() > options_.keptRecords) records_.pop_front();
    }
    if (listener_) listener_(record);
}

std::vector<CommandRecord> CommandDesk::CopyRecords() const {
    const std::lock_guard lock(recordMutex_);
    return {records_.begin(), records_.end()};
}

void CommandDesk::SetRecordListener(std::function<void(const CommandRecord&)> listener) {
    const std::lock_guard turn(turn_);
    listener_ = std::move(listener);
}

}  // namespace stage
