// SHA-1 as FIPS 180-4 describes it; see the header for what it is wanted for.
#include "sha1.h"

#include <array>
#include <bit>
#include <cstdint>

namespace vx_mom
{

namespace
{

using State = std::array<uint32_t, 5>;
constexpr size_t block_size = 64;

uint32_t mix(unsigned round, uint32_t b, uint32_t c, uint32_t d)
{
    if (round < 20) {
        return ((b & c) | (~b & d)) + 0x5a827999U;
    }
    if (round < 40) {
        return (b ^ c ^ d) + 0x6ed9eba1U;
    }
    if (round < 60) {
        return ((b & c) | (b & d) | (c & d)) + 0x8f1bbcdcU;
    }
    return (b ^ c ^ d) + 0xca62c1d6U;
}

void add_block(State &state, std::string_view block)
{
    std::array<uint32_t, 80> words{};
    for (size_t i = 0; i < block_size; i++) {
        words[i / 4] = (words[i / 4] << 8U) | static_cast<unsigned char>(block[i]);
    }
    for (size_t i = 16; i < words.size(); i++) {
        words[i] = std::rotl(words[i - 3] ^ words[i - 8] ^ words[i - 14] ^ words[i - 16], 1);
    }
    auto [a, b, c, d, e] = state;
    for (unsigned i = 0; i < words.size(); i++) {
        const uint32_t next = std::rotl(a, 5) + mix(i, b, c, d) + e + words[i];
        e = d;
        d = c;
        c = std::rotl(b, 30);
        b = a;
        a = next;
    }
    const State sum{a, b, c, d, e};
    for (size_t i = 0; i < state.size(); i++) {
        state[i] += sum[i];
    }
}

} // namespace

std::string sha1_hex(std::string_view bytes)
{
    State state{0x67452301U, 0xefcdab89U, 0x98badcfeU, 0x10325476U, 0xc3d2e1f0U};
    std::string padded(bytes);
    padded += '\x80';
    padded.append((2 * block_size - 8 - padded.size() % block_size) % block_size, '\0');
    for (int shift = 56; shift >= 0; shift -= 8) {
        padded +=
            static_cast<char>((static_cast<uint64_t>(bytes.size()) * 8) >> static_cast<unsigned>(shift));
    }
    for (size_t at = 0; at < padded.size(); at += block_size) {
        add_block(state, std::string_view(padded).substr(at, block_size));
    }
    std::string text;
    for (const uint32_t word : state) {
        for (int shift = 28; shift >= 0; shift -= 4) {
            text += "0123456789abcdef"[(word >> static_cast<unsigned>(shift)) & 0xfU];
        }
    }
    return text;
}

} // namespace vx_mom
