// FileReader.h: byte access to a file, found in the packs before the disk, as a stream, as an owned
// buffer or as a read-only view of memory; and the open handle on a pack file whose pieces are
// mapped.
#pragma once

#include "CoreLib/CompressionType.h"
#include "CoreLib/CriticalSection.h"
#include "CoreLib/SeekPos.h"
#include "CoreLib/TrackedObject.h"
#include "CoreLib/platform/File.h"

#include <cstdint>
#include <cstdio>

namespace zn {

class Path;

class FileReader : public TrackedObject<FileReader> {
public:
    // Where the bytes come from.
    enum TBufferType {
        BufferType_File = 0,          // read through a FILE stream
        BufferType_MemoryMapped = 1,  // a read-only view of a mapped file or pack
        BufferType_Buffer = 2,        // a block owned by the reader
        BufferType_None = 3,          // nothing loaded
    };

    // Pack entries of this many bytes and more come as views when their pack allows mapping, which
    // spares a copy and a block as large; smaller ones, and compressed ones, come as blocks.
    static constexpr unsigned int kSmallestMappedPackEntry = 16u << 20;

    // Takes the file from the first pack that holds it, as the pack gives it (a view or a block,
    // already inflated). Otherwise maps the file read-only when memoryMap is set, reads it whole
    // into a block when loadInMemory is set, and else keeps the stream open. A compressed file
    // must be loaded in memory. A file that cannot be opened leaves the reader unloaded, silently.
    FileReader(const Path& path, bool loadInMemory, bool memoryMap,
               TCompressionType compression = CompressionType_None);
    // Reads a stream the caller opened, from its start. Read into memory, the stream is closed;
    // kept as a stream, it stays the caller's to close.
    FileReader(FILE* const file, bool loadInMemory, TCompressionType compression = CompressionType_None);
    ~FileReader();
    FileReader(const FileReader&) = delete;
    FileReader& operator=(const FileReader&) = delete;

    // Closes the stream (unless the caller's), unmaps the view or frees the block. The type and the
    // flags stay as they were.
    void Dispose();

    // The first byte of a buffer or a view; null, reported, for a stream.
    void* GetData() const;
    // The stream; null, reported, for a buffer or a view.
    FILE* GetFile() const;

    // Moves the read position as fseek does; a buffer or a view checks no bounds.
    bool Seek(int offset, ESeekPos origin);
    long long Tell() const;
    // Copies size * count bytes, or the whole items left, and returns the bytes copied.
    unsigned int Read(void* destination, unsigned int size) { return Read(destination, size, 1); }
    unsigned int Read(void* destination, unsigned int size, unsigned int count);
    // Points at the bytes in place and moves past them, as Read without the copy; only for views
    // and for pack entries. Returns the bytes passed over.
    unsigned int Ref(void*& pointer, unsigned int size) { return Ref(pointer, size, 1); }
    unsigned int Ref(void*& pointer, unsigned int size, unsigned int count);
    // The next line, terminated. A stream keeps the line end (fgets); a buffer or a view drops it
    // with every line end that follows, so empty lines are skipped.
    bool ReadLine(char* buffer, unsigned int capacity);
    bool EndOfFile() const;

    unsigned int GetFileSize() const { return m_Size; }
    TBufferType GetType() const { return m_Type; }
    bool IsLoaded() const { return m_Loaded; }
    bool FromPackFile() const { return m_FromPackFile; }
    // The copy of the path a disk load made; null for a stream given by the caller, a mapping or a
    // pack entry.
    const wchar_t* GetFileName() const { return m_FileName; }
    // Files are read in the host's byte order: the flag changes nothing.
    void SetEndianSwap(bool) {}

protected:
    void Load(const Path& path, bool loadInMemory, TCompressionType compression);
    void Load(FILE* const file, bool loadInMemory, TCompressionType compression);
    void MapToMemory(const Path& path);
    static bool IsLineEnding(char character) { return character == '\n' || character == '\r'; }

private:
    // Asks the pack manager for the file; true when a pack holds the name, loaded or not.
    bool LoadFromPack(const Path& path);
    // Reads the whole stream into a block (and inflates it), under m_CS.
    void LoadToMemory(FILE* const file, TCompressionType compression);
    // Whole items of size bytes between the position and the end, capped at count, in bytes.
    unsigned int ClippedBytes(unsigned int size, unsigned int count) const;
    bool IsInMemory() const { return m_Type == BufferType_Buffer || m_Type == BufferType_MemoryMapped; }
    // The cursor's distance from the first byte, and the cursor set from one.
    long long Position() const;
    void MoveTo(long long position);
    bool ReadLineInMemory(char* buffer, unsigned int capacity);

    unsigned int m_Size = 0;
    // The first byte, or the FILE* of a stream.
    void* m_Data = nullptr;
    char* m_Cursor = nullptr;
    // From "GLOBAL".
    wchar_t* m_FileName = nullptr;
    unsigned int m_FileNameLength = 0;
    TBufferType m_Type = BufferType_None;
    bool m_Loaded = false;
    // The mapping object: on this platform the open file itself, set while a view of it exists.
    const platform::MappedFile* m_MappingHandle = nullptr;
    // The file opened for mapping.
    platform::MappedFile m_FileHandle;
    // Kept as the caller gave it; the reader inflates only what Load's own checks find compressed.
    [[maybe_unused]] TCompressionType m_Compression = CompressionType_None;
    bool m_FromPackFile = false;
    // The stream is the caller's: Dispose leaves it open.
    bool m_ExternalFile = false;
    // The whole view (of the file, or of the pack around the entry) to unmap.
    void* m_ViewBase = nullptr;
    unsigned int m_ViewSize = 0;

    // Serialises reading whole files into memory and inflating them.
    static CriticalSection m_CS;
};

// An open pack file, kept open so that the pack can map or read its pieces.
class FileReaderPacked : public TrackedObject<FileReaderPacked> {
public:
    // Opens the file for random access; failures are reported and leave it unloaded.
    explicit FileReaderPacked(const Path& path);
    ~FileReaderPacked();
    FileReaderPacked(const FileReaderPacked&) = delete;
    FileReaderPacked& operator=(const FileReaderPacked&) = delete;

    void Dispose();
    // Nothing to prepare: the file is mappable once loaded.
    void PrepareFileForMapping() {}
    // Reads size * count bytes at the file position and moves it; returns the bytes read.
    unsigned int Read(void* const destination, unsigned int size, unsigned int count);
    // Moves the file position; false when the system refuses.
    bool Seek(int offset, ESeekPos origin);

    // The descriptor and size to map views of (platform::MapView) or to read at offsets.
    const platform::MappedFile& GetFileHandle() const { return m_FileHandle; }
    // The mapping object: the file itself on this platform; null until a view could be made.
    const platform::MappedFile* GetFileMapHandle() const { return m_FileMapHandle; }
    unsigned int GetFileSize() const { return m_FileSize; }
    bool IsLoaded() const { return m_Loaded; }

private:
    void Load(const Path& path);

    platform::MappedFile m_FileHandle;
    const platform::MappedFile* m_FileMapHandle = nullptr;
    unsigned int m_FileSize = 0;
    bool m_Loaded = false;
};

}  // namespace zn
