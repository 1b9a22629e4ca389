#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iterator>
#include <set>
#include <string>

#include "benchmarks/rows.h"

namespace {

struct Group {
    const char* name;
    void (*add)(bench::Table&, const bench::Effort&);
};

constexpr Group Groups[] = {
    {"yardsticks", bench::AddYardstickRows},
    {"advance", bench::AddAdvanceRows},
    {"seek", bench::AddSeekRows},
    {"loops", bench::AddLoopRows},
    {"load", bench::AddLoadRows},
    {"statuses", bench::AddStatusRows},
    {"feed", bench::AddFeedRows},
    {"time", bench::AddTimeRows},
    {"arithmetic", bench::AddArithmeticRows},
    {"show", bench::AddWholeShowRows},
    {"beats", bench::AddBeatsRows},
    {"open", bench::AddOpenRows},
    {"save", bench::AddSaveRows},
    {"render", bench::AddRenderRows},
    {"control", bench::AddControlRows},
    {"c", bench::AddCLibraryRows},
    {"score", bench::AddScoreRows},
    {"midi", bench::AddMidiRows},
    {"live", bench::AddLiveRows},
    {"osc", bench::AddOscRows},
};

void PrintUsage() {
    std::fprintf(stderr, "usage: benchmarks [--brief] [GROUP...]\ngroups:");
    for (const Group& group : Groups)
        std::fprintf(stderr, " %s", group.name);
    std::fprintf(stderr, "; without one, all\n");
}

}  // namespace

// Speed never fails the program: only an error of its own does.
int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], bench::OpenShowArgument) == 0) {
        bench::OpenShow(argv[2]);
        return 0;
    }
    if (argc == 3 && std::strcmp(argv[1], bench::PlayShowArgument) == 0) {
        bench::PlayShow(argv[2]);
        return 0;
    }
    bench::Effort effort;
    std::set<std::string> wanted;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const bool isGroup = std::any_of(std::begin(Groups), std::end(Groups),
                                         [&argument](const Group& group) { return argument == group.name; });
        if (argument == "--brief") {
            effort.brief = true;
            effort.secondsPerComparison = 0.15;
        } else if (isGroup) {
            wanted.insert(argument);
        } else {
            PrintUsage();
            return 2;
        }
    }
    try {
        bench::Table table;
        for (const Group& group : Groups) {
            if (wanted.empty() || wanted.count(group.name) != 0) group.add(table, effort);
        }
        table.PrintSummary();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "benchmarks: %s\n", error.what());
        return 1;
    }
    return 0;
}
