#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "vexa/util/Utilities.h"

namespace string_functions_test {

// Takes ownership of a returned heap string.
std::string take(char* s) {
  if (!s) return "<null>";
  std::string copy(s);
  std::free(s);
  return copy;
}

TEST(StringFunctionsTest, FilterEscapesTheEightSpecialCharacters) {
  EXPECT_EQ(take(filter_special_character_dos("a b$c")), "a\\ b\\$c");
  EXPECT_EQ(take(filter_special_character_dos("[x](y);&z")), "\\[x\\]\\(y\\)\\;\\&z");
  EXPECT_EQ(take(filter_special_character_dos("'quote' `tick` |pipe|")),
            "'quote'\\ `tick`\\ |pipe|");
  EXPECT_EQ(take(filter_special_character_dos("")), "");
  EXPECT_EQ(take(filter_special_character_dos(nullptr)), "");
  // The output buffer is fixed at 255 bytes: long input is cut, never overrun, and an escape is
  // never separated from its character.
  const std::string longPath(400, 'a');
  EXPECT_EQ(take(filter_special_character_dos(longPath.c_str())), std::string(254, 'a'));
  const std::string spaces(300, ' ');
  const std::string cut = take(filter_special_character_dos(spaces.c_str()));
  EXPECT_EQ(cut.size(), 254u);
  EXPECT_EQ(cut.substr(252), "\\ ");
}

TEST(StringFunctionsTest, ContainsKeepsItsRunningCounter) {
  EXPECT_EQ(contains("hello world", "o w"), 1);
  EXPECT_EQ(contains("hello", "hello"), 1);
  EXPECT_EQ(contains("hello", "xyz"), 0);
  EXPECT_EQ(contains("he", "hello"), 0);
  EXPECT_EQ(contains("", "a"), 0);
  EXPECT_EQ(contains("abc", ""), 0);
  EXPECT_EQ(contains("abc", nullptr), 0);
  EXPECT_EQ(contains(nullptr, "a"), 0);
  // The counter carries over from one start position to the next: "aa" is "found" in "xa".
  EXPECT_EQ(contains("xa", "aa"), 1);
  EXPECT_EQ(contains("ab", "ba"), 0);
}

TEST(StringFunctionsTest, PrefixAndSuffix) {
  EXPECT_EQ(starwith("abc", ""), 1);
  EXPECT_EQ(starwith("abc", "ab"), 1);
  EXPECT_EQ(starwith("abc", "b"), 0);
  EXPECT_EQ(starwith("ab", "abc"), 0);
  EXPECT_EQ(starwith(nullptr, "a"), 0);
  EXPECT_EQ(starwith("a", nullptr), 0);
  EXPECT_EQ(endwith("", ""), 1);
  EXPECT_EQ(endwith("file.dmg", ".dmg"), 1);
  EXPECT_EQ(endwith("file.dmg", ".pkg"), 0);
  EXPECT_EQ(endwith("g", "dmg"), 0);
}

TEST(StringFunctionsTest, CompareVersionKeepsItsAsymmetry) {
  struct Case {
    const char *a, *b;
    int expected;
  } cases[] = {{"1.10", "1.9", -1}, {"1.9", "1.10", 1}, {"1.2", "1.2.1", 1}, {"1.2.1", "1.2", 0},
               {"1.2.3", "1.2", 0}, {"2.0", "2.0", 0},  {"", "1.0", 0},      {nullptr, "1", 0},
               {"1", "", 0},        {"1", nullptr, 0},  {"3", "10", 1},      {"1..2", "1.3", 1},
               {"1.0b3", "1.0", 0}, {"10", "9.9.9", -1}};
  for (const auto& c : cases) {
    EXPECT_EQ(compare_version(c.a, c.b), c.expected)
        << (c.a ? c.a : "null") << " vs " << (c.b ? c.b : "null");
  }
}

TEST(StringFunctionsTest, ExtensionsRules) {
  EXPECT_EQ(take(extensions("/x/Foo.app", 4)), "app");
  EXPECT_EQ(take(extensions("/x/Foo.prefPane", 4)), "prefPane");
  EXPECT_EQ(take(extensions("/x/Foo.txt", 4)), "<null>");
  EXPECT_EQ(take(extensions("/x/Foo.txt", 8)), "txt");
  EXPECT_EQ(take(extensions("/x.y/Foo", 8)), "<null>");
  EXPECT_EQ(take(extensions(".profile", 8)), "<null>");
  EXPECT_EQ(take(extensions("/home/u/.profile", 8)), "profile");
  EXPECT_EQ(take(extensions("/x/Foo.", 8)), "");
  EXPECT_EQ(take(extensions("noext", 8)), "<null>");
  EXPECT_EQ(take(extensions(nullptr, 8)), "<null>");
}

TEST(StringFunctionsTest, FileNames) {
  EXPECT_EQ(take(get_file_name("/a/b/c.txt")), "c.txt");
  EXPECT_EQ(take(get_file_name("/a/b/")), "");
  const char* bare = "bare.txt";
  EXPECT_EQ(get_file_name(bare), bare);  // the argument itself, not a copy
  EXPECT_EQ(get_file_name(""), nullptr);
  EXPECT_EQ(get_file_name(nullptr), nullptr);

  EXPECT_EQ(take(get_file_short_name("/a/Foo.app", "app")), "Foo");
  EXPECT_EQ(take(get_file_short_name("Foo.tar.gz", "gz")), "Foo.tar");
  EXPECT_EQ(take(get_file_short_name("/a/Foo.app", nullptr)), "Foo.app");
  EXPECT_EQ(take(get_file_short_name("/a/app", "app")), "<null>");
  EXPECT_EQ(take(get_file_short_name("/a/x", "longer")), "");
  EXPECT_EQ(take(get_file_short_name(nullptr, "app")), "<null>");
}

TEST(StringFunctionsTest, BuildingStrings) {
  char* s = static_cast<char*>(std::malloc(4));
  std::strcpy(s, "abc");
  char* old = s;
  join_string(&s, "def");
  EXPECT_STREQ(s, "abcdef");
  EXPECT_NE(s, old);  // the old block is not freed by join_string
  std::free(old);
  char* joined = s;
  trim_path_last(&s);
  EXPECT_STREQ(s, "abcdef");  // nothing to remove: still a fresh copy
  EXPECT_NE(s, joined);
  std::free(joined);
  std::free(s);

  char* path = strdup("/Applications/");
  char* before = path;
  trim_path_last(&path);
  EXPECT_STREQ(path, "/Applications");
  std::free(before);
  std::free(path);
  char* line = strdup("text\n\n");
  before = line;
  trim_path_last(&line);
  EXPECT_STREQ(line, "text\n");  // only one character goes
  std::free(before);
  std::free(line);
  char* empty = nullptr;
  trim_path_last(&empty);
  EXPECT_EQ(empty, nullptr);

  EXPECT_EQ(take(combine_strings(10, "%s-%d", "abcdefgh", 42)), "abcdefgh-");
  EXPECT_EQ(take(combine_strings(30, "%s-%d", "ab", 42)), "ab-42");
  EXPECT_EQ(take(combine_strings(0, "%s", "x")), "");

  EXPECT_EQ(take(substring("abcdef", 2, 3)), "cde");
  EXPECT_EQ(take(substring("abcdef", 4, 10)), "ef");
  EXPECT_EQ(take(substring("abcdef", 10, 2)), "");
  EXPECT_EQ(take(substring("abcdef", 1, 0)), "");
  EXPECT_EQ(take(substring("abcdef", 1, -3)), "");
}

TEST(StringFunctionsTest, SeperateListsEveryTokenInOrder) {
  char text[] = "/usr//local:/bin:";
  int count = -1;
  string_list* list = seperate(text, ":/", &count);
  std::vector<std::string> tokens;
  for (string_list* node = list; node; node = node->next) tokens.emplace_back(node->str);
  EXPECT_EQ(tokens, (std::vector<std::string>{"usr", "local", "bin"}));
  EXPECT_EQ(count, 3);
  free_string_arrary(list);

  char none[] = ":::";
  EXPECT_EQ(seperate(none, ":", &count), nullptr);
  EXPECT_EQ(count, 0);
  free_string_arrary(nullptr);
}

TEST(StringFunctionsTest, TrimAndCase) {
  char text[] = " \t padded \n ";
  EXPECT_STREQ(trim(text), "padded");
  char left[] = "  x ";
  EXPECT_EQ(ltrim(left), left + 2);
  char right[] = "x \r\n";
  EXPECT_STREQ(rtrim(right), "x");
  char blank[] = "   ";
  EXPECT_STREQ(trim(blank), "");

  char upper[16] = {0};
  str_to_upper("MiXed-ä1z", upper);
  EXPECT_STREQ(upper, "MIXED-ä1Z");
  char lower[16] = {0};
  str_to_lower("MiXed-Ä1Z", lower);
  EXPECT_STREQ(lower, "mixed-Ä1z");
  // No terminating NUL is written: the destination's own bytes after the copy stay.
  char dirty[8] = {'#', '#', '#', '#', '#', '#', '#', 0};
  str_to_upper("ab", dirty);
  EXPECT_STREQ(dirty, "AB#####");

  EXPECT_EQ(is_digit_string("0123456789"), 1);
  EXPECT_EQ(is_digit_string(""), 1);
  EXPECT_EQ(is_digit_string("12a"), 0);
  EXPECT_EQ(is_digit_string("-1"), 0);
  EXPECT_EQ(is_digit_string(nullptr), 0);
}

}  // namespace string_functions_test
