// The shell and file half of the plain C functions.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "util/ProcessRunner.h"
#include "util/ProgramPath.h"
#include "util/UniqueFd.h"
#include "vexa/util/MonitorString.h"
#include "vexa/util/Utilities.h"

namespace {

constexpr size_t kLineBufferSize = 2040;
constexpr size_t kOutputBlockSize = 1024;
constexpr int kServiceTries = 20;

bool isMissing(const char* path) { return !path || !*path || access(path, F_OK) != 0; }

// popen with the parent's end closed on exec, so other children never inherit it.
FILE* openCommand(const char* command, const char* mode) {
  std::string m = mode && *mode ? mode : "r";
  if (m.find('e') == std::string::npos) m += 'e';
  return popen(command, m.c_str());
}

// Reads what is left of a command's output before waiting for it: a child blocked on a full
// pipe would otherwise never exit.
int closeCommand(FILE* stream, const char* mode) {
  if (mode && mode[0] == 'r') {
    char sink[4096];
    while (std::fread(sink, 1, sizeof sink, stream) > 0) {
    }
  }
  return pclose(stream);
}

// Runs `command` and parses the leading integer of the first non-empty of at most two output
// lines. `perAttempt` is subtracted once for every line read attempt.
long long queryLeadingInteger(const char* command, long long perAttempt) {
  FILE* stream = openCommand(command, "r");
  if (!stream) return 0;
  long long value = 0;
  char line[kLineBufferSize];
  for (int attempt = 0; attempt < 2; ++attempt) {
    line[0] = 0;
    const bool got =
        std::fgets(line, sizeof line, stream) != nullptr && line[0] != 0 && line[0] != '\n';
    if (got) std::sscanf(line, "%lld ", &value);
    value -= perAttempt;
    if (got) break;
  }
  closeCommand(stream, "r");
  return value;
}

// The lipo to verify architectures with: lipo on PATH, else LLVM's.
std::string findLipo() {
  if (vexa::ProgramPath::find("lipo")) return "lipo";
  if (auto llvm = vexa::ProgramPath::find("llvm-lipo")) return *llvm;
  // Debian installs LLVM's tools with a version suffix; take the newest.
  std::string best;
  int bestVersion = -1;
  if (DIR* dir = opendir("/usr/bin")) {
    while (dirent* entry = readdir(dir)) {
      int version = 0;
      if (std::sscanf(entry->d_name, "llvm-lipo-%d", &version) == 1 && version > bestVersion) {
        bestVersion = version;
        best = std::string("/usr/bin/") + entry->d_name;
      }
    }
    closedir(dir);
  }
  return best;
}

// Formats `format` with the escaped path. With `slack` 0 the command buffer fits exactly;
// otherwise it is the unescaped path's length plus `slack`, and a command that does not fit is
// cut short, as the callers' fixed buffers always did.
char* escapedCommand(const char* format, const char* path, size_t slack = 0) {
  char* escaped = filter_special_character_dos(path);
  if (!escaped) return nullptr;
  const size_t size =
      slack ? std::strlen(path) + slack : std::strlen(format) + std::strlen(escaped) + 1;
  char* command = combine_strings(size, format, escaped);
  std::free(escaped);
  return command;
}

// The shell queries on a path: 0 for a missing path, else the command's leading integer.
long long queryPath(const char* path, const char* format, size_t slack, long long perAttempt) {
  if (isMissing(path)) return 0;
  char* command = escapedCommand(format, path, slack);
  if (!command) return 0;
  const long long value = queryLeadingInteger(command, perAttempt);
  std::free(command);
  return value;
}

// Runs `command` through exec_cmd_ex, discarding its output; 1 when it could be run.
int runDiscarding(char* command) {
  if (!command) return 0;
  std::free(exec_cmd_ex(command, "r"));
  std::free(command);
  return 1;
}

// Runs "sh -c command" with standard input and output on /dev/null and waits for the shell.
// Used where the command starts programs that keep running: they must not hold our pipe.
int runDetachedOutput(const char* command) {
  return vexa::ProcessRunner::runDetached({"/bin/sh", "-c", command}) == -1 ? 0 : 1;
}

}  // namespace

