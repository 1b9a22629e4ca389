#include <fmt/format.h>

#include <filesystem>
#include <iostream>
#include <memory>

#include "kit/file.h"
#include "kit/path.h"
#include "stage/cli/commands.h"
#include "stage/cli/text_table.h"
#include "stage/import/text_song.h"
#include "tavo_midi/smf_writer.h"

namespace {

constexpr std::uintmax_t LongestScore = 1U << 20U;

struct ComposeWords {
    std::vector<std::string> files;
    std::string folder;
};

/// "01_The_Ferry.mid": a name that sorts by number and that an import reads back.
std::string MakeFileName(const stage::TextSong& score) {
    std::string name = score.number;
    const std::size_t digits = std::min(name.find_first_not_of("0123456789"), name.size());
    if (digits < 2) name.insert(0, 2 - digits, '0');
    name += '_';
    for (const char c : score.title) {
        const bool isPlain = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        if (isPlain) {
            name += c;
        } else if (c == ' ' && name.back() != '_') {
            name += '_';
        }
    }
    return name + ".mid";
}

void Compose(const ComposeWords& words) {
    std::error_code error;
    std::filesystem::create_directories(words.folder, error);
    if (error)
        throw std::runtime_error(fmt::format("the folder \"{}\" cannot be made: {}", words.folder, error.message()));
    for (const std::string& file : words.files) {
        const stage::TextSong score = stage::ParseTextSong(kit::ReadFile(file, LongestScore), file);
        const std::string path = kit::path::Join(words.folder, MakeFileName(score));
        kit::ReplaceFileDurably(path, tavo_midi::WriteSmf(score.smf));
        std::cout << path << '\n';
    }
}

}  // namespace

void AddComposeCommand(CLI::App& app, int&) {
    auto words = std::make_shared<ComposeWords>();
    CLI::App* compose = app.add_subcommand("compose", "Makes MIDI files from numbers written as plain text");
    compose->add_option("FILES", words->files, "Text scores; docs/text-song.md teaches the notation")->required();
    compose->add_option("-o,--output", words->folder, "The folder to write to; files of the same name are replaced")
        ->required()
        ->type_name("DIR");
    compose->footer("\nExample:\n  stage compose examples/demo/*.score.txt -o build/demo-midi");
    compose->callback([words] { Compose(*words); });
}
