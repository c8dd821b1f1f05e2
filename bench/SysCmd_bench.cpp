// What the command table costs on this machine: resolving the whole table at
// start-up, listing a large directory, and the overhead of SysCmd (building,
// logging decisions, redirection) over a plain system() of the same line.
#include <benchmark/benchmark.h>

#include <cstdlib>

#include "SysCmd.h"

namespace {

void BM_InitSysCmdList(benchmark::State &state) {
    for (auto _ : state) {
        state.PauseTiming();
        ResetSysCmdList();
        state.ResumeTiming();
        InitSysCmdList();
    }
    ResetSysCmdList();
}
BENCHMARK(BM_InitSysCmdList)->Unit(benchmark::kMillisecond);

void BM_GetDirFileListUsrBin(benchmark::State &state) {
    for (auto _ : state) {
        char *list = GetDirFileList("/usr/bin");
        benchmark::DoNotOptimize(list);
        PutMem(list);
    }
}
BENCHMARK(BM_GetDirFileListUsrBin)->Unit(benchmark::kMicrosecond);

void BM_SysCmdEcho(benchmark::State &state) {
    InitSysCmdList();
    for (auto _ : state) benchmark::DoNotOptimize(SysCmd(CMD_ECHO, 0, "%s", "x"));
}
BENCHMARK(BM_SysCmdEcho)->Unit(benchmark::kMillisecond);

void BM_PlainSystemEcho(benchmark::State &state) {
    const char *line = "/usr/bin/sh -c \"/usr/bin/echo  x 1>/dev/null 2>/dev/null\"";
    for (auto _ : state) benchmark::DoNotOptimize(std::system(line));
}
BENCHMARK(BM_PlainSystemEcho)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
