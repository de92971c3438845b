// bench_packs_corpus.h: the file set of bench_packs. Deterministic game-like data (text, log-like
// records, vertex tables and incompressible noise) under data/<group>/set_<n>/, written loose to a
// temporary folder and built from there into a stored pack, a compressed pack and two ZIPs.
#pragma once

#include "CoreLib/FileSystem.h"
#include "CoreLib/PackedFile.h"
#include "CoreLib/Path.h"
#include "CoreLib/STDString.h"
#include "tests/support/StructuredBytes.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>
#include <zip.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

namespace zn::bench {

using Bytes = std::vector<unsigned char>;

constexpr unsigned int kFileCount = 2000;
constexpr size_t kSmallestFile = size_t{1} << 10;
constexpr size_t kLargestFile = size_t{4} << 20;
// Nine files in ten are log-uniform between the smallest size and this one, the tenth between this
// one and the largest: game data is mostly small files with a few big ones, and the whole stays
// near 250 MB where a log-uniform spread over the full range would be about 1 GB.
constexpr size_t kSmallFileCeiling = size_t{64} << 10;
constexpr unsigned int kLargeFileOneIn = 10;

enum class FileKind { Text, Records, Table, Noise };

struct PlannedFile {
    // Relative to the media folder, '/' separators: the key in every archive.
    std::string name;
    size_t size = 0;
    FileKind kind = FileKind::Text;
    uint64_t checksum = 0;
};

// Sums the bytes as 64-bit words (then the tail bytes), so that every page of a buffer or a view
// is read; the size goes in too. Each route reads each file through this.
inline uint64_t Touch(const void* data, size_t size) {
    const unsigned char* bytes = static_cast<const unsigned char*>(data);
    uint64_t sum = size;
    size_t words = size / 8;
    for (size_t index = 0; index < words; ++index) {
        uint64_t word;
        std::memcpy(&word, bytes + index * 8, sizeof(word));
        sum += word;
    }
    for (size_t index = words * 8; index < size; ++index) {
        sum += bytes[index];
    }
    return sum;
}

// A uniform draw in [0, 1) from the generator's raw output, the same on every standard library.
inline double Unit(std::mt19937& random) {
    return static_cast<double>(random()) / 4294967296.0;
}

inline size_t LogUniform(std::mt19937& random, size_t low, size_t high) {
    double exponent =
        std::log2(static_cast<double>(low)) +
        Unit(random) * (std::log2(static_cast<double>(high)) - std::log2(static_cast<double>(low)));
    return std::clamp(static_cast<size_t>(std::exp2(exponent)), low, high);
}

// Lines of words and numbers, like configuration and script files.
inline Bytes TextContent(size_t size, std::mt19937& random) {
    static const char* const kWords[] = {"actor", "light",  "spawn", "trigger", "door",  "health",
                                         "speed", "radius", "mesh",  "texture", "sound", "patrol"};
    constexpr unsigned int kWordCount = sizeof(kWords) / sizeof(kWords[0]);
    Bytes bytes;
    bytes.reserve(size + 128);
    char line[128];
    while (bytes.size() < size) {
        int length = std::snprintf(line, sizeof(line), "%s_%u %s=%u %s=%.2f\n", kWords[random() % kWordCount],
                                   static_cast<unsigned>(random() % 400), kWords[random() % kWordCount],
                                   static_cast<unsigned>(random() % 1000), kWords[random() % kWordCount],
                                   static_cast<double>(random() % 100000) / 100.0);
        bytes.insert(bytes.end(), line, line + length);
    }
    bytes.resize(size);
    return bytes;
}

// Vertex-like records: positions along a smooth path with noise, texture coordinates and a
// colour from a small palette. Compressible, but much less than text.
inline Bytes TableContent(size_t size, std::mt19937& random) {
    struct Vertex {
        float position[3];
        uint16_t uv[2];
        uint32_t colour;
    };
    static const uint32_t kPalette[] = {0xFF202020u, 0xFF808080u, 0xFFC0A060u, 0xFF3060C0u,
                                        0xFF60C030u, 0xFFFFFFFFu, 0xFF000000u, 0xFFA02020u};
    Bytes bytes(size + sizeof(Vertex));
    size_t count = bytes.size() / sizeof(Vertex);
    float phase = static_cast<float>(random() % 1000);
    for (size_t index = 0; index < count; ++index) {
        float t = phase + static_cast<float>(index) * 0.01f;
        Vertex vertex;
        vertex.position[0] = std::cos(t) * 10.0f + static_cast<float>(random() % 256) / 4096.0f;
        vertex.position[1] = std::sin(t) * 10.0f;
        vertex.position[2] = static_cast<float>(index % 64) * 0.5f;
        vertex.uv[0] = static_cast<uint16_t>(index * 17);
        vertex.uv[1] = static_cast<uint16_t>(random() % 8);
        vertex.colour = kPalette[random() % 8];
        std::memcpy(&bytes[index * sizeof(Vertex)], &vertex, sizeof(Vertex));
    }
    bytes.resize(size);
    return bytes;
}

inline Bytes NoiseContent(size_t size, std::mt19937& random) {
    Bytes bytes(size + 4);
    for (size_t index = 0; index < size; index += 4) {
        uint32_t word = random();
        std::memcpy(&bytes[index], &word, sizeof(word));
    }
    bytes.resize(size);
    return bytes;
}

inline Bytes MakeContent(const PlannedFile& planned, uint32_t seed) {
    std::mt19937 random(seed);
    switch (planned.kind) {
        case FileKind::Text:
            return TextContent(planned.size, random);
        case FileKind::Records:
            return zn::test::StructuredBytes(planned.size, seed);
        case FileKind::Table:
            return TableContent(planned.size, random);
        case FileKind::Noise:
            return NoiseContent(planned.size, random);
    }
    return Bytes(planned.size);
}

// Sizes, kinds and names of the whole set, from one seed. The first file is the smallest size and
// the last the largest, so both ends are always present.
inline std::vector<PlannedFile> PlanFiles(uint32_t seed) {
    static const char* const kGroups[] = {"textures", "meshes", "sounds", "scripts",
                                          "levels",   "actors", "ui",     "config"};
    static const char* const kExtensions[] = {"txt", "log", "bin", "dat"};
    std::mt19937 random(seed);
    std::vector<PlannedFile> files(kFileCount);
    for (unsigned int index = 0; index < kFileCount; ++index) {
        PlannedFile& planned = files[index];
        if (index == 0) {
            planned.size = kSmallestFile;
        } else if (index == kFileCount - 1) {
            planned.size = kLargestFile;
        } else if (random() % kLargeFileOneIn == 0) {
            planned.size = LogUniform(random, kSmallFileCeiling, kLargestFile);
        } else {
            planned.size = LogUniform(random, kSmallestFile, kSmallFileCeiling);
        }
        // 40 % text, 25 % records, 20 % tables, 15 % noise.
        unsigned int draw = random() % 20;
        planned.kind = draw < 8    ? FileKind::Text
                       : draw < 13 ? FileKind::Records
                       : draw < 17 ? FileKind::Table
                                   : FileKind::Noise;
        char name[96];
        std::snprintf(name, sizeof(name), "data/%s/set_%u/file_%05u.%s", kGroups[random() % 8],
                      static_cast<unsigned>(random() % 10), index,
                      kExtensions[static_cast<unsigned>(planned.kind)]);
        planned.name = name;
    }
    return files;
}

// The library's wide text of a folder or file; the temporary folder's names are ASCII.
inline STDWString Wide(const std::filesystem::path& path) {
    std::string text = path.string();
    return STDWString(std::wstring(text.begin(), text.end()).c_str());
}

inline Path PathOf(const std::filesystem::path& path) {
    return Path(Wide(path), Path::ROOT_NONE);
}

// Everything the routes read, and where it is.
struct Corpus {
    std::filesystem::path root;
    // Media folders: the loose files alone, or one pack alone.
    std::filesystem::path looseMedia;
    std::filesystem::path storedMedia;
    std::filesystem::path unmappedMedia;
    std::filesystem::path compressedMedia;
    std::filesystem::path storedPack;
    // Stored too, but saved without AllowMemoryMapping: its files come as blocks.
    std::filesystem::path unmappedPack;
    std::filesystem::path compressedPack;
    std::filesystem::path storedZip;
    std::filesystem::path deflatedZip;
    std::vector<PlannedFile> files;
    // The order every route visits the files in: shuffled once, the same for all.
    std::vector<unsigned int> order;
    uint64_t totalBytes = 0;
    uint64_t totalChecksum = 0;
    size_t largestFile = 0;
};

inline bool WriteFile(const std::filesystem::path& path, const Bytes& bytes) {
    std::filesystem::create_directories(path.parent_path());
    FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        return false;
    }
    bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    return std::fclose(file) == 0 && written;
}

