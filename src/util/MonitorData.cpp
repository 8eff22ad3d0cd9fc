#include "vexa/util/MonitorData.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>

#include "vexa/util/SystemLog.h"

namespace vexa {

namespace {

constexpr int kGzipWindowBits = 31;        // 15-bit window with the gzip wrapper
constexpr int kAutoHeaderWindowBits = 47;  // 15-bit window, gzip or zlib header detected
constexpr int kZlibWindowBits = 15;

const char* initErrorText(int code) {
  switch (code) {
    case Z_VERSION_ERROR:
      return "The version of zlib.h and the version of the library linked do not match.";
    case Z_MEM_ERROR:
      return "Insufficient memory.";
    case Z_STREAM_ERROR:
      return "Invalid parameter passed in to function.";
    default:
      return "Unknown error code.";
  }
}

const char* compressErrorText(int code) {
  switch (code) {
    case Z_MEM_ERROR:
      return "Memory could not be allocated for processing.";
    case Z_VERSION_ERROR:
      return "The version of zlib.h and the version of the library linked do not match.";
    case Z_BUF_ERROR:
      return "Ran out of output buffer for writing compressed bytes.";
    case Z_DATA_ERROR:
      return "The deflate data was invalid or incomplete.";
    case Z_STREAM_ERROR:
      return "The stream state was inconsistent (e.g., next_in or next_out was NULL).";
    default:
      return "Error occured while reading file.";
  }
}

// One deflate or inflate stream per thread and per parameter set, reset between uses.
class Deflater {
 public:
  Deflater(int level, int windowBits) : level_(level), windowBits_(windowBits) {}
  ~Deflater() {
    if (ready_) deflateEnd(&stream_);
  }
  // Answers the stream ready for new input, or the zlib code of a failed initialisation.
  int acquire() {
    if (ready_) return deflateReset(&stream_);
    std::memset(&stream_, 0, sizeof stream_);
    const int rc = deflateInit2(&stream_, level_, Z_DEFLATED, windowBits_, 8, Z_DEFAULT_STRATEGY);
    ready_ = rc == Z_OK;
    return rc;
  }
  z_stream& stream() { return stream_; }

 private:
  const int level_;
  const int windowBits_;
  bool ready_ = false;
  z_stream stream_{};
};

class Inflater {
 public:
  explicit Inflater(int windowBits) : windowBits_(windowBits) {}
  ~Inflater() {
    if (ready_) inflateEnd(&stream_);
  }
  int acquire() {
    if (ready_) return inflateReset(&stream_);
    std::memset(&stream_, 0, sizeof stream_);
    const int rc = inflateInit2(&stream_, windowBits_);
    ready_ = rc == Z_OK;
    return rc;
  }
  z_stream& stream() { return stream_; }

