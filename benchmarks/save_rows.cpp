// Saving a change log and appending an edit to its journal, against one bare write of the same bytes.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

#include "benchmarks/rows.h"
#include "kit/file.h"
#include "tavo_core/change_log.h"
#include "tavo_core/edit_journal.h"

namespace bench {

namespace {

/// A directory below the working directory, since a temporary one may lie in memory, where flushing costs nothing.
class ScratchDirectory {
public:
    ScratchDirectory() : path_("./save-rows-XXXXXX") {
        if (::mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no directory can be made to save in");
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    [[nodiscard]] std::string operator/(const std::string& name) const { return path_ + "/" + name; }
    [[nodiscard]] const std::string& Path() const { return path_; }

private:
    std::string path_;
};

CL::ChangeLog MakeLog(std::size_t edits, const std::string& directory) {
    CL::ChangeLog log;
    log.SetShowName("evening");
    log.SetDirectory(directory);
    for (std::size_t i = 0; i < edits; ++i) {
        const auto tick = static_cast<unsigned int>(i / 20 * 1920);
        log.GetSongLogs()[std::to_string(i % 20 + 1)].GetMarkers().Add(CL::Marker(tick, "Place " + std::to_string(i)));
    }
    return log;
}

void WriteBare(const std::string& path, const std::string& bytes, bool flush) {
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file < 0 || ::write(file, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()) ||
        (flush && ::fsync(file) != 0) || ::close(file) != 0)
        throw std::runtime_error("a bare write failed");
}

}  // namespace

void AddSaveRows(Table& table, const Effort& effort) {
    for (const std::size_t edits : {std::size_t{100}, std::size_t{2000}}) {
        const ScratchDirectory directory;
        CL::ChangeLog log = MakeLog(edits, directory.Path());
        const std::string bytes = log.AsText();
        const std::string target = directory / "evening-9.0.logdata";
        const std::string bare = directory / "bare";
        const auto removeTarget = [target] { std::filesystem::remove(target); };
        const auto removeBare = [bare] { std::filesystem::remove(bare); };

        const std::vector<Timing> timings = MeasureInterleaved(
            {{"bare, flushed", [&](std::size_t) { WriteBare(bare, bytes, true); }, removeBare, 1},
             {"bare", [&](std::size_t) { WriteBare(bare, bytes, false); }, removeBare, 1},
             {"durable file", [&](std::size_t) { kit::WriteNewFileDurably(target, bytes); }, removeTarget, 1},
             {"save", [&](std::size_t) { log.Save(target); }, removeTarget, 1},
             {"text", [&](std::size_t) { benchmark::DoNotOptimize(log.AsText()); }, {}, 1}},
            effort);
        const auto add = [&](const char* what, std::size_t measured, std::size_t yardstick, const char* against,
                             bool hasAim) {
            const double ratio = MedianRatio(timings[measured], timings[yardstick]);
            table.Add({what, fmt::format("{} edits, {} kB", edits, bytes.size() / 1000), against,
                       FormatTime(timings[yardstick].Median()), FormatTime(timings[measured].Median()),
                       FormatRatio(ratio), hasAim ? "<= 1.5x" : "", "",
                       hasAim ? std::optional(ratio <= 1.5) : std::nullopt});
        };
        add("save a change log", 3, 0, "bare write and flush", true);
        add("durable new file", 2, 0, "bare write and flush", false);
        add("text of a save, no disk", 4, 1, "bare write, not flushed", false);

        const std::string path = log.Save("");
        CL::EditJournal journal(path);
        CL::ChangeLog after = log;
        after.GetSongLogs()["1"].GetCuts().Add(CL::Cut(0, 1920));
        const CL::LogChange change = Compare(log, after);
        const std::string line(400, 'x');
        const std::vector<Timing> appends = MeasureInterleaved(
            {{"bare, flushed", [&](std::size_t) { WriteBare(bare, line, true); }, removeBare, 1},
             {"append", [&](std::size_t) { journal.Append(change, after); }, [&] { journal.Discard(); }, 1}},
            effort);
        table.Add({"append an edit to the journal", fmt::format("{} edits", edits), "bare write and flush",
                   FormatTime(appends[0].Median()), FormatTime(appends[1].Median()),
                   FormatRatio(MedianRatio(appends[1], appends[0])), "", "", std::nullopt});
        journal.Discard();
    }
}

}  // namespace bench
