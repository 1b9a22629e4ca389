// What happened in a performance, for whoever was not there.

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <vector>

#include "stage/cli/commands.h"
#include "stage/cli/text_table.h"
#include "stage/control/take.h"
#include "tavo_core/edit_text.h"

namespace {

using stage::Take;
using stage::TakeLine;

struct TakeWords {
    std::string showPath;
    std::string takePath;
};

std::string DescribeLength(const Take& take) {
    const std::int64_t frames = take.lines.empty() ? 0 : take.lines.back().frame;
    const std::int64_t seconds = frames / take.settings.framesPerSecond;
    return fmt::format("{}:{:02}:{:02}", seconds / 3600, seconds / 60 % 60, seconds % 60);
}

std::size_t Count(const Take& take, TakeLine::Kind kind) {
    return static_cast<std::size_t>(std::count_if(take.lines.begin(), take.lines.end(),
                                                  [kind](const TakeLine& line) { return line.kind == kind; }));
}

void ListTakes(const std::string& showPath) {
    std::vector<std::string> paths;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(stage::GetTakeFolder(showPath), error))
        if (entry.path().extension() == ".take") paths.push_back(entry.path().string());
    if (paths.empty()) {
        std::cout << "The show has no takes yet: every performance with `stage play` makes one.\n";
        return;
    }
    std::sort(paths.begin(), paths.end());
    TextTable table({{"take"},
                     {"length", TextTable::Align::Right},
                     {"presses", TextTable::Align::Right},
                     {"refused", TextTable::Align::Right},
                     {"edits log"},
                     {"ended"}});
    for (const std::string& path : paths) {
        const std::string name = std::filesystem::path(path).filename().string();
        try {
            const Take take = stage::ReadTake(path);
            table.AddRow({name, DescribeLength(take), fmt::format("{}", Count(take, TakeLine::Kind::Command)),
                          fmt::format("{}", Count(take, TakeLine::Kind::Refused)), take.settings.changeLog,
                          take.isFinished ? "yes" : "broke off"});
        } catch (const std::exception& problem) {
            table.AddRow({name, "", "", "", "", problem.what()});
        }
    }
    std::cout << table.AsText();
}

/// What an edit was is read by programs; a person is told that there was one.
std::string DescribePress(const std::string& text) {
    for (const char* verb : {"edit ", "restore "})
        if (text.starts_with(verb)) return std::string(verb).substr(0, std::string_view(verb).size() - 1);
    return text;
}

void ShowTake(const std::string& path) {
    const Take take = stage::ReadTake(path);
    std::cout << fmt::format("{}, {} frames a second, edits of {}, {}\n", DescribeLength(take),
                             take.settings.framesPerSecond, take.settings.changeLog,
                             take.isFinished ? "ended by quit" : "broke off");
    TextTable table({{"time"}, {"into", TextTable::Align::Right}, {"where"}, {"what"}, {"by"}});
    for (const TakeLine& line : take.lines) {
        const double seconds = static_cast<double>(line.frame) / take.settings.framesPerSecond;
        const auto minutes = static_cast<std::int64_t>(seconds / 60);
        const std::string into =
            fmt::format("{}:{:04.1f}", minutes, std::max(seconds - 60 * static_cast<double>(minutes), 0.0));
        if (line.kind == TakeLine::Kind::Command) {
            table.AddRow({line.time, into, line.place, DescribePress(line.text), line.door});
        } else if (line.kind == TakeLine::Kind::Refused) {
            table.AddRow({line.time, into, line.place,
                          fmt::format("REFUSED {}: {}", DescribePress(line.text), line.sentence), line.door});
        } else if (line.kind == TakeLine::Kind::Device) {
            table.AddRow({line.time, into, "", line.text, "device"});
        }
    }
    std::cout << table.AsText();
}

}  // namespace

void AddTakeCommand(CLI::App& app, int& /*exitCode*/) {
    auto words = std::make_shared<TakeWords>();
    CLI::App* take = app.add_subcommand("take", "Tells what happened in a performance");
    take->require_subcommand(1);
    CLI::App* list = take->add_subcommand("list", "Lists the takes of a show");
    list->add_option("SHOW", words->showPath, "The show directory")->required();
    list->footer("Example:\n  stage take list myshow");
    list->callback([words] { ListTakes(words->showPath); });
    CLI::App* show = take->add_subcommand("show", "Shows what was pressed in a take, and what the devices did");
    show->add_option("TAKE", words->takePath, "The take's file")->required();
    show->footer("Example:\n  stage take show myshow/takes/2026-11-22_19-30-00.take");
    show->callback([words] { ShowTake(words->takePath); });
    take->footer(
        "\nA take renders to the sound of that evening: stage render SHOW --script TAKE --out evening.wav\n"
        "\nExamples:\n"
        "  stage take list myshow\n"
        "  stage take show myshow/takes/2026-11-22_19-30-00.take");
}
