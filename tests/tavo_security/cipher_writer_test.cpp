#include "tavo_security/cipher_writer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/path.h"
#include "tests/tavo_security/cipher_samples.h"

namespace {

using test_support::Decipher;
using test_support::TinyChunks;

class CipherWriting : public testing::Test {
protected:
    test_support::TemporaryDirectory directory_;
    const std::string path_ = directory_ / "f";
};

TEST_F(CipherWriting, PiecesOfAnySize_AreOneText) {
    const std::string text = test_support::CountingText(200);
    for (std::size_t step = 1; step <= 60; ++step) {
        tavo_sec::CipherWriter writer(path_, "open sesame", kit::ExistingFile::Replace, TinyChunks);
        for (std::size_t from = 0; from < text.size(); from += step)
            writer.Write(text.substr(from, step));
        writer.Commit();
        EXPECT_EQ(text, Decipher(test_support::ReadAll(path_)).text) << step;
    }
}

TEST_F(CipherWriting, WithoutCommit_NothingIsLeftAndTheOldFileStays) {
    test_support::WriteAll(path_, "old");
    {
        tavo_sec::CipherWriter writer(path_, "p", kit::ExistingFile::Replace, TinyChunks);
        writer.Write("new");
    }
    EXPECT_EQ("old", test_support::ReadAll(path_));
    EXPECT_THAT(kit::listdir(directory_.Path()), testing::ElementsAre("f"));
}

TEST_F(CipherWriting, AFileThatIsToBeKept_IsNotReplaced) {
    test_support::WriteAll(path_, "old");
    tavo_sec::CipherWriter writer(path_, "p", kit::ExistingFile::Keep, TinyChunks);
    EXPECT_THROW(writer.Commit(), kit::FileExistsError);
    EXPECT_EQ("old", test_support::ReadAll(path_));
}

TEST_F(CipherWriting, OptionsBeyondTheLimits_AreRefusedAndLeaveNothing) {
    for (const tavo_sec::CipherOptions& options :
         {tavo_sec::CipherOptions{0, 8, 16, 3}, tavo_sec::CipherOptions{1, 131073, 16, 3},
          tavo_sec::CipherOptions{1, 8, 15, 3}, tavo_sec::CipherOptions{1, 8, 16, 1025}})
        EXPECT_THROW(tavo_sec::CipherWriter(path_, "p", kit::ExistingFile::Keep, options), tavo_sec::CipherError);
    EXPECT_TRUE(kit::listdir(directory_.Path()).empty());
}

}  // namespace
