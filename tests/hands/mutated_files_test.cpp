// A show opens, or one sentence says why not, whatever became of any of its files.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <map>
#include <regex>

#include "stage/cli/commands.h"
#include "stage/pages/page_packer.h"
#include "stage/session/show_session.h"
#include "stage/web/show_answers.h"
#include "stage/web/web_access.h"
#include "tavo_core/edit_journal.h"
#include "tests/hands/forked_program.h"
#include "tests/hands/mutate.h"
#include "tests/hands/shared_show.h"
#include "tests/support/sound_files.h"

namespace {

using test_support::ForkedResult;
using test_support::Mutator;
using test_support::ReadAll;
using test_support::RunForked;
using test_support::WriteAll;
using Words = std::vector<std::string>;
using Form = Mutator::Form;

const std::string Passphrase = "open sesame";

/// One sort of file that people may bring along damaged.
struct FileKind {
    std::string path;  // below the folder that all is in
    Form form = Form::Bytes;
    std::vector<Words> commands{};
    std::vector<std::string> members{};
    /// Whether it is opened by a session, and whether that has to succeed.
    enum class Opens : std::uint8_t { NotAsked, OrSaysWhyNot, Always } opens = Opens::NotAsked;
};

/// A show with one file of everything.
class MutatedFiles : private test_support::OnMemoryDisk, public testing::Test {
protected:
    void SetUp() override {
        ::setenv("TAVO_SCORE_PASSPHRASE", Passphrase.c_str(), 1);
        std::filesystem::create_directory(directory_ / "midi");
        std::filesystem::create_directory(Now());
        WriteAll(directory_ / "midi/01_First.mid",
                 test_support::MakeSmf("First", 5, "at 1 tempo 480\nat 2 marker Verse\n"));
        WriteAll(directory_ / "midi/02_Second.musicxml", MakeScore());
        WriteArchive();
        WriteAll(directory_ / "songs.txt",
                 "number 1\ntitle One\nat 1 tempo 480\npart Piano program 1\n| c4/4 d4 e4 f4 |\n");
        WriteAll(directory_ / "rehearsal.edits", MakeEdits());
        WriteAll(directory_ / "evening.script", "+0s play\nat 2 exit\n+0.1s go\nat 4@1 tempo 90%\n+0.2s stop\n");
        Do({"import", Path("midi"), "--written", "-o", Path("show"), "--title", "Evening"});
        WriteSounds();
        WriteSettings();
        Do({"edit", Path("show"), "apply", Path("rehearsal.edits")});
        Do({"edit", Path("show"), "--comment", "dress", "add", "marker", "--song", "2", "--at", "2", "--text", "Here"});
        WritePages();
        WritePasscodes();
        LeaveTake();
        Do({"check", Path("show")});
        LeaveJournal();
        std::filesystem::remove_all(Kept());
        std::filesystem::create_directory(Kept());
        for (const auto& entry : std::filesystem::directory_iterator(directory_ / "")) {
            if (entry.path() != Kept() && entry.path() != Now())
                std::filesystem::rename(entry.path(), Kept() / entry.path().filename());
        }
    }
    void TearDown() override { ::unsetenv("TAVO_SCORE_PASSPHRASE"); }

    [[nodiscard]] std::string Path(const std::string& name) const { return directory_ / name; }
    [[nodiscard]] std::filesystem::path Kept() const { return directory_ / "kept"; }
    /// Where the damaged files and what the commands make of them are.
    [[nodiscard]] std::filesystem::path Now() const { return directory_ / "now"; }

    static int RunWords(const Words& words) {
        std::vector<const char*> arguments{"stage"};
        for (const std::string& word : words)
            arguments.push_back(word.c_str());
        return RunStageProgram(static_cast<int>(arguments.size()), arguments.data());
    }
    static void Do(const Words& words, int exitCode = 0) {
        const ForkedResult result = RunForked([&] { return RunWords(words); });
        ASSERT_EQ(exitCode, result.program.exitCode) << words[0] << ": " << result.program.err << result.program.out;
    }