 private:
  const int windowBits_;
  bool ready_ = false;
  z_stream stream_{};
};

// Compresses all of `data` in one call: deflateBound() sizes the output for the worst case.
std::optional<Bytes> deflateAll(Deflater& deflater, std::span<const std::uint8_t> data,
                                bool logErrors) {
  const int init = deflater.acquire();
  if (init != Z_OK) {
    if (logErrors) {
      SystemLog::log("%s: deflateInit2() Error: \"%s\" Message: \"%s\"",
                     "-[NSData(Monitor) gzipData]", initErrorText(init),
                     deflater.stream().msg ? deflater.stream().msg : "");
    }
    return std::nullopt;
  }
  z_stream& s = deflater.stream();
  Bytes out(deflateBound(&s, static_cast<uLong>(data.size())));
  s.next_in = const_cast<Bytef*>(data.data());
  s.avail_in = static_cast<uInt>(data.size());
  s.next_out = out.data();
  s.avail_out = static_cast<uInt>(out.size());
  int rc = Z_OK;
  while ((rc = deflate(&s, Z_FINISH)) == Z_OK || (rc == Z_BUF_ERROR && s.avail_out == 0)) {
    // deflateBound is a true bound; growing is only a safety net.
    const size_t used = out.size() - s.avail_out;
    out.resize(out.size() + out.size() / 2 + 64);
    s.next_out = out.data() + used;
    s.avail_out = static_cast<uInt>(out.size() - used);
  }
  if (rc != Z_STREAM_END) {
    if (logErrors) {
      SystemLog::log("%s: zlib error while attempting compression: \"%s\" Message: \"%s\"",
                     "-[NSData(Monitor) gzipData]", compressErrorText(rc), s.msg ? s.msg : "");
    }
    return std::nullopt;
  }
  out.resize(s.total_out);
  return out;
}

// Inflates from an output buffer of 1.5 times the input, growing while it fills, until the
// stream ends. Growth is geometric so that highly compressed input costs linear time.
std::optional<Bytes> inflateAll(Inflater& inflater, std::span<const std::uint8_t> data,
                                std::size_t limit, bool* tooLarge) {
  if (tooLarge) *tooLarge = false;
  if (data.empty() || inflater.acquire() != Z_OK) return std::nullopt;
  z_stream& s = inflater.stream();
  Bytes out(std::min(limit, data.size() + data.size() / 2));
  s.next_in = const_cast<Bytef*>(data.data());
  s.avail_in = static_cast<uInt>(data.size());
  size_t used = 0;
  for (;;) {
    if (used == out.size()) {
      if (out.size() >= limit) {
        if (tooLarge) *tooLarge = true;
        return std::nullopt;
      }
      const size_t grow = std::max(data.size() / 2, out.size());
      out.resize(std::min(limit, out.size() + std::max<size_t>(grow, 64)));
    }
    s.next_out = out.data() + used;
    s.avail_out = static_cast<uInt>(std::min<size_t>(out.size() - used, UINT32_MAX));
    const uInt before = s.avail_out;
    const int rc = inflate(&s, Z_SYNC_FLUSH);
    used += before - s.avail_out;
    if (rc == Z_STREAM_END) break;
    if (rc == Z_OK) continue;
    if (rc == Z_BUF_ERROR && s.avail_out == 0) continue;  // full buffer: grow
    return std::nullopt;  // data error, truncated input, out of memory
  }
  out.resize(used);
  return out;
}

}  // namespace

Bytes MonitorData::encodeCOBS(std::span<const std::uint8_t> data) {
  if (data.empty()) return {};
  Bytes out(data.size() + data.size() / 254 + 1);
  size_t codeAt = 0;
  size_t write = 1;
  std::uint8_t code = 1;
  for (size_t i = 0; i < data.size(); ++i) {
    if (data[i] != 0) {
      out[write++] = data[i];
      ++code;
    }
    if (data[i] == 0 || code == 0xFF) {
      out[codeAt] = code;
      code = 1;
      codeAt = write;
      // A full block at the very end needs no further code byte.
      if (data[i] == 0 || i + 1 < data.size()) ++write;
    }
  }
  if (codeAt < out.size()) out[codeAt] = code;
  out.resize(write);
  return out;
}

Bytes MonitorData::decodeCOBS(std::span<const std::uint8_t> data) {
  if (data.empty()) return {};
  Bytes out;
  out.reserve(data.size());
  size_t i = 0;
  while (i < data.size()) {
    const std::uint8_t code = data[i++];
    if (code == 0) break;  // delimiter
    for (std::uint8_t k = 1; k < code && i < data.size(); ++k) out.push_back(data[i++]);
    if (code != 0xFF && i < data.size() && data[i] != 0) out.push_back(0);
  }
  return out;
}

std::optional<Bytes> MonitorData::zlibDeflate(std::span<const std::uint8_t> data) {
  thread_local Deflater deflater(1, kZlibWindowBits);
  return deflateAll(deflater, data, false);
}

std::optional<Bytes> MonitorData::zlibInflate(std::span<const std::uint8_t> data, std::size_t limit,
                                              bool* tooLarge) {
  thread_local Inflater inflater(kZlibWindowBits);
  return inflateAll(inflater, data, limit, tooLarge);
}

std::optional<Bytes> MonitorData::gzipData(std::span<const std::uint8_t> data) {
  if (data.empty()) return Bytes{};
  thread_local Deflater deflater(Z_DEFAULT_COMPRESSION, kGzipWindowBits);
  return deflateAll(deflater, data, true);
}

std::optional<Bytes> MonitorData::gzipData(std::string_view text) {
  return gzipData(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

std::optional<Bytes> MonitorData::ungzipData(std::span<const std::uint8_t> data, std::size_t limit,
                                             bool* tooLarge) {
  thread_local Inflater inflater(kAutoHeaderWindowBits);
  return inflateAll(inflater, data, limit, tooLarge);
}

}  // namespace vexa
