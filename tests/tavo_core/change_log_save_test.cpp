#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "change_log_samples.h"
#include "kit/file.h"
#include "kit/path.h"
#include "tests/support/temporary_directory.h"

using CL::ChangeLog;
using test_support::TemporaryDirectory;

namespace {

ChangeLog MakeLogIn(const TemporaryDirectory& directory, const std::string& show) {
    ChangeLog log;
    log.SetShowName(show);
    log.SetDirectory(directory.Path());
    return log;
}

/// One edit of any kind, its values at, within or beyond what a file can hold.
void AddAtALimit(CL::SongLog& songLog, std::mt19937& random) {
    constexpr float NoNumber = std::numeric_limits<float>::quiet_NaN();
    constexpr float Endless = std::numeric_limits<float>::infinity();
    constexpr int Wholes[] = {-25, -24, -1, 0, 1, 24, 25, 128, 129, 9999, 10000};
    constexpr float Fractions[] = {-60.1F, -60, -0.0F, 0, 1e-45F, 1, 12, 12.1F, 100, 100.1F, NoNumber, Endless};
    const std::string texts[] = {"",
                                 "/a",
                                 "/a\"\\\n",
                                 "\xC3\xA9",
                                 "\xFF",
                                 "/\xED\xA0\x80",
                                 "/\x7F",
                                 "/\x01",
                                 std::string(4096, '/'),
                                 std::string(4097, '/')};
    const int whole = Wholes[random() % std::size(Wholes)];
    const float fraction = Fractions[random() % std::size(Fractions)];
    const std::string& text = texts[random() % std::size(texts)];
    const std::vector<CL::OscArgument> argument{fraction};
    switch (random() % 12) {
        case 0:
            songLog.GetVamps().Add(CL::Vamp(0, 1, whole));
            break;
        case 1:
            songLog.GetRepeats().Add(CL::Repeat(0, 1, whole));
            break;
        case 2:
            songLog.GetTranspositions().Add(CL::Transposition(0, 1, whole));
            break;
        case 3:
            songLog.GetClicks().Add(CL::Click(0, 1, whole));
            break;
        case 4:
            songLog.GetTempoScales().Add(CL::TempoScale(0, 1, fraction));
            break;
        case 5:
            songLog.GetSfxs().Add(CL::Sfx(0, 1, text, fraction));
            break;
        case 6:
            songLog.GetSfxAmbients().Add(CL::SfxAmbient(0, 1, "rain.wav", fraction));
            break;
        case 7:
            songLog.GetMarkers().Add(CL::Marker(~0U, text));
            break;
        case 8:
            songLog.GetCaesuras().Add(CL::Caesura(0, text, ~0U));
            break;
        case 9:
            songLog.GetOscs().Add(CL::Osc(0, text, "/go", argument));
            break;
        case 10:
            songLog.GetOscs().Add(CL::Osc(0, "desk", text, {text, whole}));
            break;
        default:
            songLog.GetOscs().Add(CL::Osc(0, "", "/go", std::vector<CL::OscArgument>(255 + random() % 3, 1)));
    }
}

}  // namespace

TEST(ChangeLogSave, WithoutAPath_WritesNameAndVersionInItsDirectoryAndLoads) {
    const TemporaryDirectory directory;
    ChangeLog log = change_log_samples::MakeOneOfEachKind();
    log.SetDirectory(directory.Path());
    EXPECT_EQ(directory / "The Lantern-1.3.logdata", log.Save(""));
    ChangeLog loaded = ChangeLog::Load(directory / "The Lantern-1.3.logdata");
    EXPECT_EQ(log.AsText(), loaded.AsText());
    loaded.GetVersion().minor_number++;
    EXPECT_EQ(directory / "The Lantern-1.4.logdata", loaded.Save("")) << "beside the file that it came from";
}

