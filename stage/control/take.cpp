#include "stage/control/take.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <ctime>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "kit/appended_file.h"
#include "kit/file.h"
#include "kit/path.h"
#include "kit/thread_exception_log.h"
#include "kit/thread_names.h"
#include "kit/words.h"
#include "stage/control/command.h"
#include "stage/engine/engine.h"
#include "tavo_core/bar_positions.h"

namespace stage {

namespace {

constexpr std::uintmax_t LongestTake = 512U << 20U;
/// Sooner than the 50 ms that a crash may cost, the disk's time included.
constexpr std::chrono::milliseconds WriteInterval{20};

constexpr std::string_view FirstWord = "take ";
constexpr std::string_view CommandMark = "at frame ";
constexpr std::string_view NoteMark = "#: frame ";
constexpr std::string_view Aside = "   # ";

std::string WallClock() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    localtime_r(&now, &parts);
    return fmt::format("{:02}:{:02}:{:02}", parts.tm_hour, parts.tm_min, parts.tm_sec);
}

/// "; " parts the door, the place and the sentence of a line; only the last of them may hold it.
std::string WithoutSeams(std::string text) {
    std::replace(text.begin(), text.end(), ';', ',');
    return text;
}

/// In a line of a script '#' begins what is not read; within the texts of an edit it can be written otherwise.
std::string WithoutHashes(const std::string& text) {
    std::string plain;
    for (const char c : text)
        plain += c == '#' ? "\\u0023" : std::string(1, c);
    return plain;
}

std::string WithoutLineEnds(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
    return text;
}

std::uint32_t ReadCount(std::string_view text, std::string_view what) {
    std::uint32_t count = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    if (error != std::errc() || end != text.data() + text.size())
        throw std::invalid_argument(fmt::format("{} must be a whole number, not {}", what, kit::Quote(text)));
    return count;
}

/// Takes a frame off the front.
std::int64_t TakeFrame(std::string_view& rest) {
    std::int64_t frame = 0;
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), frame);
    if (error != std::errc() || frame < 0) throw std::invalid_argument("the frame must be a whole number");
    rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
    if (rest.starts_with(' ')) rest.remove_prefix(1);
    return frame;
}

/// What follows `mark` up to `next`; both go.
std::string TakePart(std::string_view& rest, std::string_view next) {
    const std::size_t end = std::min(rest.find(next), rest.size());
    std::string part(rest.substr(0, end));
    rest.remove_prefix(std::min(end + next.size(), rest.size()));
    return part;
}

TakeLine ReadCommandLine(std::string_view rest) {
    TakeLine line;
    line.frame = TakeFrame(rest);
    line.text = TakePart(rest, Aside);
    line.time = TakePart(rest, " ");
    line.door = TakePart(rest, "; ");
    line.place = rest;
    return line;
}

TakeLine ReadNote(std::string_view rest, Take& take) {
    TakeLine line;
    line.frame = TakeFrame(rest);
    const std::string kind = TakePart(rest, " ");
    if (kind == "state") {
        line.kind = TakeLine::Kind::State;
        line.text = rest;
        take.lastState = FlowStateFromText(rest);
    } else if (kind == "device") {
        line.kind = TakeLine::Kind::Device;
        line.time = TakePart(rest, " ");
        line.text = rest;
    } else if (kind == "refused") {
        line.kind = TakeLine::Kind::Refused;
        line.text = TakePart(rest, Aside);
        line.time = TakePart(rest, " ");
        line.door = TakePart(rest, "; ");
        line.place = TakePart(rest, "; ");
        line.sentence = rest;
    } else {
        throw std::invalid_argument(fmt::format("a take does not note {}", kit::Quote(kind)));
    }
    return line;
}

}  // namespace

bool IsTake(std::string_view text) {
    return text.starts_with(FirstWord);
}

TakeSettings ReadTakeSettings(std::string_view firstLine) {
    const std::vector<std::string_view> words = SplitWords(firstLine);
    TakeSettings settings;
    std::size_t known = 0;
    for (std::size_t i = 1; i + 1 < words.size(); i += 2) {
        const std::string_view key = words[i];
        const std::string_view value = words[i + 1];
        ++known;
        if (key == "rate") {
            settings.framesPerSecond = ReadCount(value, "the rate");
        } else if (key == "block") {
            settings.blockFrames = ReadCount(value, "the block");
        } else if (key == "advance") {
            settings.advanceFrames = ReadCount(value, "the advance");
        } else if (key == "log") {
            // The last one: a file's name may have blanks in it.
            settings.changeLog = std::string(value.data(), words.back().data() + words.back().size());
            break;
        } else {
            throw std::invalid_argument(fmt::format("a take's first line does not say \"{}\"", key));
        }
    }
    const bool isUsable = settings.framesPerSecond >= 8000 && settings.framesPerSecond <= 192000 &&
                          settings.blockFrames >= 1 && settings.blockFrames <= Engine::LongestBlockFrames &&
                          settings.advanceFrames >= 1 && settings.advanceFrames <= 1U << 20U;
    if (known < 4 || !isUsable)
        throw std::invalid_argument("a take begins with \"take rate R block B advance A log NAME\"");
    return settings;
}

