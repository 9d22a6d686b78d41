// MD4 throughput of our own implementation beside OpenSSL's (legacy provider) on the same inputs.
// The ratio of the two is printed at the end of the run.

#include "nla/md4.h"

#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <openssl/provider.h>

#include "ratio_reporter.h"

#include <vector>

namespace {

std::vector<uint8_t> input(std::size_t size) {
    std::vector<uint8_t> data(size);
    for (std::size_t i = 0; i < size; ++i) data[i] = static_cast<uint8_t>(i * 131 + 7);
    return data;
}

void countBytes(benchmark::State& state) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

void Velmora(benchmark::State& state) {
    auto data = input(static_cast<std::size_t>(state.range(0)));
    uint8_t out[16];
    for (auto _ : state) {
        velmora_md4(data.data(), data.size(), out);
        benchmark::DoNotOptimize(out);
    }
    countBytes(state);
}

void OpenSSL(benchmark::State& state) {
    static OSSL_PROVIDER* legacy = OSSL_PROVIDER_load(nullptr, "legacy");
    static OSSL_PROVIDER* base = OSSL_PROVIDER_load(nullptr, "default");
    (void)base;
    EVP_MD* md4 = legacy ? EVP_MD_fetch(nullptr, "MD4", nullptr) : nullptr;
    if (!md4) {
        state.SkipWithError("OpenSSL's legacy provider has no MD4 here");
        return;
    }
    auto data = input(static_cast<std::size_t>(state.range(0)));
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    for (auto _ : state) {
        EVP_DigestInit_ex(context, md4, nullptr);
        EVP_DigestUpdate(context, data.data(), data.size());
        EVP_DigestFinal_ex(context, out, &length);
        benchmark::DoNotOptimize(out);
    }
    EVP_MD_CTX_free(context);
    EVP_MD_free(md4);
    countBytes(state);
}

}  // namespace

BENCHMARK(Velmora)->Arg(64)->Arg(4096)->Arg(1 << 20);
BENCHMARK(OpenSSL)->Arg(64)->Arg(4096)->Arg(1 << 20);

int main(int argc, char** argv) {
    return velmora::bench::runWithRatios(argc, argv, {{"Velmora", "OpenSSL"}});
}
