#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace stage {

/// How a show is set up in one theatre: `settings.json` in the show directory, a JSON object (RFC 8259). Every key may
/// be left out and then has the value given here. A plain value.
struct Settings {
    enum class Backend { Auto, Jack, RtAudio, None };
    enum class Transport { Udp, Tcp };

    struct Output {
        std::string name = "main";
        /// "auto" takes JACK where its server runs, else RtAudio.
        Backend backend = Backend::Auto;
        /// Name of the device or of the JACK ports to connect to; empty takes the system's default.
        std::string device;
    };
    /// Factors on the amplitude, 0 to 1.
    struct Volumes {
        double master = 1.0;
        double synth = 1.0;
        double click = 1.0;
        double effects = 1.0;
    };
    struct OscTarget {
        std::string name;
        std::string host = "127.0.0.1";
        std::uint16_t port = 0;
        Transport transport = Transport::Udp;
    };
    /// Ports by name: numbers change when a device is plugged in elsewhere.
    struct MidiPorts {
        std::vector<std::string> inputs;
        std::vector<std::string> outputs;
    };

    /// Path of a SoundFont 2 file, absolute or relative to the show directory; empty takes the system's default one.
    std::string soundFont;
    std::vector<Output> outputs{Output{}};
    Volumes volumes;
    /// Names are unique. An OSC edit without a target goes to the first.
    std::vector<OscTarget> oscTargets;
    /// Presses that follow each other faster are one press; 0 to 10000.
    int pressGuardMs = 250;
    MidiPorts midiPorts;
    /// Bare name of the change log that opens; empty takes the highest version.
    std::string changeLog;
};

/// Reads the file; one that does not exist gives the defaults. Throws std::runtime_error with one sentence that names
/// the file, the key and what is wrong: not JSON, a wrong type, a value out of range, a key that is unknown or there
/// twice.
[[nodiscard]] Settings ReadSettings(const std::string& path);
/// The same from memory; `name` stands for the file in the sentences.
[[nodiscard]] Settings ParseSettings(const std::string& text, const std::string& name);

/// The text of the file, all keys written, a line end after it.
[[nodiscard]] std::string AsText(const Settings& settings);

/// Writes `logName` into the file as the change log that opens and leaves everything else in it as it is; a file that
/// does not exist is made. An empty name lets the highest version open again, and makes no file. Durable; throws as
/// ReadSettings does, and std::runtime_error where the file cannot be written.
void ChooseChangeLog(const std::string& path, const std::string& logName);

/// Whether an OSC edit may name this target: a name of the list, or empty while the list has a first.
[[nodiscard]] bool HasOscTarget(const Settings& settings, const std::string& name);

}  // namespace stage
