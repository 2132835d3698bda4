/* Directories as other file systems show them. Only the store's tests are linked with these. */
#ifndef STORE_SEAMS_H
#define STORE_SEAMS_H

namespace store_seams
{

/* readdir tells no entry's type (DT_UNKNOWN), as on some flash file systems. */
void hide_types(bool hidden);

/* The entry of this name is removed as soon as readdir has given it; null: none. */
void vanish(const char *name);

/* opendir fails. */
void fail_opendir(bool fails);

/* rename refuses, as from one file system to another. */
void fail_rename(bool fails);

} // namespace store_seams

#endif
