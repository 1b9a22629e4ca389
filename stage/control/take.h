#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <variant>
#include <vector>

#include "player_core/flow_state.h"
#include "stage/control/command_desk.h"
#include "tavo_midi/show_data.h"

namespace stage {

/// What a replay needs to know of the performance besides its commands. docs/take.md tells the file's format.
struct TakeSettings {
    std::uint32_t framesPerSecond = 48000;
    std::uint32_t blockFrames = 64;
    std::uint32_t advanceFrames = 64;
    /// The bare name of the change log that was open.
    std::string changeLog;

    bool operator==(const TakeSettings&) const = default;
};

/// Writes down what happens in a performance as it happens: a text file in the language of scripts, in which a replay
/// finds every command at its frame, and whoever goes on after a crash the last state. Nothing of it waits for the disk
/// but a thread of its own; what is noted is on the disk within 50 ms. Thread-safe.
class TakeWriter {
public:
    /// Creates the file; one that is there throws kit::FileExistsError, and what cannot be written std::runtime_error
    /// with one sentence. `show` outlives the object.
    TakeWriter(const std::string& path, const TakeSettings& settings, const tavo_midi::ShowData& show);
    /// Writes what was noted.
    ~TakeWriter();
    TakeWriter(const TakeWriter&) = delete;
    TakeWriter& operator=(const TakeWriter&) = delete;

    /// What the desk decided. `soughtTick` is where a command went whose aim depends on what the display shows.
    void NoteCommand(const CommandRecord& record, std::optional<std::uint32_t> soughtTick);
    /// Where the show stands before the frame's first tick sounds.
    void NoteState(std::int64_t frame, FlowState state);
    /// Something that happened to the machine: one sentence.
    void NoteDevice(std::int64_t frame, const std::string& sentence);

    [[nodiscard]] const std::string& GetPath() const { return path_; }
    /// Why nothing more is written, one sentence; empty if all is well. The show goes on without.
    [[nodiscard]] std::string GetProblem() const;

private:
    struct NotedCommand {
        CommandRecord record;
        std::optional<std::uint32_t> soughtTick;
    };
    struct NotedState {
        std::int64_t frame = 0;
        FlowState state;
    };
    struct NotedDevice {
        std::int64_t frame = 0;
        std::string sentence;
    };
    using Note = std::variant<NotedCommand, NotedState, NotedDevice>;

    void Note_(Note note);
    void Run_();
    [[nodiscard]] std::string Describe_(const Note& note) const;
    [[nodiscard]] std::string DescribeCommand_(const NotedCommand& noted) const;

    const std::string path_;
    const tavo_midi::ShowData& show_;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_.
    std::deque<Note> notes_;
    bool isEnding_ = false;
    std::string problem_;

    std::thread thread_;
};

/// One line of a take that says something.
struct TakeLine {
    enum class Kind : std::uint8_t { Command, Refused, State, Device };

    Kind kind = Kind::Command;
    std::int64_t frame = 0;
    /// Of a command that was refused or failed as well: what was pressed. Of the others what the line says.
    std::string text;
    /// Of commands: when by the clock on the wall, through which door, where the show was; and why it was refused.
    std::string time;
    std::string door;
    std::string place;
    std::string sentence;
};

struct Take {
    TakeSettings settings;
    std::vector<TakeLine> lines;
    /// Whether the performance ended as it should: by "quit".
    bool isFinished = false;
    /// The last state that was written down whole.
    std::optional<FlowState> lastState;
};

/// Whether a text begins as a take does.
[[nodiscard]] bool IsTake(std::string_view text);
/// The settings in a take's first line. Throws std::invalid_argument with one sentence without a full stop.
[[nodiscard]] TakeSettings ReadTakeSettings(std::string_view firstLine);
/// Reads a take, also one whose last line was torn off by a crash. Throws std::runtime_error with one sentence that
/// names the file and the line for what is no take.
[[nodiscard]] Take ReadTake(const std::string& path);

/// The folder of a show's takes, and the path of the newest take in it; empty where there is none.
[[nodiscard]] std::string GetTakeFolder(const std::string& showPath);
[[nodiscard]] std::string FindNewestTake(const std::string& showPath);

}  // namespace stage