    static std::string MakeScore() {
        std::string measures;
        for (int number = 1; number <= 4; ++number) {
            measures += "<measure number=\"" + std::to_string(number) + "\">\n";
            if (number == 1)
                measures +=
                    "<attributes><divisions>2</divisions><key><fifths>1</fifths></key><time><beats>4</beats>"
                    "<beat-type>4</beat-type></time></attributes>\n"
                    "<direction><direction-type><metronome><beat-unit>quarter</beat-unit><per-minute>480</per-minute>"
                    "</metronome></direction-type><sound tempo=\"480\"/></direction>\n"
                    "<barline location=\"left\"><repeat direction=\"forward\"/></barline>\n";
            measures +=
                "<note><pitch><step>C</step><octave>4</octave></pitch><duration>4</duration><tie type=\"start\"/>"
                "<type>half</type></note>\n"
                "<note><pitch><step>C</step><octave>4</octave></pitch><duration>4</duration><tie type=\"stop\"/>"
                "<type>half</type><notations><fermata/><articulations><breath-mark/></articulations></notations></"
                "note>\n";
            if (number == 2)
                measures +=
                    "<barline location=\"right\"><ending number=\"1\" type=\"stop\"/><repeat direction=\"backward\" "
                    "times=\"2\"/></barline>\n";
            measures += "</measure>\n";
        }
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<score-partwise version=\"4.0\">\n<part-list>\n"
               "<score-part id=\"P1\"><part-name>Violin</part-name></score-part>\n</part-list>\n<part id=\"P1\">\n" +
               measures + "</part>\n</score-partwise>\n";
    }
    void WriteArchive() const {
        const std::string container =
            "<?xml version=\"1.0\"?>\n<container><rootfiles>\n<rootfile "
            "full-path=\"score.xml\"/>\n</rootfiles></container>\n";
        const std::string score = MakeScore();
        kit::ZipWriter archive;
        archive.Add("META-INF/container.xml", container);
        archive.Add("score.xml", score);
        WriteAll(directory_ / "01_Packed.mxl", archive.Finish());
    }
    static std::string MakeEdits() {
        return "add vamp --song 1 --from 2 --to 3\nadd sfx --song 1 --at 1 --sound bell.wav --gain -6\n"
               "add sfx --song 1 --at 2 --sound bell.flac\nadd ambient --song 1 --from 1 --to 4 --sound rain.ogg\n"
               "add osc --song 1 --at 1 --address /dim --arg f:0.2 --target lights\nadd click --song 1 --from 1 --to 2 "
               "--every 1/8\nadd caesura --song 1 --at 5 --text wait\nadd cut --song 2 --from 4 --to 4\nadd "
               "tempo-scale "
               "--song 1 --from 4 --to 5 --percent 85\nadd transposition --song 1 --from start --to end --semitones 2\n"
               "add fermata --song 1 --from 4:3 --to 4:4\nattacca --song 1 attacca\n";
    }
    void WriteSounds() const {
        const std::vector<float> sound = test_support::MakeStaircase(4800);
        test_support::WriteSound(Path("show/bell.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_24, 48000, 1, sound);
        test_support::WriteSound(Path("show/bell.flac"), SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 44100, 2, sound);
        test_support::WriteSound(Path("show/rain.ogg"), SF_FORMAT_OGG | SF_FORMAT_VORBIS, 48000, 1, sound);
    }
    void WriteSettings() const {
        WriteAll(Path("show/settings.json"),
                 R"({"soundfont": "", "outputs": [{"name": "main", "backend": "auto", "device": ""}],
"volumes": {"master": 1.0, "synth": 1.0, "click": 1.0, "effects": 1.0, "ambience": 1.0},
"sounds": [{"name": "bell.wav", "trim": -3.5}], "clickInMain": false, "countIn": 2,
"groups": [{"name": "singers", "parts": ["Soprano*"], "mute": true}, {"name": "keys", "channels": [3], "output": "own"}],
"oscTargets": [{"name": "lights", "host": "127.0.0.1", "port": 9000, "transport": "udp"}],
"osc": {"listen": "off", "passcode": "secret"}, "pressGuardMs": 250, "changeLog": ""})");
        WriteAll(Path("show/midiCommandSettings"),
                 R"({"source": "pedal:out", "showControl": true, "machineControl": true, "deviceNumber": 3,
"commands": [{"command": "Play", "status": 144, "data1": 60}, {"command": "Next Song", "status": 192, "data1": 64}]})");
        WriteAll(Path("show/midiTimeCodeSettings"),
                 R"({"active": true, "frameRate": "30", "output": "receiver:in", "onJump": "runOn"})");
    }
    void WritePages() const {
        std::filesystem::create_directory(Path("pages"));
        WriteAll(Path("pages/page1.svg"), "<svg xmlns=\"http://www.w3.org/2000/svg\"/>");
        std::string png("\x89PNG\r\n\x1A\n\0\0\0\rIHDR", 16);
        png.resize(3000, 'p');
        WriteAll(Path("pages/page2.png"), png);
        stage::PagePackRequest request;
        request.paths = {Path("pages")};
        request.scorePath = Path("show/show.score");
        request.passphrase = Passphrase;
        request.options = {1, 8, 1024, 4};
        stage::PackPages(request);
    }
    // What a passcode's hash costs is no question here.
    void WritePasscodes() const {
        WriteAll(Path("show/webPasscodes"),
                 R"({"secret": ")" + std::string(64, 'a') + R"(", "view": "$argon2id$v=19$m=8,t=1,p=1$)" +
                     R"(c29tZXNhbHRzb21lc2FsdA$MzQ1Njc4OTAxMjM0NTY3ODkwMTIzNDU2Nzg5MDEyMzQ"})");
        std::filesystem::permissions(Path("show/webPasscodes"), std::filesystem::perms(0600));
    }
    /// One that broke off.
    void LeaveTake() const {
        std::filesystem::create_directory(Path("show/takes"));
        const std::string path = Path("show/takes/2026-11-22_19-30-00.take");
        const auto play = [&] {
            return RunWords({"play", Path("show"), "--headless", "--output", "null", "--web", "off", "--osc", "off",
                             "--take", path});
        };
        const ForkedResult result = RunForked(play, "play\ntempo 90%\nexit\nquit\n");
        ASSERT_EQ(0, result.program.exitCode) << result.program.err;
        const std::string take = ReadAll(path);
        WriteAll(path, take.substr(0, take.find(" quit")));
    }
    void LeaveJournal() const {
        const std::string log = stage::ScanShowDirectory(Path("show")).LogPathInUse();
        CL::ChangeLog after = CL::ChangeLog::Load(log);
        CL::EditJournal journal(log);
        for (const std::string text : {"a", "b", "c"}) {
            const CL::ChangeLog before = after;
            after.GetSongLog("2").GetMarkers().Add(CL::Marker(test_support::TickOf(text), text));
            journal.Append(CL::Compare(before, after), after);
        }
    }

    /// What every show goes through.
    static std::vector<Words> ReadAShow() {
        return {{"check", "show"},
                {"info", "show", "--sheet"},
                {"edit", "show", "list"},
                {"log", "show", "list"},
                {"plot", "show", "-o", "-"},
                {"render", "show", "--song", "1..2", "--out", "none", "--trace", "-", "--max-passes", "2",
                 "--max-overtime", "1"},
                {"play", "show", "--headless", "--output", "null", "--web", "off", "--osc", "off"},
                {"edit", "show", "add", "marker", "--song", "1", "--at", "1", "--text", "more"},
                {"log", "show", "diff", "1.0", "1.2"},
                {"log", "show", "recover"},
                {"log", "show", "rollback", "1.0"}};
    }

    [[nodiscard]] static std::vector<FileKind> MakeKinds() {
        using Opens = FileKind::Opens;
        std::vector<Words> all = ReadAShow();
        const auto with = [](std::vector<Words> list, const std::vector<Words>& more) {
            list.insert(list.end(), more.begin(), more.end());
            return list;
        };
        const Words render = all[5];
        const Words play = all[6];
        const std::vector<Words> scores{{"import", "midi", "-o", "made", "--title", "Made"},
                                        {"import", "midi", "--written", "--breaths", "stop", "-o", "written"}};
        const std::vector<Words> packed{{"import", "01_Packed.mxl", "-o", "made", "--title", "Made"}};
        const std::vector<Words> logs = with(all, {{"log", "show", "show", "1.1"}, {"log", "show", "use", "1.1"}});
        const std::vector<Words> sounds{{"check", "show"}, render, play};
        const std::vector<Words> takes{{"take", "list", "show"},
                                       {"take", "show", "show/takes/2026-11-22_19-30-00.take"},
                                       {"render", "show", "--script", "show/takes/2026-11-22_19-30-00.take", "--out",
                                        "none", "--max-passes", "2", "--max-overtime", "1"},
                                       play};
        Words resume = play;
        resume.emplace_back("--resume");
        return {
            {"show/show.showdata",
             Form::Archive,
             all,
             {"show.json", "01_First.mid", "02_Second.mid"},
             Opens::OrSaysWhyNot},
            {"show/show-1.2.logdata", Form::Json, logs, {}, Opens::OrSaysWhyNot},
            {"show/show-1.1.logdata", Form::Json, logs, {}, Opens::Always},
            {"show/show-1.2.logdata.journal",
             Form::Json,
             with(all, {{"log", "show", "forget", "1.2"}}),
             {},
             Opens::Always},
            {"show/settings.json", Form::Json, with(all, {{"log", "show", "use", "1.1"}}), {}, Opens::OrSaysWhyNot},
            {"show/versions.notes", Form::Json, {{"log", "show", "list"}, all[7], all[0]}, {}, Opens::Always},
            {"show/midiCommandSettings", Form::Json, {all[0], play}, {}, Opens::OrSaysWhyNot},
            {"show/midiTimeCodeSettings", Form::Json, {all[0], play}, {}, Opens::OrSaysWhyNot},
            {"show/show.score",
             Form::Bytes,
             {all[0],
              {"score", "list", "show"},
              {"score", "check", "show"},
              {"score", "extract", "show", "2", "-o", "page"}},
             {},
             Opens::Always},
            {"show/scores/2.musicxml", Form::Text, {all[0], all[1]}, {}, Opens::Always},
            {"show/scores/2.measures.json", Form::Json, {all[0], all[1]}, {}, Opens::Always},
            {"show/takes/2026-11-22_19-30-00.take", Form::Text, with(takes, {resume}), {}, Opens::Always},
            {"show/bell.wav", Form::Bytes, sounds, {}, Opens::Always},
            {"show/bell.flac", Form::Bytes, sounds, {}, Opens::Always},
            {"show/rain.ogg", Form::Bytes, sounds, {}, Opens::Always},
            {"show/webPasscodes",
             Form::Json,
             {{"passcode", "show"}, all[0], {"play", "show", "--headless", "--output", "null", "--web", "127.0.0.1:0"}},
             {},
             Opens::Always},
            {"midi/01_First.mid", Form::Bytes, scores},
            {"midi/02_Second.musicxml", Form::Text, scores},
            {"01_Packed.mxl", Form::Archive, packed, {"META-INF/container.xml", "score.xml"}},
            {"songs.txt", Form::Text, {{"compose", "songs.txt", "-o", "composed"}}},
            {"rehearsal.edits",
             Form::Text,
             {{"log", "show", "use", "1.0"}, {"edit", "show", "apply", "rehearsal.edits"}}},
            {"evening.script",
             Form::Text,
             {{"render", "show", "--song", "1", "--script", "evening.script", "--out", "none", "--max-passes", "2",
               "--max-overtime", "1"}}},
        };
    }

    /// The page's thread, which answers what a client asks.
    static int AskPage() {
        const stage::ShowDirectory directory = stage::ScanShowDirectory("show");
        const tavo_midi::ShowData show(directory.ShowDataPath());
        stage::ShowAnswers answers(show, "show", false, stage::Settings());
        const std::string log = directory.LogPathInUse();
        answers.SetLog(std::make_shared<const CL::ChangeLog>(CL::ChangeLog::Load(log)), log.substr(log.rfind('/') + 1));
        for (const char* address :
             {"/api/show", "/api/song/1", "/api/song/2", "/api/song/2/score.musicxml", "/api/versions", "/api/settings",
              "/api/song/1/picture.svg", "/api/versions/1.0/to/now"}) {
            stage::WebRequest request;
            request.target = stage::ParseTarget(address);
            const stage::WebAnswer answer = answers.Answer(request);
            std::cout << address << ' ' << answer.status << '\n';
        }
        return 0;
    }

    /// Somebody opens the show, edits it and looks at every song.
    static int OpenSession() {
        stage::ShowSession::Options options;
        options.hasRunningFeed = false;
        options.sendsTimeCode = false;
        options.scorePassphrase = Passphrase;
        options.holdWait = std::chrono::milliseconds(0);
        stage::ShowSession session("show", "show", options);
        const auto attempt = [](const auto& work) {
            try {
                work();
            } catch (const std::exception& problem) {
                std::cout << "refused: " << problem.what() << '\n';
            }
        };
        for (const std::string& warning : session.GetWarnings())
            std::cout << warning << '\n';
        attempt([&] { session.RecoverEdits(); });
        attempt([&] { session.AddEdit("1", CL::Marker(0, "more")); });
        attempt([&] { session.Undo(); });
        attempt([&] { session.Redo(); });
        attempt([&] { session.Save(false); });
        for (const std::string& number : session.GetShow().GetSongNumbers())
            attempt([&] { session.LoadSong(number); });
        attempt([&] {
            std::string first(1000, '\0');
            session.GetScoreTar()->read(first.data(), 1000);
        });
        attempt([&] { session.UseVersion("1.0"); });
        return 0;
    }

    void Judge(const std::string& what, const ForkedResult& result, bool mayFail) {
        const test_support::ProgramResult& program = result.program;
        static const std::regex library(
            "basic_string|vector::|std::|map::at|sto(i|ul|d)|json\\.exception|filesystem error|bad_|optional|"
            "runtime error:|AddressSanitizer|ThreadSanitizer");
        const std::string all = program.out.substr(0, 100000) + program.err.substr(0, 100000);
        EXPECT_LE(program.exitCode, 2) << what << ": " << program.err;
        EXPECT_TRUE(mayFail || program.exitCode == 0) << what << ": " << program.err;
        EXPECT_FALSE(std::regex_search(all, library)) << what << ": " << all;
        // A check says it in its output.
        const std::string last = program.err.substr(program.err.rfind('\n', program.err.size() - 2) + 1);
        const bool says = last.starts_with("stage: ") && last.size() > 10 && last.size() < 1000;
        EXPECT_TRUE(program.exitCode == 0 || says || !program.out.empty())
            << what << " does not say why: " << program.err;
        EXPECT_EQ(std::string::npos, program.err.find('\x1B')) << what << " lets a file speak to the terminal";
        EXPECT_GT(5, result.cpuSeconds) << what;
        computing_ = std::max(computing_, result.cpuSeconds);
        longest_ = std::max(longest_, std::pair(result.seconds, what));
        largest_ = std::max(largest_, std::pair(program.peakMegabytes, what));
        ++runs_;
        refused_ += program.exitCode == 0 ? 0 : 1;
    }

    /// Lays a fresh copy of everything out, with `kind` mutated.
    void LayOut(const FileKind& kind, Mutator& mutator) const {
        std::filesystem::remove_all(Now());
        std::filesystem::copy(Kept(), Now(), std::filesystem::copy_options::recursive);
        const std::string path = (Now() / kind.path).string();
        // A journal is a problem by itself.
        if (kind.path.find(".journal") == std::string::npos)
            std::filesystem::remove(Now() / "show/show-1.2.logdata.journal");
        const std::string whole = ReadAll(path);
        ASSERT_FALSE(whole.empty()) << kind.path;
        WriteAll(path, mutator.Mutate(whole, kind.form, kind.members));
    }

    void Try(const FileKind& kind, int number, Mutator& mutator) {
        LayOut(kind, mutator);
        if (const char* const keep = std::getenv("TAVO_KEEP_MUTATED"))
            std::filesystem::copy(Now(), keep, std::filesystem::copy_options::recursive);
        const std::string name = "file " + std::to_string(number) + ", " + kind.path;
        const std::filesystem::path before = std::filesystem::current_path();
        std::filesystem::current_path(Now());
        bool isOpen = true;
        if (kind.opens != FileKind::Opens::NotAsked) {
            const bool mayFail = kind.opens == FileKind::Opens::OrSaysWhyNot;
            // The commands are to meet the show as it is, not as a session leaves it.
            std::filesystem::copy("show", "again", std::filesystem::copy_options::recursive);
            const ForkedResult session = RunForked(OpenSession);
            Judge(name + ", session", session, mayFail);
            isOpen = session.program.exitCode == 0;
            std::filesystem::remove_all("show");
            std::filesystem::rename("again", "show");
            Judge(name + ", page", RunForked(AskPage), mayFail || kind.path.find("scores/") != std::string::npos);
        }
        for (const Words& words : kind.commands) {
            const ForkedResult result = RunForked([&] { return RunWords(words); }, "play\nexit\nquit\n");
            Judge(name + ", stage " + words[0] + ' ' + (words.size() > 2 ? words[2] : ""), result, true);
            EXPECT_TRUE(words[0] != "check" || isOpen || result.program.exitCode == 1)
                << name << ": the show does not open, and its check does not know why";
        }
        std::filesystem::current_path(before);
    }

    test_support::TemporaryDirectory directory_;
    std::pair<double, std::string> longest_;
    std::pair<long, std::string> largest_;
    double computing_ = 0;
    int runs_ = 0;
    int refused_ = 0;
};

TEST_F(MutatedFiles, OfEveryKind_TheShowOpensOrOneSentenceSaysWhyNot) {
    const std::vector<FileKind> kinds = MakeKinds();
    const int count = test_support::CountRounds("TAVO_MUTATED_FILES", static_cast<int>(kinds.size()));
    const int first = test_support::CountRounds("TAVO_FIRST_MUTATED_FILE", 0);
    for (int number = first; number < first + count; ++number) {
        Mutator mutator(static_cast<unsigned int>(number));
        Try(kinds[static_cast<std::size_t>(number) % kinds.size()], number, mutator);
    }
    std::cout << count << " files, " << runs_ << " runs, " << refused_ << " refused; the longest took "
              << longest_.first << " s: " << longest_.second << "; the largest " << largest_.first
              << " MB: " << largest_.second << '\n';
}

}  // namespace
