// Counting established connections in 100,000 lines of lister output, beside merely counting the
// lines of the same text (a plain loop, and the C library's memchr).

#include "netcheck/net_info.h"

#include <benchmark/benchmark.h>

#include "ratio_reporter.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace {

std::string listerOutput(std::int64_t lines) {
    std::string text = "COMMAND     PID USER   FD   TYPE DEVICE SIZE/OFF NODE NAME\n";
    for (std::int64_t i = 0; i < lines; ++i) {
        switch (i % 4) {
        case 0: text += "velmora-s 4242 anna   12u  IPv4 0x1234      0t0  TCP *:3389 (LISTEN)\n"; break;
        case 1:
            text += "velmora-s 4242 anna   13u  IPv4 0x1235      0t0  TCP 192.168.1.20:3389->192.168.1.50:" +
                    std::to_string(50000 + i % 10000) + " (ESTABLISHED)\n";
            break;
        case 2: text += "mstsc     5000 anna   16u  IPv4 0x1238      0t0  TCP 192.168.1.20:60000->10.0.0.9:3389 (ESTABLISHED)\n"; break;
        default: text += "velmora-s 4242 anna   14u  IPv6 0x1236      0t0  TCP [fe80::1]:3389->[fe80::2]:50000 (ESTABLISHED)\n";
        }
    }
    return text;
}

void CountEstablished(benchmark::State& state) {
    std::string text = listerOutput(state.range(0));
    for (auto _ : state) benchmark::DoNotOptimize(velmora::NetInfo::countEstablished(text, 3389));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void CountLines(benchmark::State& state) {
    std::string text = listerOutput(state.range(0));
    for (auto _ : state) benchmark::DoNotOptimize(std::count(text.begin(), text.end(), '\n'));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

// Line counting with the C library's vectorised search, the way the lines are found in ours.
void CountLinesMemchr(benchmark::State& state) {
    std::string text = listerOutput(state.range(0));
    for (auto _ : state) {
        std::size_t lines = 0;
        const char* at = text.data();
        const char* end = text.data() + text.size();
        while (const void* found = std::memchr(at, '\n', static_cast<std::size_t>(end - at))) {
            ++lines;
            at = static_cast<const char*>(found) + 1;
        }
        benchmark::DoNotOptimize(lines);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

}  // namespace

BENCHMARK(CountEstablished)->Arg(100000);
BENCHMARK(CountLines)->Arg(100000);
BENCHMARK(CountLinesMemchr)->Arg(100000);

int main(int argc, char** argv) {
    return velmora::bench::runWithRatios(argc, argv, {{"CountEstablished", "CountLines"}, {"CountEstablished", "CountLinesMemchr"}});
}
