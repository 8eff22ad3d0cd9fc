#include "privileged/ToolPolicy.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace vexa {
namespace tool_policy_test {

TEST(ToolPolicyTest, OnlyAllowListedSystemToolsRun) {
  EXPECT_TRUE(ToolPolicy::check("/usr/bin/find", "/tmp&|&-type&|&f").allowed);
  EXPECT_TRUE(ToolPolicy::check("/bin/chmod", "-R&|&u=rwx,g=,o=&|&/tmp/x").allowed);
  EXPECT_TRUE(ToolPolicy::check("/usr/bin/tar", "-xzvf&|&/a.tgz&|&-C&|&/tmp").allowed);
  EXPECT_TRUE(ToolPolicy::check("/usr/sbin/purge", "").allowed);
  for (const char* tool : {"/bin/sh", "/usr/bin/bash", "/usr/bin/env", "/usr/bin/python3", "find",
                           "../usr/bin/find", "", "/tmp/find"}) {
    EXPECT_FALSE(ToolPolicy::check(tool, "").allowed) << tool;
  }
}

TEST(ToolPolicyTest, ArgumentsThatRunOtherProgramsOrWriteElsewhereAreRefused) {
  const std::pair<const char*, const char*> refused[] = {
      {"/usr/bin/find", "/&|&-exec&|&sh&|&-c&|&id&|&;"},
      {"/usr/bin/find", "/&|&-execdir&|&x&|&;"},
      {"/usr/bin/find", "/&|&-ok&|&x&|&;"},
      {"/usr/bin/find", "/&|&-okdir&|&x&|&;"},
      {"/usr/bin/find", "/tmp&|&-delete"},
      {"/usr/bin/find", "/&|&-fprint&|&/etc/cron.d/x"},
      {"/usr/bin/find", "/&|&-fprintf&|&/etc/x&|&%p"},
      {"/usr/bin/find", "/&|&-fls&|&/etc/x"},
      {"/usr/bin/tar", "-xf&|&a.tar&|&--to-command=sh"},
      {"/usr/bin/tar", "-xf&|&a.tar&|&--to-command&|&sh"},
      {"/usr/bin/tar", "-I&|&sh&|&-xf&|&a.tar"},
      {"/usr/bin/tar", "-xIf&|&sh&|&a.tar"},
      {"/usr/bin/tar", "--use-compress-program=sh&|&-xf&|&a"},
      {"/usr/bin/tar", "--checkpoint=1&|&--checkpoint-action=exec=sh"},
      {"/usr/bin/tar", "-F&|&script&|&-xf&|&a"},
      {"/usr/bin/tar", "--info-script=x&|&-xf&|&a"},
      {"/usr/bin/tar", "--new-volume-script=x&|&-xf&|&a"},
      {"/usr/bin/unzip", "-:&|&a.zip"},
      {"/bin/chmod", "--reference=/etc/shadow&|&/tmp/x"},
      {"/usr/sbin/purge", "extra"}};
  for (auto [tool, cmd] : refused) {
    const auto decision = ToolPolicy::check(tool, cmd);
    EXPECT_FALSE(decision.allowed) << tool << " " << cmd;
    EXPECT_FALSE(decision.reason.empty());
  }
}

TEST(ToolPolicyTest, ArgumentsSplitAtTheSeparatorOnly) {
  EXPECT_EQ(ToolPolicy::splitArguments("a&|&b c&|&&|&d&e|f"),
            (std::vector<std::string>{"a", "b c", "", "d&e|f"}));
  EXPECT_TRUE(ToolPolicy::splitArguments("").empty());
  const auto decision = ToolPolicy::check("/usr/bin/find", "/x y&|&-name&|&*.pkg");
  ASSERT_TRUE(decision.allowed);
  EXPECT_EQ(decision.program, "/usr/bin/find");
  EXPECT_EQ(decision.arguments, (std::vector<std::string>{"/x y", "-name", "*.pkg"}));
}

TEST(ToolPolicyTest, LipoFallsBackToLlvmLipo) {
  const auto decision = ToolPolicy::check("/usr/bin/lipo", "a&|&-thin&|&x86_64&|&-output&|&a");
  if (access("/usr/bin/lipo", X_OK) != 0 && access("/usr/bin/llvm-lipo-14", X_OK) != 0) {
    EXPECT_FALSE(decision.allowed);
    return;
  }
  ASSERT_TRUE(decision.allowed) << decision.reason;
  EXPECT_NE(decision.program.find("lipo"), std::string::npos);
  EXPECT_FALSE(ToolPolicy::check("/usr/bin/lipo", "-create&|&a&|&-output&|&/etc/x").allowed);
}

}  // namespace tool_policy_test
}  // namespace vexa
