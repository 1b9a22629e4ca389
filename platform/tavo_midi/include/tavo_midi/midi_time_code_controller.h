#pragma once

#include <memory>
#include <string>

#include "tavo_midi/frame_rate.h"

namespace tavo_midi {

/// MIDI time code output (MIDI 1.0, quarter frames and full frames) and its settings, kept in a JSON file. Thread-safe.
class MidiTimeCodeController {
public:
    /// A missing file means the defaults; a bad one is reported in one sentence of std::runtime_error.
    explicit MidiTimeCodeController(const std::string& settingsPath);
    ~MidiTimeCodeController();
    MidiTimeCodeController(const MidiTimeCodeController&) = delete;
    MidiTimeCodeController& operator=(const MidiTimeCodeController&) = delete;

    void ActivateMidiTimeCode();
    void CancelMidiTimeCode();
    [[nodiscard]] bool GetIsActive() const;
    [[nodiscard]] FrameRate GetFrameRate() const;
    void SetFrameRate(FrameRate frameRate);
    /// Index of the output; 0 while none is chosen.
    [[nodiscard]] unsigned int GetOutputPortIndex() const;
    [[nodiscard]] bool GetHasOutputPortIndex() const;
    void SetOutputPortIndex(unsigned int index);
    /// Tells the sending thread to finish and returns at once.
    void PrepareForExit();
    /// Ends the sending thread and closes the output.
    void Shutdown();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace tavo_midi

using tavo_midi::MidiTimeCodeController;
