#include "tavo_midi/show_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zip.h>

#include <map>
#include <stdexcept>

#include "kit/file.h"
#include "tests/support/show_table.h"
#include "tests/support/smf_bytes.h"
#include "tests/support/temporary_directory.h"

namespace {

using tavo_midi::ShowData;
using tavo_midi::ShowSong;
using test_support::SmfFile;
using test_support::TemporaryDirectory;

std::string Notes() {
    return SmfFile(0, {"00 FF 58 04 04 02 18 08 00 90 3C 40 86 00 80 3C 40"});
}

ShowSong MakeSong(const std::string& number, const std::string& smfName = "1.mid") {
    ShowSong song;
    song.options.number = number;
    song.options.title = "Title " + number;
    song.smfName = smfName;
    song.smf = Notes();
    return song;
}

/// A ZIP archive of the given members, made without the code under test.
std::string Zip(const std::vector<std::pair<std::string, std::string>>& members, int compression = ZIP_CM_STORE) {
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* target = zip_source_buffer_create(nullptr, 0, 0, &error);
    zip_t* archive = zip_open_from_source(target, ZIP_CREATE | ZIP_TRUNCATE, &error);
    zip_source_keep(target);
    for (const auto& [name, bytes] : members) {
        const zip_int64_t index =
            zip_file_add(archive, name.c_str(), zip_source_buffer(archive, bytes.data(), bytes.size(), 0), 0);
        zip_set_file_compression(archive, static_cast<zip_uint64_t>(index), compression, 0);
    }
    EXPECT_EQ(0, zip_close(archive));
    zip_stat_t stat;
    zip_source_stat(target, &stat);
    std::string bytes(stat.size, '\0');
    zip_source_open(target);
    zip_source_read(target, bytes.data(), bytes.size());
    zip_source_close(target);
    zip_source_free(target);
    return bytes;
}

std::string Refuse(const std::string& bytes) {
    try {
        static_cast<void>(tavo_midi::UnpackShowData(bytes, "a.showdata"));
        return "read";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string::npos, std::string(error.what()).find('\n')) << error.what();
        return error.what();
    }
}

void ExpectSameTimeline(const TL::Timeline& left, const TL::Timeline& right) {
    EXPECT_EQ(left.GetStartTickIndex(), right.GetStartTickIndex());
    EXPECT_EQ(left.GetEndTickIndex(), right.GetEndTickIndex());
    EXPECT_EQ(left.GetSongTitle(), right.GetSongTitle());
    const auto same = [](const auto& a, const auto& b) { return std::equal(a.begin(), a.end(), b.begin(), b.end()); };
    EXPECT_TRUE(same(left.GetTempos(), right.GetTempos()));
    EXPECT_TRUE(same(left.GetBarsBeats(), right.GetBarsBeats()));
    EXPECT_TRUE(same(left.GetKeys(), right.GetKeys()));
    EXPECT_TRUE(same(left.GetPageNums(), right.GetPageNums()));
    EXPECT_TRUE(same(left.GetMeters(), right.GetMeters()));
}

TEST(ShowFile, WhatIsWritten_IsReadBack) {
    const TemporaryDirectory directory;
    ShowSong first = MakeSong("1", "songs/01.mid");
    first.options.title = "Lied \"vom\" Mädchen\n";
    first.options.pickupBeats = 1.5;
    first.options.pages = {{0, 1}, {144, 2}};
    first.options.barLabels = {{1, "1a"}, {2, "9"}};
    first.options.tempos = {{0, 600000, true}, {144, 400000, false}, {288, 300000, true}};
    ShowSong second = MakeSong("12a", "songs/02.mid");
    second.smf = SmfFile(2, {"00 90 3C 40 10 80 3C 40", "00 F0 02 7D F7 00 91 30 40 81 00 81 30 40"});
    second.options.sequence = 1;
    second.options.startTick = 96;
    second.options.endTick = 1000;
    const std::string path = directory / "a.showdata";
    WriteShowData(path, "Die schöne Müllerin", {first, second}, tavo_midi::ExistingShow::Keep);

    const ShowData show(path);
    EXPECT_EQ("Die schöne Müllerin", show.GetTitle());
    EXPECT_THAT(show.GetWarnings(), testing::IsEmpty());
    ASSERT_EQ(2U, show.GetSongs().size());
    for (const ShowSong& packed : {first, second}) {
        const tavo_midi::SongData built = BuildSong(tavo_midi::ReadSmf(packed.smf, "a.mid"), packed.options, "a.mid");
        const tavo_midi::SongData& read = show.GetSongData(packed.options.number);
        ExpectSameTimeline(built.GetTimeline(), read.GetTimeline());
        EXPECT_EQ(built.GetEvents(), read.GetEvents());
        EXPECT_EQ(built.GetTicksPerQuarter(), read.GetTicksPerQuarter());
        EXPECT_EQ(built.GetMusicEndTickIndex(), read.GetMusicEndTickIndex());
        EXPECT_EQ(packed.smfName, read.GetSmfName());
    }
    EXPECT_EQ(3U, show.GetTimelineOf("1").GetTempos().size());
    for (const auto& [tick, isGuessed] : std::map<unsigned int, bool>{{0, true}, {1, false}, {144, false}, {288, true}})
        EXPECT_EQ(isGuessed, show.GetSongData("1").IsGuessedTempo(tick)) << tick;
    const tavo_midi::SongData& second_ = show.GetSongData("12a");
    EXPECT_EQ(3U, second_.GetSysex(second_.GetEvents().at(0)).size());
}

