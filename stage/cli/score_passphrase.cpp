#include "stage/cli/score_passphrase.h"

#include <fmt/format.h>

#include <cstdlib>
#include <stdexcept>

#include "kit/file.h"
#include "tavo_security/cipher_format.h"

namespace {

constexpr std::uintmax_t LongestPassphrase = 4096;

}  // namespace

bool ScorePassphrase::IsGiven(const std::string& file) {
    return !file.empty() || std::getenv(Variable) != nullptr;
}

ScorePassphrase::ScorePassphrase(const std::string& file) {
    if (!IsGiven(file))
        throw std::runtime_error(
            fmt::format("the score's passphrase is missing: give --passphrase-file FILE or set {}", Variable));
    if (file.empty()) {
        text = std::getenv(Variable);
    } else {
        text = kit::ReadFile(file, LongestPassphrase);
        if (text.ends_with('\n')) text.pop_back();
        if (text.ends_with('\r')) text.pop_back();
    }
    if (text.empty()) throw std::runtime_error("the score's passphrase is empty");
}

ScorePassphrase::~ScorePassphrase() {
    tavo_sec::Wipe(text);
}
