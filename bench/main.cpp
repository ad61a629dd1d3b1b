// The main function of every benchmark program: the kernel is started before anything is measured.
#include <benchmark/benchmark.h>

#include "kernel/startup.h"

int main(int argc, char **argv) {
    kiv::startup();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
