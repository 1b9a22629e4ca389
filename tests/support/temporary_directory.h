#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace test_support {

/// An empty directory that is removed with everything in it at the end of its scope.
class TemporaryDirectory {
public:
    TemporaryDirectory() : path_((std::filesystem::temp_directory_path() / "tavo-test-XXXXXX").string()) {
        if (::mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no temporary directory can be made");
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    [[nodiscard]] const std::string& Path() const { return path_; }

private:
    std::string path_;
};

inline std::string operator/(const TemporaryDirectory& directory, const std::string& name) {
    return directory.Path() + "/" + name;
}

}  // namespace test_support
