#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace kit {

/// Paths as texts, with '/' between the names. Nothing here asks the file system.
namespace path {

/// The pieces with exactly one separator between them. Empty pieces are left out. A later piece that begins with a
/// separator does not start anew: the result always lies below the first piece.
[[nodiscard]] std::string Join(std::string_view first, std::string_view second);
/// The same of any number of pieces, in order; empty if there is none.
[[nodiscard]] std::string Join(std::initializer_list<std::string> pieces);
/// Likewise.
[[nodiscard]] std::string Join(const std::vector<std::string>& pieces);

/// The last extension of the name with its dot (".logdata"), or an empty text. A dot that begins the name starts none.
[[nodiscard]] std::string extension(std::string_view name);
/// What follows the last separator; empty if the path ends in one.
[[nodiscard]] std::string basename(std::string_view path);
/// The base name without its extension.
[[nodiscard]] std::string basename_no_ext(std::string_view path);

}  // namespace path

/// The names of the directory's entries without the directory, sorted by byte so that a scan is repeatable. Throws
/// std::runtime_error with one sentence if the directory cannot be read. Blocks on the disk.
[[nodiscard]] std::vector<std::string> listdir(const std::string& directory);

}  // namespace kit
