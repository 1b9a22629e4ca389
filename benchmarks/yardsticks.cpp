#include "benchmarks/yardsticks.h"

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>

namespace bench {

namespace {

constexpr unsigned int KeyStep = 4000;

std::vector<unsigned int> RandomKeys(std::size_t size) {
    Random random(size);
    std::vector<unsigned int> keys(Questions);
    for (unsigned int& key : keys)
        key = random.Below(static_cast<unsigned int>(size) * KeyStep);
    return keys;
}

}  // namespace

Candidate LockAndUnlock() {
    return {"lock+unlock", [mutex = std::make_shared<std::recursive_mutex>()](std::size_t operations) {
                for (std::size_t i = 0; i < operations; ++i) {
                    mutex->lock();
                    benchmark::ClobberMemory();
                    mutex->unlock();
                }
            }};
}

Candidate MapLowerBound(std::size_t size) {
    auto map = std::make_shared<std::map<unsigned int, unsigned int>>();
    for (unsigned int i = 0; i < size; ++i)
        map->emplace_hint(map->end(), i * KeyStep, i);
    return {"map lower_bound", [map, keys = RandomKeys(size), next = std::size_t{0}](std::size_t operations) mutable {
                for (std::size_t i = 0; i < operations; ++i)
                    benchmark::DoNotOptimize(map->lower_bound(keys[next++ % Questions]));
            }};
}

Candidate BranchlessSearch(std::size_t size) {
    std::vector<unsigned int> sorted(size);
    for (unsigned int i = 0; i < size; ++i)
        sorted[i] = i * KeyStep;
    return {"branchless search",
            [sorted, keys = RandomKeys(size), next = std::size_t{0}](std::size_t operations) mutable {
                for (std::size_t i = 0; i < operations; ++i)
                    benchmark::DoNotOptimize(FindBranchless(sorted, keys[next++ % Questions]));
            }};
}

Candidate MapInsert(std::size_t batch) {
    auto map = std::make_shared<std::map<unsigned int, unsigned int>>();
    return {"map insert",
            [map, key = 0U](std::size_t operations) mutable {
                for (std::size_t i = 0; i < operations; ++i)
                    benchmark::DoNotOptimize(map->emplace(++key, key));
            },
            [map] { map->clear(); }, batch};
}

Candidate MapInsertAndErase() {
    auto map = std::make_shared<std::map<unsigned int, unsigned int>>();
    return {"map insert+erase", [map, key = 0U](std::size_t operations) mutable {
                for (std::size_t i = 0; i < operations; ++i) {
                    map->emplace(++key, key);
                    if (map->size() > 25) map->erase(map->begin());
                }
            }};
}

Timing MeasurePipeWakes(std::size_t times, unsigned int pauseMicroseconds) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) throw std::runtime_error("No pipe could be opened to measure a wake-up with.");
    std::atomic<double> woken{0};
    std::thread reader([&] {
        char byte = 0;
        while (read(ends[0], &byte, 1) == 1)
            woken = ReadNanoseconds(Clock::Wall);
    });
    Timing wakes;
    for (std::size_t i = 0; i < times; ++i) {
        // Long enough for the reader to be asleep again.
        usleep(pauseMicroseconds);
        woken = 0;
        const double start = ReadNanoseconds(Clock::Wall);
        if (write(ends[1], "", 1) != 1) throw std::runtime_error("The pipe to measure a wake-up with broke.");
        while (woken.load() == 0)
            std::this_thread::yield();
        wakes.Add(woken - start);
    }
    close(ends[1]);
    reader.join();
    close(ends[0]);
    return wakes;
}

double MeasurePipeWakeNanoseconds(std::size_t times) {
    return MeasurePipeWakes(times).Median();
}

}  // namespace bench
