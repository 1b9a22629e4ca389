#include <fmt/format.h>

#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "stage/cli/commands.h"
#include "stage/cli/text_table.h"
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

}  // namespace

void AddDevicesCommand(CLI::App& app, int& /*exitCode*/) {
    auto asJson = std::make_shared<bool>(false);
    CLI::App* command = app.add_subcommand("devices", "List what a show can be played on");
    command->add_flag("--json", *asJson, "As JSON");
    command->callback([asJson] { ListDevices(*asJson); });
    command->footer("\n`stage play --test-tone --output jack` proves one of them.\n\nExample:\n  stage devices --json");
}