// A ZIP of the loose files, each stored or deflated at zlib's fastest level (the level packs use).
inline bool WriteZip(const Corpus& corpus, const std::filesystem::path& path, zip_int32_t method) {
    int error = 0;
    zip_t* archive = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    if (archive == nullptr) {
        std::fprintf(stderr, "bench_packs: zip_open(%s) failed with %d\n", path.c_str(), error);
        return false;
    }
    for (const PlannedFile& planned : corpus.files) {
        std::filesystem::path source = corpus.looseMedia / planned.name;
        zip_source_t* data = zip_source_file(archive, source.c_str(), 0, 0);
        zip_int64_t index =
            data == nullptr ? -1 : zip_file_add(archive, planned.name.c_str(), data, ZIP_FL_ENC_UTF_8);
        if (index < 0) {
            if (data != nullptr) {
                zip_source_free(data);
            }
            std::fprintf(stderr, "bench_packs: adding %s to %s failed: %s\n", planned.name.c_str(),
                         path.c_str(), zip_strerror(archive));
            zip_discard(archive);
            return false;
        }
        zip_set_file_compression(archive, static_cast<zip_uint64_t>(index), method,
                                 method == ZIP_CM_STORE ? 0 : 1);
    }
    if (zip_close(archive) != 0) {
        std::fprintf(stderr, "bench_packs: writing %s failed: %s\n", path.c_str(), zip_strerror(archive));
        zip_discard(archive);
        return false;
    }
    return true;
}

