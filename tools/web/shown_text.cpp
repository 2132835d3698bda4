#include "shown_text.h"

#include <cstdint>
#include <optional>

namespace web
{
namespace
{

struct character {
    char32_t value;
    size_t size; /* bytes */
};

bool is_continuation(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

/* The character in front, surrogates included; nothing when there is none. */
std::optional<character> decode(std::string_view in)
{
    const auto lead = static_cast<unsigned char>(in.front());
    if (lead < 0x80)
        return character{lead, 1};
    const size_t size = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || in.size() < size)
        return std::nullopt;
    char32_t value = lead & (0xFFU >> (size + 1));
    for (size_t i = 1; i < size; i++) {
        if (!is_continuation(in[i]))
            return std::nullopt;
        value = value << 6 | (static_cast<unsigned char>(in[i]) & 0x3FU);
    }
    constexpr char32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
    if (value < least[size] || value > 0x10FFFF)
        return std::nullopt;
    return character{value, size};
}

/* The same with the halves of a pair joined; nothing for a half on its own. */
std::optional<character> decode_joined(std::string_view in)
{
    const std::optional<character> first = decode(in);
    if (!first || first->value < 0xD800 || first->value > 0xDFFF)
        return first;
    if (first->value > 0xDBFF || in.size() == first->size)
        return std::nullopt;
    const std::optional<character> second = decode(in.substr(first->size));
    if (!second || second->value < 0xDC00 || second->value > 0xDFFF)
        return std::nullopt;
    return character{0x10000 + ((first->value - 0xD800) << 10) + (second->value - 0xDC00), first->size + second->size};
}

bool can_be_shown(char32_t value)
{
    if (value == '\n' || value == '\r' || value == '\t')
        return true;
    const bool control = value < 0x20 || (value >= 0x7F && value < 0xA0);
    return !control && (value & 0xFFFE) != 0xFFFE; /* no character has a value that ends so */
}

void append_utf8(std::string &out, char32_t value)
{
    const auto put = [&out](char32_t byte) { out += static_cast<char>(static_cast<unsigned char>(byte)); };
    if (value < 0x80) {
        put(value);
    } else if (value < 0x800) {
        put(0xC0 | value >> 6);
        put(0x80 | (value & 0x3F));
    } else if (value < 0x10000) {
        put(0xE0 | value >> 12);
        put(0x80 | (value >> 6 & 0x3F));
        put(0x80 | (value & 0x3F));
    } else {
        put(0xF0 | value >> 18);
        put(0x80 | (value >> 12 & 0x3F));
        put(0x80 | (value >> 6 & 0x3F));
        put(0x80 | (value & 0x3F));
    }
}

std::string hex_of(std::string_view bytes)
{
    std::string out;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        out += out.empty() ? "" : " ";
        out += "0123456789ABCDEF"[byte >> 4];
        out += "0123456789ABCDEF"[byte & 15];
    }
    return out;
}

/* How many bytes one mark stands for: a whole sequence that means nothing, else a byte. */
size_t marked_size(std::string_view in)
{
    const std::optional<character> half = decode(in);
    return half ? half->size : 1;
}

} // namespace

void show_text(nlohmann::json &out, const std::string &name, std::string_view bytes)
{
    std::string text, run;
    nlohmann::json runs = nlohmann::json::array();
    const auto end_run = [&runs, &run] {
        if (!run.empty())
            runs.push_back(run);
        run.clear();
    };
    bool marked = false;
    while (!bytes.empty()) {
        const std::optional<character> next = decode_joined(bytes);
        const size_t size = next ? next->size : marked_size(bytes);
        if (next)
            append_utf8(text, next->value);
        else
            text += "\uFFFD";
        if (next && can_be_shown(next->value)) {
            append_utf8(run, next->value);
        } else {
            end_run();
            runs.push_back({{"hex", hex_of(bytes.substr(0, size))}});
            marked = true;
        }
        bytes.remove_prefix(size);
    }
    end_run();
    out[name] = text;
    if (marked)
        out[name + "_runs"] = std::move(runs);
}

std::string plain_text(std::string_view bytes)
{
    nlohmann::json out;
    show_text(out, "text", bytes);
    return out["text"];
}

} // namespace web
