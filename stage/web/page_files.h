#pragma once

#include <map>
#include <string>
#include <string_view>

namespace stage {

/// A file that the page is made of.
struct PageFile {
    std::string type;  ///< media type
    std::string etag;  ///< changes with the content; quoted as HTTP wants it
    std::string_view bytes;
};

/// The files of the page by the path under which a browser asks for them: "/", "/app.js". They are in the program.
/// Nothing else is ever served as a file.
class PageFiles {
public:
    PageFiles();
    /// Those of a directory, as they are now, in place of the program's: for whoever works on the page. Throws
    /// std::runtime_error with one sentence.
    explicit PageFiles(const std::string& directory);

    /// Serves a directory's own files under "/<folder>/" as well, as they are now. Without the directory nothing is
    /// added, and the answer is false. Throws std::runtime_error with one sentence.
    bool AddFolder(const std::string& folder, const std::string& directory);

    /// Null where there is none. Any thread.
    [[nodiscard]] const PageFile* Find(std::string_view path) const;
    [[nodiscard]] const std::map<std::string, PageFile, std::less<>>& GetAll() const { return files_; }

private:
    void Add_(const std::string& name, std::string_view bytes);

    std::map<std::string, std::string, std::less<>> read_;
    std::map<std::string, PageFile, std::less<>> files_;
};

}  // namespace stage
