/* What holds for every input. A target that finds it broken ends as on a crash, so that the input is kept. */
#ifndef FUZZ_MUST_H
#define FUZZ_MUST_H

#include <cstdio>
#include <cstdlib>

#include <cstddef>
#include <cstdint>

extern "C" size_t __attribute__((weak)) LLVMFuzzerMutate(uint8_t *data, size_t size, size_t max_size);

/* Whether the slow checks are made: always when inputs are replayed, else for one input in sixteen. */
inline bool is_thorough(const uint8_t *data, size_t size)
{
    uint32_t hash = 2166136261U;

    for (size_t i = 0; i < size && i < 64; i++)
        hash = (hash ^ data[i]) * 16777619U;
    return LLVMFuzzerMutate == nullptr || (hash >> 16) % 16 == 0;
}

/* One in how many places to cut an input is tried: each when inputs are replayed; the fuzzer cuts by itself. */
inline size_t cut_step()
{
    return LLVMFuzzerMutate == nullptr ? 1 : 61;
}

/* How often the code under test ran, said at the end. */
class counter
{
public:
    explicit counter(const char *what) : what_(what) {}
    ~counter() { fprintf(stderr, "%s %llu times\n", what_, count_); }
    void operator++() { count_++; }

private:
    const char *what_;
    unsigned long long count_ = 0;
};

#define must(condition)                                                                                                \
    do {                                                                                                               \
        if (!(condition)) {                                                                                            \
            fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition);                             \
            abort();                                                                                                   \
        }                                                                                                              \
    } while (0)

#endif