// Generates the files into a fresh folder under the temporary folder ($TMPDIR or /tmp) and builds
// the four archives. The library must be started with the string table open.
inline bool BuildCorpus(Corpus& corpus) {
    std::string pattern = (std::filesystem::temp_directory_path() / "corelib-benchpacks-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        std::perror("bench_packs: mkdtemp");
        return false;
    }
    corpus.root = pattern;
    corpus.looseMedia = corpus.root / "loose";
    corpus.storedMedia = corpus.root / "stored";
    corpus.unmappedMedia = corpus.root / "unmapped";
    corpus.compressedMedia = corpus.root / "compressed";
    corpus.storedPack = corpus.storedMedia / "Stored.pak";
    corpus.unmappedPack = corpus.unmappedMedia / "Unmapped.pak";
    corpus.compressedPack = corpus.compressedMedia / "Compressed.pak";
    corpus.storedZip = corpus.root / "stored.zip";
    corpus.deflatedZip = corpus.root / "deflated.zip";
    std::filesystem::create_directories(corpus.storedMedia);
    std::filesystem::create_directories(corpus.unmappedMedia);
    std::filesystem::create_directories(corpus.compressedMedia);

    corpus.files = PlanFiles(2026);
    PackedFile stored(true);
    PackedFile unmapped(true);
    PackedFile compressed(true);
    unmapped.SetAllowMemoryMapping(false);
    // Compressed entries always come as blocks; the pack says so too.
    compressed.SetAllowMemoryMapping(false);
    for (unsigned int index = 0; index < kFileCount; ++index) {
        PlannedFile& planned = corpus.files[index];
        Bytes bytes = MakeContent(planned, 7919u * index + 1);
        planned.checksum = Touch(bytes.data(), bytes.size());
        corpus.totalBytes += bytes.size();
        corpus.totalChecksum += planned.checksum;
        corpus.largestFile = std::max(corpus.largestFile, bytes.size());
        const char* data = reinterpret_cast<const char*>(bytes.data());
        auto size = static_cast<unsigned int>(bytes.size());
        if (!WriteFile(corpus.looseMedia / planned.name, bytes) ||
            !stored.AddFile(planned.name.c_str(), data, size, false) ||
            !unmapped.AddFile(planned.name.c_str(), data, size, false) ||
            !compressed.AddFile(planned.name.c_str(), data, size, true)) {
            std::fprintf(stderr, "bench_packs: could not add %s\n", planned.name.c_str());
            return false;
        }
    }
    if (!stored.Save(PathOf(corpus.storedPack)) || !unmapped.Save(PathOf(corpus.unmappedPack)) ||
        !compressed.Save(PathOf(corpus.compressedPack))) {
        std::fprintf(stderr, "bench_packs: could not save the packs\n");
        return false;
    }
    if (!WriteZip(corpus, corpus.storedZip, ZIP_CM_STORE) ||
        !WriteZip(corpus, corpus.deflatedZip, ZIP_CM_DEFLATE)) {
        return false;
    }
    corpus.order.resize(kFileCount);
    for (unsigned int index = 0; index < kFileCount; ++index) {
        corpus.order[index] = index;
    }
    std::mt19937 random(99);
    for (unsigned int index = kFileCount - 1; index > 0; --index) {
        std::swap(corpus.order[index], corpus.order[random() % (index + 1)]);
    }
    return true;
}