TEST(ShowFile, TheSameShow_GivesTheSameBytes) {
    EXPECT_EQ(tavo_midi::PackShowData("T", {MakeSong("1")}), tavo_midi::PackShowData("T", {MakeSong("1")}));
}

TEST(ShowFile, SongsOfOneFile_AreStoredOnce) {
    const std::string one = tavo_midi::PackShowData("T", {MakeSong("1")});
    const std::string two = tavo_midi::PackShowData("T", {MakeSong("1"), MakeSong("2")});
    EXPECT_LT(two.size(), one.size() + Notes().size() + 200);
    EXPECT_EQ(2U, tavo_midi::UnpackShowData(two, "a").GetSongs().size());
    const std::string apart = tavo_midi::PackShowData("T", {MakeSong("1"), MakeSong("2", "2.mid"), MakeSong("3")});
    EXPECT_EQ(2U, tavo_midi::UnpackShowData(apart, "a").GetSongData("3").GetEvents().size());
}

TEST(ShowFile, AShowThatCouldNotBeRead_IsNotWritten) {
    const TemporaryDirectory directory;
    const std::string path = directory / "a.showdata";
    ShowSong bad = MakeSong("1");
    bad.smf = "no music";
    const auto write = [&](const std::vector<ShowSong>& songs) {
        WriteShowData(path, "T", songs, tavo_midi::ExistingShow::Keep);
    };
    EXPECT_THROW(write({bad}), std::runtime_error);
    EXPECT_THROW(write({MakeSong("1"), MakeSong("1")}), std::runtime_error);
    ShowSong latin = MakeSong("1");
    latin.options.title = "\xE9";
    EXPECT_THROW(write({latin}), std::runtime_error);
    ShowSong other = MakeSong("2");
    other.smf += "x";
    EXPECT_THROW(write({MakeSong("1"), other}), std::runtime_error);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(ShowFile, AnExistingFile_IsKeptOrReplacedAsAsked) {
    const TemporaryDirectory directory;
    const std::string path = directory / "a.showdata";
    WriteShowData(path, "old", {MakeSong("1")}, tavo_midi::ExistingShow::Keep);
    EXPECT_THROW(WriteShowData(path, "new", {MakeSong("1")}, tavo_midi::ExistingShow::Keep), kit::FileExistsError);
    EXPECT_EQ("old", ShowData(path).GetTitle());
    WriteShowData(path, "new", {MakeSong("1")}, tavo_midi::ExistingShow::Replace);
    EXPECT_EQ("new", ShowData(path).GetTitle());
}

TEST(ShowFile, WarningsOfItsMusic_NameTheMember) {
    ShowSong song = MakeSong("1");
    song.smf += test_support::SmfTrackChunk("");
    const ShowData show = tavo_midi::UnpackShowData(tavo_midi::PackShowData("T", {song}), "a.showdata");
    EXPECT_THAT(show.GetWarnings(), testing::ElementsAre("\"a.showdata/1.mid\" announces 1 tracks and has 2"));
}

TEST(ShowFile, DeflatedMembers_AreReadToo) {
    const std::string json = R"({"title":"T","formatVersion":1,"songs":[
        {"number":"1","title":"","smf":"1.mid","startTick":0}]})";
    EXPECT_EQ("read", Refuse(Zip({{"show.json", json}, {"1.mid", Notes()}}, ZIP_CM_DEFLATE)));
}

TEST(ShowFile, MissingFile_IsRefusedByName) {
    try {
        const ShowData show("nowhere.showdata");
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ("the file \"nowhere.showdata\" does not exist", error.what());
    }
}

