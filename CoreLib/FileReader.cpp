// FileReader.cpp: loading a file from a pack, a stream, a block or a mapped view, and reading it
// item by item or line by line; the open handle on a pack file.
#include "CoreLib/FileReader.h"

#include "CoreLib/Compressor.h"
#include "CoreLib/Localization.h"
#include "CoreLib/MemoryManager.h"
#include "CoreLib/PackedFileManager.h"
#include "CoreLib/Path.h"
#include "CoreLib/Report.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>

namespace zn {

CriticalSection FileReader::m_CS;

namespace {
using Utf8Name = Localization::ConvertWideToMultiByte;

// The size field is 32 bits wide: larger files, and streams that cannot tell their size, are
// refused rather than read in part.
bool FitsTheReader(long long size) {
    if (size < 0 || static_cast<unsigned long long>(size) > UINT32_MAX) {
        ZN_REPORT("File size %lld is out of range: a reader holds less than 4 GiB", size);
        return false;
    }
    return true;
}

// The stream's size, found by seeking to its end and back to its start; -1 when it cannot seek.
long long StreamSize(FILE* file) {
    if (std::fseek(file, 0, SEEK_END) != 0) {
        return -1;
    }
    long long size = std::ftell(file);
    std::fseek(file, 0, SEEK_SET);
    return size;
}
}  // namespace

FileReader::FileReader(const Path& path, bool loadInMemory, bool memoryMap, TCompressionType compression)
    : m_Compression(compression) {
    if (LoadFromPack(path)) {
        return;
    }
    if (memoryMap) {
        MapToMemory(path);
    } else {
        Load(path, loadInMemory, compression);
    }
}

FileReader::FileReader(FILE* const file, bool loadInMemory, TCompressionType compression)
    : m_Compression(compression), m_ExternalFile(true) {
    // fflush(nullptr) would flush every stream of the process, and rewind(nullptr) fault.
    if (file != nullptr) {
        std::fflush(file);
        std::rewind(file);
    }
    Load(file, loadInMemory, compression);
}

FileReader::~FileReader() {
    Dispose();
}

bool FileReader::LoadFromPack(const Path& path) {
    PackedFileManager* packs = Singleton<PackedFileManager>::GetInstance();
    if (packs == nullptr || !packs->DoesFileExist(path)) {
        return false;
    }
    // A pack entry always arrives whole and inflated. Reading it into a block costs less than
    // mapping it, faulting its pages in one by one and unmapping it again (which makes the kernel
    // flush the other processors' address caches), except for the largest entries.
    bool mapped = true;
    char* base = nullptr;
    unsigned int offset = 0;
    if (!packs->GetFileData(path, mapped, &base, m_Size, offset, m_ViewSize, kSmallestMappedPackEntry)) {
        m_Size = 0;
        m_ViewSize = 0;
        return true;
    }
    m_ViewBase = base;
    m_Data = base + offset;
    m_Cursor = base + offset;
    m_Loaded = true;
    m_FromPackFile = true;
    m_Type = mapped ? BufferType_MemoryMapped : BufferType_Buffer;
    return true;
}

void FileReader::Load(const Path& path, bool loadInMemory, TCompressionType compression) {
    if (compression != CompressionType_None && !loadInMemory) {
        ZN_LOG(LogError, "Compressed files need to be loaded in memory!");
        return;
    }
    Dispose();
    Utf8Name name(path);
    // A directory opens as a stream here but not on every system; it is no file to read.
    if (platform::IsDirectory(name.Get())) {
        return;
    }
    FILE* file = platform::OpenStream(name.Get(), "rb");
    if (file == nullptr) {
        return;
    }
    m_FileNameLength = path.Length();
    m_FileName =
        static_cast<wchar_t*>(MemoryManager::GlobalMalloc((m_FileNameLength + 1) * sizeof(wchar_t), 0));
    if (m_FileName != nullptr) {
        std::wmemcpy(m_FileName, path.ToWChar() == nullptr ? L"" : path.ToWChar(), m_FileNameLength);
        m_FileName[m_FileNameLength] = L'\0';
    } else {
        m_FileNameLength = 0;
    }
    Load(file, loadInMemory, compression);
}

void FileReader::Load(FILE* const file, bool loadInMemory, TCompressionType compression) {
    if (compression != CompressionType_None && !loadInMemory) {
        ZN_LOG(LogError, "Compressed files need to be loaded in memory!");
        return;
    }
    if (file == nullptr) {
        return;
    }
    long long size = StreamSize(file);
    if (!FitsTheReader(size)) {
        if (!m_ExternalFile) {
            std::fclose(file);
        }
        return;
    }
    m_Size = static_cast<unsigned int>(size);
    if (!loadInMemory) {
        m_Data = file;
        m_Type = BufferType_File;
        m_Cursor = nullptr;
        m_Loaded = true;
        return;
    }
    LoadToMemory(file, compression);
}

void FileReader::LoadToMemory(FILE* const file, TCompressionType compression) {
    CSLock guard(&m_CS);
    m_Type = BufferType_Buffer;
    void* block = MemoryManager::SizedMalloc(m_Size);
    if (block == nullptr && m_Size > 0) {
        ZN_REPORT("Cannot allocate %u bytes to read a file", m_Size);
        std::fclose(file);
        m_Size = 0;
        m_Type = BufferType_None;
        return;
    }
    size_t bytesRead = m_Size > 0 ? std::fread(block, 1, m_Size, file) : 0;
    // A file that shrank since its size was taken leaves zeros, never stale heap bytes.
    if (bytesRead < m_Size) {
        std::memset(static_cast<char*>(block) + bytesRead, 0, m_Size - bytesRead);
    }
    // The stream has served its purpose, even a caller's: the reader now answers from memory.
    std::fclose(file);

    if (compression == CompressionType_Zlib) {
        DeCompressor inflater(CompressionLevelBest);
        inflater.Inflate(block, m_Size);
        ZipperOutput output = inflater.GetOutput();
        MemoryManager::SizedFree(block, m_Size);
        m_Size = output.m_OutputSize;
        block = MemoryManager::SizedMalloc(m_Size);
        if (block == nullptr && m_Size > 0) {
            ZN_REPORT("Cannot allocate %u bytes to read a file", m_Size);
            m_Size = 0;
            m_Type = BufferType_None;
            return;
        }
        if (m_Size > 0) {
            std::memcpy(block, output.m_Output, m_Size);
        }
    }
    m_Data = block;
    m_Cursor = static_cast<char*>(block);
    m_Loaded = true;
}

void FileReader::MapToMemory(const Path& path) {
    Dispose();
    Utf8Name name(path);
    if (!platform::OpenForMapping(name.Get(), platform::AccessHint::Sequential, m_FileHandle)) {
        return;
    }
    if (m_FileHandle.size == 0) {
        platform::CloseMapping(m_FileHandle);
        return;
    }
    if (!FitsTheReader(static_cast<long long>(m_FileHandle.size))) {
        platform::CloseMapping(m_FileHandle);
        return;
    }
    void* view = platform::MapView(m_FileHandle, 0, m_FileHandle.size);
    if (view == nullptr) {
        platform::CloseMapping(m_FileHandle);
        return;
    }
    m_MappingHandle = &m_FileHandle;
    m_Type = BufferType_MemoryMapped;
    m_Data = view;
    m_Cursor = static_cast<char*>(view);
    m_ViewBase = view;
    m_Size = static_cast<unsigned int>(m_FileHandle.size);
    m_ViewSize = m_Size;
    m_Loaded = true;
}

void FileReader::Dispose() {
    if (m_Data != nullptr) {
        switch (m_Type) {
            case BufferType_File:
                if (!m_ExternalFile) {
                    std::fclose(static_cast<FILE*>(m_Data));
                }
                break;
            case BufferType_MemoryMapped:
                platform::UnmapView(m_ViewBase, m_ViewSize);
                m_ViewBase = nullptr;
                m_ViewSize = 0;
                platform::CloseMapping(m_FileHandle);
                m_MappingHandle = nullptr;
                break;
            case BufferType_Buffer:
                // A pack's block starts at the view base; a block read here has none.
                MemoryManager::SizedFree(m_ViewBase != nullptr ? m_ViewBase : m_Data, m_Size);
                m_ViewBase = nullptr;
                m_ViewSize = 0;
                break;
            case BufferType_None:
                break;
        }
        // Forgotten, so that a second Dispose (the destructor's) frees nothing twice.
        m_Data = nullptr;
    }
    m_Cursor = nullptr;
    m_Size = 0;
    if (m_FileName != nullptr) {
        MemoryManager::GlobalFree(m_FileName, 0);
        m_FileName = nullptr;
    }
    m_FileNameLength = 0;
}

void* FileReader::GetData() const {
    if (IsInMemory()) {
        return m_Data;
    }
    ZN_REPORT("GetData returning NULL because type is not buffer");
    return nullptr;
}

FILE* FileReader::GetFile() const {
    if (!IsInMemory()) {
        return static_cast<FILE*>(m_Data);
    }
    ZN_REPORT("GetFile returning NULL because type is not file");
    return nullptr;
}

long long FileReader::Position() const {
    return static_cast<long long>(reinterpret_cast<intptr_t>(m_Cursor) - reinterpret_cast<intptr_t>(m_Data));
}

void FileReader::MoveTo(long long position) {
    // Integer arithmetic: a position outside the content is allowed and must not be a pointer
    // overflow.
    m_Cursor = reinterpret_cast<char*>(reinterpret_cast<intptr_t>(m_Data) + static_cast<intptr_t>(position));
}

bool FileReader::Seek(int offset, ESeekPos origin) {
    switch (m_Type) {
        case BufferType_File:
            return std::fseek(static_cast<FILE*>(m_Data), offset, static_cast<int>(origin)) == 0;
        case BufferType_Buffer:
        case BufferType_MemoryMapped:
            switch (origin) {
                case SEEKPOS_START:
                    MoveTo(offset);
                    return true;
                case SEEKPOS_END:
                    MoveTo(static_cast<long long>(m_Size) + offset);
                    return true;
                case SEEKPOS_CURRENT:
                    MoveTo(Position() + offset);
                    return true;
            }
            return false;
        case BufferType_None:
            break;
    }
    ZN_REPORT("%s - This code shuld not be reached!!", ZN_FUNCTION_NAME);
    return false;
}

long long FileReader::Tell() const {
    switch (m_Type) {
        case BufferType_File:
            return std::ftell(static_cast<FILE*>(m_Data));
        case BufferType_Buffer:
        case BufferType_MemoryMapped:
            return Position();
        case BufferType_None:
            break;
    }
    ZN_REPORT("%s - This code shuld not be reached!!", ZN_FUNCTION_NAME);
    return 0;
}

unsigned int FileReader::ClippedBytes(unsigned int size, unsigned int count) const {
    long long position = Position();
    // A position sought outside the content has no items left, rather than wrapping to many.
    uint64_t itemsLeft = position < 0 || position >= m_Size ? 0 : (m_Size - position) / size;
    return static_cast<unsigned int>(std::min(itemsLeft * size, static_cast<uint64_t>(size) * count));
}

unsigned int FileReader::Read(void* destination, unsigned int size, unsigned int count) {
    if (size == 0) {
        ZN_REPORT("size can't be 0");
        return 0;
    }
    if (count == 0) {
        return 0;
    }
    switch (m_Type) {
        case BufferType_File:
            return static_cast<unsigned int>(
                std::fread(destination, size, count, static_cast<FILE*>(m_Data)) * size);
        case BufferType_Buffer:
        case BufferType_MemoryMapped: {
            unsigned int bytes = ClippedBytes(size, count);
            if (bytes < static_cast<uint64_t>(size) * count) {
                ZN_REPORT("Trying to read more from a file then the file size.");
            }
            if (bytes > 0) {
                std::memcpy(destination, m_Cursor, bytes);
                m_Cursor += bytes;
            }
            return bytes;
        }
        case BufferType_None:
            break;
    }
    ZN_REPORT("%s - This code shuld not be reached!!", ZN_FUNCTION_NAME);
    return 0;
}

unsigned int FileReader::Ref(void*& pointer, unsigned int size, unsigned int count) {
    if (m_Type != BufferType_MemoryMapped && !m_FromPackFile) {
        ZN_REPORT("You can only use Ref on MemMapped files");
        return 0;
    }
    if (size == 0) {
        ZN_REPORT("size can't be 0");
        return 0;
    }
    if (count == 0) {
        return 0;
    }
    pointer = m_Cursor;
    unsigned int bytes = ClippedBytes(size, count);
    m_Cursor += bytes;
    return bytes;
}

bool FileReader::ReadLine(char* buffer, unsigned int capacity) {
    if (buffer == nullptr) {
        return false;
    }
    switch (m_Type) {
        case BufferType_File:
            return std::fgets(buffer, static_cast<int>(std::min<unsigned int>(capacity, INT_MAX)),
                              static_cast<FILE*>(m_Data)) != nullptr;
        case BufferType_Buffer:
        case BufferType_MemoryMapped:
            return ReadLineInMemory(buffer, capacity);
        case BufferType_None:
            break;
    }
    ZN_REPORT("%s - This code shuld not be reached!!", ZN_FUNCTION_NAME);
    return false;
}

bool FileReader::ReadLineInMemory(char* buffer, unsigned int capacity) {
    const char* data = static_cast<const char*>(m_Data);
    long long position = Position();
    // The scan starts one past the line's first character, which is taken as it is. Out of the
    // content there is nothing to take: the line is empty.
    unsigned int start = 0;
    unsigned int end = 0;
    if (position < 0 || position >= m_Size) {
        ZN_REPORT("File pointer out of bounds!");
    } else {
        start = static_cast<unsigned int>(position);
        end = start + 1;
        while (end < m_Size && !IsLineEnding(data[end])) {
            ++end;
        }
    }
    unsigned int length = end - start;
    if (length + 1 >= capacity) {
        ZN_REPORT("Destination buffer too small to read line! Buffer size %d, needed %d.",
                  static_cast<int>(capacity), static_cast<int>(length + 1));
        return false;
    }
    if (length > 0) {
        std::memcpy(buffer, data + start, length);
    }
    buffer[length] = '\0';
    if (length == 0) {
        return true;
    }
    while (end < m_Size && IsLineEnding(data[end])) {
        ++end;
    }
    MoveTo(end);
    return true;
}

bool FileReader::EndOfFile() const {
    switch (m_Type) {
        case BufferType_File:
            return std::feof(static_cast<FILE*>(m_Data)) != 0;
        case BufferType_Buffer:
        case BufferType_MemoryMapped:
            return Tell() >= m_Size;
        case BufferType_None:
            break;
    }
    // An unloaded reader has no end to test: this is the published text of that report, and the
    // answer "at the end" keeps a reading loop from starting.
    ZN_REPORT("%s - Not implemented!!", ZN_FUNCTION_NAME);
    return true;
}

// ---- FileReaderPacked ---------------------------------------------------------------------------

FileReaderPacked::FileReaderPacked(const Path& path) {
    Load(path);
}

FileReaderPacked::~FileReaderPacked() {
    Dispose();
}

void FileReaderPacked::Dispose() {
    platform::CloseMapping(m_FileHandle);
    m_FileMapHandle = nullptr;
    m_FileSize = 0;
    m_Loaded = false;
}

void FileReaderPacked::Load(const Path& path) {
    Dispose();
    Utf8Name name(path);
    if (!platform::OpenForMapping(name.Get(), platform::AccessHint::Random, m_FileHandle)) {
        ZN_REPORT("Opening of file %ls failed!", path.ToWChar());
        return;
    }
    // The low 32 bits, as the system's file size call gives them.
    m_FileSize = static_cast<unsigned int>(m_FileHandle.size);
    if (m_FileSize == 0) {
        ZN_REPORT("File size 0 %ls!", path.ToWChar());
        Dispose();
        return;
    }
    // A mapping needs no object of its own here; mapping the first page proves the file mappable.
    size_t probeSize =
        static_cast<size_t>(std::min<uint64_t>(m_FileHandle.size, platform::MappingGranularity()));
    void* probe = platform::MapView(m_FileHandle, 0, probeSize);
    if (probe == nullptr) {
        ZN_REPORT("Creation of filemapping on file %ls failed!", path.ToWChar());
        Dispose();
        return;
    }
    platform::UnmapView(probe, probeSize);
    m_FileMapHandle = &m_FileHandle;
    m_Loaded = true;
}

unsigned int FileReaderPacked::Read(void* const destination, unsigned int size, unsigned int count) {
    if (!m_Loaded) {
        return 0;
    }
    long long bytes = platform::ReadNext(m_FileHandle, destination, static_cast<size_t>(size) * count);
    return bytes < 0 ? 0 : static_cast<unsigned int>(bytes);
}

bool FileReaderPacked::Seek(int offset, ESeekPos origin) {
    return m_Loaded && platform::SetFilePosition(m_FileHandle, offset, static_cast<int>(origin)) >= 0;
}

}  // namespace zn
