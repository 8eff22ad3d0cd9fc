#include "privileged/ToolPolicy.h"

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <string_view>

#include "vexa/privileged/HelperProtocol.h"

namespace vexa {

namespace {

constexpr std::string_view kSeparator = HelperProtocol::kArgumentSeparator;
constexpr size_t kMaxArguments = 4096;
const char* const kSystemFolders[] = {"/usr/bin",
                                      "/bin",
                                      "/usr/sbin",
                                      "/sbin",
                                      "/usr/lib/llvm-14/bin",
                                      "/usr/lib/llvm-15/bin",
                                      "/usr/lib/llvm-16/bin"};

bool startsWith(const std::string& s, const char* prefix) { return s.rfind(prefix, 0) == 0; }

// The tool a program name stands for.
std::optional<ToolPolicy::Tool> toolNamed(const std::string& name) {
  if (name == "find") return ToolPolicy::Tool::Find;
  if (name == "tar") return ToolPolicy::Tool::Tar;
  if (name == "unzip") return ToolPolicy::Tool::Unzip;
  if (name == "chmod") return ToolPolicy::Tool::Chmod;
  if (name == "lipo" || name == "llvm-lipo" || startsWith(name, "llvm-lipo-")) {
    return ToolPolicy::Tool::Lipo;
  }
  if (name == "purge") return ToolPolicy::Tool::Purge;
  return std::nullopt;
}

// The real program behind a path, if it lies in a system program folder.
std::optional<std::string> systemProgram(const std::string& path) {
  char resolved[PATH_MAX];
  if (!realpath(path.c_str(), resolved)) return std::nullopt;
  const std::string real = resolved;
  for (const char* folder : kSystemFolders) {
    const std::string prefix = std::string(folder) + "/";
    if (real.rfind(prefix, 0) == 0 && real.find('/', prefix.size()) == std::string::npos &&
        access(resolved, X_OK) == 0) {
      return real;
    }
  }
  return std::nullopt;
}

std::optional<std::string> refusedArgument(ToolPolicy::Tool tool,
                                           const std::vector<std::string>& args) {
  for (const std::string& a : args) {
    switch (tool) {
      case ToolPolicy::Tool::Find:
        for (const char* bad : {"-exec", "-execdir", "-ok", "-okdir", "-delete", "-fprint",
                                "-fprint0", "-fprintf", "-fls"}) {
          if (a == bad) return a;
        }
        break;
      case ToolPolicy::Tool::Tar:
        for (const char* bad : {"--to-command", "--use-compress-program", "--checkpoint-action",
                                "--info-script", "--new-volume-script", "--rsh-command",
                                "--rmt-command", "--index-file", "--volno-file"}) {
          if (a == bad || startsWith(a, (std::string(bad) + "=").c_str())) return a;
        }
        // Short options, bundled or not: -I (compress program) and -F (volume script).
        if (a.size() > 1 && a[0] == '-' && a[1] != '-' &&
            a.find_first_of("IF") != std::string::npos) {
          return a;
        }
        break;
      case ToolPolicy::Tool::Unzip:
        // -: keeps "../" in names, which writes outside the target folder.
        if (a.size() > 1 && a[0] == '-' && a.find(':') != std::string::npos) return a;
        break;
      case ToolPolicy::Tool::Chmod:
        if (startsWith(a, "--reference")) return a;
        break;
      case ToolPolicy::Tool::Lipo:
        for (const char* bad : {"-create", "-replace", "-extract", "-extract_family", "-remove"}) {
          if (a == bad) return a;
        }
        break;
      case ToolPolicy::Tool::Purge:
        return a;  // the built-in takes no arguments
    }
  }
  return std::nullopt;
}

}  // namespace

std::vector<std::string> ToolPolicy::splitArguments(const std::string& cmd) {
  std::vector<std::string> args;
  if (cmd.empty()) return args;
  size_t start = 0;
  for (;;) {
    const size_t at = cmd.find(kSeparator, start);
    args.push_back(cmd.substr(start, at == std::string::npos ? std::string::npos : at - start));
    if (at == std::string::npos) break;
    start = at + kSeparator.size();
  }
  return args;
}

ToolPolicy::Decision ToolPolicy::check(const std::string& launch, const std::string& cmd) {
  Decision d;
  if (launch.empty() || launch[0] != '/' || launch.find('\0') != std::string::npos) {
    d.reason = "the tool must be an absolute path";
    return d;
  }
  const std::string name = std::filesystem::path(launch).filename().string();
  d.tool = toolNamed(name);
  if (!d.tool) {
    d.reason = "not an allowed tool: " + launch;
    return d;
  }
  d.arguments = splitArguments(cmd);
  if (d.arguments.size() > kMaxArguments) {
    d.reason = "too many arguments";
    return d;
  }
  if (auto bad = refusedArgument(*d.tool, d.arguments)) {
    d.reason = "argument not allowed: " + *bad;
    return d;
  }
  if (*d.tool == Tool::Purge) {
    d.allowed = true;  // done by the helper itself
    return d;
  }
  auto program = systemProgram(launch);
  if (!program && *d.tool == Tool::Lipo) {
    // No lipo on this system: LLVM's does the same job.
    for (const char* candidate : {"/usr/bin/llvm-lipo", "/usr/bin/llvm-lipo-16",
                                  "/usr/bin/llvm-lipo-15", "/usr/bin/llvm-lipo-14"}) {
      if ((program = systemProgram(candidate))) break;
    }
  }
  if (!program) {
    d.reason = "the tool is not a system program: " + launch;
    return d;
  }
  // The resolved program must still be the tool asked for (no link from "tar" to "sh").
  if (toolNamed(std::filesystem::path(*program).filename().string()) != d.tool) {
    d.reason = "the tool resolves to another program: " + *program;
    return d;
  }
  d.program = *program;
  d.allowed = true;
  return d;
}

}  // namespace vexa
