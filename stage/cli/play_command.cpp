#include <fmt/format.h>

#include <csignal>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "kit/path.h"
#include "kit/words.h"
#include "stage/cli/commands.h"
#include "stage/cli/play_account.h"
#include "stage/cli/play_headless.h"
#include "stage/cli/play_terminal.h"
#include "stage/cli/score_passphrase.h"
#include "stage/control/take.h"
#include "stage/engine/data_directories.h"
#include "stage/live/live_show.h"
#include "stage/live/real_time.h"
#include "stage/osc/osc_cues.h"
#include "stage/osc/osc_door.h"
#include "stage/pages/page_package.h"
#include "stage/show/settings.h"
#include "stage/show/show_directory.h"
#include "stage/web/show_page.h"
#include "stage/words/usage_problem.h"
#include "stage/words/value_checks.h"
#include "tavo_midi_io/install_midi_ports.h"

namespace {

struct PlayWords {
    std::string showPath;
    std::string song;
    std::string output;
    std::string device;
    std::string takePath;
    std::string whenLost = "hold";
    std::string soundFontPath;
    std::string web;
    stage::WebCertificate webCertificate;
    std::string webFiles;
    std::string engraver;
    std::string passphraseFile;
    std::string osc;
    std::uint32_t framesPerSecond = 48000;
    std::uint32_t periodFrames = 128;
    std::uint32_t leadFrames = 0;
    bool isHeadless = false;
    bool isLocked = false;
    bool resumes = false;
    bool printsBeats = false;
    bool makesNoTake = false;
    bool playsTestTone = false;
};

std::string MakeTakePath(const PlayWords& words) {
    if (words.makesNoTake) return "";
    if (!words.takePath.empty()) return words.takePath;
    const std::string folder = stage::GetTakeFolder(words.showPath);
    std::error_code error;
    std::filesystem::create_directory(folder, error);
    if (error) {
        std::cerr << fmt::format("stage: no take is made, \"{}\" cannot be created: {}\n", folder, error.message());
        return "";
    }
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    localtime_r(&now, &parts);
    const std::string name = fmt::format("{:04}-{:02}-{:02}_{:02}-{:02}-{:02}", parts.tm_year + 1900, parts.tm_mon + 1,
                                         parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
    std::string path = kit::path::Join(folder, name + ".take");
    for (int more = 2; std::filesystem::exists(path, error); ++more)
        path = kit::path::Join(folder, fmt::format("{}_{}.take", name, more));
    return path;
}

/// The take that broke off, where the newest one did.
std::optional<stage::Take> FindBrokenTake(const std::string& showPath) {
    const std::string path = stage::FindNewestTake(showPath);
    if (path.empty()) return std::nullopt;
    try {
        stage::Take take = stage::ReadTake(path);
        if (!take.isFinished && take.lastState) return take;
    } catch (const std::exception& problem) {
        std::cerr << "stage: " << problem.what() << '\n';
    }
    return std::nullopt;
}

/// What the words say, and otherwise the show's settings.
stage::OutputChoice MakeOutputChoice(const PlayWords& words) {
    stage::OutputChoice choice;
    if (!words.output.empty()) {
        choice = stage::ParseOutputChoice(words.output);
    } else if (!words.showPath.empty()) {
        using Backend = stage::Settings::Backend;
        const stage::Settings settings = stage::ReadSettings(kit::path::Join(words.showPath, "settings.json"));
        if (!settings.outputs.empty()) {
            const stage::Settings::Output& output = settings.outputs.front();
            choice.device = output.device;
            if (output.backend == Backend::Jack) choice.kind = stage::OutputChoice::Kind::Jack;
            if (output.backend == Backend::RtAudio) choice.kind = stage::OutputChoice::Kind::RtAudio;
            if (output.backend == Backend::None) choice.kind = stage::OutputChoice::Kind::Null;
        }
    }
    if (!words.device.empty()) choice.device = words.device;
    choice.framesPerSecond = words.framesPerSecond;
    choice.periodFrames = words.periodFrames;
    return choice;
}

stage::LiveShow::Options MakeOptions(const PlayWords& words) {
    stage::LiveShow::Options options;
    options.output = MakeOutputChoice(words);
    options.whenLost = words.whenLost == "run" ? stage::WhenLost::Run : stage::WhenLost::Hold;
    options.rendering.leadFrames = words.leadFrames;
    // Where the device takes less at a time, a block of 64 would come in bursts.
    if (words.periodFrames < options.rendering.blockFrames) options.rendering.blockFrames = words.periodFrames;
    options.isLocked = words.isLocked;
    options.soundFont = words.soundFontPath;
    options.takePath = MakeTakePath(words);
    return options;
}

/// The page works without what lies there.
std::string FindEngraver() {
    const std::string share = stage::FindOwnShareDirectory();
    return share.empty() ? share : share + "/stage/engraver";
}

/// The images of the score's pages, and why they are not shown; both empty where the show has none.
struct PageImages {
    std::unique_ptr<stage::PagePackage> pages;
    std::string sentence;
};

/// Whatever is wrong with them, the show goes on without.
PageImages OpenPageImages(const PlayWords& words) {
    PageImages images;
    const stage::ShowDirectory directory = stage::ScanShowDirectory(words.showPath);
    if (directory.scoreName.empty()) {
        if (!words.passphraseFile.empty()) images.sentence = "The show has no .score file whose pages could be shown.";
        return images;
    }
    if (!ScorePassphrase::IsGiven(words.passphraseFile)) {
        images.sentence = fmt::format("The pages of {} are not shown: give --passphrase-file FILE or set {}.",
                                      directory.scoreName, ScorePassphrase::Variable);
        return images;
    }
    try {
        const ScorePassphrase passphrase(words.passphraseFile);
        images.pages = std::make_unique<stage::PagePackage>(directory.PathOf(directory.scoreName), passphrase.text);
    } catch (const std::runtime_error& problem) {
        images.sentence = fmt::format("The pages of {} are not shown: {}.", directory.scoreName, problem.what());
    }
    return images;
}

/// The show's page, and what is to be said of it.
struct ServedPage {
    std::unique_ptr<stage::ShowPage> page;
    std::vector<std::string> sentences;
};

/// Where nobody has asked for a certain address the show goes on without a page.
ServedPage ServePage(stage::LiveShow& show, const PlayWords& words) {
    ServedPage served;
    if (words.web == "off") return served;
    stage::ShowPage::Options options;
    if (!words.web.empty()) options.server.address = stage::ParseWebAddress(words.web);
    options.server.certificate = words.webCertificate;
    options.version = STAGE_VERSION;
    options.pageDirectory = words.webFiles;
    options.engraverDirectory = words.engraver.empty() ? FindEngraver() : words.engraver;
    options.passcodes = stage::ReadPasscodes(kit::path::Join(words.showPath, stage::WebPasscodes::FileName));
    PageImages images = OpenPageImages(words);
    try {
        served.page = std::make_unique<stage::ShowPage>(show, options, std::move(images.pages));
        const stage::WebServer& server = served.page->GetServer();
        served.sentences.push_back(fmt::format("The page is at {}.", server.GetUrl()));
        if (!server.GetWarning().empty()) served.sentences.push_back(kit::AsSentence(server.GetWarning()));
        if (!images.sentence.empty()) served.sentences.push_back(images.sentence);
    } catch (const std::runtime_error& problem) {
        if (!words.web.empty() || !words.webCertificate.IsEmpty()) throw;
        served.sentences.push_back(fmt::format("The page is not served: {}.", problem.what()));
    }
    return served;
}

/// `door` is one of the three ways in which a person or a program meets the show.
template <class PlayDoor>
void RunThrough(stage::LiveShow& show, PlayDoor& door, const PlayWords& words, const std::optional<stage::Take>& broken,
                const std::vector<std::string>& sentences) {
    for (const std::string& sentence : sentences)
        door.OnMessage(sentence);
    if (const std::string problem = stage::LockMemory(); !problem.empty()) door.OnMessage(problem);
    if (words.resumes && broken) {
        show.Resume(*broken);
    } else {
        const std::string song = words.song.empty() ? show.GetSession().GetShow().GetSongNumbers().front() : words.song;
        show.Press({stage::Verb::Load, {song}, {stage::Door::Automatic, "start"}, 0, {}});
        if (broken) door.OfferResume(*broken);
    }
    door.Run();
}

/// Returns where the take is.
std::string Perform(const PlayWords& words) {
    // Says in its own words what is missing in a directory that is no show.
    static_cast<void>(stage::ScanShowDirectory(words.showPath));
    const std::optional<stage::Take> broken = FindBrokenTake(words.showPath);
    stage::Settings settings = stage::ReadSettings(kit::path::Join(words.showPath, "settings.json"));
    if (!words.osc.empty()) stage::ReadListening(words.osc, settings.osc);
    tavo_midi_io::InstallMidiPorts();
    // It outlives the thread that hands it cues.
    stage::OscCues cues(settings.oscTargets);
    stage::LiveShow::Options options = MakeOptions(words);
    options.onCue = [&cues](const stage::Cue& cue, std::optional<std::chrono::nanoseconds> heard) {
        cues.Take(cue, heard);
    };
    stage::LiveShow show(words.showPath, options);
    const ServedPage served = ServePage(show, words);
    const stage::OscDoor osc(show, settings.osc, cues);
    if (words.isHeadless) {
        PlayHeadless headless(show, words.printsBeats);
        RunThrough(show, headless, words, broken, served.sentences);
    } else if (stage::ScreenTerminal::IsAvailable()) {
        PlayTerminal terminal(show);
        RunThrough(show, terminal, words, broken, served.sentences);
    } else {
        PlayAccount account(show);
        RunThrough(show, account, words, broken, served.sentences);
    }
    return show.GetTakePath();
}

void Play(const PlayWords& words) {
    if (words.playsTestTone) {
        std::cout << "A tone on the left, then on the right: " << stage::PlayTestTone(MakeOutputChoice(words)) << ".\n";
        return;
    }
    if (words.showPath.empty()) throw stage::UsageError("SHOW is missing");
    if (words.webCertificate.path.empty() != words.webCertificate.keyPath.empty())
        throw stage::UsageError("--web-certificate FILE and --web-key FILE belong together: give both");
    if (words.web == "off" && (!words.webCertificate.IsEmpty() || !words.passphraseFile.empty()))
        throw stage::UsageError("--web off serves no page, for which --web-certificate and --passphrase-file are");
    const std::string takePath = Perform(words);
    if (words.isHeadless) return PlayHeadless::PrintEnd(takePath);
    std::cout << "The show has ended" << (takePath.empty() ? "." : "; its take is " + takePath) << std::endl;
}

}  // namespace

void AddPlayCommand(CLI::App& app, int& /*exitCode*/) {
    auto words = std::make_shared<PlayWords>();
    CLI::App* command = app.add_subcommand("play", "Performs a show live");
    command->add_option("SHOW", words->showPath, "The show directory");
    command->add_option("--song", words->song, "The song that stands ready first; the show's first without it")
        ->type_name("N");
    command
        ->add_option("--output", words->output,
                     "auto, jack, rtaudio, null or file:PATH; without it as settings.json says")
        ->type_name("OUTPUT");
    command->add_option("--device", words->device, "The device's name, or the beginning of the JACK ports' names")
        ->type_name("NAME");
    command
        ->add_option("--rate", words->framesPerSecond,
                     "Frames a second, 44100, 48000, 88200 or 96000, where the output can choose")
        ->type_name("RATE")
        ->check(stage::IsOneOf({"44100", "48000", "88200", "96000"}))
        ->capture_default_str();
    command
        ->add_option("--period", words->periodFrames,
                     "Frames that the output takes at a time, where it can choose, 32 to 2048")
        ->type_name("FRAMES")
        ->check(stage::IsWholeNumber(32, 2048))
        ->capture_default_str();
    command
        ->add_option("--lead", words->leadFrames,
                     "Frames that are kept ready for the output, up to 4096; 0 is a period and a block")
        ->type_name("FRAMES")
        ->check(stage::IsWholeNumber(0, 4096))
        ->capture_default_str();
    command->add_option("--when-lost", words->whenLost, "While no device plays the show waits (hold) or goes on (run)")
        ->type_name("WHAT")
        ->check(stage::IsOneOf({"hold", "run"}))
        ->capture_default_str();
    command->add_option("--take", words->takePath, "Where the take is written; without it into the show's folder takes")
        ->type_name("FILE");
    command->add_flag("--no-take", words->makesNoTake, "Write no take");
    command->add_flag("--resume", words->resumes, "Go on where the last take broke off");
    command->add_flag("--locked", words->isLocked, "Take no edits, and do not quit by accident");
    command->add_flag("--test-tone", words->playsTestTone, "Play a tone on either side and end; needs no show");
    command->add_flag("--headless", words->isHeadless, "Read presses as lines, print what happens as lines of JSON");
    command->add_flag("--beats", words->printsBeats, "With --headless: report every beat, not only bars");
    command
        ->add_option("--web", words->web,
                     "Where the page is served: ADDRESS:PORT, or off; 127.0.0.1:7480 without it, where that is free")
        ->type_name("WHERE");
    command
        ->add_option("--web-certificate", words->webCertificate.path,
                     "Serve the page by https with this certificate, and those that it hangs on, in PEM form")
        ->type_name("FILE");
    command
        ->add_option("--web-key", words->webCertificate.keyPath,
                     "The certificate's private key in PEM form, without a passphrase")
        ->type_name("FILE");
    command->add_option("--web-files", words->webFiles, "Serve the page's files from this directory")
        ->type_name("DIRECTORY")
        ->group("");
    command->add_option("--engraver", words->engraver, "Where the page's engraver of scores is installed")
        ->type_name("DIRECTORY")
        ->group("");
    command
        ->add_option(
            "--passphrase-file", words->passphraseFile,
            fmt::format("A file that holds the passphrase of the .score file, whose pages are then shown on the "
                        "page; without it {} does",
                        ScorePassphrase::Variable))
        ->type_name("FILE");
    command
        ->add_option("--osc", words->osc,
                     "Where OSC is taken: a port, an address and a port, or off; without it as settings.json says")
        ->type_name("[ADDRESS:]PORT|off")
        ->check(CLI::Validator(
            [](const std::string& text) {
                stage::Settings::OscIn ignored;
                try {
                    stage::ReadListening(text, ignored);
                } catch (const std::invalid_argument& problem) {
                    return "is refused: " + std::string(problem.what());
                }
                return std::string();
            },
            ""));
    command->add_option("--soundfont", words->soundFontPath, "The SoundFont to play with")->type_name("FILE");
    command->footer("What an operator can press, a line each with --headless:\n" + stage::MakeVerbHelp() +
                    "  status              where the show stands, as a line of JSON\n\n"
                    "Examples:\n"
                    "  stage play myshow\n"
                    "  stage play myshow --song 3 --output null --headless");
    command->callback([words] { Play(*words); });
}
