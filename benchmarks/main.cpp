#include <cstdio>
#include <cstring>
#include <exception>

#include "benchmarks/rows.h"

// Speed never fails the program: only an error of its own does.
int main(int argc, char** argv) {
    bench::Effort effort;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--brief") == 0) {
            effort.brief = true;
            effort.secondsPerComparison = 0.25;
        } else {
            std::fprintf(stderr, "usage: benchmarks [--brief]\n");
            return 2;
        }
    }
    try {
        bench::Table table;
        bench::AddYardstickRows(table, effort);
        bench::AddAdvanceRows(table, effort);
        bench::AddSeekRows(table, effort);
        bench::AddLoopRows(table, effort);
        bench::AddLoadRows(table, effort);
        bench::AddStatusRows(table, effort);
        bench::AddFeedRows(table, effort);
        bench::AddTimeRows(table, effort);
        bench::AddArithmeticRows(table, effort);
        bench::AddWholeShowRows(table, effort);
        table.PrintSummary();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "benchmarks: %s\n", error.what());
        return 1;
    }
    return 0;
}