extern "C" {

int is_folder_exist(const char* path) {
  if (!path || access(path, X_OK) != 0) return 0;
  struct stat st {};
  return stat(path, &st) == 0 && S_ISDIR(st.st_mode) ? 1 : 0;
}

int is_file_exist(const char* path) {
  if (!path) return 0;
  return is_exec_file(path);
}

int is_exec_file(const char* path) {
  if (!path || access(path, X_OK) != 0) return 0;
  struct stat st {};
  return stat(path, &st) == 0 && S_ISREG(st.st_mode) ? 1 : 0;
}

void get_file_permit(char* buffer, const char* path) {
  if (!buffer) return;
  std::memset(buffer, 0, 4);
  if (!path) return;
  size_t at = 0;
  if (access(path, R_OK) == 0) buffer[at++] = 'r';
  if (access(path, W_OK) == 0) buffer[at++] = 'w';
  if (access(path, X_OK) == 0) buffer[at++] = 'x';
}

int given_execute_permit_in_path(const char* path) {
  if (isMissing(path)) return 0;
  return chmod(path, 0755) == 0 ? 1 : 0;
}

long long get_folder_size(const char* path) {
  return queryPath(path, "du -h -d 0 %s", 0, 0) * 1000;
}

long long get_file_count(const char* path) {
  return queryPath(path, "find '%s' -type f | wc -l", 30, 0);
}

long long get_item_count_not_contain_sub_item(const char* path) {
  return queryPath(path, "ls -l '%s' |wc -l", 30, 1);
}

int is_binary_file(const char* path) {
  if (!path || !*path) return 0;
  char* command = escapedCommand("file %s", path);
  if (!command) return 0;
  FILE* stream = openCommand(command, "r");
  std::free(command);
  if (!stream) return 0;
  std::string output;
  char block[kOutputBlockSize];
  size_t n = 0;
  while ((n = std::fread(block, 1, sizeof block, stream)) > 0) output.append(block, n);
  pclose(stream);
  return output.find("Mach-O universal binary") != std::string::npos ? 1 : 0;
}

int is_fat_binary_file(const char* path) {
  if (!path) return 0;
  const std::string lipo = findLipo();
  if (lipo.empty()) return 0;  // nothing can verify: not a fat binary as far as we know
  // The architecture list is chosen by system version; only the 10.5 to 10.10 releases of the
  // original platform had lists of their own, every other version takes "i386 ppc".
  const std::string version = vexa::MonitorString::osVersion();
  char versionText[64];
  std::snprintf(versionText, sizeof versionText, "%d.%d.%d",
                vexa::MonitorString::getMajarVersion(version),
                vexa::MonitorString::getMinorVersion(version),
                vexa::MonitorString::getBugFixVersion(version));
  char* escaped = filter_special_character_dos(path);
  if (!escaped) return 0;
  std::string architectures = "i386 ppc";
  if (starwith(versionText, "10.5.")) {
    architectures = "i386 ppc7400 || " + lipo + " " + escaped + " -verify_arch i386 ppc";
  } else {
    for (const char* prefix : {"10.6.", "10.7.", "10.8.", "10.9.", "10.10."}) {
      if (starwith(versionText, prefix)) architectures = "x86_64 i386";
    }
  }
  const std::string command = lipo + " '" + escaped + "' -verify_arch " + architectures;
  std::free(escaped);
  char* output = exec_cmd_ex(command.c_str(), "r");
  const int fat = (!output || !output[0]) ? 1 : 0;
  std::free(output);
  return fat;
}

int exec_cmd(const char* command, const char* mode) {
  if (!command || !*command) return 0;
  FILE* stream = openCommand(command, mode);
  if (!stream) return 0;
  const int status = closeCommand(stream, mode);
  if (status == -1 || !WIFEXITED(status)) return 0;
  return WEXITSTATUS(status) == 0 ? 1 : 0;
}

char* exec_cmd_ex(const char* command, const char* mode) {
  if (!command || !*command) return nullptr;
  char* buffer = static_cast<char*>(std::calloc(kOutputBlockSize, 1));
  if (!buffer) return nullptr;
  FILE* stream = openCommand(command, mode);
  if (!stream) {
    std::free(buffer);
    return nullptr;
  }
  size_t got = 0;
  if (mode && mode[0] == 'r') got = std::fread(buffer, 1, kOutputBlockSize, stream);
  closeCommand(stream, mode);
  if (got == 0) {
    std::free(buffer);
    return nullptr;
  }
  return buffer;
}

int popen2(const char* command, int* in, int* out) {
  int toChild[2], fromChild[2];
  if (pipe2(toChild, O_CLOEXEC) != 0) return -1;
  vexa::UniqueFd childIn(toChild[0]), parentOut(toChild[1]);
  if (pipe2(fromChild, O_CLOEXEC) != 0) return -1;
  vexa::UniqueFd parentIn(fromChild[0]), childOut(fromChild[1]);
  const pid_t child = fork();
  if (child == 0) {
    dup2(childIn.get(), STDIN_FILENO);
    dup2(childOut.get(), STDOUT_FILENO);
    execl("/bin/sh", "sh", "-c", command ? command : "", static_cast<char*>(nullptr));
    std::perror("execl");
    _exit(1);
  }
  // The child's ends belong to the child alone (they go with the scope); keeping them would
  // leak two descriptors per call and keep the output pipe from ever reaching end-of-file.
  if (child < 0) return child;
  if (in) *in = parentOut.release();
  if (out) *out = parentIn.release();
  return child;
}

char* compile_by_shell(const char* script, shell_line_callback callback, const char* argument) {
  if (!script) return nullptr;
  const char* arg = argument ? argument : "";
  char* command =
      combine_strings(std::strlen(script) + 30 + std::strlen(arg), "'%s' '%s'", script, arg);
  if (!command) return nullptr;
  FILE* stream = openCommand(command, "r");
  std::free(command);
  if (!stream) return nullptr;
  char line[1024];
  while (std::fgets(line, sizeof line, stream)) {
    if (callback) callback(line);
  }
  pclose(stream);
  return nullptr;
}

int open_app_in_path(const char* path) {
  if (isMissing(path)) return 0;
  char* command = escapedCommand("xdg-open %s", path);
  if (!command) return 0;
  // The opened application inherits the shell's output: it must not be a pipe we wait on.
  runDetachedOutput(command);
  std::free(command);
  return 1;
}

int load_plist_file(const char* path) {
  if (isMissing(path)) return 0;
  return runDiscarding(escapedCommand("launchctl load -w %s", path));
}

int unload_plist_file(const char* path) {
  if (isMissing(path)) return 0;
  return runDiscarding(escapedCommand("launchctl unload -w %s", path));
}

int unpack(const char* archive, const char* type, const char* destination) {
  if (isMissing(archive) || !type || !destination) return 0;
  static const struct {
    const char* type;
    const char* format;
  } kCommands[] = {{"zip", "unzip %s -d %s"},        {"tar", "tar -xvf %s -C %s"},
                   {"tar.gz", "tar -xzvf %s -C %s"}, {"tar.bz2", "tar -xjvf %s -C %s"},
                   {"tar.Z", "tar -xZvf %s -C %s"},  {"tar.xz", "tar -Jxvf %s -C %s"}};
  for (const auto& entry : kCommands) {
    if (std::strcmp(entry.type, type) != 0) continue;
    char* command = combine_strings(std::strlen(archive) + std::strlen(destination) + 30,
                                    entry.format, archive, destination);
    if (!command) return 0;
    const int result = exec_cmd(command, "r");
    std::free(command);
    return result;
  }
  return 0;
}

int is_serv_opened(void) {
  // Without an indexing-service tool there is no server to ask: answer "disabled" at once.
  if (exec_cmd("command -v mdutil >/dev/null 2>&1", "r") != 1) return 0;
  std::string output;
  for (int attempt = 0; attempt < kServiceTries; ++attempt) {
    usleep(50);
    char* text = exec_cmd_ex("mdutil -a -i on", "r");
    output = text ? std::string(text, strnlen(text, kOutputBlockSize)) : std::string();
    std::free(text);
    if (!output.empty() &&
        (output.find("Index") != std::string::npos || output.find("server") != std::string::npos)) {
      break;
    }
  }
  if (output.find("Spotlight server is disabled") != std::string::npos) return 0;
  if (output.find("Indexing enabled") != std::string::npos &&
      output.find("Indexing disabled") == std::string::npos) {
    return 2;
  }
  return output.empty() ? 0 : 1;
}

int create_named_pip(void) {
  // The mask is cleared only around the creation: it is process-wide state.
  const mode_t previous = umask(0);
  mkfifo("MYFIFO", 0666);
  umask(previous);
  FILE* fifo = std::fopen("MYFIFO", "re");
  if (!fifo) return 0;
  char line[81] = {0};
  if (std::fgets(line, sizeof line, fifo)) std::printf("Receivedstring:%s ", line);
  std::fflush(stdout);
  std::fclose(fifo);
  return 0;
}

}  // extern "C"
