// FileWriter.h: writing a file through a stream, optionally as one zlib stream made from one
// block, or into a temporary file that is removed when the writer closes.
#pragma once

#include "CoreLib/CompressionType.h"
#include "CoreLib/STDString.h"
#include "CoreLib/SeekPos.h"
#include "CoreLib/TrackedObject.h"

#include <cstdio>

namespace zn {

class Path;

enum EFileWriteType {
    FileWriteType_Temp = 0,  // a new file in the temporary folder, removed at Close
};

class FileWriter : public TrackedObject<FileWriter> {
public:
    // Opens the file with a C library mode (L"wb", L"w", L"ab", L"wb+"); failure is silent and
    // leaves IsLoaded false.
    FileWriter(const Path& path, TCompressionType compression, const STDWString& mode);
    // The same with a path text given to the system as it stands.
    FileWriter(const wchar_t* path, TCompressionType compression, const wchar_t* mode);
    // A temporary file "ZN_" + six characters in the temporary folder, open for writing and
    // reading; a failure is reported and leaves the writer closed.
    explicit FileWriter(EFileWriteType type);
    ~FileWriter();
    // A copy would close the one stream twice.
    FileWriter(const FileWriter&) = delete;
    FileWriter& operator=(const FileWriter&) = delete;

    // Closes what is open, then opens the file; the result is IsLoaded.
    bool OpenFile(const Path& path, const STDWString& mode);
    bool OpenFile(const wchar_t* path, const wchar_t* mode);
    // Closes the stream, and removes the file of a temporary writer.
    void Close();

    // Uncompressed: writes count items of size bytes and returns the items written. Compressed:
    // writes size bytes as one complete zlib stream and returns 1 or 0; count is not used, and a
    // compressed file takes exactly one Write, since the reader inflates one stream.
    unsigned int Write(const void* data, unsigned int size, unsigned int count) const;
    // Position in the file, as fseek and ftell; not available in compressed mode (false, 0).
    bool Seek(int offset, ESeekPos origin);
    long long Tell() const;
    bool Flush();

    FILE* GetFile() const { return m_File; }
    bool IsLoaded() const { return m_Loaded; }
    // Files are written in the host's byte order: the flag changes nothing.
    void SetEndianSwap(bool) {}

private:
    bool IsCompressed() const { return m_Compression != CompressionType_None; }

    FILE* m_File = nullptr;
    bool m_Loaded = false;
    TCompressionType m_Compression = CompressionType_None;
    // Empty unless this is a temporary file.
    STDString m_TempFileName;
};

}  // namespace zn
