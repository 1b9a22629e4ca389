#pragma once

#include <string>

/// The passphrase of a show's score, overwritten at the end of its scope.
class ScorePassphrase {
public:
    static constexpr const char* Variable = "TAVO_SCORE_PASSPHRASE";

    /// What the file holds, without the end of its line, or where no file is named the variable of the environment.
    /// Throws std::runtime_error with one sentence where there is none, or an empty one.
    explicit ScorePassphrase(const std::string& file);
    ~ScorePassphrase();
    ScorePassphrase(const ScorePassphrase&) = delete;
    ScorePassphrase& operator=(const ScorePassphrase&) = delete;

    /// There is a file's name or the variable.
    [[nodiscard]] static bool IsGiven(const std::string& file);

    std::string text;
};
