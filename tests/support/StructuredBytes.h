// StructuredBytes.h: compressible test data that is not trivially so, shared by the compression
// tests and the compression benchmark.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <random>
#include <vector>

namespace zn::test {

// Log-like text records with a binary table now and then: compressible, but not trivially.
inline std::vector<unsigned char> StructuredBytes(size_t size, uint32_t seed) {
    std::mt19937 random(seed);
    static const char* const kWords[] = {"texture", "mesh", "sound", "script", "level", "actor", "light"};
    std::vector<unsigned char> bytes;
    bytes.reserve(size + 128);
    char line[128];
    while (bytes.size() < size) {
        if (random() % 16 == 0) {
            for (int i = 0; i < 64; ++i) {
                bytes.push_back(static_cast<unsigned char>(i * 3 + random() % 4));
            }
            continue;
        }
        int length = std::snprintf(line, sizeof(line), "%06u %s_%u x=%.3f flags=%x\n",
                                   static_cast<unsigned>(bytes.size() / 32), kWords[random() % 7],
                                   static_cast<unsigned>(random() % 500), (random() % 100000) / 7.0,
                                   static_cast<unsigned>(random() % 16));
        bytes.insert(bytes.end(), line, line + length);
    }
    bytes.resize(size);
    return bytes;
}

}  // namespace zn::test
