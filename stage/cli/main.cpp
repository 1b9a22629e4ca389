#include "stage/cli/commands.h"

int main(int argc, char** argv) {
    return RunStageProgram(argc, argv);
}
