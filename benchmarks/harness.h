#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

/// Measuring with the yardstick beside it: short batches of everything that is compared take turns, round after round,
/// so that a drift of the machine falls on all alike and leaves the ratios.
namespace bench {

enum class Clock : std::uint8_t {
    Wall,       ///< cheap to read: for batches from a microsecond up to a scheduler's slice
    ThreadCpu,  ///< leaves out what other processes take: for longer ones
};

/// Nanoseconds; differences only.
[[nodiscard]] double ReadNanoseconds(Clock clock);

/// One of the things that take turns.
struct Candidate {
    std::string name;
    /// Runs the operation so many times; this is what is timed.
    std::function<void(std::size_t operations)> run;
    /// Runs before each batch, untimed. May be empty.
    std::function<void()> prepare = {};
    /// Operations in a batch; 0 lets the harness choose.
    std::size_t operations = 0;
};

/// Nanoseconds per operation, one figure a round; the figures of candidates measured together belong to the same
/// rounds.
class Timing {
public:
    Timing() = default;
    explicit Timing(std::vector<double> nanoseconds) : nanoseconds_(std::move(nanoseconds)) {}

    void Add(double nanoseconds) { nanoseconds_.push_back(nanoseconds); }
    [[nodiscard]] const std::vector<double>& Rounds() const { return nanoseconds_; }
    [[nodiscard]] double Median() const { return Quantile(0.5); }
    /// 0 to 1.
    [[nodiscard]] double Quantile(double q) const;

    /// Round by round.
    friend Timing operator+(const Timing& a, const Timing& b);
    friend Timing operator*(double factor, const Timing& a);

private:
    std::vector<double> nanoseconds_;
};

/// The median over the rounds of measured / yardstick.
[[nodiscard]] double MedianRatio(const Timing& measured, const Timing& yardstick);

/// How much time to spend; set once by main.
struct Effort {
    bool brief = false;
    /// Seconds for one comparison of a few candidates.
    double secondsPerComparison = 2.0;
    std::size_t largestSize = 1000000;

    /// 10, 100 ... up to `largest` and largestSize.
    [[nodiscard]] std::vector<std::size_t> Sizes(std::size_t largest = std::numeric_limits<std::size_t>::max()) const;
};

/// Takes turns until the effort's time is used, at least `leastRounds` times. The clock's own cost is taken off.
[[nodiscard]] std::vector<Timing> MeasureInterleaved(const std::vector<Candidate>& candidates, const Effort& effort,
                                                     Clock clock = Clock::Wall, std::size_t leastRounds = 15);

/// The slope of the best line through (log size, log time).
[[nodiscard]] double FitExponent(const std::vector<double>& sizes, const std::vector<double>& times);

/// The k-th element of a fixed pseudo-random sequence, the same in every run.
class Random {
public:
    explicit Random(std::uint64_t seed) : state_(seed) {}
    std::uint64_t Next();
    /// In [0, bound).
    unsigned int Below(unsigned int bound) { return static_cast<unsigned int>((Next() >> 32U) * bound >> 32U); }

private:
    std::uint64_t state_;
};

struct Row {
    std::string what;
    std::string size;
    std::string yardstick;
    std::string yardstickValue;
    std::string measured;
    std::string ratio;
    std::string aim;
    std::string growth;
    /// Empty where the row only informs.
    std::optional<bool> met;
};

/// Rows are printed as they come, so that a long run shows its progress.
class Table {
public:
    void Add(Row row);
    /// One line: how many aims were met, and the names of those that were not.
    void PrintSummary() const;

private:
    bool hasHeader_ = false;
    std::vector<Row> rows_;
};

[[nodiscard]] std::string FormatTime(double nanoseconds);
[[nodiscard]] std::string FormatRatio(double ratio);
[[nodiscard]] std::string FormatCount(double count);

}  // namespace bench