TEST(ChangeLogSave, ShowNames_GiveFileNamesWhoseVersionStandsAfterTheLastDash) {
    struct Row {
        std::string show;
        std::string file;
    };
    const Row rows[] = {{"a", "a-1.0.logdata"},
                        {"Act-II-b", "Act-II-b-1.0.logdata"},
                        {"v1.5", "v1.5-1.0.logdata"},
                        {"", "show-1.0.logdata"},
                        {"../x/y", "_._x_y-1.0.logdata"},
                        {"Who? \"Me\": <a|b*c\\d>\n\x7f", "Who_ _Me__ _a_b_c_d___-1.0.logdata"},
                        {"Été 🎭", "Été 🎭-1.0.logdata"},
                        {std::string(199, 'x') + "é" + "yz", std::string(199, 'x') + "-1.0.logdata"},
                        {std::string(400, 'x'), std::string(200, 'x') + "-1.0.logdata"}};
    for (const Row& row : rows) {
        const TemporaryDirectory directory;
        ChangeLog log = MakeLogIn(directory, row.show);
        EXPECT_EQ(directory / row.file, log.Save(""));
        EXPECT_EQ(row.show, ChangeLog::Load(directory / row.file).GetShowName());
        const std::string base = kit::path::basename_no_ext(row.file);
        EXPECT_EQ("1.0", base.substr(base.rfind('-') + 1));
    }
}

TEST(ChangeLogSave, ExistingFile_IsNeverOverwritten) {
    const TemporaryDirectory directory;
    ChangeLog log = MakeLogIn(directory, "a");
    const std::string path = log.Save("");
    const std::string text = log.AsText();
    log.GetSongLogs()["1"];
    EXPECT_THROW(log.Save(path), kit::FileExistsError);
    EXPECT_EQ(text, kit::ReadFile(path, 1 << 20));
    EXPECT_EQ(1U, kit::listdir(directory.Path()).size()) << "nothing else is left behind";
}

namespace {

/// The file that a scan of the directory takes for the version.
std::string ScanFor(const std::string& directory, const std::string& versionText) {
    cmn::TAVOVersion version;
    version.SetWithString(versionText);
    std::string taken;
    for (const std::string& name : kit::listdir(directory)) {
        if (kit::path::extension(name) != ".logdata") continue;
        cmn::TAVOVersion found;
        found.SetWithFileName(name);
        if (found == version) taken = name;
    }
    return taken;
}

}  // namespace

TEST(ChangeLogSave, VersionThatIsThere_GetsANameThatTheScanTakes) {
    struct Row {
        const char* existing;
        const char* chosen;
    };
    const Row rows[] = {{"a-1.0.logdata", "a-copy002-1.0.logdata"},
                        {"a-copy002-1.0.logdata", "a-copy003-1.0.logdata"},
                        {"a-copy009-1.0.logdata", "a-copy010-1.0.logdata"},
                        {"a-copy999-1.0.logdata", "a-copy999-copy002-1.0.logdata"},
                        {"a-copy7-1.0.logdata", "a-copy7-copy002-1.0.logdata"},
                        {"1.0.logdata", "a-1.0.logdata"},
                        {"A-1.0.logdata", "a-1.0.logdata"},
                        {"a-01.0.logdata", "a-1.0.logdata"},
                        {"zebra-1.0.logdata", "zebra-copy002-1.0.logdata"},
                        {"zebra-01.00.logdata", "zebra-copy002-1.0.logdata"},
                        {"a-1.1.logdata", "a-1.0.logdata"},
                        {"a-1.0.LOGDATA", "a-1.0.logdata"}};
    for (const Row& row : rows) {
        const TemporaryDirectory directory;
        std::ofstream(directory / row.existing).put('x');
        ChangeLog log = MakeLogIn(directory, "a");
        EXPECT_EQ(directory / row.chosen, log.Save("")) << row.existing;
        EXPECT_EQ(row.chosen, ScanFor(directory.Path(), "1.0")) << row.existing;
    }
}

TEST(ChangeLogSave, OneVersionAgainAndAgain_TheLastOneIsTaken) {
    const TemporaryDirectory directory;
    ChangeLog log = MakeLogIn(directory, "a");
    for (int round = 0; round < 30; ++round) {
        log.GetSongLogs()[std::to_string(round)];
        const std::string path = log.Save("");
        ASSERT_EQ(kit::path::basename(path), ScanFor(directory.Path(), "1.0"));
        ASSERT_EQ(log.AsText(), ChangeLog::Load(path).AsText());
    }
    EXPECT_EQ(30U, kit::listdir(directory.Path()).size());
}

