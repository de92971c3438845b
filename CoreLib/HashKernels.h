// HashKernels.h: the "h = h * 33 + c" hash and the short-text compares that the string table and
// the packs share, eight bytes at a time. Internal to the library: its sources include it, hosts
// have no use for it.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zn::hashing {

constexpr uint32_t PowerOf33(unsigned int exponent) {
    return exponent == 0 ? 1u : 33u * PowerOf33(exponent - 1);
}

// b0 * 33^7 + b1 * 33^6 + ... + b7 for the low 8 bytes of a vector in memory order, each taken as a
// signed char: pairs by one multiply-add of 16-bit lanes (a pair lies within +-4352, so the pairs
// pack back into 16 bits exactly), quarters by a second one into 32-bit lanes, then the two
// quarters. A running hash takes a word on as hash * 33^8 + HashWord(word).
inline uint32_t HashWord(__m128i bytes) {
    const __m128i pairWeights = _mm_set1_epi32(0x00010021);     // 33, 1
    const __m128i quarterWeights = _mm_set1_epi32(0x00010441);  // 1089, 1
    __m128i pairs = _mm_madd_epi16(_mm_srai_epi16(_mm_unpacklo_epi8(bytes, bytes), 8), pairWeights);
    __m128i quarters = _mm_madd_epi16(_mm_packs_epi32(pairs, pairs), quarterWeights);
    auto first = static_cast<uint32_t>(_mm_cvtsi128_si32(quarters));
    auto second = static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_srli_epi64(quarters, 32)));
    return first * PowerOf33(4) + second;
}

// Which of the low 8 bytes equal value, a bit each in memory order.
inline unsigned int BytesEqualTo(__m128i bytes, char value) {
    return static_cast<unsigned int>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8(value)))) & 0xFF;
}

inline uint64_t LoadWord(const char* bytes) {
    uint64_t word = 0;
    std::memcpy(&word, bytes, sizeof(word));
    return word;
}

inline uint32_t LoadHalfWord(const char* bytes) {
    uint32_t word = 0;
    std::memcpy(&word, bytes, sizeof(word));
    return word;
}

// A text of 0 to 7 bytes in the top bytes of a word (its last byte at the top), zeros below: reads
// only the text's own bytes.
inline uint64_t LoadShortText(const char* text, size_t length) {
    if (length >= 4) {
        return uint64_t{LoadHalfWord(text)} << (8 * (8 - length)) | uint64_t{LoadHalfWord(text + length - 4)}
                                                                        << 32;
    }
    if (length == 0) {
        return 0;
    }
    auto byte = [text](size_t index) { return uint64_t{static_cast<unsigned char>(text[index])}; };
    return byte(0) << (8 * (8 - length)) | byte(length / 2) << (8 * (8 - length + length / 2)) |
           byte(length - 1) << 56;
}

// Whether length bytes at left and right are the same, 16 or 8 bytes at a time, the last step
// overlapping the one before: the texts compared are short, and a call costs as much as the compare.
// Reads only the bytes compared.
inline bool SameBytes(const char* left, const char* right, size_t length) {
    if (length >= 16) {
        auto differs = [left, right](size_t offset) {
            __m128i ours = _mm_loadu_si128(reinterpret_cast<const __m128i*>(left + offset));
            __m128i theirs = _mm_loadu_si128(reinterpret_cast<const __m128i*>(right + offset));
            return _mm_movemask_epi8(_mm_cmpeq_epi8(ours, theirs)) != 0xFFFF;
        };
        for (size_t offset = 0; offset + 16 < length; offset += 16) {
            if (differs(offset)) {
                return false;
            }
        }
        return !differs(length - 16);
    }
    if (length >= 8) {
        return ((LoadWord(left) ^ LoadWord(right)) |
                (LoadWord(left + length - 8) ^ LoadWord(right + length - 8))) == 0;
    }
    return LoadShortText(left, length) == LoadShortText(right, length);
}

}  // namespace zn::hashing
