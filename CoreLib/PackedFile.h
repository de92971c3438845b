// PackedFile.h: a read-mostly archive of game data. One table of contents, then the bytes of each
// file aligned to 32768-byte chunks, optionally spread over numbered part files and optionally
// zlib-compressed per file. One object either builds such an archive (write mode) or serves its
// files (read mode), chosen at construction.
#pragma once

#include "CoreLib/CriticalSection.h"
#include "CoreLib/FixedString.h"
#include "CoreLib/Path.h"
#include "CoreLib/STDString.h"
#include "CoreLib/ScratchBuffer.h"
#include "CoreLib/Set.h"
#include "CoreLib/TrackedObject.h"

#include <cstdint>

namespace zn {

class FileReaderPacked;
class FileTrieNode;
class FileWriter;
class PackedFile_TOC;
struct PackedFileEntry;

namespace test {
struct PackedFileSeam;
}

// The pack's header as a record. On disk it is exactly 17 bytes, the fields in this order with no
// gap: four 32-bit little-endian words and one byte.
struct PackedFileHeader : public TrackedObject<PackedFileHeader> {
    static constexpr unsigned int kStoredSize = 17;
    // What a writer stores; a reader accepts this and any later version.
    static constexpr uint32_t kVersion = 7;

    uint32_t m_Version = kVersion;
    // Where file data starts in the first part: a multiple of the chunk size.
    uint32_t m_DataOffset = 0;
    // Part files, the first included.
    uint32_t m_NumParts = 0;
    // Bytes of table of contents: 4 + 272 times the entry count.
    uint32_t m_TocSize = 0;
    uint8_t m_AllowMemoryMapping = 1;
};

// The part writers of a pack being built: temporary files while files are added, the final part
// files while it is saved. The first part carries the pack's own name; part n the name "<name>_<n>.<ext>".
class PackedFileWriters : public TrackedObject<PackedFileWriters> {
public:
    PackedFileWriters(const Path& path, bool temporary);
    // Closes every writer: temporary files go away.
    ~PackedFileWriters();
    PackedFileWriters(const PackedFileWriters&) = delete;
    PackedFileWriters& operator=(const PackedFileWriters&) = delete;

    // The newest writer and its part index; null when none was made.
    FileWriter* GetCurrent(unsigned int& partIndex) const;
    // Makes the next part's writer and returns it, or null, with the writer not kept, when it could
    // not be opened. mode opens a final part ("wb"); a temporary writer ignores it.
    FileWriter* OpenNext(const wchar_t* mode);
    unsigned int GetCount() const { return m_Writers.GetSize(); }
    FileWriter* GetAt(unsigned int index) const { return m_Writers[index]; }
    // Sum of the positions of the writers before index.
    uint64_t GetPositionsBefore(unsigned int index) const;
    // Closes and deletes every writer.
    void CloseAll();

private:
    PrimitiveSet<FileWriter*> m_Writers;
    Path m_Path;
    // The part number the next writer gets.
    unsigned int m_NextPart = 0;
    bool m_Temporary;
    ScratchBuffer m_Scratch;
};

class PackedFile : public TrackedObject<PackedFile> {
public:
    // The alignment of file data and the block of the copy in Save.
    static constexpr unsigned int kChunkSize = 32768;
    // A source file larger than this is refused, and a part whose data has reached it takes no
    // further file.
    static constexpr unsigned int kMaxPartDataSize = 0x40000000;
    // The byte that pads the table of contents and every file to the chunk size.
    static constexpr unsigned char kPaddingByte = 0xAD;
    // "%s_%hhu.%s": the path without extension, the part number and the extension.
    static constexpr const char* kPartNameFormat = "%s_%hhu.%s";

    explicit PackedFile(bool writeMode);
    // Deletes the header and the table, closes the part readers, then the writers, which removes
    // the temporary files.
    ~PackedFile();
    PackedFile(const PackedFile&) = delete;
    PackedFile& operator=(const PackedFile&) = delete;

    // Write mode: adds size bytes under name, deflated at zlib's fastest level if compress (the
    // compressed form is kept even when larger). Names of 255 characters and more, empty names and
    // names added before are reported and not added.
    bool AddFile(const char* name, const char* data, unsigned int size, bool compress);
    // Write mode: adds the contents of a file on disk; false for an empty, missing or too large one.
    bool AddFile(const char* name, const Path& source, bool compress);
    // As above, stored under name's path relative to the media root.
    bool AddFile(const Path& name, const Path& source, bool compress);

    // Write mode: writes the pack to path and its part files beside it.
    bool Save(const Path& path);
    // Read mode: opens the pack at path and its part files and reads its table of contents. A pack
    // that fails keeps what was read so far.
    bool Load(const Path& path);

    // Read mode: the bytes of a file. mapped says what the caller wants and comes back saying what
    // it got: a read-only view (base is the view, the bytes start at base + offset, viewSize is the
    // view's extent) or a block the caller owns (base, size bytes, from GlobalMalloc below 0x100000
    // bytes and LargeBlockMalloc from there on). Compressed files always come as a block.
    bool GetFileData(const char* name, bool& mapped, char*& base, unsigned int& size, unsigned int& offset,
                     unsigned int& viewSize);
    // As above for a node of this pack's own table, found by the caller under the pack's lock: the
    // manager's lookups, which make their keys without interning them.
    bool GetFileData(const FileTrieNode* node, bool& mapped, char*& base, unsigned int& size,
                     unsigned int& offset, unsigned int& viewSize);
    // Gives back what GetFileData handed out: unmaps the view, or frees the block by its size's rule.
    // A null base is ignored.
    static void ReleaseFileData(bool mapped, char* base, unsigned int size, unsigned int viewSize);

