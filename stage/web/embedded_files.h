#pragma once

#include <span>
#include <string_view>

namespace stage {

struct EmbeddedFile {
    std::string_view name;  ///< path below the page's folder
    std::string_view bytes;
};

/// The files of stage/web/page as they were when the program was built. The build writes the source of it.
[[nodiscard]] std::span<const EmbeddedFile> GetEmbeddedFiles();

}  // namespace stage
