#include "vexa/util/MonitorData.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <string>
#include <thread>

namespace vexa {
namespace monitor_data_test {

Bytes bytes(std::initializer_list<int> values) {
  Bytes out;
  for (int v : values) out.push_back(static_cast<std::uint8_t>(v));
  return out;
}

Bytes filled(size_t n, std::uint8_t first = 1) {
  Bytes out(n);
  for (size_t i = 0; i < n; ++i) out[i] = static_cast<std::uint8_t>(first + i % 255);
  return out;
}

Bytes concat(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// What a fresh zlib stream makes of the same input, as a reference.
Bytes freshGzip(const Bytes& in) {
  z_stream s{};
  EXPECT_EQ(deflateInit2(&s, Z_DEFAULT_COMPRESSION, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY), Z_OK);
  Bytes out(deflateBound(&s, in.size()));
  s.next_in = const_cast<Bytef*>(in.data());
  s.avail_in = static_cast<uInt>(in.size());
  s.next_out = out.data();
  s.avail_out = static_cast<uInt>(out.size());
  EXPECT_EQ(deflate(&s, Z_FINISH), Z_STREAM_END);
  out.resize(s.total_out);
  deflateEnd(&s);
  return out;
}

Bytes text(const std::string& s) { return Bytes(s.begin(), s.end()); }

TEST(MonitorDataTest, CobsEncodesTheStandardExamples) {
  struct Case {
    Bytes plain, encoded;
  } cases[] = {
      {bytes({0x00}), bytes({0x01, 0x01})},
      {bytes({0x00, 0x00}), bytes({0x01, 0x01, 0x01})},
      {bytes({0x11, 0x22, 0x00, 0x33}), bytes({0x03, 0x11, 0x22, 0x02, 0x33})},
      {bytes({0x11, 0x22, 0x33, 0x44}), bytes({0x05, 0x11, 0x22, 0x33, 0x44})},
      {bytes({0x11, 0x00, 0x00, 0x00}), bytes({0x02, 0x11, 0x01, 0x01, 0x01})},
      // A full block of 254 non-zero bytes needs no trailing code byte...
      {filled(254), concat(bytes({0xFF}), filled(254))},
      // ...but one more byte starts a new block.
      {filled(255), concat(concat(bytes({0xFF}), filled(254)), bytes({0x02, 0xFF}))},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(MonitorData::encodeCOBS(c.plain), c.encoded);
    EXPECT_EQ(MonitorData::decodeCOBS(c.encoded), c.plain);
  }
  EXPECT_TRUE(MonitorData::encodeCOBS({}).empty());
  EXPECT_TRUE(MonitorData::decodeCOBS({}).empty());
}

TEST(MonitorDataTest, CobsRoundTripsRandomDataWithinItsStatedCapacity) {
  std::mt19937 rng(7);
  for (size_t n : {1u, 2u, 253u, 254u, 255u, 508u, 509u, 1000u, 70000u}) {
    Bytes data(n);
    for (auto& b : data) b = static_cast<std::uint8_t>(rng() % 4 == 0 ? 0 : rng());
    const Bytes encoded = MonitorData::encodeCOBS(data);
    EXPECT_LE(encoded.size(), n + n / 254 + 1);
    EXPECT_EQ(std::count(encoded.begin(), encoded.end(), 0), 0);
    EXPECT_EQ(MonitorData::decodeCOBS(encoded), data) << n;
  }
}

TEST(MonitorDataTest, CobsDecodingStopsAtADelimiterAndToleratesTruncation) {
  EXPECT_EQ(MonitorData::decodeCOBS(bytes({0x03, 0x11, 0x22, 0x00, 0x02, 0x33})),
            bytes({0x11, 0x22}));
  EXPECT_EQ(MonitorData::decodeCOBS(bytes({0x05, 0x11})), bytes({0x11}));
}

TEST(MonitorDataTest, GzipIsByteIdenticalToAFreshStreamEveryTime) {
  // The per-thread stream is reset between calls; its output must never depend on history.
  std::mt19937 rng(1);
  std::vector<Bytes> inputs = {text("{\"name\":\"quit\"}"), filled(100000), Bytes(1, 0)};
  for (int i = 0; i < 20; ++i) {
    Bytes random(rng() % 5000 + 1);
    for (auto& b : random) b = static_cast<std::uint8_t>(rng() % 16);
    inputs.push_back(random);
  }
  for (int round = 0; round < 2; ++round) {
    for (const Bytes& in : inputs) {
      auto out = MonitorData::gzipData(in);
      ASSERT_TRUE(out);
      EXPECT_EQ(*out, freshGzip(in));
    }
  }
}

TEST(MonitorDataTest, GzipWritesTheGzipWrapperAndRoundTrips) {
  const Bytes message = text(R"({"name":"InstallCommand","parms":{"AppFile":{"appName":"x"}}})");
  auto packed = MonitorData::gzipData(message);
  ASSERT_TRUE(packed);
  ASSERT_GE(packed->size(), 18u);
  EXPECT_EQ((*packed)[0], 0x1F);
  EXPECT_EQ((*packed)[1], 0x8B);
  EXPECT_EQ((*packed)[2], 0x08);  // deflate
  EXPECT_EQ(MonitorData::ungzipData(*packed), message);
  EXPECT_EQ(MonitorData::gzipData(std::string_view("abc")), MonitorData::gzipData(text("abc")));
}

TEST(MonitorDataTest, EmptyInputs) {
  EXPECT_EQ(MonitorData::gzipData(Bytes{}), Bytes{});
  EXPECT_FALSE(MonitorData::ungzipData(Bytes{}));
  auto deflated = MonitorData::zlibDeflate(Bytes{});
  ASSERT_TRUE(deflated);
  EXPECT_EQ(MonitorData::zlibInflate(*deflated), Bytes{});
}

TEST(MonitorDataTest, UngzipDetectsZlibHeadersButZlibInflateTakesOnlyZlib) {
  const Bytes data = filled(4000);
  auto zlibStream = MonitorData::zlibDeflate(data);
  ASSERT_TRUE(zlibStream);
  EXPECT_EQ((*zlibStream)[0], 0x78);
  EXPECT_EQ((*zlibStream)[1], 0x01);  // level 1
  EXPECT_EQ(MonitorData::zlibInflate(*zlibStream), data);
  EXPECT_EQ(MonitorData::ungzipData(*zlibStream), data);
  EXPECT_FALSE(MonitorData::zlibInflate(*MonitorData::gzipData(data)));
}

TEST(MonitorDataTest, BadStreamsGiveNothing) {
  const Bytes good = *MonitorData::gzipData(filled(3000));
  Bytes truncated(good.begin(), good.begin() + static_cast<long>(good.size() / 2));
  Bytes corrupt = good;
  corrupt[good.size() / 2] ^= 0xFF;
  corrupt[good.size() / 2 + 1] ^= 0x5A;
  Bytes badCrc = good;
  badCrc[good.size() - 6] ^= 0x01;
  for (const Bytes& bad :
       {truncated, corrupt, badCrc, text("not compressed at all"), bytes({0x1F, 0x8B})}) {
    EXPECT_FALSE(MonitorData::ungzipData(bad));
  }
}

TEST(MonitorDataTest, InflationStopsAtItsLimit) {
  // 64 MiB of zeros packs into about 64 KiB: a bomb for a small limit.
  const Bytes zeros(64 << 20, 0);
  const Bytes bomb = *MonitorData::gzipData(zeros);
  EXPECT_LT(bomb.size(), 100000u);
  bool tooLarge = false;
  EXPECT_FALSE(MonitorData::ungzipData(bomb, 1 << 20, &tooLarge));
  EXPECT_TRUE(tooLarge);
  EXPECT_FALSE(MonitorData::ungzipData(Bytes{0x1F, 0x8B, 0x08, 0x00}, 1 << 20, &tooLarge));
  EXPECT_FALSE(tooLarge);  // broken, not too large
  auto whole = MonitorData::ungzipData(bomb, 64 << 20);
  ASSERT_TRUE(whole);
  EXPECT_EQ(whole->size(), zeros.size());
  const Bytes small = *MonitorData::gzipData(text("exactly"));
  EXPECT_EQ(MonitorData::ungzipData(small, 7), text("exactly"));
  EXPECT_FALSE(MonitorData::ungzipData(small, 6));
}

TEST(MonitorDataTest, ThreadsCompressIndependently) {
  std::vector<std::thread> threads;
  std::atomic<int> mismatches{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 200; ++i) {
        Bytes in = filled(static_cast<size_t>(100 + t * 37 + i), static_cast<std::uint8_t>(t + 1));
        auto out = MonitorData::ungzipData(*MonitorData::gzipData(in));
        if (!out || *out != in) ++mismatches;
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(mismatches, 0);
}

}  // namespace monitor_data_test
}  // namespace vexa