TEST(ChangeLogSave, NoNameBehindTheOthers_IsRefusedAndNothingWritten) {
    const TemporaryDirectory directory;
    std::ofstream(directory / (std::string(243, 'z') + "-1.0.logdata")).put('x');
    ChangeLog log = MakeLogIn(directory, "a");
    EXPECT_THROW(log.Save(""), std::runtime_error);
    EXPECT_EQ(1U, kit::listdir(directory.Path()).size());
}

TEST(ChangeLogSave, WhatCouldNotBeReadBack_IsRefusedAndNothingWritten) {
    const TemporaryDirectory directory;
    ChangeLog log = MakeLogIn(directory, "a");
    log.GetSongLogs()["3"].GetMarkers().Add(CL::Marker(0, "\xFF"));
    EXPECT_THROW(log.Save(""), std::runtime_error);
    log.GetSongLogs()["3"] = CL::SongLog();
    log.GetSongLogs()["3"].GetSfxs().Add(CL::Sfx(0, 1, "", std::numeric_limits<float>::quiet_NaN()));
    EXPECT_THROW(log.Save(""), std::runtime_error);
    log.GetSongLogs()["3"] = CL::SongLog();
    log.GetSongLogs()["3"].GetRepeats().Add(CL::Repeat(0, 1, 10000));
    try {
        log.Save("");
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(directory / "a-1.0.logdata" +
                      ", line 6, song \"3\", edit 1: \"count\" must be a whole number from 0 to 9999",
                  error.what());
    }
    EXPECT_TRUE(kit::listdir(directory.Path()).empty());
}

TEST(ChangeLogSave, AnyValues_AreSavedExactlyWhenTheyCanBeReadBack) {
    std::mt19937 random(23);
    int saved = 0;
    constexpr int Rounds = 1000;
    for (int round = 0; round < Rounds; ++round) {
        const TemporaryDirectory directory;
        ChangeLog log = MakeLogIn(directory, "a");
        if (random() % 20 == 0) log.SetShowName(std::string(4096 + random() % 2, 's'));
        CL::SongLog& songLog = log.GetSongLogs()[random() % 20 == 0 ? "" : "3"];
        if (random() % 20 == 0) songLog.SetAttacca(static_cast<unsigned char>(2 + random() % 2));
        AddAtALimit(songLog, random);
        AddAtALimit(songLog, random);
        std::string refusal;
        try {
            static_cast<void>(ChangeLog::Parse(log.AsText(), directory / "a-1.0.logdata"));
        } catch (const std::runtime_error& error) {
            refusal = error.what();
        }
        try {
            EXPECT_EQ(log.AsText(), ChangeLog::Load(log.Save(directory / "a-1.0.logdata")).AsText());
            ASSERT_EQ("", refusal) << log.AsText();
            ++saved;
        } catch (const std::runtime_error& error) {
            ASSERT_EQ(refusal, error.what()) << log.AsText();
        }
    }
    EXPECT_GT(saved, Rounds / 5);
    EXPECT_LT(saved, Rounds * 4 / 5);
}

TEST(ChangeLogSave, WithoutADirectoryOrInAMissingOne_IsRefused) {
    const TemporaryDirectory directory;
    ChangeLog log;
    EXPECT_THROW(log.Save(""), std::runtime_error);
    log.SetDirectory(directory / "missing");
    EXPECT_THROW(log.Save(""), std::runtime_error);
}

TEST(ChangeLogLoad, WhatIsNoReadableFile_IsRefusedByName) {
    const TemporaryDirectory directory;
    for (const std::string& path : {directory / "missing.logdata", directory.Path()}) {
        try {
            static_cast<void>(ChangeLog::Load(path));
            FAIL() << path;
        } catch (const std::runtime_error& error) {
            EXPECT_NE(std::string::npos, std::string(error.what()).find(path)) << error.what();
        }
    }
}

TEST(ChangeLogLoad, FileAbove64Megabytes_IsRefused) {
    const TemporaryDirectory directory;
    const std::string path = directory / "big-1.0.logdata";
    std::ofstream(path).put('{');
    std::filesystem::resize_file(path, (64U << 20U) + 1);
    EXPECT_THROW(static_cast<void>(ChangeLog::Load(path)), std::runtime_error);
}