    // A file or a directory of that name is in the pack.
    bool ContainsFile(const char* name);
    bool ContainsDirectory(const Path& path);
    // The uncompressed size of a file; 0 for an unknown name or a directory.
    unsigned int GetFileSize(const char* name);
    // The uncompressed size of an entry; 0 for null.
    static unsigned int GetEntrySize(const PackedFileEntry* entry);

    void CollectFiles(const Path& dir, const STDWString& pattern, bool recursive, ObjectSet<Path>& out);
    void CollectDirectories(const Path& dir, bool recursive, ObjectSet<Path>& out);
    void GetFileNames(ObjectSet<FixedString>& out);

    // No file in the pack.
    bool IsEmpty();
    unsigned int GetNbFiles();
    const Path& GetFilePath() const { return m_FilePath; }

    bool GetAllowMemoryMapping() const;
    // Write mode only: whether readers may map the files in place. A pack with compressed files
    // should be saved without.
    void SetAllowMemoryMapping(bool allow);

    // hash * 33 + tolower(character), characters sign-extended, in 32 bits; 0 for an empty text.
    static unsigned int GetHashValue(const char* text) { return GetHashValue(text, 0xFFFFFFFF); }
    // As above over at most length characters. Inline: every lookup hashes each component it walks.
    static unsigned int GetHashValue(const char* text, unsigned int length) {
        return text != nullptr ? ContinueHashValue(0, text, length) : 0;
    }
    // The hash of a text carried on over at most length more characters.
    static unsigned int ContinueHashValue(unsigned int hash, const char* text, unsigned int length) {
        for (unsigned int index = 0; index < length && text[index] != '\0'; ++index) {
            // Sign-extended, and only ASCII letters fold: bytes above 0x7F stay negative.
            int character = static_cast<signed char>(text[index]);
            if (character >= 'A' && character <= 'Z') {
                character += 'a' - 'A';
            }
            hash = hash * 33 + static_cast<unsigned int>(character);
        }
        return hash;
    }

    // The pack's lock and table, for the manager's lookups made under that lock. The lock is
    // recursive; every public operation takes it.
    CriticalSection& GetCriticalSection() { return m_CS; }
    PackedFile_TOC* GetTOC() const { return m_TOC; }
    const PackedFileHeader* GetHeader() const { return m_Header; }
    bool IsWriteMode() const { return m_WriteMode; }

private:
    friend struct test::PackedFileSeam;

    void AddRawBuffer(const char* name, const void* data, unsigned int size, unsigned int uncompressedSize);
    PackedFileEntry* GetFileEntry(const char* name);
    // GetFileData's steps: the write-mode refusal and the outputs' first values; then the bytes of
    // an entry, none for null.
    bool BeginGetFileData(bool& mapped, char*& base, unsigned int& size, unsigned int& offset,
                          unsigned int& viewSize);
    bool GetEntryData(const PackedFileEntry* entry, bool& mapped, char*& base, unsigned int& size,
                      unsigned int& offset, unsigned int& viewSize);
    void ClearFileReaders();

    // Pads the writer with kPaddingByte up to the next multiple of the chunk size.
    bool WritePadding(FileWriter* writer, unsigned int count);
    // Save's steps: header, table and padding; then the temporary parts copied into the final ones.
    bool WriteHeaderAndTable(FileWriter* writer);
    bool CopyParts(PackedFileWriters& finalParts);
    // Load's steps: the header and table; then the readers of the further parts.
    bool ReadHeaderAndTable(FileReaderPacked* reader);
    bool OpenFurtherParts();
    // GetFileData's two ways to the stored bytes.
    bool MapEntry(FileReaderPacked* reader, uint64_t fileOffset, const PackedFileEntry& entry, char*& base,
                  unsigned int& offset, unsigned int& viewSize);
    char* ReadEntry(FileReaderPacked* reader, uint64_t fileOffset, const PackedFileEntry& entry);
    bool InflateEntry(char* stored, const PackedFileEntry& entry, char*& base, unsigned int& size);

    // The data a part may hold before it takes no further file: kMaxPartDataSize, unless a test
    // lowers it to build multi-part packs from small files.
    static unsigned int s_PartDataLimit;

    Path m_FilePath;
    // Owned; guarded by m_CS like everything below.
    PackedFileHeader* m_Header = nullptr;
    PackedFile_TOC* m_TOC = nullptr;
    // Sum of all padded sizes written so far.
    uint64_t m_WriteOffset = 0;
    // Read mode: one a part, by part index. Owned.
    PrimitiveSet<FileReaderPacked*> m_FileReaders;
    // Write mode: the temporary part writers.
    PackedFileWriters m_FileWriters;
    // Padding and part names.
    ScratchBuffer m_Scratch;
    bool m_WriteMode;
    // Recursive: public operations call each other inside it.
    mutable CriticalSection m_CS;
    // Write mode: the entries added so far, which the table's nodes point to. Owned.
    PrimitiveSet<PackedFileEntry*> m_AddedEntries;
};

}  // namespace zn
