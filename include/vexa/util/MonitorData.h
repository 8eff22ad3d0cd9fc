#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "vexa/Export.h"

namespace vexa {

using Bytes = std::vector<std::uint8_t>;

// Byte-buffer operations: COBS framing, raw zlib streams and gzip.
//
// All operations are safe from any thread. The compressors keep one zlib stream per thread and
// reset it between calls: a fresh stream's quarter megabyte of working memory would otherwise be
// mapped and faulted in anew for every message. Resetting yields the same bytes as a fresh
// stream.
class VEXA_EXPORT MonitorData {
 public:
  // What ungzipData and zlibInflate produce at most unless told otherwise.
  static constexpr std::size_t kDefaultInflateLimit = std::size_t{1} << 30;

  // Consistent Overhead Byte Stuffing; empty input yields empty output.
  static Bytes encodeCOBS(std::span<const std::uint8_t> data);
  // The inverse. Decoding stops at a zero byte (a frame delimiter); a truncated last block
  // yields the bytes it holds.
  static Bytes decodeCOBS(std::span<const std::uint8_t> data);

  // A zlib stream at compression level 1.
  static std::optional<Bytes> zlibDeflate(std::span<const std::uint8_t> data);
  // The inflated bytes of a zlib stream; empty on any error, on truncation, or when the output
  // would exceed `limit`.
  // `tooLarge`, when given, tells whether the limit was the reason for an empty answer.
  static std::optional<Bytes> zlibInflate(std::span<const std::uint8_t> data,
                                          std::size_t limit = kDefaultInflateLimit,
                                          bool* tooLarge = nullptr);

  // A gzip stream: default level, deflate, window bits 31, memory level 8, default strategy.
  // Empty input yields empty output. Empty (and logged) on a zlib error.
  static std::optional<Bytes> gzipData(std::span<const std::uint8_t> data);
  static std::optional<Bytes> gzipData(std::string_view text);
  // The inflated bytes of a gzip or zlib stream (header detected); empty on any error, on
  // truncation, or when the output would exceed `limit` (a guard against compression bombs).
  static std::optional<Bytes> ungzipData(std::span<const std::uint8_t> data,
                                         std::size_t limit = kDefaultInflateLimit,
                                         bool* tooLarge = nullptr);
};

}  // namespace vexa
