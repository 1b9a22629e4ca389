// What an import, or the packing of a score, leaves behind that is killed at any system call: nothing that looks whole
// and is not.

#include <gtest/gtest.h>

#include "stage/import/show_import.h"
#include "stage/pages/page_packer.h"
#include "stage/show/show_check.h"
#include "tests/hands/faulty_show.h"

using test_support::ChildResult;
using test_support::Fault;
using test_support::WriteAll;

namespace {

class BrokenOff : public test_support::FaultyShow {
protected:
    static constexpr const char* Passphrase = "open sesame";

    void Import() const {
        stage::ImportRequest request;
        request.paths = {directory_ / "midi"};
        request.showPath = Made();
        static_cast<void>(stage::ImportShow(request));
    }
    [[nodiscard]] std::string Made() const { return directory_ / "made"; }
    /// Whether there is a show, which has to be a whole one.
    [[nodiscard]] bool IsShow() const {
        try {
            static_cast<void>(stage::ScanShowDirectory(Made()));
        } catch (const std::runtime_error&) {
            return false;
        }
        EXPECT_TRUE(stage::CheckShow(Made()).problems.empty());
        EXPECT_EQ(2U, tavo_midi::ShowData(stage::ScanShowDirectory(Made()).ShowDataPath()).GetSongs().size());
        return true;
    }

    void Pack(const std::vector<std::string>& pages) const {
        stage::PagePackRequest request;
        for (const std::string& page : pages)
            request.paths.push_back(directory_ / page);
        request.scorePath = Score();
        request.existing = kit::ExistingFile::Replace;
        request.passphrase = Passphrase;
        request.options = {1, 8, 1024, 4};
        static_cast<void>(stage::PackPages(request));
    }
    [[nodiscard]] std::string Score() const { return directory_ / "pages.score"; }
    /// How many pages the score has, all of them whole; 0 where there is no score.
    [[nodiscard]] std::size_t CountPages() const {
        if (!std::filesystem::exists(Score())) return 0;
        stage::PagePackage score(Score(), Passphrase);
        score.CheckAll([](std::size_t) {});
        return score.GetPages().size();
    }
};

TEST_F(BrokenOff, ImportThatIsKilled_LeavesAWholeShowOrNone) {
    for (const bool hasDirectory : {false, true}) {
        Fault fault{Fault::Kind::Kill, 1, 0};
        int whole = 0;
        for (bool wasKilled = true; wasKilled && !HasFailure(); fault.call += GetStep(23)) {
            std::filesystem::remove_all(Made());
            if (hasDirectory) {
                std::filesystem::create_directory(Made());
                WriteAll(Made() + "/settings.json", "{\"countIn\": 4}");
            }
            const ChildResult result = test_support::RunTraced(fault, [this](const Say& say) {
                Import();
                say('a');
            });
            wasKilled = result.wasFaulted;
            const bool isWhole = IsShow();
            whole += isWhole ? 1 : 0;
            EXPECT_TRUE(isWhole || result.said.empty()) << "killed before call " << fault.call;
            EXPECT_EQ(hasDirectory || isWhole, std::filesystem::exists(Made())) << "killed before call " << fault.call;
            if (!isWhole && !hasDirectory) {
                Import();
                EXPECT_TRUE(IsShow()) << "imported again after it was killed before call " << fault.call;
            }
        }
        EXPECT_LT(60U, fault.call);
        std::cout << fault.call - 1 << " calls, " << whole << " whole shows\n";
    }
}

TEST_F(BrokenOff, PackingThatIsKilled_LeavesTheScoreThatWasThereOrTheNewOne) {
    for (const char* page : {"p1.svg", "p2.svg", "p3.svg"})
        WriteAll(directory_ / page, "<svg>" + std::string(3000, ' ') + "</svg>");
    for (const std::size_t before : {0U, 1U}) {
        Fault fault{Fault::Kind::Kill, 1, 0};
        int replaced = 0;
        for (bool wasKilled = true; wasKilled && !HasFailure(); fault.call += GetStep(7)) {
            std::filesystem::remove(Score());
            if (before == 1) Pack({"p1.svg"});
            const ChildResult result = test_support::RunTraced(fault, [this](const Say& say) {
                Pack({"p1.svg", "p2.svg", "p3.svg"});
                say('a');
            });
            wasKilled = result.wasFaulted;
            const std::size_t pages = CountPages();
            EXPECT_TRUE(pages == 3 || (pages == before && result.said.empty()))
                << "killed before call " << fault.call << ": " << pages << " pages";
            replaced += pages == 3 ? 1 : 0;
        }
        EXPECT_LT(20U, fault.call);
        EXPECT_LE(1, replaced);
        std::cout << fault.call - 1 << " calls, " << replaced << " new scores\n";
    }
}

}  // namespace