Take ReadTake(const std::string& path) {
    const std::string text = kit::ReadFile(path, LongestTake);
    Take take;
    std::size_t number = 0;
    for (std::size_t from = 0; from < text.size();) {
        const std::size_t end = text.find('\n', from);
        // The last line may have been torn off.
        if (end == std::string::npos) break;
        std::string_view line = std::string_view(text).substr(from, end - from);
        from = end + 1;
        ++number;
        try {
            if (number == 1) {
                if (!IsTake(line)) throw std::invalid_argument("this is not a take");
                take.settings = ReadTakeSettings(line);
            } else if (line.starts_with(CommandMark)) {
                take.lines.push_back(ReadCommandLine(line.substr(CommandMark.size())));
                take.isFinished = take.lines.back().text == GetVerbRow(Verb::Quit).name;
            } else if (line.starts_with(NoteMark)) {
                take.lines.push_back(ReadNote(line.substr(NoteMark.size()), take));
            }
        } catch (const std::invalid_argument& problem) {
            throw std::runtime_error(fmt::format("the take \"{}\", line {}: {}", path, number, problem.what()));
        }
    }
    if (number == 0) throw std::runtime_error(fmt::format("the take \"{}\" is empty", path));
    return take;
}

std::string GetTakeFolder(const std::string& showPath) {
    return kit::path::Join(showPath, "takes");
}

std::string FindNewestTake(const std::string& showPath) {
    std::string newest;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(GetTakeFolder(showPath), error)) {
        // Named by the time of their beginning.
        if (entry.path().extension() == ".take") newest = std::max(newest, entry.path().string());
    }
    return newest;
}

// Writing.

TakeWriter::TakeWriter(const std::string& path, const TakeSettings& settings, const tavo_midi::ShowData& show)
    : path_(path), show_(show) {
    kit::WriteNewFileDurably(path,
                             fmt::format("{}rate {} block {} advance {} log {}\n", FirstWord, settings.framesPerSecond,
                                         settings.blockFrames, settings.advanceFrames, settings.changeLog));
    thread_ = std::thread([this] { Run_(); });
}

TakeWriter::~TakeWriter() {
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void TakeWriter::NoteCommand(const CommandRecord& record, std::optional<std::uint32_t> soughtTick) {
    Note_(NotedCommand{record, soughtTick});
}

void TakeWriter::NoteState(std::int64_t frame, FlowState state) {
    Note_(NotedState{frame, std::move(state)});
}

void TakeWriter::NoteDevice(std::int64_t frame, const std::string& sentence) {
    Note_(NotedDevice{frame, sentence});
}

std::string TakeWriter::GetProblem() const {
    const std::lock_guard lock(mutex_);
    return problem_;
}

void TakeWriter::Note_(Note note) {
    const std::lock_guard lock(mutex_);
    if (problem_.empty()) notes_.push_back(std::move(note));
}

void TakeWriter::Run_() {
    kit::threadNames.SetNameOfCurrentThread("take");
    try {
        kit::AppendedFile file(path_);
        std::string text;
        for (bool isEnding = false; !isEnding;) {
            std::deque<Note> notes;
            {
                // Nobody is woken for each note: the threads that note have no time for it.
                std::unique_lock lock(mutex_);
                changed_.wait_for(lock, WriteInterval, [this] { return isEnding_; });
                isEnding = isEnding_;
                notes = std::exchange(notes_, {});
            }
            for (const Note& note : notes)
                text += Describe_(note);
            if (text.empty()) continue;
            file.Append(text);
            text.clear();
        }
    } catch (const std::exception& problem) {
        kit::AppendToThreadExceptionLog(problem.what());
        const std::lock_guard lock(mutex_);
        problem_ = fmt::format("The show goes on, but the take is not written any more: {}", problem.what());
        notes_.clear();
    }
}

std::string TakeWriter::Describe_(const Note& note) const {
    if (const auto* command = std::get_if<NotedCommand>(&note)) return DescribeCommand_(*command);
    if (const auto* state = std::get_if<NotedState>(&note))
        return fmt::format("{}{} state {}\n", NoteMark, state->frame, ToText(state->state));
    const auto& device = std::get<NotedDevice>(note);
    return fmt::format("{}{} device {} {}\n", NoteMark, device.frame, WallClock(), WithoutLineEnds(device.sentence));
}

std::string TakeWriter::DescribeCommand_(const NotedCommand& noted) const {
    const CommandRecord& record = noted.record;
    std::string place = "no song";
    if (!record.place.song.empty()) {
        const TL::BarPositions positions(show_.GetSongData(record.place.song).GetTimeline());
        place = WithoutSeams(fmt::format("song {}, {}", record.place.song, positions.DescribeTick(record.place.tick)));
    }
    const std::string pressed = WithoutHashes(WithoutLineEnds(AsText(record.command)));
    std::string door(GetDoorName(record.command.source.door));
    if (!record.command.source.name.empty()) door += " " + WithoutSeams(WithoutLineEnds(record.command.source.name));
    if (!record.IsTaken())
        return fmt::format("{}{} refused {}{}{} {}; {}; {}\n", NoteMark, record.place.frame, pressed, Aside,
                           WallClock(), door, place, WithoutLineEnds(record.sentence));
    if (noted.soughtTick) {
        const Command seek{Verb::Seek, {*noted.soughtTick}, {}, 0, {}};
        return fmt::format("{}{} {}{}{} {} {}; {}\n", CommandMark, record.place.frame, AsText(seek), Aside, WallClock(),
                           door, pressed, place);
    }
    return fmt::format("{}{} {}{}{} {}; {}\n", CommandMark, record.place.frame, pressed, Aside, WallClock(), door,
                       place);
}

}  // namespace stage
