#include "messaging/LocalizedStrings.h"

#include <optional>

#include "util/AtomicFile.h"

namespace vexa {

namespace {

constexpr size_t kLargestFile = 1 << 20;

// Reads strings, '=' and ';' one after another, skipping blanks and comments.
class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  bool atEnd() {
    skip();
    return at_ >= text_.size();
  }
  bool take(char c) {
    skip();
    if (at_ < text_.size() && text_[at_] == c) {
      ++at_;
      return true;
    }
    return false;
  }
  std::optional<std::string> quoted() {
    if (!take('"')) return std::nullopt;
    std::string out;
    while (at_ < text_.size()) {
      char c = text_[at_++];
      if (c == '"') return out;
      if (c == '\\' && at_ < text_.size()) {
        c = text_[at_++];
        c = c == 'n' ? '\n' : c == 't' ? '\t' : c == 'r' ? '\r' : c;
      }
      out.push_back(c);
    }
    return std::nullopt;  // unterminated
  }
  // Moves past the rest of a bad entry.
  void recover() {
    while (at_ < text_.size() && text_[at_] != ';' && text_[at_] != '\n') ++at_;
    if (at_ < text_.size()) ++at_;
  }

 private:
  void skip() {
    for (;;) {
      while (at_ < text_.size() && (text_[at_] == ' ' || text_[at_] == '\t' || text_[at_] == '\n' ||
                                    text_[at_] == '\r')) {
        ++at_;
      }
      if (text_.substr(at_, 2) == "//") {
        const size_t end = text_.find('\n', at_);
        at_ = end == std::string_view::npos ? text_.size() : end;
      } else if (text_.substr(at_, 2) == "/*") {
        const size_t end = text_.find("*/", at_ + 2);
        at_ = end == std::string_view::npos ? text_.size() : end + 2;
      } else {
        return;
      }
    }
  }

  std::string_view text_;
  size_t at_ = 0;
};

}  // namespace

LocalizedStrings LocalizedStrings::load(const std::string& folder, const std::string& language) {
  if (language.empty() || language.find('/') != std::string::npos || language == "..") return {};
  const auto text =
      AtomicFile::read(folder + "/" + language + ".lproj/Localizable.strings", kLargestFile);
  return text ? parse(*text) : LocalizedStrings();
}

LocalizedStrings LocalizedStrings::parse(std::string_view text) {
  LocalizedStrings strings;
  Reader reader(text);
  while (!reader.atEnd()) {
    auto key = reader.quoted();
    if (!key || !reader.take('=')) {
      reader.recover();
      continue;
    }
    auto value = reader.quoted();
    if (!value || !reader.take(';')) {
      reader.recover();
      continue;
    }
    strings.table_[*key] = *value;
  }
  return strings;
}

std::string LocalizedStrings::localized(const std::string& key) const {
  auto it = table_.find(key);
  return it == table_.end() ? key : it->second;
}

}  // namespace vexa
