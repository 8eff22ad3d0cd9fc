// gzip of a typical 300-byte message: the library against raw zlib in the same run.
//   floor:  one deflate stream reset between messages (what zlib can do at best)
//   fresh:  a new stream per message (init, deflate, end), the naive use of zlib
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <string>

#include "vexa/util/MonitorData.h"

namespace {

const std::string& message() {
  static const std::string m =
      R"({"name":"InstallCommand","parms":{"AppFile":{"appName":"Example Editor",)"
      R"("appPath":"/home/user/.local/share/applications/org.example.Editor.desktop",)"
      R"("appVersion":"4.2.1","appBundleIdentifer":"org.example.Editor","appSize":184320512,)"
      R"("isSupportPlatform":true,"needForceRemove":false,"appIconPath":"/tmp/i.png"}}})";
  return m;
}

vexa::Bytes messageBytes() { return vexa::Bytes(message().begin(), message().end()); }

void deflateInto(z_stream& s, const vexa::Bytes& in, vexa::Bytes& out) {
  out.resize(deflateBound(&s, in.size()));
  s.next_in = const_cast<Bytef*>(in.data());
  s.avail_in = static_cast<uInt>(in.size());
  s.next_out = out.data();
  s.avail_out = static_cast<uInt>(out.size());
  deflate(&s, Z_FINISH);
  out.resize(s.total_out);
}

void inflateInto(z_stream& s, const vexa::Bytes& in, vexa::Bytes& out) {
  out.resize(in.size() * 4);
  s.next_in = const_cast<Bytef*>(in.data());
  s.avail_in = static_cast<uInt>(in.size());
  s.next_out = out.data();
  s.avail_out = static_cast<uInt>(out.size());
  inflate(&s, Z_FINISH);
  out.resize(s.total_out);
}

void Gzip_library(benchmark::State& state) {
  const vexa::Bytes in = messageBytes();
  for (auto _ : state) benchmark::DoNotOptimize(vexa::MonitorData::gzipData(in));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * in.size()));
}

void Gzip_floor(benchmark::State& state) {
  const vexa::Bytes in = messageBytes();
  vexa::Bytes out;
  z_stream s{};
  deflateInit2(&s, Z_DEFAULT_COMPRESSION, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY);
  for (auto _ : state) {
    deflateReset(&s);
    deflateInto(s, in, out);
    benchmark::DoNotOptimize(out.data());
  }
  deflateEnd(&s);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * in.size()));
}

void Gzip_fresh(benchmark::State& state) {
  const vexa::Bytes in = messageBytes();
  vexa::Bytes out;
  for (auto _ : state) {
    z_stream s{};
    deflateInit2(&s, Z_DEFAULT_COMPRESSION, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY);
    deflateInto(s, in, out);
    deflateEnd(&s);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * in.size()));
}

void Ungzip_library(benchmark::State& state) {
  const vexa::Bytes packed = *vexa::MonitorData::gzipData(messageBytes());
  for (auto _ : state) benchmark::DoNotOptimize(vexa::MonitorData::ungzipData(packed));
}

void Ungzip_floor(benchmark::State& state) {
  const vexa::Bytes packed = *vexa::MonitorData::gzipData(messageBytes());
  vexa::Bytes out;
  z_stream s{};
  inflateInit2(&s, 47);
  for (auto _ : state) {
    inflateReset(&s);
    inflateInto(s, packed, out);
    benchmark::DoNotOptimize(out.data());
  }
  inflateEnd(&s);
}

}  // namespace

BENCHMARK(Gzip_library)->Name("Gzip300/library");
BENCHMARK(Gzip_floor)->Name("Gzip300/floor");
BENCHMARK(Gzip_fresh)->Name("Gzip300/fresh-stream-per-message");
BENCHMARK(Ungzip_library)->Name("Ungzip300/library");
BENCHMARK(Ungzip_floor)->Name("Ungzip300/floor");
