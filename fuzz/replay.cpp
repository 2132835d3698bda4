/* Runs a target over files, and over all files of directories. For compilers without libFuzzer. */
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" {
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
int __attribute__((weak)) LLVMFuzzerInitialize(int *argc, char ***argv);
}

namespace fs = std::filesystem;

static std::string content_of(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

int main(int argc, char **argv)
{
    std::vector<std::string> inputs;

    for (int i = 1; i < argc; i++) {
        if (!fs::is_directory(argv[i])) {
            inputs.push_back(content_of(argv[i]));
            continue;
        }
        for (const fs::directory_entry &entry : fs::directory_iterator(argv[i]))
            inputs.push_back(content_of(entry.path()));
    }
    if (inputs.empty()) {
        fprintf(stderr, "There is nothing to replay.\n");
        return 1;
    }
    if (LLVMFuzzerInitialize != nullptr)
        LLVMFuzzerInitialize(&argc, &argv);
    for (const std::string &input : inputs) {
        /* No byte to spare, for the sanitizers. */
        const std::vector<uint8_t> exact(input.begin(), input.end());
        static const uint8_t nothing = 0;
        LLVMFuzzerTestOneInput(exact.empty() ? &nothing : exact.data(), exact.size());
    }
    fprintf(stderr, "%zu inputs replayed\n", inputs.size());
}
