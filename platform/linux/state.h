/* The directory that holds the platform's state, whole files read and replaced, and the clock.
 * Every function that gives back an int gives 0 or an errno value. Any thread. */
#ifndef DVPLATFORM_STATE_H
#define DVPLATFORM_STATE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace dvplatform
{

inline constexpr mode_t folder_mode = 0770; /* of what the library itself creates */
inline constexpr mode_t file_mode = 0660;

int64_t milliseconds_now(); /* of the monotonic clock */

/* DIRECTORY/folder/name; DIRECTORY is DV_PLATFORM_ROOT, or /run/dvplatform. */
std::string state_path(std::string_view folder, std::string_view name = {});

/* Creates DIRECTORY/folder and what is missing above it, whatever the umask. Directories that
 * exist are left as their owner made them. */
int make_state_folder(std::string_view folder);

/* Gives an open file the group of the directory that holds it, so that all who may use the
 * directory may use the file; then its mode, whatever the umask. */
void share_file(int fd, const std::string &path, mode_t mode);

/* A name that no other thread or process uses, for a file that is being prepared: begins with a dot. */
std::string temporary_name(std::string_view name);

/* Reads at most `limit` bytes. Never waits for a writer of a pipe. */
int read_file(const char *path, size_t limit, std::string *text);

/* Writes all of `text`. */
int write_all(int fd, std::string_view text);

/* Fills the open, new file `temporary`, closes it and puts it in the place of `path`; on failure
 * `temporary` is removed and `path` is as it was. `durable`: content reaches the disk first. */
int fill_and_rename(int fd, const std::string &temporary, const std::string &path, std::string_view text, bool durable);

} // namespace dvplatform

#endif
