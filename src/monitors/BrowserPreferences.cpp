#include "monitors/BrowserPreferences.h"

#include <cctype>
#include <cstring>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "util/Utf8.h"

namespace vexa {

namespace {

using nlohmann::json;

// Finds one string two objects deep without building the document: preference files of a few
// megabytes are read on every change, and the rest of their contents is of no interest.
class StringAtPath : public nlohmann::json_sax<json> {
 public:
  StringAtPath(const char* object, const char* key) : object_(object), key_(key) {}

  std::optional<std::string> found;

  bool null() override { return value(); }
  bool boolean(bool) override { return value(); }
  bool number_integer(number_integer_t) override { return value(); }
  bool number_unsigned(number_unsigned_t) override { return value(); }
  bool number_float(number_float_t, const string_t&) override { return value(); }
  bool binary(binary_t&) override { return value(); }
  bool string(string_t& text) override {
    if (atTarget()) found = std::move(text);
    return value();
  }
  bool start_object(std::size_t) override {
    frames_.push_back({true, pendingKey()});
    return true;
  }
  bool end_object() override {
    frames_.pop_back();
    return value();
  }
  bool start_array(std::size_t) override {
    frames_.push_back({false, pendingKey()});
    return true;
  }
  bool end_array() override {
    frames_.pop_back();
    return value();
  }
  bool key(string_t& name) override {
    key_pending_ = std::move(name);
    return true;
  }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
    return false;
  }

 private:
  struct Frame {
    bool isObject;
    std::string key;  // under which its parent holds it
  };
  std::string pendingKey() {
    // A container inside an array has no key; mark it so no path can match through it.
    if (!frames_.empty() && !frames_.back().isObject) return std::string("\0", 1);
    return std::move(key_pending_);
  }
  bool value() { return true; }
  // A string value at root.object_.key_, every level an object.
  bool atTarget() const {
    return frames_.size() == 2 && frames_[0].isObject && frames_[1].isObject &&
           frames_[1].key == object_ && key_pending_ == key_;
  }

  const char* object_;
  const char* key_;
  std::vector<Frame> frames_;
  std::string key_pending_;
};

// prefs.js statements, read by a small hand-written scanner.
class PrefsScanner {
 public:
  explicit PrefsScanner(std::string_view text) : s_(text) {}

  std::map<std::string, BrowserPreferences::PrefValue> run() {
    std::map<std::string, BrowserPreferences::PrefValue> prefs;
    for (;;) {
      skipSpace();
      if (at_ >= s_.size()) break;
      const size_t start = at_;
      std::string name;
      BrowserPreferences::PrefValue value;
      if (statement(name, value)) {
        prefs[std::move(name)] = std::move(value);
      } else {
        // Resynchronise after the next ';' (always moving forward).
        const size_t semicolon = s_.find(';', start);
        at_ = semicolon == std::string_view::npos ? s_.size() : semicolon + 1;
      }
    }
    return prefs;
  }

 private:
  bool statement(std::string& name, BrowserPreferences::PrefValue& value) {
    const std::string_view word = identifier();
    if (word != "user_pref" && word != "pref" && word != "sticky_pref") return false;
    if (!punct('(') || !string(name) || !punct(',')) return false;
    skipSpace();
    if (at_ < s_.size() && (s_[at_] == '"' || s_[at_] == '\'')) {
      std::string text;
      if (!string(text)) return false;
      value = std::move(text);
    } else {
      const std::string_view literal = identifier();
      if (literal == "true" || literal == "false") {
        value = literal == "true";
      } else if (!literal.empty()) {
        return false;
      } else {
        int64_t number = 0;
        if (!integer(number)) return false;
        value = number;
      }
    }
    // pref() may carry attributes after the value: `, sticky` or `, locked`.
    while (punct(',')) {
      if (identifier().empty()) return false;
    }
    return punct(')') && punct(';');
  }

  void skipSpace() {
    while (at_ < s_.size()) {
      const char c = s_[at_];
      if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v') {
        ++at_;
      } else if (c == '#' || s_.substr(at_, 2) == "//") {
        const size_t end = s_.find('\n', at_);
        at_ = end == std::string_view::npos ? s_.size() : end + 1;
      } else if (s_.substr(at_, 2) == "/*") {
        const size_t end = s_.find("*/", at_ + 2);
        at_ = end == std::string_view::npos ? s_.size() : end + 2;
      } else {
        break;
      }
    }
  }

  bool punct(char c) {
    skipSpace();
    if (at_ < s_.size() && s_[at_] == c) {
      ++at_;
      return true;
    }
    return false;
  }

  std::string_view identifier() {
    skipSpace();
    const size_t start = at_;
    while (at_ < s_.size() &&
           (std::isalnum(static_cast<unsigned char>(s_[at_])) != 0 || s_[at_] == '_')) {
      ++at_;
    }
    // A number is not a name.
    if (at_ > start && std::isdigit(static_cast<unsigned char>(s_[start])) != 0) at_ = start;
    return s_.substr(start, at_ - start);
  }

  bool integer(int64_t& number) {
    skipSpace();
    bool negative = false;
    if (at_ < s_.size() && (s_[at_] == '-' || s_[at_] == '+')) negative = s_[at_++] == '-';
    const size_t start = at_;
    uint64_t magnitude = 0;
    while (at_ < s_.size() && std::isdigit(static_cast<unsigned char>(s_[at_])) != 0) {
      magnitude = magnitude * 10 + static_cast<uint64_t>(s_[at_] - '0');
      // Preferences are 32-bit integers.
      if (magnitude > 0x80000000ULL) return false;
      ++at_;
    }
    if (at_ == start || (!negative && magnitude > 0x7fffffffULL)) return false;
    number = negative ? -static_cast<int64_t>(magnitude) : static_cast<int64_t>(magnitude);
    return true;
  }

