// FileVersion.cpp: finds the version note in the section headers of an ELF file. The file is
// outside data: every offset and size is checked against the file's length before it is read.
#include "CoreLib/platform/FileVersion.h"

#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstring>

namespace zn::platform {

// The headers are copied straight into the system's structures: the file's byte order is checked
// to be the host's.
static_assert(std::endian::native == std::endian::little, "ELF headers are read in the host's byte order");

namespace {

constexpr uint64_t kNoteHeaderSize = sizeof(Elf64_Nhdr);

class ScopedFile {
public:
    explicit ScopedFile(const char* path) : m_Descriptor(open(path, O_RDONLY | O_CLOEXEC)) {}
    ~ScopedFile() {
        if (m_Descriptor >= 0) {
            close(m_Descriptor);
        }
    }
    ScopedFile(const ScopedFile&) = delete;
    ScopedFile& operator=(const ScopedFile&) = delete;
    int Get() const { return m_Descriptor; }

private:
    int m_Descriptor;
};

// Reads exactly size bytes at offset: 0, the read's error number, or EIO when the file ends first.
int ReadExactly(int descriptor, void* target, size_t size, uint64_t offset) {
    size_t done = 0;
    while (done < size) {
        ssize_t count = pread(descriptor, static_cast<char*>(target) + done, size - done,
                              static_cast<off_t>(offset + done));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return errno;
        }
        if (count == 0) {
            return EIO;
        }
        done += static_cast<size_t>(count);
    }
    return 0;
}

// True when size bytes from offset lie inside a file of fileSize bytes, without overflow.
bool Fits(uint64_t offset, uint64_t size, uint64_t fileSize) {
    return offset <= fileSize && size <= fileSize - offset;
}

uint64_t PadTo(uint64_t value, uint64_t alignment) {
    return (value + alignment - 1) / alignment * alignment;
}

struct ElfFile {
    int descriptor;
    uint64_t size;
    Elf64_Ehdr header;
};

// Checks the identification and the extent of the section header table; sectionCount gets the
// number of headers, taken from the first header when the file has too many for e_shnum.
bool ReadSectionTable(ElfFile& file, uint64_t& sectionCount) {
    const Elf64_Ehdr& header = file.header;
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64 ||
        header.e_ident[EI_DATA] != ELFDATA2LSB || header.e_shentsize < sizeof(Elf64_Shdr)) {
        return false;
    }
    sectionCount = header.e_shnum;
    if (header.e_shoff == 0) {
        sectionCount = 0;
        return true;
    }
    if (!Fits(header.e_shoff, sizeof(Elf64_Shdr), file.size)) {
        return false;
    }
    if (sectionCount == 0) {
        Elf64_Shdr first;
        if (ReadExactly(file.descriptor, &first, sizeof(first), header.e_shoff) != 0) {
            return false;
        }
        sectionCount = first.sh_size;
    }
    return sectionCount <= (file.size - header.e_shoff) / header.e_shentsize;
}

// Walks the notes of one section; true when the version note is among them. A note that runs past
// its section ends the walk of that section.
bool FindInNoteSection(const ElfFile& file, const Elf64_Shdr& section, VersionNoteLocation& location) {
    if (!Fits(section.sh_offset, section.sh_size, file.size)) {
        return false;
    }
    const uint64_t alignment = section.sh_addralign == 8 ? 8 : 4;
    uint64_t position = 0;
    while (section.sh_size - position >= kNoteHeaderSize) {
        Elf64_Nhdr note;
        if (ReadExactly(file.descriptor, &note, sizeof(note), section.sh_offset + position) != 0) {
            return false;
        }
        const uint64_t ownerStart = position + kNoteHeaderSize;
        const uint64_t descriptionStart = ownerStart + PadTo(note.n_namesz, alignment);
        const uint64_t next = descriptionStart + PadTo(note.n_descsz, alignment);
        if (descriptionStart + note.n_descsz > section.sh_size) {
            return false;
        }
        char owner[sizeof(kVersionNoteOwner)];
        if (note.n_namesz == sizeof(owner) && note.n_type == kVersionNoteType &&
            ReadExactly(file.descriptor, owner, sizeof(owner), section.sh_offset + ownerStart) == 0 &&
            std::memcmp(owner, kVersionNoteOwner, sizeof(owner)) == 0) {
            location.offset = section.sh_offset + descriptionStart;
            location.size = note.n_descsz;
            return true;
        }
        if (next > section.sh_size) {
            return false;
        }
        position = next;
    }
    return false;
}

}  // namespace

int FindVersionNote(const char* path, VersionNoteLocation& location) {
    ScopedFile input(path);
    if (input.Get() < 0) {
        return errno;
    }
    struct stat status;
    if (fstat(input.Get(), &status) != 0) {
        return errno;
    }
    if (!S_ISREG(status.st_mode)) {
        return ENOEXEC;
    }
    ElfFile file{input.Get(), static_cast<uint64_t>(status.st_size), {}};
    uint64_t sectionCount = 0;
    if (file.size < sizeof(Elf64_Ehdr) ||
        ReadExactly(file.descriptor, &file.header, sizeof(file.header), 0) != 0 ||
        !ReadSectionTable(file, sectionCount)) {
        return ENOEXEC;
    }
    for (uint64_t index = 0; index < sectionCount; ++index) {
        Elf64_Shdr section;
        if (ReadExactly(file.descriptor, &section, sizeof(section),
                        file.header.e_shoff + index * file.header.e_shentsize) != 0) {
            return ENOEXEC;
        }
        VersionNoteLocation found;
        if (section.sh_type == SHT_NOTE && FindInNoteSection(file, section, found)) {
            if (found.size == 0) {
                return ENODATA;
            }
            location = found;
            return 0;
        }
    }
    return ENODATA;
}

int ReadVersionNote(const char* path, const VersionNoteLocation& location, void* description) {
    ScopedFile input(path);
    if (input.Get() < 0) {
        return errno;
    }
    return ReadExactly(input.Get(), description, location.size, location.offset);
}

}  // namespace zn::platform
