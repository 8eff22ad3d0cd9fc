/* Plain shell, string and file functions, exported unmangled for hosts written in C or C++.
 *
 * Strings are NUL-terminated bytes. A returned string is a new heap block the caller releases
 * with free(), except where a function says it returns a pointer into its argument. Functions
 * that run shell commands block until the command ends; paths handed to the shell are escaped
 * with filter_special_character_dos, which escapes only its eight characters: do not pass
 * untrusted paths. All functions are safe to call from several threads at once. */
#ifndef VEXA_UTIL_UTILITIES_H
#define VEXA_UTIL_UTILITIES_H

#include <stddef.h>

#include "vexa/Export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* One token of seperate(): a heap copy and the next node (or NULL). */
struct string_list {
  char* str;
  struct string_list* next;
};

typedef void (*shell_line_callback)(const char* line);
/* Hears of each item an application walk finds: kind 1 an application, 0 a plain folder. */
typedef void (*app_walk_callback)(const char* path, int kind);
/* Hears of each partial download a download-folder scan finds. */
typedef void (*download_walk_callback)(const char* path);

/* File tests: 1 true, 0 false. The existence tests require execute access (X_OK). */
VEXA_EXPORT int is_folder_exist(const char* path);
VEXA_EXPORT int is_file_exist(const char* path);
VEXA_EXPORT int is_exec_file(const char* path);
/* Writes the granted accesses as "r", "w", "x" packed from buffer[0]; buffer holds 4 bytes. */
VEXA_EXPORT void get_file_permit(char* buffer, const char* path);
VEXA_EXPORT int given_execute_permit_in_path(const char* path);

/* Shell queries; 0 for a NULL, empty or missing path. */
VEXA_EXPORT long long get_folder_size(const char* path);
VEXA_EXPORT long long get_file_count(const char* path);
VEXA_EXPORT long long get_item_count_not_contain_sub_item(const char* path);

VEXA_EXPORT int is_binary_file(const char* path);
VEXA_EXPORT int is_fat_binary_file(const char* path);

/* Command runners. */
VEXA_EXPORT int exec_cmd(const char* command, const char* mode);
VEXA_EXPORT char* exec_cmd_ex(const char* command, const char* mode);
VEXA_EXPORT int popen2(const char* command, int* in, int* out);
VEXA_EXPORT char* compile_by_shell(const char* script, shell_line_callback callback,
                                   const char* argument);
VEXA_EXPORT int open_app_in_path(const char* path);
VEXA_EXPORT int load_plist_file(const char* path);
VEXA_EXPORT int unload_plist_file(const char* path);
VEXA_EXPORT int unpack(const char* archive, const char* type, const char* destination);
VEXA_EXPORT int is_serv_opened(void);
/* Blocks until a writer opens ./MYFIFO and sends a line. */
VEXA_EXPORT int create_named_pip(void);

/* Strings. */
VEXA_EXPORT char* filter_special_character_dos(const char* s);
VEXA_EXPORT void join_string(char** s, const char* append);
VEXA_EXPORT char* combine_strings(size_t size, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
VEXA_EXPORT char* substring(const char* s, int start, int length);
VEXA_EXPORT struct string_list* seperate(char* s, const char* delimiters, int* count);
VEXA_EXPORT void free_string_arrary(struct string_list* list);
VEXA_EXPORT int contains(const char* haystack, const char* needle);
VEXA_EXPORT int starwith(const char* s, const char* prefix);
VEXA_EXPORT int endwith(const char* s, const char* suffix);
VEXA_EXPORT char* ltrim(char* s);
VEXA_EXPORT char* rtrim(char* s);
VEXA_EXPORT char* trim(char* s);
VEXA_EXPORT void str_to_upper(const char* source, char* destination);
VEXA_EXPORT void str_to_lower(const char* source, char* destination);
VEXA_EXPORT int is_digit_string(const char* s);
VEXA_EXPORT void trim_path_last(char** s);
VEXA_EXPORT char* extensions(const char* path, int type);
/* The part after the last "/" (new string), or `path` itself when it has no "/". */
VEXA_EXPORT char* get_file_name(const char* path);
VEXA_EXPORT char* get_file_short_name(const char* path, const char* extension);
VEXA_EXPORT int compare_version(const char* a, const char* b);

/* Application walks. They report ".app" folders (never entered), applications that are regular
 * files (desktop entries, AppImages) and plain folders (reported, then walked), depth first, in
 * directory order; dot-names, names ending in ".DS_Store", other package kinds (".localized",
 * ".bundle", ...), links and special files are passed over. Neither depth nor path length is
 * limited. A walk ends early once *stop reads 1 (stop may be NULL; another thread may set it).
 * A folder that cannot be opened prints "Error opening PATH" on standard output. */
/* Walks `path` if it is a folder; when `root` is 0 the walk owns `path` and frees it. */
VEXA_EXPORT void trv_all_app(char* path, int root, app_walk_callback callback, int* stop);
/* The same walk of `path` (never freed), with one trailing "/" of it left out of the paths. */
VEXA_EXPORT void trv_sub_app(const char* path, app_walk_callback callback, int* stop);

/* The walks' call-backs of the application-folder and Trash watchers; they act for the watcher
 * whose walk calls them, and for the shared one when a host walks with them itself. Kind 0 is
 * ignored by the last two. */
/* Records an application (kind 1) or plain folder (0) for the application-folder watcher. */
VEXA_EXPORT void applicationcallback(const char* path, int kind);
/* Records an application found in the Trash. */
VEXA_EXPORT void appcallback(const char* path, int kind);
/* Tells of an application that came into the Trash inside a moved folder. */
VEXA_EXPORT void folder_app_callback(const char* path, int kind);

/* Scans the folder `path` (not its subfolders; a link there is followed), in directory order,
 * for partial downloads: regular files named "*.download", "*.crdownload", "*.part" or
 * "*.opdownload", and folders named "*.download". Each is handed to `callback` as
 * "PATH/NAME". Dot-names, names ending in ".DS_Store", links and special files are passed
 * over, and nothing is opened but the folder. The scan ends once *stop reads 1 (stop may be
 * NULL; another thread may set it). Each name seen, and a folder that cannot be opened, go to
 * the system log at the debug level. */
VEXA_EXPORT void trv_sub_download(const char* path, download_walk_callback callback, int* stop);
/* The download-folder watcher's scan call-back: records the partial download for the watcher
 * whose scan calls it, for the shared one when a host scans with it itself. */
VEXA_EXPORT void downloadcallback(const char* path);

#ifdef __cplusplus
}
#endif

#endif
