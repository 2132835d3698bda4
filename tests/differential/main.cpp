/* differential [COUNT]: as many PDUs decoded and texts encoded, the same ones every time, beside libgammu and
 * libosmocore. Prints what agreed and why the rest differs; 1 when a difference has no stated reason, or a
 * stated behaviour makes no difference any more. */
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

#include "differential.h"
#include "platform.h"

namespace
{

struct behaviour {
    const char *name, *reason;
};

constexpr behaviour behaviours[] = {
    {"c-cedilla", "septet 0x09 is the small letter"},
    {"extension-unknown", "an extension that the daemon does not know is the octet 0xFF"},
    {"national", "the Turkish tables, which the libraries leave out, have odd entries of their own"},
    {"whole-septets", "behind a header that fills whole septets (16-bit reference) a character is lost"},
    {"data-one-octet", "8-bit data are measured in septets: a single octet behind the header of a part is lost"},
    {"text-255", "a part's text is cut at a character to 255 octets"},
    {"surrogates", "surrogates are written one by one, three octets each"},
    {"reference-16", "a 16-bit reference is taken for a message of one part"},
    {"name-blank", "a blank in a name becomes \"$\""},
    {"name-tail", "the last octets of a name of nine letters and more stay zero"},
    {"name-of-digits", "a name whose octets have no hex digit A to E is read as a number"},
    {"international-is-91", "only type 0x91 gets a \"+\""},
    {"type-apart", "libosmocore gives the digits alone; type 0x91 gets a \"+\""},
    {"century", "every year is one of 2000 to 2099; the libraries have other ones from 70 or 90 on"},
    {"own-letters", "libosmocore's text has octets of its own for what is not ASCII"},
    {"tilde-twice", "libgammu writes a tilde of a UCS-2 text twice, the daemon once"},
    {"beyond-16-bits", "a character beyond U+FFFF is sent as its low 16 bits"},
    {"ascii-without-place", "a backtick becomes an apostrophe, a tab a blank"},
    {"parts-not-raised", "the number of parts is not raised for escapes that move on: the end is not sent"},
};

std::map<std::string, long> agreed, explained;
long open_differences;

} // namespace

std::string hex(const bytes &octets)
{
    std::string text;
    char pair[3];

    for (const uint8_t octet : octets) {
        snprintf(pair, sizeof pair, "%02X", octet);
        text += pair;
    }
    return text;
}

void agree(const char *what)
{
    agreed[what]++;
}

void explain(const char *name)
{
    for (const behaviour &b : behaviours)
        if (strcmp(b.name, name) == 0) {
            explained[name]++;
            return;
        }
    abort(); /* a reason that the table does not have */
}

void unexplained(const std::string &what, const std::string &ours, const std::string &theirs, const std::string &about)
{
    if (++open_differences <= 10)
        printf("UNEXPLAINED %s\n  daemon:  \"%s\"\n  library: \"%s\"\n  %s\n", what.c_str(), ours.c_str(),
               theirs.c_str(), about.c_str());
}

void note(std::vector<const char *> *reasons, const char *reason)
{
    for (const char *known : *reasons)
        if (strcmp(known, reason) == 0)
            return;
    reasons->push_back(reason);
}

std::string single_tildes(const std::string &text, std::vector<const char *> *reasons)
{
    std::string out;

    for (size_t i = 0; i < text.size(); i++) {
        out += text[i];
        if (text[i] != '~' || i + 1 == text.size() || text[i + 1] != '~')
            continue;
        i++;
        note(reasons, "tilde-twice");
    }
    return out;
}

void settle(const char *what, const std::string &ours, const std::string &theirs, const std::string &applied,
            const std::vector<const char *> &reasons, const std::string &about)
{
    if (ours == theirs) {
        agree(what);
    } else if (ours == applied && !reasons.empty()) {
        for (const char *reason : reasons)
            explain(reason);
    } else {
        unexplained(what, ours, theirs + "\", with what is stated \"" + applied, about);
    }
}

int main(int argc, char **argv)
{
    constexpr long enough_for_all = 5000; /* behaviours are met at least once */
    int unseen = 0;
    const long count = argc > 1 ? strtol(argv[1], nullptr, 10) : 100000;
    std::mt19937 random(20240305);

    setenv("TZ", "UTC", 1);
    platform::reset();
    platform::running now;
    for (long i = 0; i < count; i++) {
        compare_decoding(make_message(random));
        compare_encoding(make_request(random));
    }
    printf("%ld PDUs decoded, %ld texts encoded\n\nThe same:\n", count, count);
    for (const auto &[what, times] : agreed)
        printf("  %8ld  %s\n", times, what.c_str());
    printf("\nDifferent, and stated:\n");
    for (const behaviour &b : behaviours) {
        printf("  %8ld  %-20s %s\n", explained[b.name], b.name, b.reason);
        unseen += explained[b.name] == 0 ? 1 : 0;
    }
    printf("\nDifferent without a reason: %ld\n", open_differences);
    if (count >= enough_for_all && unseen > 0)
        printf("Behaviours that made no difference: %d\n", unseen);
    return open_differences == 0 && (count < enough_for_all || unseen == 0) ? 0 : 1;
}
