#include "stage/pages/page_package.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <sstream>

#include "stage/pages/page_entries.h"
#include "stage/pages/page_packer.h"
#include "stage/pages/page_tar.h"
#include "tavo_midi/show_file.h"
#include "tests/stage/small_show.h"

namespace {

using stage::PagePackage;
using stage::PageType;
using stage::ScorePage;
using test_support::ReadAll;
using test_support::WriteAll;
using testing::ElementsAre;
using testing::HasSubstr;

const std::string Passphrase = "open sesame";
constexpr tavo_sec::CipherOptions CheapKey{1, 8, 1024, 4};

/// The beginning of an image, and as many bytes more as make it so long.
std::string MakePng(std::size_t bytes, char fill = 'p') {
    std::string png("\x89PNG\r\n\x1A\n\0\0\0\rIHDR", 16);
    png.resize(bytes, fill);
    return png;
}

const std::string Svg = "<?xml version=\"1.0\"?>\n<svg xmlns=\"http://www.w3.org/2000/svg\"/>";

std::string GetMessage(const std::function<void()>& call) {
    try {
        call();
    } catch (const std::exception& problem) {
        return problem.what();
    }
    return "";
}

TEST(ScoreTar, AHeader_IsWhatTheStandardSays) {
    const std::string block = stage::tar::MakeHeader({"pages/1.png", 1000});
    ASSERT_EQ(512U, block.size());
    EXPECT_EQ(std::string("pages/1.png\0", 12), block.substr(0, 12));
    EXPECT_EQ(std::string("0000644\0", 8), block.substr(100, 8));
    EXPECT_EQ(std::string("00000001750\0", 12), block.substr(124, 12));
    EXPECT_EQ(std::string("ustar\00000", 8), block.substr(257, 8));
    EXPECT_EQ((stage::tar::Entry{"pages/1.png", 1000}), stage::tar::ParseHeader(block, "here"));
}

TEST(ScoreTar, EveryByteFlipped_IsNoticed) {
    const stage::tar::Entry entry{"pages/1.png", 1000};
    const std::string block = stage::tar::MakeHeader(entry);
    for (std::size_t place = 0; place < block.size(); ++place) {
        std::string flipped = block;
        flipped[place] = static_cast<char>(flipped[place] ^ 2);
        // The blank that ends the checksum carries nothing.
        EXPECT_EQ(place != 155,
                  GetMessage([&] { static_cast<void>(stage::tar::ParseHeader(flipped, "here")); }).starts_with("here "))
            << place;
    }
}

TEST(ScorePages, AreToldByHowTheyBegin) {
    const auto type = [](const std::string& bytes) {
        return GetMessage([&] { static_cast<void>(stage::FindPageType(bytes, "here")); });
    };
    EXPECT_EQ(PageType::Png, stage::FindPageType(MakePng(100), ""));
    for (const char* text : {"<svg>", "<svg/>", "  <svg a='b'>", "<svg:svg xmlns:svg=''>", "\xEF\xBB\xBF<svg>",
                             "<?xml version='1.0'?><!-- <x> -->\n<!DOCTYPE svg PUBLIC 'a' 'b'><svg>",
                             "<!DOCTYPE svg [<!ENTITY a 'b'>]>\n<svg>"})
        EXPECT_EQ(PageType::Svg, stage::FindPageType(text, "")) << text;
    for (const char* text : {"", "<svg", "<svgs>", "<html><svg>", "<?xml", "<!--<svg>", "\x89PNG\r\n\x1A\n", "GIF89a"})
        EXPECT_EQ("here is neither a PNG nor an SVG image", type(text)) << text;
}

TEST(ScoreIndex, WhatIsWritten_IsReadBack) {
    const std::vector<ScorePage> pages{
        {0, PageType::Svg, 1}, {12, PageType::Png, stage::MaxPageBytes}, {4294967295U, PageType::Png, 7}};
    EXPECT_EQ(pages, stage::ParsePageIndex(stage::MakePageIndex(pages), "here"));
    EXPECT_TRUE(stage::ParsePageIndex(stage::MakePageIndex({}), "here").empty());
}

TEST(ScoreIndex, BadTexts_AreRefusedWithTheirPlace) {
    const std::string start = "{\"format\":\"tavo score\",\"version\":1,\"pages\":[";
    const std::string one = "{\"page\":1,\"file\":\"pages/1.png\",\"type\":\"image/png\",\"bytes\":9}";
    const std::map<std::string, std::string> rows{
        {"", "here, line 1: the text is not JSON"},
        {"[]", "here: the outermost value must be an object, not a list"},
        {"{}", "here: format is missing"},
        {"{\"format\":\"x\"}", "here: format must be \"tavo score\", not \"x\""},
        {"[1e999]", "here, line 1: the number 1e999 is too large"},
        {std::string(100, '['), "here: the text is nested deeper than 16 levels"},
        {"{\"format\":\"tavo score\",\"version\":2,\"pages\":[]}", "here: version is 2, but only 1 can be read"},
        {"{\"format\":\"tavo score\",\"version\":1,\"pages\":1}", "here: pages must be a list, not 1"},
        {start + "1]}", "here: pages[0] must be an object, not 1"},
        {start + one + "," + one + "]}", "here: pages[1] is page 1, which must not come after page 1"},
        {start + "{\"page\":-1}]}", "here: pages[0].page must be a whole number from 0 to 4294967295, not -1"},
        {start + "{\"page\":1,\"type\":\"image/gif\"}]}",
         "here: pages[0].type must be one of \"image/png\", \"image/svg+xml\", not \"image/gif\""},
        {start + "{\"page\":1,\"type\":\"image/png\",\"bytes\":33554433}]}",
         "here: pages[0].bytes must be a whole number from 0 to 33554432, not 33554433"},
        {start + "{\"page\":1,\"type\":\"image/png\",\"bytes\":1,\"file\":\"../1.png\"}]}",
         "here: pages[0].file must be \"pages/1.png\", not \"../1.png\""},
        {start + "],\"more\":1}", "here: more is not a known key"},
    };
    for (const auto& [text, problem] : rows)
        EXPECT_EQ(problem, GetMessage([&] { static_cast<void>(stage::ParsePageIndex(text, "here")); })) << text;
}

class ScoreFile : public testing::Test {
protected:
    std::string Page(const std::string& name, const std::string& bytes) const {
        WriteAll(directory_ / name, bytes);
        return directory_ / name;
    }
    std::vector<ScorePage> Pack(const std::vector<std::string>& paths,
                                std::optional<std::uint32_t> first = std::nullopt) const {
        stage::PagePackRequest request;
        request.paths = paths;
        request.firstNumber = first;
        request.scorePath = Score();
        request.existing = kit::ExistingFile::Replace;
        request.passphrase = Passphrase;
        request.options = CheapKey;
        return stage::PackPages(request);
    }
    [[nodiscard]] std::string Score() const { return directory_ / "a.score"; }
    [[nodiscard]] std::string Archive() const {
        std::ostringstream text;
        text << stage::OpenPages(Score(), Passphrase)->rdbuf();
        return text.str();
    }
    /// The archive as a package that has no cipher around it.
    static std::unique_ptr<PagePackage> Unpack(const std::string& archive) {
        return std::make_unique<PagePackage>(std::make_unique<std::istringstream>(archive), "a.score");
    }