TEST(ShowFile, BadShowJson_IsRefusedWithPlaceAndReason) {
    const std::string song = R"({"number":"1","title":"","smf":"1.mid","startTick":0)";
    const auto withSong = [](const std::string& text) {
        return R"({"title":"T","formatVersion":1,"songs":[)" + text + "]}";
    };
    struct Row {
        std::string json;
        const char* sentence;
    };
    const Row rows[] = {
        {"{\n", ", line 2: the text is not JSON"},
        {"\xFF", ", line 1: the text is not well-formed UTF-8"},
        {"[]", ": the outermost value must be an object, not a list"},
        {"{}", ": formatVersion is missing"},
        {R"({"formatVersion":2})", ": formatVersion is 2, but only 1 can be read"},
        {R"({"formatVersion":"1"})", ": formatVersion must be a whole number from 0 to 4294967295, not \"1\""},
        {R"({"formatVersion":1e999})", ", line 1: the number 1e999 is too large"},
        {R"({"formatVersion":1,"title":7,"songs":[]})", ": title must be text, not 7"},
        {R"({"formatVersion":1,"title":""})", ": songs is missing"},
        {R"({"formatVersion":1,"title":"","songs":{}})", ": songs must be a list, not an object"},
        {withSong("7"), ": songs[0] must be an object, not 7"},
        {withSong("{}"), ": songs[0].number is missing"},
        {withSong(R"({"number":"","title":"","smf":"1.mid","startTick":0})"), ": songs[0].number must not be empty"},
        {withSong(R"({"number":"1","title":"","smf":"show.json","startTick":0})"),
         ": songs[0].smf must be the name of a Standard MIDI File, not \"show.json\""},
        {withSong(R"({"number":"1","title":"","smf":"1.mid","startTick":-1})"),
         ": songs[0].startTick must be a whole number from 0 to 4294967295, not -1"},
        {withSong(R"({"number":"1","title":"","smf":"1.mid","startTick":1.5})"),
         ": songs[0].startTick must be a whole number from 0 to 4294967295, not 1.5"},
        {withSong(song + R"(,"endTick":4294967296})"),
         ": songs[0].endTick must be a whole number from 0 to 4294967295, not 4294967296"},
        {withSong(song + R"(,"pickupBeats":"1"})"), ": songs[0].pickupBeats must be a number, not \"1\""},
        {withSong(song + R"(,"pages":[{"number":1,"tick":9},{"number":2,"tick":8}]})"),
         ": songs[0].pages[1].tick must be at least 9, that of the page before it, not 8"},
        {withSong(song + R"(,"tempos":[{"tick":9,"microsecondsPerQuarter":1},{"tick":9,"microsecondsPerQuarter":1}]})"),
         ": songs[0].tempos[1].tick must be above 9, that of the tempo before it, not 9"},
        {withSong(song + R"(,"tempos":[{"tick":0,"microsecondsPerQuarter":0}]})"),
         ": songs[0].tempos[0].microsecondsPerQuarter must be at least 1, not 0"},
        {withSong(song + R"(,"tempos":[{"tick":0,"microsecondsPerQuarter":16777216}]})"),
         ": songs[0].tempos[0].microsecondsPerQuarter must be a whole number from 0 to 16777215, not 16777216"},
        {withSong(song + R"(,"tempos":[{"tick":0,"microsecondsPerQuarter":1,"guessed":1}]})"),
         ": songs[0].tempos[0].guessed must be true or false, not 1"},
        {withSong(song + R"(,"barLabels":[{"bar":1,"label":"a"},{"bar":1,"label":"b"}]})"),
         ": songs[0].barLabels[1].bar must be above 1, that of the label before it, not 1"},
        {withSong(song + R"(,"effects":7})"), ": songs[0].effects must be a list, not 7"},
        {withSong(song + R"(,"smf":"2.mid"})"), ": songs[0].smf is there twice"},
        {withSong(song + R"(,"effects":)" + std::string(20, '[')), ": the text is nested deeper than 16 levels"},
        {withSong(song + "}," + song + "}"), ": the show has a song \"1\" already"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(std::string("\"a.showdata\", member \"show.json\"") + row.sentence,
                  Refuse(Zip({{"show.json", row.json}, {"1.mid", Notes()}})));
}

TEST(ShowFile, UnknownKeysOfShowJson_AreWarnedOfAndIgnored) {
    const std::string json = R"({"title":"T","formatVersion":1,"composer":"x","songs":[
        {"number":"1","title":"","smf":"1.mid","startTick":0,"key":"C","effects":[{"sound":"door"}],
         "barLabels":[{"bar":1,"label":"a","color":3}]}]})";
    const ShowData show = tavo_midi::UnpackShowData(Zip({{"show.json", json}, {"1.mid", Notes()}}), "a.showdata");
    const std::string place = "\"a.showdata\", member \"show.json\": ";
    EXPECT_THAT(show.GetWarnings(),
                testing::ElementsAre(place + "songs[0].barLabels[0].color is not a known key and is ignored",
                                     place + "songs[0].key is not a known key and is ignored",
                                     place + "composer is not a known key and is ignored"));
}