// Reads every file under the folder once from the disk, so that every route starts from a warm page
// cache filled alike.
inline uint64_t WarmPageCache(const std::filesystem::path& folder) {
    uint64_t bytesRead = 0;
    std::vector<char> buffer(1 << 20);
    for (const auto& item : std::filesystem::recursive_directory_iterator(folder)) {
        if (!item.is_regular_file()) {
            continue;
        }
        int descriptor = open(item.path().c_str(), O_RDONLY | O_CLOEXEC);
        if (descriptor < 0) {
            continue;
        }
        // The page cache keeps a file in pieces as large as the writes that filled it: a file written
        // 4 KiB at a time reads back up to 1.6 times slower than one written 1 MiB at a time. Every
        // file is written back, dropped and read afresh, so all of them sit in the cache alike, as
        // after a first read from disk, whatever wrote them.
        fdatasync(descriptor);
        posix_fadvise(descriptor, 0, 0, POSIX_FADV_DONTNEED);
        ssize_t count = 0;
        while ((count = read(descriptor, buffer.data(), buffer.size())) > 0) {
            bytesRead += static_cast<uint64_t>(count);
        }
        close(descriptor);
    }
    return bytesRead;
}

inline std::string MegaBytes(uint64_t bytes) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.1f MB", static_cast<double>(bytes) / 1e6);
    return text;
}

// The size of every archive and of the loose set, for the run's header.
inline void DescribeCorpus(const Corpus& corpus) {
    size_t counts[4] = {};
    size_t small = 0;
    for (const PlannedFile& planned : corpus.files) {
        ++counts[static_cast<unsigned>(planned.kind)];
        small += planned.size < kSmallFileCeiling;
    }
    std::vector<size_t> sizes;
    for (const PlannedFile& planned : corpus.files) {
        sizes.push_back(planned.size);
    }
    std::sort(sizes.begin(), sizes.end());
    std::printf("bench_packs: %u files in %s, %s loose (%zu text, %zu records, %zu tables, %zu noise)\n",
                kFileCount, corpus.root.c_str(), MegaBytes(corpus.totalBytes).c_str(), counts[0], counts[1],
                counts[2], counts[3]);
    std::printf("bench_packs: sizes %zu B to %zu B, median %zu B, %zu below 64 KiB\n", sizes.front(),
                sizes.back(), sizes[sizes.size() / 2], small);
    std::printf("bench_packs: Stored.pak %s, Compressed.pak %s, stored.zip %s, deflated.zip %s\n",
                MegaBytes(std::filesystem::file_size(corpus.storedPack)).c_str(),
                MegaBytes(std::filesystem::file_size(corpus.compressedPack)).c_str(),
                MegaBytes(std::filesystem::file_size(corpus.storedZip)).c_str(),
                MegaBytes(std::filesystem::file_size(corpus.deflatedZip)).c_str());
}

}  // namespace zn::bench
