#include "benchmarks/harness.h"

#include <fmt/format.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <utility>

namespace bench {

namespace {

constexpr double BatchNanoseconds = 20e3;

double TimeBatch(const Candidate& candidate, std::size_t operations, Clock clock) {
    if (candidate.prepare) candidate.prepare();
    const double start = ReadNanoseconds(clock);
    candidate.run(operations);
    return ReadNanoseconds(clock) - start;
}

double MeasureClockCost(Clock clock) {
    Timing cost;
    const Candidate nothing{"nothing", [](std::size_t) {}};
    for (int i = 0; i < 1001; ++i)
        cost.Add(TimeBatch(nothing, 0, clock));
    return cost.Median();
}

std::size_t ChooseOperations(const Candidate& candidate, Clock clock) {
    if (candidate.operations != 0) return candidate.operations;
    std::size_t operations = 1;
    while (operations < (1U << 20U) && TimeBatch(candidate, operations, clock) < BatchNanoseconds)
        operations *= 2;
    return operations;
}

}  // namespace

double ReadNanoseconds(Clock clock) {
    if (clock == Clock::Wall) {
        return static_cast<double>(std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1));
    }
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

double Timing::Quantile(double q) const {
    if (nanoseconds_.empty()) throw std::logic_error("A timing without a round has no quantiles.");
    std::vector<double> sorted = nanoseconds_;
    const auto place = sorted.begin() + static_cast<std::ptrdiff_t>(q * static_cast<double>(sorted.size() - 1));
    std::nth_element(sorted.begin(), place, sorted.end());
    return *place;
}

Timing operator+(const Timing& a, const Timing& b) {
    Timing sum;
    for (std::size_t i = 0; i < std::min(a.nanoseconds_.size(), b.nanoseconds_.size()); ++i)
        sum.Add(a.nanoseconds_[i] + b.nanoseconds_[i]);
    return sum;
}

Timing operator*(double factor, const Timing& a) {
    Timing scaled;
    for (const double nanoseconds : a.nanoseconds_)
        scaled.Add(factor * nanoseconds);
    return scaled;
}

double MedianRatio(const Timing& measured, const Timing& yardstick) {
    Timing ratios;
    for (std::size_t i = 0; i < std::min(measured.Rounds().size(), yardstick.Rounds().size()); ++i)
        ratios.Add(measured.Rounds()[i] / yardstick.Rounds()[i]);
    return ratios.Median();
}

std::vector<std::size_t> Effort::Sizes(std::size_t largest) const {
    std::vector<std::size_t> sizes;
    for (std::size_t size = 10; size <= std::min(largest, largestSize); size *= 10)
        sizes.push_back(size);
    return sizes;
}

std::vector<Timing> MeasureInterleaved(const std::vector<Candidate>& candidates, const Effort& effort, Clock clock,
                                       std::size_t leastRounds) {
    const double clockCost = MeasureClockCost(clock);
    std::vector<std::size_t> operations;
    for (const Candidate& candidate : candidates)
        operations.push_back(ChooseOperations(candidate, clock));

    std::vector<Timing> timings(candidates.size());
    const double end = ReadNanoseconds(Clock::Wall) + effort.secondsPerComparison * 1e9;
    for (std::size_t round = 0; round < leastRounds || ReadNanoseconds(Clock::Wall) < end; ++round) {
        for (std::size_t turn = 0; turn < candidates.size(); ++turn) {
            // Another one begins each round: who comes after whom must not matter.
            const std::size_t i = (turn + round) % candidates.size();
            const double nanoseconds = TimeBatch(candidates[i], operations[i], clock) - clockCost;
            timings[i].Add(std::max(nanoseconds, 0.1) / static_cast<double>(operations[i]));
        }
    }
    return timings;
}

double FitExponent(const std::vector<double>& sizes, const std::vector<double>& times) {
    double sumX = 0;
    double sumY = 0;
    double sumXX = 0;
    double sumXY = 0;
    const auto n = static_cast<double>(sizes.size());
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        const double x = std::log(sizes[i]);
        const double y = std::log(times[i]);
        sumX += x;
        sumY += y;
        sumXX += x * x;
        sumXY += x * y;
    }
    return (n * sumXY - sumX * sumY) / (n * sumXX - sumX * sumX);
}

std::uint64_t Random::Next() {
    // SplitMix64.
    state_ += 0x9E3779B97F4A7C15ULL;
    std::uint64_t z = state_;
    z = (z ^ (z >> 30U)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27U)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31U);
}

void Table::Add(Row row) {
    constexpr const char* Form = "{:<40} {:>9}  {:<34} {:>9} {:>9} {:>8}  {:<20} {:<22} {}\n";
    if (!std::exchange(hasHeader_, true)) {
        fmt::print(Form, "what", "N", "yardstick", "", "measured", "ratio", "aim", "growth", "");
    }
    const char* verdict = !row.met ? "" : *row.met ? "met" : "MISSED";
    fmt::print(Form, row.what, row.size, row.yardstick, row.yardstickValue, row.measured, row.ratio, row.aim,
               row.growth, verdict);
    std::fflush(stdout);
    rows_.push_back(std::move(row));
}

void Table::PrintSummary() const {
    std::size_t met = 0;
    std::string missed;
    for (const Row& row : rows_) {
        if (!row.met) continue;
        if (*row.met) {
            ++met;
        } else {
            missed += fmt::format("{}{} (N {})", missed.empty() ? "" : ", ", row.what, row.size);
        }
    }
    fmt::print("\n{} aims met{}{}\n", met, missed.empty() ? "" : "; missed: ", missed);
}

std::string FormatTime(double nanoseconds) {
    constexpr std::array<const char*, 4> Units{"ns", "us", "ms", "s"};
    std::size_t unit = 0;
    while (nanoseconds >= 1000 && unit + 1 < Units.size()) {
        nanoseconds /= 1000;
        ++unit;
    }
    return fmt::format("{:.{}f} {}", nanoseconds, nanoseconds < 10 ? 2 : nanoseconds < 100 ? 1 : 0, Units[unit]);
}

std::string FormatRatio(double ratio) {
    if (ratio < 0.1) return fmt::format("1/{:.0f}", 1 / ratio);
    return fmt::format("{:.2f}", ratio);
}

std::string FormatCount(double count) {
    if (count >= 1e4) return fmt::format("10^{:.0f}", std::log10(count));
    return fmt::format("{:.0f}", count);
}

}  // namespace bench
