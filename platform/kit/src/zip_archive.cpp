#include "kit/zip_archive.h"

#include <zip.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <utility>

namespace kit {

namespace {

constexpr std::size_t EntryReadStep = std::size_t{1} << 16U;

struct FileCloser {
    void operator()(zip_file_t* file) const { zip_fclose(file); }
};

/// Holds an error of the library.
class ZipError {
public:
    ZipError() { zip_error_init(&error_); }
    ~ZipError() { zip_error_fini(&error_); }
    ZipError(const ZipError&) = delete;
    ZipError& operator=(const ZipError&) = delete;
    [[nodiscard]] zip_error_t* Get() { return &error_; }
    [[nodiscard]] std::string Text() { return zip_error_strerror(&error_); }

private:
    zip_error_t error_{};
};

}  // namespace

ZipReader::ZipReader(std::string_view bytes, std::string name, std::size_t mostMembers) : name_(std::move(name)) {
    // The library takes an empty file for an archive of nothing.
    if (bytes.empty()) throw std::runtime_error("\"" + name_ + "\" is empty");
    ZipError error;
    zip_source_t* source = zip_source_buffer_create(bytes.data(), bytes.size(), 0, error.Get());
    if (source != nullptr) archive_ = zip_open_from_source(source, ZIP_RDONLY, error.Get());
    if (archive_ == nullptr) {
        zip_source_free(source);
        throw std::runtime_error("\"" + name_ + "\" is not a readable ZIP archive: " + error.Text());
    }
    const zip_int64_t members = zip_get_num_entries(archive_, 0);
    if (members > static_cast<zip_int64_t>(mostMembers)) {
        zip_discard(archive_);
        throw std::runtime_error("\"" + name_ + "\" holds " + std::to_string(members) + " members, more than the " +
                                 std::to_string(mostMembers) + " allowed");
    }
}

ZipReader::~ZipReader() {
    zip_discard(archive_);
}

void ZipReader::Fail(const std::string& member, const std::string& what) const {
    throw std::runtime_error("\"" + name_ + "\", member \"" + member + "\" " + what);
}

std::string ZipReader::Read(const std::string& member, std::size_t mostBytes) const {
    zip_stat_t stat{};
    if (zip_stat(archive_, member.c_str(), ZIP_FL_ENC_RAW, &stat) != 0) Fail(member, "is missing");
    if ((stat.valid & ZIP_STAT_SIZE) == 0 || stat.size > mostBytes)
        Fail(member, "is larger than the " + std::to_string(mostBytes) + " bytes allowed");
    const std::unique_ptr<zip_file_t, FileCloser> file(zip_fopen_index(archive_, stat.index, 0));
    if (file == nullptr) Fail(member, std::string("cannot be read: ") + zip_strerror(archive_));
    std::string bytes;
    while (true) {
        const std::size_t length = bytes.size();
        if (length > stat.size) Fail(member, "is longer than the archive announces");
        // One byte more than announced, so that the end, and with it the checksum, is reached.
        bytes.resize(std::min<std::size_t>(length + std::max(length, EntryReadStep), stat.size + 1));
        const zip_int64_t count = zip_fread(file.get(), bytes.data() + length, bytes.size() - length);
        if (count < 0) Fail(member, std::string("is damaged: ") + zip_file_strerror(file.get()));
        bytes.resize(length + static_cast<std::size_t>(count));
        if (count == 0) break;
    }
    if (bytes.size() != stat.size) Fail(member, "is shorter than the archive announces");
    return bytes;
}

struct ZipWriter::Impl {
    ZipError error;
    zip_source_t* target = nullptr;
    zip_t* archive = nullptr;
};

ZipWriter::ZipWriter() : impl_(std::make_unique<Impl>()) {
    impl_->target = zip_source_buffer_create(nullptr, 0, 0, impl_->error.Get());
    if (impl_->target != nullptr)
        impl_->archive = zip_open_from_source(impl_->target, ZIP_CREATE | ZIP_TRUNCATE, impl_->error.Get());
    if (impl_->archive == nullptr) {
        zip_source_free(impl_->target);
        throw std::runtime_error("a ZIP archive cannot be begun: " + impl_->error.Text());
    }
    // The archive gives its own reference back when it is closed.
    zip_source_keep(impl_->target);
}

ZipWriter::~ZipWriter() {
    if (impl_->archive != nullptr) zip_discard(impl_->archive);
    zip_source_free(impl_->target);
}

void ZipWriter::Add(const std::string& member, std::string_view bytes) {
    zip_source_t* source = zip_source_buffer(impl_->archive, bytes.data(), bytes.size(), 0);
    const zip_int64_t index =
        source == nullptr ? -1 : zip_file_add(impl_->archive, member.c_str(), source, ZIP_FL_ENC_UTF_8);
    if (index < 0) {
        zip_source_free(source);
        throw std::runtime_error("\"" + member +
                                 "\" cannot be put into a ZIP archive: " + zip_strerror(impl_->archive));
    }
    const auto entry = static_cast<zip_uint64_t>(index);
    zip_set_file_compression(impl_->archive, entry, ZIP_CM_STORE, 0);
    // 1 January 1980, the first day that the format knows: the same members give the same bytes.
    zip_file_set_dostime(impl_->archive, entry, 0, 0x21, 0);
}

std::string ZipWriter::Finish() {
    if (zip_close(impl_->archive) != 0)
        throw std::runtime_error(std::string("a ZIP archive cannot be finished: ") + zip_strerror(impl_->archive));
    impl_->archive = nullptr;
    zip_stat_t stat{};
    std::string bytes;
    if (zip_source_stat(impl_->target, &stat) == 0 && zip_source_open(impl_->target) == 0) {
        bytes.resize(static_cast<std::size_t>(stat.size));
        const zip_int64_t count = zip_source_read(impl_->target, bytes.data(), bytes.size());
        zip_source_close(impl_->target);
        if (count == static_cast<zip_int64_t>(bytes.size())) return bytes;
    }
    throw std::runtime_error("a finished ZIP archive cannot be read back");
}

}  // namespace kit
