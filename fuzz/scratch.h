/* A directory of its own for a target, with the store in it; entered before the first input, removed when the program
 * ends. What the daemon prints goes nowhere. */
#ifndef FUZZ_SCRATCH_H
#define FUZZ_SCRATCH_H

#include <string>

namespace scratch
{

/* An empty store: the three box directories and nothing else. */
void empty_store();

void write(const std::string &path, const std::string &content);
std::string read(const std::string &path); /* empty also when it is not there */
bool exists(const std::string &path);
int files_in(const std::string &directory); /* regular files; 0 also when it is not there */

} // namespace scratch

#endif
