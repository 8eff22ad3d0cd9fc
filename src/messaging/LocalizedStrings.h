#pragma once

#include <map>
#include <string>
#include <string_view>

namespace vexa {

// A program's translations: `<lang>.lproj/Localizable.strings` files of lines
// `"key" = "value";` (C escapes in both, comments /* */ and //), as a translator writes them.
class LocalizedStrings {
 public:
  // The table of the language's file in `folder`; empty when there is none or it is unreadable.
  static LocalizedStrings load(const std::string& folder, const std::string& language);
  static LocalizedStrings parse(std::string_view text);

  // The translation of `key`, else the key itself.
  std::string localized(const std::string& key) const;
  size_t size() const { return table_.size(); }

 private:
  std::map<std::string, std::string> table_;
};

}  // namespace vexa
