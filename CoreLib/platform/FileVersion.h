// FileVersion.h: the version of a file as an ELF note: the note a binary carries, the macro that
// puts one in, and the search for it in a file on disk.
#pragma once

#include <cstdint>

namespace zn::platform {

// A standard ELF note (the Elf64_Nhdr header, then the owner name and the description, each padded
// to 4 bytes) whose owner is "CoreLib" and whose type is 1: four little-endian 16-bit numbers,
// major, minor, revision and build.
struct FileVersionNote {
    uint32_t ownerSize;
    uint32_t descriptionSize;
    uint32_t type;
    char owner[8];
    uint16_t numbers[4];
};
static_assert(sizeof(FileVersionNote) == 28, "the note is laid out as its ELF form, without padding");

inline constexpr char kVersionNoteOwner[8] = "CoreLib";
inline constexpr uint32_t kVersionNoteType = 1;
inline constexpr uint32_t kVersionNoteDescriptionSize = 8;

// Where the description of a file's version note lies.
struct VersionNoteLocation {
    uint64_t offset = 0;
    uint32_t size = 0;
};

// Looks through the note sections of an ELF file for the version note. Returns 0 and sets location,
// or an error number: the one of opening or reading the file, ENOEXEC for a file that is not a
// well-formed 64-bit little-endian ELF file, ENODATA when no note has the owner and type (or its
// description is empty).
int FindVersionNote(const char* path, VersionNoteLocation& location);
// Reads the location.size bytes of a description found by FindVersionNote into description.
// Returns 0, or the error number of opening or reading the file; EIO when the file ends first.
int ReadVersionNote(const char* path, const VersionNoteLocation& location, void* description);

}  // namespace zn::platform

// Puts a version note into the binary that is being built (an executable or a shared library), in
// its own note section. Use it once per binary, at namespace scope; the numbers are constants that
// fit 16 bits.
#define ZN_PLATFORM_EMBED_VERSION_NOTE(major, minor, revision, build)                              \
    [[gnu::section(".note.corelib.version"), gnu::used,                                            \
      gnu::aligned(4)]] static const ::zn::platform::FileVersionNote zn_embedded_version_note_ = { \
        sizeof(::zn::platform::kVersionNoteOwner),                                                 \
        ::zn::platform::kVersionNoteDescriptionSize,                                               \
        ::zn::platform::kVersionNoteType,                                                          \
        "CoreLib",                                                                                 \
        {(major), (minor), (revision), (build)}}
