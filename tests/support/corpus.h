#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

namespace test_support {

/// Directory of the real music that tests read; it lies beside the source tree. TAVO_CORPUS names another place.
inline std::filesystem::path CorpusPath() {
    const char* fromEnvironment = std::getenv("TAVO_CORPUS");
    return fromEnvironment != nullptr && *fromEnvironment != '\0' ? fromEnvironment : CORPUS_DIR;
}

}  // namespace test_support

/// First statement of a test that reads real music: skips it where the music is absent.
#define SKIP_WITHOUT_CORPUS()                                                                          \
    do {                                                                                               \
        if (!std::filesystem::is_directory(test_support::CorpusPath()))                                \
            GTEST_SKIP() << "no music at " << test_support::CorpusPath() << ", set TAVO_CORPUS to it"; \
    } while (false)
