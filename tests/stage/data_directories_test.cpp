// Where the data of all users is looked for.

#include "stage/engine/data_directories.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

namespace {

using testing::ElementsAre;

class DataDirectories : public testing::Test {
protected:
    DataDirectories() {
        if (const char* const before = std::getenv("XDG_DATA_DIRS")) before_ = before;
    }
    ~DataDirectories() override {
        if (before_)
            ::setenv("XDG_DATA_DIRS", before_->c_str(), 1);
        else
            ::unsetenv("XDG_DATA_DIRS");
    }
    const std::string own_ =
        (std::filesystem::canonical("/proc/self/exe").parent_path().parent_path() / "share").string();

private:
    std::optional<std::string> before_;
};

TEST_F(DataDirectories, NothingInTheEnvironment_TheProgramsOwnComesBeforeTheSystems) {
    ::unsetenv("XDG_DATA_DIRS");
    EXPECT_EQ(own_, stage::FindOwnShareDirectory());
    EXPECT_THAT(stage::ListDataDirectories(), ElementsAre(own_, "/usr/local/share", "/usr/share"));
}

TEST_F(DataDirectories, SomeInTheEnvironment_ComeFirstAndEachIsThereOnce) {
    ::setenv("XDG_DATA_DIRS", "/opt/fonts::/usr/share:/opt/fonts", 1);
    EXPECT_THAT(stage::ListDataDirectories(), ElementsAre("/opt/fonts", "/usr/share", own_, "/usr/local/share"));
}

}  // namespace