    test_support::TemporaryDirectory directory_;
};

TEST_F(ScoreFile, PagesAreReadByNumberInAnyOrder) {
    const std::string first = Page("p-2.png", MakePng(5000));
    const std::string second = Page("p-10.svg", Svg);
    EXPECT_THAT(Pack({second, first}),
                ElementsAre(ScorePage{2, PageType::Png, 5000}, ScorePage{10, PageType::Svg, Svg.size()}));
    PagePackage score(Score(), Passphrase);
    EXPECT_EQ(Svg, score.ReadPage(10));
    EXPECT_EQ(MakePng(5000), score.ReadPage(2));
    EXPECT_EQ(Svg, score.ReadPage(10));
    EXPECT_EQ("the file \"" + Score() + "\" has no page 3", GetMessage([&] { static_cast<void>(score.ReadPage(3)); }));
    EXPECT_NO_THROW(score.CheckAll([](std::size_t) {}));
}

TEST_F(ScoreFile, TheArchive_IsReadByTheSystemsTar) {
    Pack({Page("1.png", MakePng(700)), Page("2.svg", Svg)});
    WriteAll(directory_ / "a.tar", Archive());
    const auto tar = test_support::RunProgram({"/bin/tar", "-C", directory_.Path(), "-xf", directory_ / "a.tar"});
    ASSERT_EQ(0, tar.exitCode) << tar.err;
    EXPECT_EQ(MakePng(700), ReadAll(directory_ / "pages/1.png"));
    EXPECT_EQ(Svg, ReadAll(directory_ / "pages/2.svg"));
    EXPECT_THAT(ReadAll(directory_ / "index.json"), HasSubstr("{\"page\":2,\"file\":\"pages/2.svg\""));
}

TEST_F(ScoreFile, ADamagedPage_LeavesTheOthersReadable) {
    Pack({Page("1.png", MakePng(20'000)), Page("2.png", MakePng(20'000)), Page("3.png", MakePng(20'000))});
    std::string bytes = ReadAll(Score());
    bytes[bytes.size() / 2] = static_cast<char>(bytes[bytes.size() / 2] ^ 1);
    WriteAll(Score(), bytes);
    PagePackage score(Score(), Passphrase);
    EXPECT_THAT(GetMessage([&] { static_cast<void>(score.ReadPage(2)); }), HasSubstr(" is damaged in chunk "));
    EXPECT_EQ(MakePng(20'000), score.ReadPage(3));
    EXPECT_EQ(MakePng(20'000), score.ReadPage(1));
    EXPECT_THAT(GetMessage([&] { score.CheckAll([](std::size_t) {}); }), HasSubstr(" is damaged in chunk "));
}

TEST_F(ScoreFile, AnArchiveCutOffAtEveryLength_IsRefusedInOneSentence) {
    Pack({Page("1.png", MakePng(600)), Page("2.svg", Svg)});
    const std::string archive = Archive();
    for (std::size_t length = 0; length < archive.size(); length += 13) {
        const std::string problem =
            GetMessage([&] { Unpack(archive.substr(0, length))->CheckAll([](std::size_t) {}); });
        EXPECT_THAT(problem, HasSubstr("of the file \"a.score\" is cut off")) << length;
    }
}

TEST_F(ScoreFile, AnArchiveThatDiffersFromItsIndex_IsRefused) {
    Pack({Page("1.png", MakePng(600))});
    const std::string archive = Archive();
    const auto spoil = [&](std::size_t at, const std::string& bytes) {
        std::string spoilt = archive;
        spoilt.replace(at, bytes.size(), bytes);
        return GetMessage([&] { Unpack(spoilt)->CheckAll([](std::size_t) {}); });
    };
    EXPECT_EQ("the index of the file \"a.score\" is missing", spoil(0, stage::tar::MakeHeader({"b", 10})));
    EXPECT_EQ("the index of the file \"a.score\" is longer than the 1048576 bytes allowed",
              spoil(0, stage::tar::MakeHeader({stage::PageIndexName, 077777777777})));
    EXPECT_EQ("page 1 of the file \"a.score\" is not what the index says",
              spoil(1024, stage::tar::MakeHeader({"pages/1.png", 601})));
    EXPECT_EQ("page 1 of the file \"a.score\" has no ustar header", spoil(1024, std::string(512, '\0')));
    EXPECT_EQ("page 1 of the file \"a.score\" is an image of another type than the index says", spoil(1536, Svg));
    EXPECT_EQ("the end of the file \"a.score\" holds something that is not in the index",
              spoil(archive.size() - 1024, "x"));
    EXPECT_EQ("the end of the file \"a.score\" has bytes after it", spoil(archive.size(), "x"));
}

TEST_F(ScoreFile, PagesOfAFolder_AreNumberedAsPeopleCount) {
    std::filesystem::create_directory(directory_ / "pages");
    for (const char* name : {"pages/s9.png", "pages/s10.PNG", "pages/notes.txt"})
        Page(name, MakePng(100));
    EXPECT_THAT(Pack({directory_ / "pages"}),
                ElementsAre(ScorePage{9, PageType::Png, 100}, ScorePage{10, PageType::Png, 100}));
    EXPECT_THAT(Pack({directory_ / "pages"}, 1),
                ElementsAre(ScorePage{1, PageType::Png, 100}, ScorePage{2, PageType::Png, 100}));
}

TEST_F(ScoreFile, WhatCannotBePacked_IsNamedAndNothingIsWritten) {
    const std::string noNumber = Page("cover.png", MakePng(100));
    const std::string one = Page("v2-page-001.png", MakePng(100));
    const std::string alsoOne = Page("1.svg", Svg);
    const std::string text = Page("3.png", "no image");
    const std::string huge = Page("99999999999.png", MakePng(100));
    const auto refusal = [&](const std::vector<std::string>& paths) { return GetMessage([&] { Pack(paths); }); };
    EXPECT_EQ("the file \"" + noNumber + "\" has no page number in its name", refusal({noNumber}));
    EXPECT_EQ("the files \"" + one + "\" and \"" + alsoOne + "\" have one page number, 1", refusal({one, alsoOne}));
    EXPECT_EQ("the file \"" + text + "\" is neither a PNG nor an SVG image", refusal({text}));
    EXPECT_EQ("the page number in the name of the file \"" + huge + "\" is too large", refusal({huge}));
    EXPECT_THAT(refusal({directory_ / "4.png"}), HasSubstr("does not exist"));
    EXPECT_EQ("there are no pages to pack", refusal({}));
    EXPECT_FALSE(std::filesystem::exists(Score()));
}

/// The small show, whose first song turns to pages 1, 2 and 4.
class StageScore : public test_support::SmallShow {
protected:
    StageScore() {
        ::setenv("TAVO_SCORE_PASSPHRASE", Passphrase.c_str(), 1);
        std::filesystem::remove(Show() + "/show.showdata");
        tavo_midi::ShowSong song{{}, "1.mid", test_support::MakeSmf("First", 20)};
        song.options.number = "1";
        song.options.pages = {{0, 1}, {7680, 2}, {9600, 4}};
        tavo_midi::WriteShowData(Show() + "/show.showdata", "Evening", {song}, tavo_midi::ExistingShow::Keep);
        for (const char* name : {"p1.png", "p2.png", "p3.png"})
            WriteAll(directory_ / name, MakePng(3000, name[1]));
    }
    ~StageScore() override { ::unsetenv("TAVO_SCORE_PASSPHRASE"); }

    [[nodiscard]] test_support::ProgramResult Run(const std::string& operation,
                                                  const std::vector<std::string>& more = {}) const {
        std::vector<std::string> words{"score", operation, Show()};
        words.insert(words.end(), more.begin(), more.end());
        return test_support::RunStage(words);
    }
    [[nodiscard]] test_support::ProgramResult PackThree() const {
        return Run("pack", {directory_ / "p1.png", directory_ / "p2.png", directory_ / "p3.png"});
    }
};

TEST_F(StageScore, PackListExtractCheck_GoTogether) {
    const auto pack = PackThree();
    const std::string notes =
        "note: the songs turn to page 4, which the score does not have\nnote: no song turns to page 3\n";
    EXPECT_EQ("packed 3 pages as " + Show() + "/show.score\n", pack.out);
    EXPECT_EQ(notes, pack.err);
    const auto list = Run("list");
    EXPECT_EQ(
        "page  type       bytes  turned to\n"
        "   1  image/png   3000  song 1 at 1\n"
        "   2  image/png   3000  song 1 at 5\n"
        "   3  image/png   3000\n",
        list.out);
    EXPECT_EQ(notes, list.err);
    EXPECT_EQ("all 3 pages are whole\n", Run("check").out);
    EXPECT_EQ(0, Run("extract", {"2", "-o", directory_ / "out.png"}).exitCode);
    EXPECT_EQ(MakePng(3000, '2'), ReadAll(directory_ / "out.png"));
    EXPECT_EQ("stage: the file \"" + Show() + "/show.score\" has no page 7\n",
              Run("extract", {"7", "-o", directory_ / "out7.png"}).err);
}

TEST_F(StageScore, PageWithManyTurns_IsCutToTheTerminal_UnlessTheTableIsWide) {
    std::filesystem::remove(Show() + "/show.showdata");
    tavo_midi::ShowSong song{{}, "1.mid", test_support::MakeSmf("First", 20)};
    song.options.number = "1";
    for (unsigned int bar = 0; bar < 20; ++bar)
        song.options.pages.emplace_back(bar * 1920, 1);
    tavo_midi::WriteShowData(Show() + "/show.showdata", "Evening", {song}, tavo_midi::ExistingShow::Keep);
    ASSERT_EQ(0, Run("pack", {directory_ / "p1.png"}).exitCode);
    const std::string narrow = Run("list").out;
    const std::string line = narrow.substr(narrow.find('\n') + 1);
    EXPECT_EQ("   1  image/png   3000  song 1 at 1, song 1 at 2, song 1 at 3, song 1 at 4, son…\n", line);
    EXPECT_THAT(Run("list", {"--wide"}).out, HasSubstr("song 1 at 19, song 1 at 20\n"));
}

TEST_F(StageScore, AScoreThatIsThere_IsReplacedOnlyWhenAsked) {
    ASSERT_EQ(0, PackThree().exitCode);
    EXPECT_EQ("stage: the file \"" + Show() + "/show.score\" exists already and is not overwritten\n", PackThree().err);
    EXPECT_EQ(0, Run("pack", {directory_ / "p1.png", "--replace"}).exitCode);
    EXPECT_EQ("all 1 pages are whole\n", Run("check").out);
}

TEST_F(StageScore, Passphrases_ComeFromFileOrEnvironment) {
    ASSERT_EQ(0, PackThree().exitCode);
    ::unsetenv("TAVO_SCORE_PASSPHRASE");
    EXPECT_EQ("stage: the score's passphrase is missing: give --passphrase-file FILE or set TAVO_SCORE_PASSPHRASE\n",
              Run("list").err);
    WriteAll(directory_ / "secret", Passphrase + "\r\n");
    EXPECT_EQ(0, Run("list", {"--passphrase-file", directory_ / "secret"}).exitCode);
    WriteAll(directory_ / "secret", "wrong");
    EXPECT_EQ("stage: the passphrase is not the one of the file \"" + Show() + "/show.score\"\n",
              Run("list", {"--passphrase-file", directory_ / "secret"}).err);
    WriteAll(directory_ / "secret", "\n");
    EXPECT_EQ("stage: the score's passphrase is empty\n",
              Run("list", {"--passphrase-file", directory_ / "secret"}).err);
}

TEST_F(StageScore, AShowWithoutAScore_SaysSo) {
    EXPECT_EQ("stage: the show \"" + Show() + "\" has no .score file\n", Run("list").err);
}

}  // namespace
