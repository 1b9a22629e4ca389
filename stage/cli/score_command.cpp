#include <fmt/format.h>

#include <filesystem>
#include <iostream>
#include <memory>

#include "kit/path.h"
#include "stage/cli/commands.h"
#include "stage/cli/progress.h"
#include "stage/cli/score_passphrase.h"
#include "stage/cli/text_table.h"
#include "stage/pages/page_packer.h"
#include "stage/show/show_directory.h"
#include "stage/words/value_checks.h"

namespace {

struct ScoreWords {
    std::string showPath;
    std::string passphraseFile;
    stage::PagePackRequest pack;
    bool replace = false;
    std::uint32_t firstNumber = 0;
    std::uint32_t page = 0;
    std::string outPath;
};

stage::PagePackage OpenPackage(const stage::ShowDirectory& directory, const ScoreWords& words) {
    if (directory.scoreName.empty())
        throw std::runtime_error(fmt::format("the show \"{}\" has no .score file", directory.path));
    const ScorePassphrase passphrase(words.passphraseFile);
    return {directory.PathOf(directory.scoreName), passphrase.text};
}

void PrintComparison(const std::vector<stage::ScorePage>& pages,
                     const std::map<std::uint32_t, std::vector<stage::PageTurn>>& turns) {
    for (const std::string& sentence : stage::CompareWithShow(pages, turns))
        std::cerr << "note: " << sentence << '\n';
}

void Pack(ScoreWords& words, bool hasFirstNumber) {
    const stage::ShowDirectory directory = stage::ScanShowDirectory(words.showPath);
    const tavo_midi::ShowData show(directory.ShowDataPath());
    const ScorePassphrase passphrase(words.passphraseFile);
    stage::PagePackRequest& request = words.pack;
    request.scorePath = directory.PathOf(kit::path::basename_no_ext(directory.showDataName) + ".score");
    request.existing = words.replace ? kit::ExistingFile::Replace : kit::ExistingFile::Keep;
    if (hasFirstNumber) request.firstNumber = words.firstNumber;
    request.passphrase = passphrase.text;
    const std::vector<stage::ScorePage> pages = [&] {
        Progress progress;
        request.reportProgress = [&](std::size_t done, std::size_t total, const std::string& file) {
            progress.Report(done, total, (done < total / 2 ? "reading " : "packing ") + file);
        };
        return stage::PackPages(request);
    }();
    PrintComparison(pages, stage::FindPageTurns(show));
    const std::string inUse = stage::ScanShowDirectory(words.showPath).scoreName;
    if (inUse != kit::path::basename(request.scorePath))
        std::cerr << fmt::format("note: the show goes on using {}, whose name comes later\n", MakePrintable(inUse));
    std::cout << fmt::format("packed {} pages as {}\n", pages.size(), request.scorePath);
}

std::string DescribeTurns(const std::vector<stage::PageTurn>& turns) {
    std::string text;
    for (const stage::PageTurn& turn : turns)
        text += fmt::format("{}song {} at {}", text.empty() ? "" : ", ", turn.song, turn.place);
    return text;
}

void List(const ScoreWords& words) {
    const stage::ShowDirectory directory = stage::ScanShowDirectory(words.showPath);
    const auto turns = stage::FindPageTurns(tavo_midi::ShowData(directory.ShowDataPath()));
    const stage::PagePackage score = OpenPackage(directory, words);
    TextTable table({{"page", TextTable::Align::Right}, {"type"}, {"bytes", TextTable::Align::Right}, {"turned to"}});
    for (const stage::ScorePage& page : score.GetPages()) {
        const auto found = turns.find(page.number);
        table.AddRow({fmt::format("{}", page.number), std::string(stage::GetMediaType(page.type)),
                      fmt::format("{}", page.bytes), found == turns.end() ? "" : DescribeTurns(found->second)});
    }
    std::cout << table.AsText();
    PrintComparison(score.GetPages(), turns);
}

void Extract(const ScoreWords& words) {
    const stage::ShowDirectory directory = stage::ScanShowDirectory(words.showPath);
    stage::PagePackage score = OpenPackage(directory, words);
    kit::WriteNewFileDurably(words.outPath, score.ReadPage(words.page));
    std::cout << fmt::format("page {} is now {}, {}\n", words.page, words.outPath,
                             stage::GetMediaType(score.GetPage(words.page).type));
}

void Check(const ScoreWords& words) {
    const stage::ShowDirectory directory = stage::ScanShowDirectory(words.showPath);
    stage::PagePackage score = OpenPackage(directory, words);
    {
        Progress progress;
        score.CheckAll([&](std::size_t index) {
            const auto& pages = score.GetPages();
            progress.Report(index, pages.size(), fmt::format("page {}", pages[index].number));
        });
    }
    std::cout << fmt::format("all {} pages are whole\n", score.GetPages().size());
}

CLI::App* AddOperation(CLI::App& score, const char* name, const char* help, ScoreWords& words) {
    CLI::App* operation = score.add_subcommand(name, help);
    operation->add_option("SHOW", words.showPath, "The show directory")->required();
    operation
        ->add_option("--passphrase-file", words.passphraseFile,
                     fmt::format("A file that holds the passphrase; without it {} does", ScorePassphrase::Variable))
        ->type_name("FILE");
    return operation;
}

void AddPack(CLI::App& score, const std::shared_ptr<ScoreWords>& words) {
    CLI::App* pack = AddOperation(score, "pack", "Packs pages into the show's .score file", *words);
    pack->add_option("PAGES", words->pack.paths, "PNG and SVG files, or folders that hold them")->required();
    CLI::Option* first = pack->add_option("--first", words->firstNumber,
                                          "Number the pages in their order from N on, whatever their names are")
                             ->type_name("N")
                             ->check(stage::IsWholeNumber(0, 4294967295));
    pack->add_flag("--replace", words->replace, "Replace the score that is there");
    pack->footer(
        "\nA page's number is the last number in its file's name: page-012.png is page 12.\n"
        "\nExamples:\n"
        "  stage score pack myshow pages/ --passphrase-file secret\n"
        "  stage score pack myshow cover.svg scan/*.png --first 1 --replace");
    pack->callback([words, first] { Pack(*words, first->count() > 0); });
}

}  // namespace

void AddScoreCommand(CLI::App& app, int&) {
    auto words = std::make_shared<ScoreWords>();
    CLI::App* score = app.add_subcommand("score", "Packs the pages of the score, lists and reads them");
    score->require_subcommand(1);
    AddPack(*score, words);

    CLI::App* list = AddOperation(*score, "list", "Lists the pages and where the songs turn to them", *words);
    list->footer("\nExample:\n  stage score list myshow --passphrase-file secret");
    list->callback([words] { List(*words); });

    CLI::App* extract = AddOperation(*score, "extract", "Writes a page's image into a file", *words);
    extract->add_option("PAGE", words->page, "The page's number")
        ->required()
        ->check(stage::IsWholeNumber(0, 4294967295));
    extract->add_option("-o,--output", words->outPath, "The file to be made")->required()->type_name("FILE");
    extract->footer("\nExample:\n  stage score extract myshow 12 -o page12.png");
    extract->callback([words] { Extract(*words); });

    CLI::App* check = AddOperation(*score, "check", "Reads every page and reports whether all of it is intact", *words);
    check->footer("\nExample:\n  stage score check myshow --passphrase-file secret");
    check->callback([words] { Check(*words); });
    score->footer(
        "The score is enciphered: without its passphrase nobody reads a page.\n"
        "\nExample:\n  stage score pack myshow pages/ --passphrase-file secret");
}