  bool hex(size_t digits, uint32_t& value) {
    if (s_.size() - at_ < digits) return false;
    value = 0;
    for (size_t i = 0; i < digits; ++i) {
      const char c = s_[at_++];
      uint32_t d;
      if (c >= '0' && c <= '9') {
        d = static_cast<uint32_t>(c - '0');
      } else if (c >= 'a' && c <= 'f') {
        d = static_cast<uint32_t>(c - 'a' + 10);
      } else if (c >= 'A' && c <= 'F') {
        d = static_cast<uint32_t>(c - 'A' + 10);
      } else {
        return false;
      }
      value = value * 16 + d;
    }
    return true;
  }

  // A quoted string with the escapes the browser writes: \" \' \\ \n \r \t \xHH \uHHHH (UTF-16,
  // surrogate pairs joined). A lone surrogate or an unknown escape fails the string.
  bool string(std::string& out) {
    skipSpace();
    if (at_ >= s_.size() || (s_[at_] != '"' && s_[at_] != '\'')) return false;
    const char quote = s_[at_++];
    out.clear();
    while (at_ < s_.size()) {
      const char c = s_[at_++];
      if (c == quote) return true;
      if (c == '\n') return false;  // strings do not span lines
      if (c != '\\') {
        out += c;
        continue;
      }
      if (at_ >= s_.size()) return false;
      const char e = s_[at_++];
      uint32_t code = 0;
      switch (e) {
        case '"':
        case '\'':
        case '\\':
          out += e;
          break;
        case 'n':
          out += '\n';
          break;
        case 'r':
          out += '\r';
          break;
        case 't':
          out += '\t';
          break;
        case 'x':
          if (!hex(2, code) || code == 0) return false;
          Utf8::append(out, code);
          break;
        case 'u':
          if (!hex(4, code) || code == 0) return false;
          if (code >= 0xD800 && code <= 0xDBFF) {
            uint32_t low = 0;
            if (s_.substr(at_, 2) != "\\u") return false;
            at_ += 2;
            if (!hex(4, low) || low < 0xDC00 || low > 0xDFFF) return false;
            code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
          } else if (code >= 0xDC00 && code <= 0xDFFF) {
            return false;
          }
          Utf8::append(out, code);
          break;
        default:
          return false;
      }
    }
    return false;
  }

  std::string_view s_;
  size_t at_ = 0;
};

struct IniSection {
  std::string name;
  std::map<std::string, std::string> values;
};

std::string_view trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) {
    s.remove_suffix(1);
  }
  return s;
}

// INI text as the browser writes it: "[Section]" headers, "Key=Value" lines, ';' and '#'
// comments, LF or CRLF line ends. Of a key repeated in one section the first counts.
std::vector<IniSection> parseIni(std::string_view text) {
  std::vector<IniSection> sections;
  while (!text.empty()) {
    const size_t end = text.find('\n');
    std::string_view line = trim(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.empty() || line.front() == ';' || line.front() == '#') continue;
    if (line.front() == '[') {
      const size_t close = line.find(']');
      if (close == std::string_view::npos) continue;
      sections.push_back({std::string(line.substr(1, close - 1)), {}});
      continue;
    }
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos || sections.empty()) continue;
    sections.back().values.emplace(std::string(trim(line.substr(0, equals))),
                                   std::string(trim(line.substr(equals + 1))));
  }
  return sections;
}

bool startsWith(const std::string& s, const char* prefix) {
  return s.compare(0, std::strlen(prefix), prefix) == 0;
}

}  // namespace

std::optional<std::string> BrowserPreferences::jsonStringAt(std::string_view text,
                                                            const char* object, const char* key) {
  StringAtPath finder(object, key);
  // Invalid UTF-8 and trailing bytes make the whole text unreadable, as for the browser.
  if (!json::sax_parse(text.begin(), text.end(), &finder)) return std::nullopt;
  return std::move(finder.found);
}

std::optional<std::string> BrowserPreferences::chromeDownloadDirectory(std::string_view text) {
  return jsonStringAt(text, "download", "default_directory");
}

std::optional<std::string> BrowserPreferences::chromeLastUsedProfile(std::string_view text) {
  return jsonStringAt(text, "profile", "last_used");
}

std::optional<BrowserPreferences::FirefoxProfile> BrowserPreferences::firefoxProfile(
    std::string_view ini) {
  const auto sections = parseIni(ini);
  std::optional<FirefoxProfile> marked, first;
  for (const auto& section : sections) {
    auto path = section.values.find(section.name.rfind("Install", 0) == 0 ? "Default" : "Path");
    if (path == section.values.end() || path->second.empty()) continue;
    if (startsWith(section.name, "Install")) {
      // The same text as the chosen profile's Path; absolute ones start with '/'.
      return FirefoxProfile{path->second, path->second.front() != '/'};
    }
    if (!startsWith(section.name, "Profile")) continue;
    auto relative = section.values.find("IsRelative");
    FirefoxProfile profile{path->second,
                           relative == section.values.end() || relative->second != "0"};
    auto isDefault = section.values.find("Default");
    if (!marked && isDefault != section.values.end() && isDefault->second == "1") {
      marked = profile;
    }
    if (!first) first = std::move(profile);
  }
  return marked ? marked : first;
}

std::map<std::string, BrowserPreferences::PrefValue> BrowserPreferences::firefoxPrefs(
    std::string_view text) {
  return PrefsScanner(text).run();
}

}  // namespace vexa
