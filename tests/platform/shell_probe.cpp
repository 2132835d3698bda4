/* shell_probe COMMAND: runs it through the library; prints the result and the first 64 characters. */
#include <cstdio>

#include "util.h"

int main(int argc, char **argv)
{
    char buffer[64 + 1] = {};

    if (argc != 2)
        return 2;
    const int result = util_get_cmd_result(argv[1], buffer, 64);
    printf("%d %s", result, buffer);
    return 0;
}
