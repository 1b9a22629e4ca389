#pragma once

#include <memory>
#include <sstream>
#include <string>

#include "tavo_security/cipher_stream.h"
#include "tavo_security/cipher_writer.h"
#include "tests/support/run_program.h"
#include "tests/support/temporary_directory.h"

namespace test_support {

/// The cheapest key and tiny chunks, three a segment, so that a short text has several segments.
inline constexpr tavo_sec::CipherOptions TinyChunks{1, 8, 16, 3};

inline std::string Encipher(const std::string& text, const tavo_sec::CipherOptions& options = TinyChunks,
                            const std::string& passphrase = "open sesame") {
    const TemporaryDirectory directory;
    tavo_sec::CipherWriter writer(directory / "f", passphrase, kit::ExistingFile::Keep, options);
    writer.Write(text);
    writer.Commit();
    return ReadAll(directory / "f");
}

inline std::unique_ptr<tavo_sec::CipherStream> Open(const std::string& bytes,
                                                    const std::string& passphrase = "open sesame") {
    return std::make_unique<tavo_sec::CipherStream>(std::make_unique<std::istringstream>(bytes), "f", passphrase);
}

/// What a reader gets out of a file: the text up to the end or the problem, and the problem.
struct Deciphered {
    std::string text;
    std::string problem;

    bool operator==(const Deciphered&) const = default;
};

inline Deciphered Decipher(const std::string& bytes, const std::string& passphrase = "open sesame") {
    try {
        const auto stream = Open(bytes, passphrase);
        Deciphered result;
        for (char c = 0; stream->get(c);)
            result.text += c;
        if (stream->bad()) result.problem = stream->GetProblem();
        return result;
    } catch (const tavo_sec::CipherError& error) {
        return {"", error.what()};
    }
}

/// A text in which every place is different.
inline std::string CountingText(std::size_t length) {
    std::string text;
    for (int i = 0; text.size() < length; ++i)
        text += std::to_string(i) + ",";
    text.resize(length);
    return text;
}

}  // namespace test_support
