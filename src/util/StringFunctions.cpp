// The string half of the plain C functions.
#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "vexa/util/Utilities.h"

namespace {

constexpr size_t kFilterBufferSize = 255;
constexpr const char* kSpecialCharacters = " $[]();&";
constexpr const char* kBundleExtensions[] = {
    "download",   "app",          "pages",       "vmwarevm", "xcworkspace", "xcuserdatad",
    "xcodeproj",  "photolibrary", "workflow",    "scptd",    "framework",   "localized",
    "dictionary", "kext",         "plugin",      "bundle",   "prefPane",    "mdimporter",
    "wdgt",       "component",    "qlgenerator", "icons",    "ccl",         "action"};
constexpr int kDirectoryEntry = 4;

char* duplicate(const char* s, size_t length) {
  char* copy = static_cast<char*>(std::malloc(length + 1));
  if (!copy) return nullptr;
  std::memcpy(copy, s, length);
  copy[length] = 0;
  return copy;
}

}  // namespace

extern "C" {

char* filter_special_character_dos(const char* s) {
  char* out = static_cast<char*>(std::calloc(kFilterBufferSize, 1));
  if (!out || !s) return out;
  size_t used = 0;
  for (const char* p = s; *p; ++p) {
    const bool special = std::strchr(kSpecialCharacters, *p) != nullptr;
    // The buffer is fixed: stop rather than overrun or split an escape from its character.
    if (used + (special ? 2 : 1) > kFilterBufferSize - 1) break;
    if (special) out[used++] = '\\';
    out[used++] = *p;
  }
  return out;
}

void join_string(char** s, const char* append) {
  if (!s) return;
  const char* head = *s ? *s : "";
  const char* tail = append ? append : "";
  const size_t a = std::strlen(head), b = std::strlen(tail);
  char* joined = static_cast<char*>(std::malloc(a + b + 1));
  if (!joined) return;
  std::memcpy(joined, head, a);  // NOLINT(bugprone-not-null-terminated-result): the tail ends it
  std::memcpy(joined + a, tail, b + 1);
  *s = joined;  // the old block stays the caller's
}

char* combine_strings(size_t size, const char* format, ...) {
  if (size == 0) size = 1;
  char* out = static_cast<char*>(std::malloc(size));
  if (!out) {
    std::fputs("malloc failed\n", stderr);
    return nullptr;
  }
  std::memset(out, 0, size);
  if (format) {
    va_list args;
    va_start(args, format);
    std::vsnprintf(out, size, format, args);
    va_end(args);
  }
  out[size - 1] = 0;
  return out;
}

char* substring(const char* s, int start, int length) {
  if (length <= 0 || !s) return static_cast<char*>(std::calloc(1, 1));
  char* out = static_cast<char*>(std::calloc(static_cast<size_t>(length) + 1, 1));
  if (!out) return nullptr;
  const size_t available = std::strlen(s);
  const size_t from = start < 0 ? 0 : static_cast<size_t>(start);
  if (from < available) {
    const size_t n = std::min(static_cast<size_t>(length), available - from);
    std::memcpy(out, s + from, n);
  }
  return out;
}

struct string_list* seperate(char* s, const char* delimiters, int* count) {
  if (count) *count = 0;
  if (!s || !delimiters) return nullptr;
  struct string_list* head = nullptr;
  struct string_list** tail = &head;
  char* state = nullptr;
  for (char* token = strtok_r(s, delimiters, &state); token;
       token = strtok_r(nullptr, delimiters, &state)) {
    auto* node = static_cast<struct string_list*>(std::malloc(sizeof(struct string_list)));
    if (!node) break;
    node->str = duplicate(token, std::strlen(token));
    node->next = nullptr;
    *tail = node;
    tail = &node->next;
    if (count) ++*count;
  }
  return head;
}

void free_string_arrary(struct string_list* list) {
  while (list) {
    struct string_list* next = list->next;
    std::free(list->str);
    std::free(list);
    list = next;
  }
}

// The run counter deliberately survives mismatches' neighbours and start positions: a
// needle of repeated characters can match across them ("aa" is found in "xa").
int contains(const char* haystack, const char* needle) {
  if (!haystack || !*haystack || !needle || !*needle) return 0;
  const size_t needleLength = std::strlen(needle);
  size_t run = 0;
  for (size_t i = 0; haystack[i]; ++i) {
    for (size_t k = 0; needle[k] && haystack[i + k]; ++k) {
      run = needle[k] == haystack[i + k] ? run + 1 : 0;
      if (run == needleLength) return 1;
    }
  }
  return 0;
}

int starwith(const char* s, const char* prefix) {
  if (!s || !prefix) return 0;
  const size_t n = std::strlen(prefix);
  if (n > std::strlen(s)) return 0;
  return std::strncmp(s, prefix, n) == 0 ? 1 : 0;
}

int endwith(const char* s, const char* suffix) {
  if (!s || !suffix) return 0;
  const size_t n = std::strlen(suffix), length = std::strlen(s);
  if (n > length) return 0;
  return std::strcmp(s + length - n, suffix) == 0 ? 1 : 0;
}

char* ltrim(char* s) {
  if (!s) return s;
  while (*s && std::isspace(static_cast<unsigned char>(*s))) ++s;
  return s;
}

char* rtrim(char* s) {
  if (!s) return s;
  size_t n = std::strlen(s);
  while (n > 0 && std::isspace(static_cast<unsigned char>(s[n - 1]))) --n;
  s[n] = 0;
  return s;
}

char* trim(char* s) { return rtrim(ltrim(s)); }

void str_to_upper(const char* source, char* destination) {
  if (!source || !destination) return;
  for (; *source; ++source, ++destination) {
    *destination = (*source >= 'a' && *source <= 'z') ? static_cast<char>(*source - 32) : *source;
  }
}

void str_to_lower(const char* source, char* destination) {
  if (!source || !destination) return;
  for (; *source; ++source, ++destination) {
    *destination = (*source >= 'A' && *source <= 'Z') ? static_cast<char>(*source + 32) : *source;
  }
}

int is_digit_string(const char* s) {
  if (!s) return 0;
  for (; *s; ++s) {
    if (*s < '0' || *s > '9') return 0;
  }
  return 1;
}

void trim_path_last(char** s) {
  if (!s || !*s || !**s) return;
  size_t n = std::strlen(*s);
  if ((*s)[n - 1] == '/' || (*s)[n - 1] == '\n') --n;
  char* copy = duplicate(*s, n);
  if (copy) *s = copy;  // the old block stays the caller's
}

char* extensions(const char* path, int type) {
  if (!path) return nullptr;
  const char* dot = std::strrchr(path, '.');
  const char* slash = std::strrchr(path, '/');
  if (!dot || (slash && slash > dot) || dot == path) return nullptr;
  const char* extension = dot + 1;
  if (type != kDirectoryEntry) return duplicate(extension, std::strlen(extension));
  for (const char* bundle : kBundleExtensions) {
    if (std::strcmp(bundle, extension) == 0) return duplicate(extension, std::strlen(extension));
  }
  return nullptr;
}

char* get_file_name(const char* path) {
  if (!path || !*path) return nullptr;
  const char* slash = std::strrchr(path, '/');
  if (!slash) return const_cast<char*>(path);
  return duplicate(slash + 1, std::strlen(slash + 1));
}

char* get_file_short_name(const char* path, const char* extension) {
  if (!path || !*path) return nullptr;
  const char* slash = std::strrchr(path, '/');
  const char* name = slash ? slash + 1 : path;
  const size_t nameLength = std::strlen(name);
  if (!extension) return duplicate(name, nameLength);
  const size_t extensionLength = std::strlen(extension);
  if (nameLength == extensionLength) return nullptr;
  return substring(name, 0, static_cast<int>(nameLength) - static_cast<int>(extensionLength) - 1);
}

// Components compare pairwise as integers. When every compared pair is equal, only a longer b
// counts as newer: extra components of a are not looked at.
int compare_version(const char* a, const char* b) {
  if (!a || !*a) return 0;
  char* left = duplicate(a, std::strlen(a));
  char* right = duplicate(b ? b : "", b ? std::strlen(b) : 0);
  if (!left || !right) {
    std::free(left);
    std::free(right);
    return 0;
  }
  char *leftState = nullptr, *rightState = nullptr;
  char* x = strtok_r(left, ".", &leftState);
  char* y = strtok_r(right, ".", &rightState);
  int result = 0;
  while (x && y) {
    const int u = std::atoi(x), v = std::atoi(y);
    if (u != v) {
      result = u > v ? -1 : 1;
      break;
    }
    x = strtok_r(nullptr, ".", &leftState);
    y = strtok_r(nullptr, ".", &rightState);
  }
  if (result == 0 && !x && y) result = 1;
  std::free(left);
  std::free(right);
  return result;
}

}  // extern "C"
