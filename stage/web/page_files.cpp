#include "stage/web/page_files.h"

#include <fmt/format.h>
#include <sodium.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "kit/file.h"
#include "stage/web/embedded_files.h"

namespace stage {

namespace {

constexpr std::size_t LargestPageFile = 32U << 20U;

constexpr std::array<std::pair<std::string_view, std::string_view>, 13> MediaTypes{{
    {".html", "text/html; charset=utf-8"},
    {".js", "text/javascript; charset=utf-8"},
    {".mjs", "text/javascript; charset=utf-8"},
    {".css", "text/css; charset=utf-8"},
    {".json", "application/json"},
    {".webmanifest", "application/manifest+json"},
    {".svg", "image/svg+xml"},
    {".png", "image/png"},
    {".ico", "image/x-icon"},
    {".woff2", "font/woff2"},
    {".wasm", "application/wasm"},
    {".txt", "text/plain; charset=utf-8"},
    {".md", "text/plain; charset=utf-8"},
}};

std::string FindMediaType(const std::string& name) {
    const std::string extension = std::filesystem::path(name).extension().string();
    const auto* const found =
        std::ranges::find(MediaTypes, std::string_view(extension), [](const auto& entry) { return entry.first; });
    return std::string(found == MediaTypes.end() ? "application/octet-stream" : found->second);
}

std::string MakeEtag(std::string_view bytes) {
    std::array<unsigned char, 16> digest{};
    crypto_generichash(digest.data(), digest.size(), reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
                       nullptr, 0);
    std::string etag = "\"";
    for (const unsigned char byte : digest)
        etag += fmt::format("{:02x}", byte);
    return etag + "\"";
}

}  // namespace

PageFiles::PageFiles() {
    for (const EmbeddedFile& file : GetEmbeddedFiles())
        Add_(std::string(file.name), file.bytes);
}

PageFiles::PageFiles(const std::string& directory) {
    namespace fs = std::filesystem;
    std::error_code error;
    for (fs::recursive_directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error)) {
        if (!fs::is_regular_file(entry->symlink_status())) continue;
        const std::string name = fs::relative(entry->path(), directory).string();
        const auto& bytes = read_[name] = kit::ReadFile(entry->path().string(), LargestPageFile);
        Add_(name, bytes);
    }
    if (error) throw std::runtime_error(fmt::format("\"{}\" cannot be read: {}", directory, error.message()));
}

bool PageFiles::AddFolder(const std::string& folder, const std::string& directory) {
    namespace fs = std::filesystem;
    std::error_code error;
    bool isAdded = false;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory, error)) {
        if (!fs::is_regular_file(entry.symlink_status())) continue;
        const std::string name = folder + "/" + entry.path().filename().string();
        const auto& bytes = read_[name] = kit::ReadFile(entry.path().string(), LargestPageFile);
        Add_(name, bytes);
        isAdded = true;
    }
    return isAdded;
}

const PageFile* PageFiles::Find(std::string_view path) const {
    const auto found = files_.find(path);
    return found == files_.end() ? nullptr : &found->second;
}

void PageFiles::Add_(const std::string& name, std::string_view bytes) {
    const PageFile file{FindMediaType(name), MakeEtag(bytes), bytes};
    files_["/" + name] = file;
    if (name == "index.html") files_["/"] = file;
}

}  // namespace stage
