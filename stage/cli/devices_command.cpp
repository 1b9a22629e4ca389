#include <fmt/format.h>

#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "stage/cli/commands.h"
#include "stage/cli/text_table.h"
#include "stage/engine/sound_font_list.h"
#include "stage/live/audio_output.h"

namespace {

void ListDevices(bool asJson) {
    const std::vector<stage::OutputDevice> devices = stage::ListOutputDevices();
    if (asJson) {
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        for (const stage::OutputDevice& device : devices)
            list.push_back({{"output", device.output},
                            {"device", device.name},
                            {"framesPerSecond", device.framesPerSecond},
                            {"periodFrames", device.periodFrames},
                            {"default", device.isDefault}});
        std::cout << list.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
        return;
    }
    TextTable table({{"--output"}, {"--device"}, {"frames a second"}, {"period", TextTable::Align::Right}, {""}});
    for (const stage::OutputDevice& device : devices)
        table.AddRow({device.output, device.output == "null" ? "" : device.name,
                      fmt::format("{}", fmt::join(device.framesPerSecond, " ")),
                      device.periodFrames > 0 ? fmt::format("{}", device.periodFrames) : "",
                      device.isDefault ? "default" : ""});
    std::cout << table.AsText();
}

void ListSounds(bool asJson) {
    const std::vector<stage::InstalledSoundFont> fonts = stage::ListSoundFonts();
    if (asJson) {
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        for (const stage::InstalledSoundFont& font : fonts)
            list.push_back({{"path", font.path},
                            {"title", font.title},
                            {"bytes", font.bytes},
                            {"programs", font.programs},
                            {"default", font.isDefault}});
        std::cout << list.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
        return;
    }
    // A path is there to be copied into the settings.
    TextTable table({{"title"},
                     {"MB", TextTable::Align::Right},
                     {"programs", TextTable::Align::Right},
                     {""},
                     {"SoundFont", TextTable::Align::Left, true}});
    for (const stage::InstalledSoundFont& font : fonts)
        table.AddRow({MakePrintable(font.title), fmt::format("{:.1f}", static_cast<double>(font.bytes) / 1e6),
                      fmt::format("{}", font.programs), font.isDefault ? "default" : "", font.path});
    std::cout << table.AsText();
}

}  // namespace

void AddDevicesCommand(CLI::App& app, int& /*exitCode*/) {
    auto asJson = std::make_shared<bool>(false);
    CLI::App* command = app.add_subcommand("devices", "Lists what a show can be played on");
    command->add_flag("--json", *asJson, "Print it as JSON for other programs");
    auto listsSounds = std::make_shared<bool>(false);
    command->add_flag("--sounds", *listsSounds, "List the SoundFonts that are installed instead");
    command->callback([asJson, listsSounds] { *listsSounds ? ListSounds(*asJson) : ListDevices(*asJson); });
    command->footer(
        "\n`stage play --test-tone --output jack` proves one of them.\n\nExamples:\n  stage devices --json\n  stage "
        "devices --sounds");
}
