// Trouble-code database: loading, lookups of one code, the whole list.

#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "dtc/dtcreader.h"

namespace {

using obd::DtcReader;

void dtcInit(benchmark::State& state) {
  DtcReader::clean();
  for (auto _ : state) {
    DtcReader::init();
    state.PauseTiming();
    DtcReader::clean();
    state.ResumeTiming();
  }
}
BENCHMARK(dtcInit)->Unit(benchmark::kMicrosecond);

// Codes from all over the table, one after the other.
void dtcLookup(benchmark::State& state) {
  DtcReader::clean();
  DtcReader::init();
  const DtcReader reader;
  std::vector<std::string> codes;
  const auto all = reader.getTroubleCodes();
  for (std::size_t i = 0; i < all.size(); i += 7) {
    codes.push_back(all[i * 5 % all.size()]->code());
  }
  std::size_t next = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(reader.getTroubleCodes(codes[next]));
    next = next + 1 < codes.size() ? next + 1 : 0;
  }
  DtcReader::clean();
}
BENCHMARK(dtcLookup)->Unit(benchmark::kNanosecond);

void dtcLookupOf(benchmark::State& state, const char* text) {
  DtcReader::clean();
  DtcReader::init();
  const std::string code = text;
  for (auto _ : state) {
    benchmark::DoNotOptimize(DtcReader().getTroubleCodes(code));
  }
  DtcReader::clean();
}
BENCHMARK_CAPTURE(dtcLookupOf, generic, "P0300")->Unit(benchmark::kNanosecond);
BENCHMARK_CAPTURE(dtcLookupOf, manyMakes, "P1500")->Unit(benchmark::kNanosecond);
BENCHMARK_CAPTURE(dtcLookupOf, miss, "P1FFF")->Unit(benchmark::kNanosecond);

void dtcGenericCode(benchmark::State& state) {
  DtcReader::clean();
  DtcReader::init();
  const std::string code = "P0300";
  for (auto _ : state) {
    benchmark::DoNotOptimize(DtcReader().getGenericCode(code));
  }
  DtcReader::clean();
}
BENCHMARK(dtcGenericCode)->Unit(benchmark::kNanosecond);

// The first whole list after loading makes every record.
void dtcWholeList(benchmark::State& state) {
  const bool fresh = state.range(0) != 0;
  DtcReader::clean();
  DtcReader::init();
  for (auto _ : state) {
    if (fresh) {
      state.PauseTiming();
      DtcReader::clean();
      DtcReader::init();
      state.ResumeTiming();
    }
    benchmark::DoNotOptimize(DtcReader().getTroubleCodes());
  }
  DtcReader::clean();
}
BENCHMARK(dtcWholeList)->ArgName("fresh")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

}  // namespace
