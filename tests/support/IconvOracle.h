// IconvOracle.h: glibc's iconv as the independent reference for the library's text conversions.
#pragma once

#include <gtest/gtest.h>

#include <iconv.h>

#include <string>
#include <vector>

namespace zn::test {

// Converts bytes between two encodings with iconv; fails the test on any iconv error, since every
// text given here is valid.
inline std::string Iconv(const char* to, const char* from, const std::string& input) {
    iconv_t converter = iconv_open(to, from);
    EXPECT_NE(converter, reinterpret_cast<iconv_t>(-1));
    std::string output(input.size() * 4 + 16, '\0');
    char* in = const_cast<char*>(input.data());
    size_t inLeft = input.size();
    char* out = output.data();
    size_t outLeft = output.size();
    size_t result = iconv(converter, &in, &inLeft, &out, &outLeft);
    EXPECT_NE(result, static_cast<size_t>(-1)) << "iconv refused a valid text";
    iconv_close(converter);
    output.resize(output.size() - outLeft);
    return output;
}

// The UTF-32LE bytes of code points, the form iconv reads them from.
inline std::string Utf32Bytes(const std::vector<char32_t>& codePoints) {
    std::string bytes;
    for (char32_t codePoint : codePoints) {
        for (int shift = 0; shift < 32; shift += 8) {
            bytes += static_cast<char>((codePoint >> shift) & 0xFF);
        }
    }
    return bytes;
}

}  // namespace zn::test
