// A host of your own: your_host SHOW [SONG [BAR]]

#include <fmt/format.h>
#include <stage/engine/true_peak_limiter.h>
#include <stage/session/session_edits.h>
#include <stage/session/show_session.h>
#include <stage/show/edit_list.h>
#include <tavo_core/edit_text.h>
#include <tavo_core/event_codes.h>
#include <sndfile.hh>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>

namespace {

constexpr std::uint32_t Rate = 48000;
constexpr std::uint32_t BlockFrames = 480;  // a press takes effect at the end of a block
using Device = std::function<void(const float* left, const float* right, std::uint32_t frames)>;
const std::map<std::string, std::string> Cues{{"/house/dim", "the house lights go down"},
                                              {"/curtain", "the curtain opens"}};

stage::ShowSession::Options MakeOptions() {
    stage::ShowSession::Options options;
    options.framesPerSecond = Rate;
    options.editing = stage::ShowSession::Options::Editing::InMemory;
    options.hasRunningFeed = false;  // time is what was rendered
    options.sendsTimeCode = false;
    options.waitsForSounds = true;
    return options;
}

void ListSongs(const tavo_midi::ShowData& show) {
    for (const tavo_midi::SongData& song : show.GetSongs())
        fmt::print("{:>3}  {}\n", song.GetSongNumber(), song.GetTitle());
}

void ListBars(stage::ShowSession& session, const std::string& number) {
    const tavo_midi::SongData& song = session.GetShow().GetSongData(number);
    const TL::BarPositions positions(song.GetTimeline());
    fmt::print("{}, bars", song.GetTitle());
    for (const TL::BarPositions::Bar& bar : positions.GetBars())
        fmt::print(" {}", bar.label);
    fmt::print("\n");
    const auto log = stage::SessionEdits(session).GetLog();
    for (const stage::ListedEdit& listed : stage::ListEdits(log->GetSongLog(number)))
        fmt::print("  {}\n", CL::DescribeEdit(*listed.edit, positions));
}

/// What the display of a cue says.
std::string DescribeCue(const stage::Cue& cue) {
    if (const auto* message = std::get_if<CL::Osc>(&cue.edit)) {
        const auto known = Cues.find(message->address());
        return known == Cues.end() ? "osc " + message->address() : known->second;
    }
    if (const auto* ambience = std::get_if<CL::SfxAmbient>(&cue.edit)) return "ambience " + ambience->sound();
    return "effect " + std::get<CL::Sfx>(cue.edit).sound();
}

/// The operator of a session, and its display. The sound goes to a device.
class Host final : private stage::EngineSubscriber {
public:
    explicit Host(stage::ShowSession& session)
        : session_(session), player_(session.GetStagePlayer()), engine_(player_.GetEngine()) {
        engine_.Subscribe(*this);
    }
    ~Host() {
        engine_.Unsubscribe(*this);
        player_.HaltOutput();
    }
    Host(const Host&) = delete;

    /// Does what an operator can do: "load 2", "seek 17:3", "exit". Throws where that is not possible.
    void Press(const std::string& line) {
        std::string song = session_.GetCurrentSongNumber();
        stage::Command command = stage::ParseCommand(stage::SplitWords(line), session_.GetShow(), song);
        command.source.door = stage::Door::Terminal;
        command.moment = std::chrono::nanoseconds(engine_.GetFrame() * 1'000'000'000 / Rate);
        const stage::CommandRecord record = session_.GetDesk().Execute(std::move(command));
        if (!record.IsTaken()) throw std::runtime_error(record.sentence);
    }

    /// Plays the song that is loaded; the device takes block after block of sound.
    void Perform(const Device& device) {
        Press("play");
        while (!isOver_) {
            if (!answer_.empty()) Press(std::exchange(answer_, {}));
            ShowPlace_();
            RenderBlock_(device);
        }
        fmt::print("\n");
        for (std::uint32_t frames = 0; frames < Rate; frames += BlockFrames)
            RenderBlock_(device);  // what rings on
    }

private:
    void RenderBlock_(const Device& device) {
        engine_.Render(left_.data(), right_.data(), BlockFrames);
        limiter_.Process(left_.data(), right_.data(), BlockFrames);
        device(left_.data(), right_.data(), BlockFrames);
        session_.GetSteppedFeed().MakePass();
    }

    /// Called while a block is rendered, wherever playback does something.
    void OnEngineEvent(const stage::EngineEvent& event) override {
        using Kind = stage::EngineEvent::Kind;
        if (event.kind == Kind::Stopped) isOver_ = true;
        if (event.kind == Kind::Cue) Show_("[" + DescribeCue(*event.cue) + "]");
        if (event.kind == Kind::Jumped && event.reason == stage::EngineEvent::Reason::Loop && IsInVamp_())
            Answer_("jump", "exit");
        if (event.kind == Kind::Held) Answer_("hold", "exit");
        if (event.kind == Kind::StoppedAtCaesura) Answer_("caesura", "continue");
    }

    static void Show_(const std::string& text) {
        fmt::print("{} ", text);
        std::fflush(stdout);
    }

    void ShowPlace_() {
        const TL::Timeline& timeline = session_.GetShow().GetTimelineOf(session_.GetCurrentSongNumber());
        const TL::BarsBeats* const beat = timeline.GetBarsBeats().FindInForceAt(session_.GetTickIndex());
        if (beat == nullptr || std::exchange(beat_, beat) == beat) return;
        Show_(beat->beat() == 1 ? beat->bar_number() : ".");
    }

    [[nodiscard]] bool IsInVamp_() {
        for (const LoopEvent& loop : player_.GetStageShowControl().CopyActiveLoops())
            if (loop.type == codes::Vamp) return true;
        return false;
    }

    /// The operator: what your button does. It is pressed between two blocks.
    void Answer_(const std::string& what, const std::string& press) {
        Show_("[" + what + ": " + press + "]");
        answer_ = press;
    }

    stage::ShowSession& session_;
    stage::StagePlayer& player_;
    stage::Engine& engine_;
    stage::TruePeakLimiter limiter_{Rate};
    std::array<float, BlockFrames> left_{};
    std::array<float, BlockFrames> right_{};
    bool isOver_ = false;
    const TL::BarsBeats* beat_ = nullptr;  // the one that is shown
    std::string answer_;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 4) {
        fmt::print(stderr, "usage: {} SHOW [SONG [BAR]]\n", argv[0]);
        return 2;
    }
    try {
        stage::ShowSession session(argv[1], argv[1], MakeOptions());
        fmt::print("{}\n", session.GetShow().GetTitle());
        if (argc == 2) {
            ListSongs(session.GetShow());
            return 0;
        }
        const std::string number = argv[2];
        ListBars(session, number);
        Host host(session);
        host.Press("load " + number);
        if (argc == 4) host.Press("seek " + std::string(argv[3]));
        SndfileHandle file("song.wav", SFM_WRITE, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, Rate);
        host.Perform([&](const float* left, const float* right, std::uint32_t frames) {
            for (std::uint32_t i = 0; i < frames; ++i)
                file.writef(std::array{left[i], right[i]}.data(), 1);
        });
        fmt::print("song.wav: {:.1f} s\n", static_cast<double>(session.GetStagePlayer().GetEngine().GetFrame()) / Rate);
    } catch (const std::exception& problem) {
        fmt::print(stderr, "{}\n", problem.what());
        return 1;
    }
    return 0;
}
