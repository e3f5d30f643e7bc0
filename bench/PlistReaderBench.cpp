// Throughput of the property-list readers and writers on a generated library of about 2,000
// tracks: the XML file itself and the same tree converted to bplist00.
//
// The library is the file named by RVITUNES_BENCH_LIBRARY, or else the one the build
// generated next to this program.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <span>
#include <string>

#include "rvitunes/plist/BinaryReader.h"
#include "rvitunes/plist/BinaryWriter.h"
#include "rvitunes/plist/XmlReader.h"
#include "rvitunes/plist/XmlWriter.h"

namespace {

using rvitunes::plist::BinaryReader;
using rvitunes::plist::BinaryWriter;
using rvitunes::plist::ParseResult;
using rvitunes::plist::Value;
using rvitunes::plist::XmlReader;
using rvitunes::plist::XmlWriter;

struct Library {
  std::string xml;
  std::string binary;
  Value tree;
  std::string error;  // why the library is unusable; empty when it is fine
};

const Library& library() {
  static const Library lib = [] {
    Library l;
    const char* env = std::getenv("RVITUNES_BENCH_LIBRARY");
    const std::string path = env && *env ? env : RVITUNES_BENCH_DEFAULT_LIBRARY;
    std::ifstream in(path, std::ios::binary);
    if (!in) {
      l.error = "cannot open " + path + " (set RVITUNES_BENCH_LIBRARY)";
      return l;
    }
    l.xml.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    ParseResult parsed = XmlReader::read(l.xml);
    if (!parsed.ok()) {
      l.error = path + ": " + parsed.describe();
      return l;
    }
    l.tree = parsed.root;
    auto binary = BinaryWriter::write(l.tree);
    if (!binary.ok()) {
      l.error = "BinaryWriter: " + binary.status().toString();
      return l;
    }
    l.binary = std::move(binary).value();
    return l;
  }();
  return lib;
}

std::span<const uint8_t> bytesOf(const std::string& s) {
  return {reinterpret_cast<const uint8_t*>(s.data()), s.size()};
}

// Skips the benchmark when the library is unusable; answers whether it may run.
bool ready(benchmark::State& state) {
  if (!library().error.empty()) {
    state.SkipWithError(library().error.c_str());
    return false;
  }
  return true;
}

void BM_XmlReaderRead(benchmark::State& state) {
  if (!ready(state)) return;
  const std::string& xml = library().xml;
  for (auto _ : state) {
    ParseResult result = XmlReader::read(xml);
    benchmark::DoNotOptimize(result.root);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * xml.size()));
}
BENCHMARK(BM_XmlReaderRead)->Unit(benchmark::kMillisecond);

void BM_BinaryReaderRead(benchmark::State& state) {
  if (!ready(state)) return;
  const std::span<const uint8_t> bytes = bytesOf(library().binary);
  for (auto _ : state) {
    ParseResult result = BinaryReader::read(bytes);
    benchmark::DoNotOptimize(result.root);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes.size()));
}
BENCHMARK(BM_BinaryReaderRead)->Unit(benchmark::kMillisecond);

// The writers are measured by the bytes they produce.
void BM_XmlWriterWrite(benchmark::State& state) {
  if (!ready(state)) return;
  size_t written = 0;
  for (auto _ : state) {
    auto text = XmlWriter::write(library().tree);
    written += text.ok() ? text->size() : 0;
    benchmark::DoNotOptimize(text);
  }
  state.SetBytesProcessed(static_cast<int64_t>(written));
}
BENCHMARK(BM_XmlWriterWrite)->Unit(benchmark::kMillisecond);

void BM_BinaryWriterWrite(benchmark::State& state) {
  if (!ready(state)) return;
  size_t written = 0;
  for (auto _ : state) {
    auto bytes = BinaryWriter::write(library().tree);
    written += bytes.ok() ? bytes->size() : 0;
    benchmark::DoNotOptimize(bytes);
  }
  state.SetBytesProcessed(static_cast<int64_t>(written));
}
BENCHMARK(BM_BinaryWriterWrite)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
