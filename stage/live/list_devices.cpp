#include <jack/jack.h>
#include <rtaudio/RtAudio.h>

#include <memory>
#include <set>

#include "stage/live/audio_output.h"
#include "tavo_midi_io/jack_clients.h"

namespace stage {

namespace {

void ListJackPorts(std::vector<OutputDevice>& devices) {
    if (!tavo_midi_io::jack_clients::MayOpen()) return;
    jack_set_error_function([](const char*) {});
    jack_set_info_function([](const char*) {});
    jack_client_t* const client = jack_client_open("tavo-list", JackNoStartServer, nullptr);
    if (client == nullptr) return;
    std::set<std::string> names;
    if (const char** const ports = jack_get_ports(client, nullptr, JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput)) {
        for (const char** port = ports; *port != nullptr; ++port)
            names.insert(std::string(*port).substr(0, std::string(*port).find(':')));
        jack_free(ports);
    }
    for (const std::string& name : names)
        devices.push_back(
            {"jack", name, {jack_get_sample_rate(client)}, jack_get_buffer_size(client), name == "system"});
    jack_client_close(client);
}

void ListRtAudioDevices(std::vector<OutputDevice>& devices) {
    for (const RtAudio::Api system : {RtAudio::LINUX_ALSA, RtAudio::LINUX_PULSE}) {
        RtAudio audio(system);
        audio.showWarnings(false);
        for (unsigned int index = 0; index < audio.getDeviceCount(); ++index) {
            try {
                const RtAudio::DeviceInfo info = audio.getDeviceInfo(index);
                if (!info.probed || info.outputChannels < 2) continue;
                devices.push_back({"rtaudio",
                                   info.name,
                                   {info.sampleRates.begin(), info.sampleRates.end()},
                                   0,
                                   info.isDefaultOutput});
            } catch (const RtAudioError&) {
                // One that cannot be asked cannot be played on.
            }
        }
    }
}

}  // namespace

std::vector<OutputDevice> ListOutputDevices() {
    auto devices = std::make_shared<std::vector<OutputDevice>>();
    auto jackDevices = std::make_shared<std::vector<OutputDevice>>();
    if (tavo_midi_io::AskJack([jackDevices] { ListJackPorts(*jackDevices); })) *devices = *jackDevices;
    ListRtAudioDevices(*devices);
    devices->push_back({"null", "null", {44100, 48000, 88200, 96000}, 0, false});
    return *devices;
}

}  // namespace stage
