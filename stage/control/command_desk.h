#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "stage/control/command.h"
#include "stage/control/command_performer.h"

namespace stage {

/// What the desk decided of a command, and where the show was then.
struct CommandRecord {
    enum class Outcome : std::uint8_t {
        Taken,
        Refused,  ///< nothing was done
        Failed,   ///< it was taken and could not be carried out
    };

    Command command;
    Outcome outcome = Outcome::Taken;
    /// Why it was refused or failed, for whoever pressed; empty if taken.
    std::string sentence;
    CommandPlace place;

    [[nodiscard]] bool IsTaken() const { return outcome == Outcome::Taken; }
};

/// Stands before the façade: every press passes it, whatever door it comes through. It puts presses into one order,
/// refuses those that come twice by mistake, says why, and keeps one log of all.
///
/// The guard: a verb that goes on (VerbRow::goesOn) is refused within the guard's time after the same verb was taken,
/// through whichever door; "go" is the same as any verb that it may stand for. A door that reports the key's release
/// holds the verb back until then, as long as presses keep coming: a key that repeats itself is one press. Values,
/// seeks, stops and conducted beats are never guarded, and neither is what a script, a replay or the automatic operator
/// does.
///
/// Thread-safe. A command is carried out on the thread that calls Execute, which is the host's or, in a render, the
/// only one; other doors post theirs. Nobody calls it while holding a lock of the engine or of player_core. While one
/// command is decided and carried out the others wait; one given from inside of another is carried out at once.
class CommandDesk {
public:
    struct Options {
        std::chrono::milliseconds pressGuard{250};
        /// The log forgets the oldest beyond so many.
        std::size_t keptRecords = 10000;
    };

    /// After this long without a press, a key whose release was never reported counts as released: the report may have
    /// been lost with a cable.
    static constexpr std::chrono::milliseconds LongestKeyRepeat{2000};
    /// So many keys whose releases are reported are kept; the oldest is forgotten and then counts as released.
    static constexpr std::size_t MostKeys = 256;

    /// `performer` outlives the object.
    CommandDesk(CommandPerformer& performer, const Options& options)
        : performer_(performer), options_(options), pressGuard_(options.pressGuard) {}
    CommandDesk(const CommandDesk&) = delete;
    CommandDesk& operator=(const CommandDesk&) = delete;

    /// Decides and carries out, on this thread; blocks as the façade does. Never throws what the façade throws: the
    /// record says.
    CommandRecord Execute(Command command) { return Execute_(std::move(command), {}); }
    /// Decides and keeps the record, for a door whose command the core itself carries out right after.
    CommandRecord Admit(Command command);

    /// Leaves the command for the next RunPosted; for threads that are not to wait for the façade. `onDecided`, if
    /// there is one, is called there, and `perform`, if there is one, in place of what the verb does elsewhere.
    void Post(Command command, std::function<void(const CommandRecord&)> onDecided = {},
              std::function<void()> perform = {});
    /// Executes what was posted, in that order; returns how many there were. The thread that carries commands out: the
    /// host's, or in a performance the rendering one, between two blocks. Takes no lock where nothing was posted.
    std::size_t RunPosted();
    /// Called after each Post, on the posting thread: wakes whoever calls RunPosted, and calls nothing of the desk. Any
    /// thread; when it returns, the function before is not called any more.
    void SetWakeUp(std::function<void()> wakeUp);

    /// The guard's time from the next press on, which was Options::pressGuard.
    void SetPressGuard(std::chrono::milliseconds pressGuard) { pressGuard_ = pressGuard; }
    [[nodiscard]] std::chrono::milliseconds GetPressGuard() const { return pressGuard_; }

    /// The key behind the verb was released at its door. A door from which this is never heard is not held back.
    void NoteRelease(const CommandSource& source, Verb verb);

    /// The log, the oldest first.
    [[nodiscard]] std::vector<CommandRecord> CopyRecords() const;
    /// Hears of every record as it is kept, on the thread that decided, in the order of ids; it may call everything of
    /// the desk. Empty for nobody.
    void SetRecordListener(std::function<void(const CommandRecord&)> listener);

private:
    struct Posted {
        Command command;
        std::function<void(const CommandRecord&)> onDecided;
        std::function<void()> perform;
    };
    struct Key {
        CommandSource source;
        Verb verb;
        bool isHeld = false;
        std::chrono::nanoseconds lastPress{0};
    };

    CommandRecord Execute_(Command command, const std::function<void()>& perform);
    [[nodiscard]] CommandRecord Decide_(Command command);
    [[nodiscard]] std::string FindRefusal_(const Command& command, bool hasSong);
    [[nodiscard]] std::string FindTooSoon_(const Command& command) const;
    [[nodiscard]] bool IsKeyRepeating_(const Command& command);
    [[nodiscard]] Key* FindKey_(const CommandSource& source, Verb verb);
    void Keep_(const CommandRecord& record);

    // Constant after construction.
    CommandPerformer& performer_;
    const Options options_;

    std::atomic<std::chrono::milliseconds> pressGuard_;

    // Recursive: what a command sets off may be answered by another one. Held while the façade is called.
    std::recursive_mutex turn_;
    // Guarded by turn_.
    std::uint64_t lastId_ = 0;
    std::map<Verb, std::chrono::nanoseconds> lastTaken_;
    std::vector<Key> keys_;  // those whose releases are reported
    std::function<void(const CommandRecord&)> listener_;

    mutable std::mutex recordMutex_;
    std::deque<CommandRecord> records_;  // guarded by recordMutex_

    std::mutex postMutex_;
    std::function<void()> wakeUp_;             // guarded by postMutex_
    std::deque<Posted> posted_;                // guarded by postMutex_
    std::atomic<std::size_t> postedCount_{0};  // written under postMutex_
};

}  // namespace stage
