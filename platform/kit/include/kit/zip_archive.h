#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

struct zip;

namespace kit {

/// A ZIP archive in memory that is read. `bytes` must outlive it. Not thread-safe; does not touch the disk.
class ZipReader {
public:
    /// Throws std::runtime_error with one sentence that begins with the quoted `name`.
    ZipReader(std::string_view bytes, std::string name, std::size_t mostMembers);
    ~ZipReader();
    ZipReader(const ZipReader&) = delete;
    ZipReader& operator=(const ZipReader&) = delete;

    /// The whole member, checked against its checksum. Throws std::runtime_error with one sentence that names archive
    /// and member if it is missing, longer than `mostBytes`, of a kind that cannot be read or damaged. Takes memory as
    /// the bytes come, not as the archive announces them.
    [[nodiscard]] std::string Read(const std::string& member, std::size_t mostBytes) const;

private:
    [[noreturn]] void Fail(const std::string& member, const std::string& what) const;

    std::string name_;
    zip* archive_ = nullptr;
};

/// A ZIP archive in memory that is written. Not thread-safe; does not touch the disk. Members are stored as they are,
/// so that opening a show costs a copy only.
class ZipWriter {
public:
    ZipWriter();
    ~ZipWriter();
    ZipWriter(const ZipWriter&) = delete;
    ZipWriter& operator=(const ZipWriter&) = delete;

    /// `bytes` must outlive Finish().
    void Add(const std::string& member, std::string_view bytes);
    /// The archive's bytes. Throws std::runtime_error if the library refuses.
    [[nodiscard]] std::string Finish();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace kit