TEST(ShowFile, HostileArchives_AreRefusedWithASentence) {
    const std::string json = R"({"title":"T","formatVersion":1,"songs":[
        {"number":"1","title":"","smf":"1.mid","startTick":0}]})";
    EXPECT_EQ("\"a.showdata\" is empty", Refuse(""));
    EXPECT_THAT(Refuse("PK\3\4 and no more"), testing::StartsWith("\"a.showdata\" is not a readable ZIP archive"));
    EXPECT_EQ("\"a.showdata\", member \"show.json\" is missing", Refuse(Zip({{"1.mid", Notes()}})));
    EXPECT_EQ("\"a.showdata\", member \"1.mid\" is missing", Refuse(Zip({{"show.json", json}})));
    EXPECT_THAT(Refuse(Zip({{"show.json", json}, {"1.mid", "no music"}})),
                testing::StartsWith("\"a.showdata/1.mid\" is not a Standard MIDI File"));
    EXPECT_EQ("\"a.showdata\", member \"show.json\" is larger than the 4194304 bytes allowed",
              Refuse(Zip({{"show.json", std::string(5 << 20, ' ')}}, ZIP_CM_DEFLATE)));
    EXPECT_EQ("\"a.showdata\", member \"1.mid\" is larger than the 16777216 bytes allowed",
              Refuse(Zip({{"show.json", json}, {"1.mid", std::string(17 << 20, '\0')}}, ZIP_CM_DEFLATE)));
    std::vector<std::pair<std::string, std::string>> many;
    for (int count = 0; count <= 4096; ++count)
        many.emplace_back(std::to_string(count), "");
    EXPECT_EQ("\"a.showdata\" holds 4097 members, more than the 4096 allowed", Refuse(Zip(many)));
    std::string damaged = Zip({{"show.json", json}, {"1.mid", Notes()}});
    damaged[damaged.find("formatVersion")] = 'F';
    EXPECT_THAT(Refuse(damaged), testing::StartsWith("\"a.showdata\", member \"show.json\" is damaged"));
}

TEST(ShowFile, SongsThatWouldFillTheMemory_AreRefused) {
    // A short file of a quarter of a million beats, used by many songs.
    ShowSong song = MakeSong("", "1.mid");
    song.smf = SmfFile(0, {"DB C3 40 90 3C 40"}, 1);
    std::vector<ShowSong> songs;
    for (int number = 1; number <= 9; ++number) {
        song.options.number = std::to_string(number);
        song.options.endTick = 249000;
        songs.push_back(song);
    }
    EXPECT_THROW(static_cast<void>(tavo_midi::PackShowData("T", songs)), std::runtime_error);
    songs.resize(4);
    EXPECT_EQ(4U, tavo_midi::UnpackShowData(tavo_midi::PackShowData("T", songs), "a").GetSongs().size());
}

TEST(ShowFile, EveryDamagedByte_IsReadOrRefused) {
    const std::string whole = tavo_midi::PackShowData("T", {MakeSong("1")});
    for (std::size_t at = 0; at < whole.size(); ++at) {
        for (const int value : {0x00, 0x01, 0x7F, 0xFF}) {
            std::string damaged = whole;
            damaged[at] = static_cast<char>(value);
            EXPECT_FALSE(Refuse(damaged).empty());
        }
        EXPECT_FALSE(Refuse(whole.substr(0, at)).empty());
    }
}

TEST(ShowFile, AWholeRealWork_ComesBackFromItsFile) {
    SKIP_WITHOUT_CORPUS();
    const TemporaryDirectory directory;
    std::vector<ShowSong> songs;
    for (const test_support::ShowTableRow& row : test_support::ReadShowTable("show_schubert_muellerin")) {
        ShowSong& song = songs.emplace_back();
        song.options.number = row.number;
        song.options.title = row.title;
        song.smfName = row.midi.filename();
        song.smf = kit::ReadFile(row.midi, 1 << 24);
    }
    const std::string path = directory / "muellerin.showdata";
    WriteShowData(path, "Die schöne Müllerin", songs, tavo_midi::ExistingShow::Keep);
    const ShowData show(path);
    ASSERT_EQ(songs.size(), show.GetSongs().size());
    for (const ShowSong& song : songs) {
        const tavo_midi::SongData built = BuildSong(tavo_midi::ReadSmf(song.smf, "a.mid"), song.options, "a.mid");
        ExpectSameTimeline(built.GetTimeline(), show.GetSongData(song.options.number).GetTimeline());
        EXPECT_EQ(built.GetEvents(), show.GetSongData(song.options.number).GetEvents());
    }
}

}  // namespace
