// PackedFile.cpp: building a pack through temporary part files, saving it in its stored form, and
// serving its files from a loaded pack as mapped views or allocated blocks.
#include "CoreLib/PackedFile.h"

#include "CoreLib/Compressor.h"
#include "CoreLib/FileReader.h"
#include "CoreLib/FileSystem.h"
#include "CoreLib/FileWriter.h"
#include "CoreLib/Localization.h"
#include "CoreLib/MemoryManager.h"
#include "CoreLib/PackedFile_TOC.h"
#include "CoreLib/Report.h"
#include "CoreLib/platform/File.h"

// zlib then declares its input as const, as it is.
#define ZLIB_CONST
#include <zlib.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace zn {

namespace {
// zlib only compares the major digit; this is the version the streams were made for.
constexpr const char* kZlibVersion = "1.2.7";
// zlib's deflate never shrinks data by more than this factor: a stated size beyond it is a lie.
constexpr uint64_t kMaxInflateRatio = 1032;
constexpr uint64_t kMaxInflateSlack = 64;
// The stream buffer of every file a pack is written to.
constexpr size_t kStreamBufferSize = size_t{1} << 20;

constexpr const char* kWrongVersion = "Failed to load the pack file, wrong version or not a packed file!";
constexpr const char* kReadError = "PackedFile::GetFileData: Read error.";
constexpr const char* kWrongOffset = "Wrong offset encountered while saving packed file %ls!";
constexpr const char* kCouldNotWrite = "PackedFile: Could not write to file.";
// The reports of the steps that Load, Save and GetFileData hand to helpers carry their names.
constexpr const char* kLoadFunction = "zn::PackedFile::Load";
constexpr const char* kSaveFunction = "zn::PackedFile::Save";
constexpr const char* kGetFileDataFunction = "zn::PackedFile::GetFileData";
// The part number is formatted as an unsigned char, so no more parts can be named apart.
constexpr uint32_t kMaxPartCount = 256;

// Blocks follow the library's size rule, which FileReader::Dispose applies when it frees them.
char* AllocateBlock(size_t size) {
    return static_cast<char*>(MemoryManager::SizedMalloc(size));
}

uint64_t PaddedSize(uint64_t size) {
    uint64_t remainder = size % PackedFile::kChunkSize;
    return remainder == 0 ? size : size + (PackedFile::kChunkSize - remainder);
}

// The name of part partNumber of the pack at path: the whole text without its extension, the
// number as an unsigned char, and the extension, so the parts lie beside the pack wherever it is.
Path MakePartPath(const Path& path, unsigned int partNumber, ScratchBuffer& scratch) {
    const STDWString& text = path.ToWString();
    int lastSeparator = text.FindReverse(L'/');
    int lastDot = text.FindReverse(L'.');
    bool hasExtension = lastDot > lastSeparator;
    unsigned int stemLength = hasExtension ? static_cast<unsigned int>(lastDot) : text.Length();
    Localization::ConvertWideToMultiByte stem(text.ToChar(), static_cast<int>(stemLength));
    Localization::ConvertWideToMultiByte extension(hasExtension ? text.ToChar() + lastDot + 1 : L"");
    // Room for both texts, the separator, the dot, three digits and the terminator.
    unsigned int needed = stem.GetLength() + extension.GetLength() + 8;
    scratch.Clear();
    scratch.GrowTo(needed);
    char* name = scratch.GetWriteData();
    if (name == nullptr) {
        return Path(Path::ROOT_NONE);
    }
    std::snprintf(name, needed, PackedFile::kPartNameFormat, stem.Get(),
                  static_cast<unsigned char>(partNumber), extension.Get());
    return Path(STDString(name), Path::ROOT_NONE);
}

// Reads exactly size bytes at offset; false on a short read.
bool ReadFully(const platform::MappedFile& file, char* target, uint64_t size, uint64_t offset) {
    while (size > 0) {
        long long count = platform::ReadAt(file, target, static_cast<size_t>(size), offset);
        if (count <= 0) {
            return false;
        }
        target += count;
        offset += static_cast<uint64_t>(count);
        size -= static_cast<uint64_t>(count);
    }
    return true;
}

template <typename Value>
bool ReadValue(FileReaderPacked* reader, Value& value) {
    return reader->Read(&value, sizeof(Value), 1) == sizeof(Value);
}

template <typename Value>
bool WriteValue(FileWriter* writer, const Value& value) {
    return writer->Write(&value, sizeof(Value), 1) == 1;
}
}  // namespace

unsigned int PackedFile::s_PartDataLimit = PackedFile::kMaxPartDataSize;

// ---------------------------------------------------------------------------------------------
// PackedFileWriters

PackedFileWriters::PackedFileWriters(const Path& path, bool temporary)
    : m_Path(path), m_Temporary(temporary), m_Scratch(512) {}

PackedFileWriters::~PackedFileWriters() {
    CloseAll();
}

FileWriter* PackedFileWriters::GetCurrent(unsigned int& partIndex) const {
    if (m_Writers.IsEmpty()) {
        partIndex = 0;
        return nullptr;
    }
    partIndex = m_Writers.GetSize() - 1;
    return m_Writers[partIndex];
}

FileWriter* PackedFileWriters::OpenNext(const wchar_t* mode) {
    FileWriter* writer = nullptr;
    if (m_Temporary) {
        writer = new FileWriter(FileWriteType_Temp);
    } else if (m_NextPart == 0) {
        writer = new FileWriter(m_Path, CompressionType_None, STDWString(mode));
    } else {
        writer = new FileWriter(MakePartPath(m_Path, m_NextPart, m_Scratch), CompressionType_None,
                                STDWString(mode));
    }
    ++m_NextPart;
    if (writer == nullptr || !writer->IsLoaded()) {
        delete writer;
        return nullptr;
    }
    // Packs are written in 32 KiB pieces; a large stream buffer gathers them into few large writes.
    // The system then keeps a fresh pack in its file cache in large pieces too, which read back up
    // to half again as fast as a file written 4 or 32 KiB at a time.
    std::setvbuf(writer->GetFile(), nullptr, _IOFBF, kStreamBufferSize);
    m_Writers.Add(writer);
    return writer;
}

uint64_t PackedFileWriters::GetPositionsBefore(unsigned int index) const {
    uint64_t total = 0;
    for (unsigned int writer = 0; writer < index && writer < m_Writers.GetSize(); ++writer) {
        total += static_cast<uint64_t>(m_Writers[writer]->Tell());
    }
    return total;
}

void PackedFileWriters::CloseAll() {
    // A writer's destructor closes it once; closing it here as well would close the stream twice.
    for (unsigned int index = 0; index < m_Writers.GetSize(); ++index) {
        delete m_Writers[index];
    }
    m_Writers.RemoveAll();
}

// ---------------------------------------------------------------------------------------------
// PackedFile: life and small queries

PackedFile::PackedFile(bool writeMode)
    : m_FileWriters(Path(), true),
      m_Scratch(512),
      m_WriteMode(writeMode),
      m_CS(CriticalSection::kDefaultSpinCount) {
    m_TOC = new PackedFile_TOC();
    if (m_WriteMode) {
        m_Header = new PackedFileHeader();
    }
}

PackedFile::~PackedFile() {
    delete m_Header;
    m_Header = nullptr;
    delete m_TOC;
    m_TOC = nullptr;
    ClearFileReaders();
    m_FileWriters.CloseAll();
    for (unsigned int index = 0; index < m_AddedEntries.GetSize(); ++index) {
        MemoryManager::GlobalFree(m_AddedEntries[index], 0);
    }
    m_AddedEntries.RemoveAll();
}

void PackedFile::ClearFileReaders() {
    for (unsigned int index = 0; index < m_FileReaders.GetSize(); ++index) {
        delete m_FileReaders[index];
    }
    m_FileReaders.RemoveAll();
}

PackedFileEntry* PackedFile::GetFileEntry(const char* name) {
    CSLock lock(&m_CS);
    return m_TOC->FindEntry(name);
}

bool PackedFile::ContainsFile(const char* name) {
    CSLock lock(&m_CS);
    return m_TOC->Find(FixedString(name)) != nullptr;
}

bool PackedFile::ContainsDirectory(const Path& path) {
    Path::ERoot root = path.GetRoot();
    if (root == Path::ROOT_APP_USER || root == Path::ROOT_BINARY || root == Path::ROOT_WORKING) {
        return false;
    }
    CSLock lock(&m_CS);
    return m_TOC->Find(path.ToFixedString()) != nullptr;
}

unsigned int PackedFile::GetFileSize(const char* name) {
    CSLock lock(&m_CS);
    return GetEntrySize(GetFileEntry(name));
}

unsigned int PackedFile::GetEntrySize(const PackedFileEntry* entry) {
    if (entry == nullptr) {
        return 0;
    }
    return entry->m_UncompressedSize != 0 ? entry->m_UncompressedSize : entry->m_Size;
}

void PackedFile::CollectFiles(const Path& dir, const STDWString& pattern, bool recursive,
                              ObjectSet<Path>& out) {
    CSLock lock(&m_CS);
    m_TOC->CollectFiles(dir, pattern, recursive, out);
}

void PackedFile::CollectDirectories(const Path& dir, bool recursive, ObjectSet<Path>& out) {
    CSLock lock(&m_CS);
    m_TOC->CollectDirectories(dir, recursive, out);
}

void PackedFile::GetFileNames(ObjectSet<FixedString>& out) {
    CSLock lock(&m_CS);
    m_TOC->GetFileNames(out);
}

bool PackedFile::IsEmpty() {
    CSLock lock(&m_CS);
    return m_TOC->GetCount() == 0;
}

unsigned int PackedFile::GetNbFiles() {
    CSLock lock(&m_CS);
    return m_TOC->GetCount();
}

bool PackedFile::GetAllowMemoryMapping() const {
    CSLock lock(&m_CS);
    if (m_Header == nullptr) {
        ZN_REPORT("Error readiing packed file header!");
        return false;
    }
    return m_Header->m_AllowMemoryMapping != 0;
}

void PackedFile::SetAllowMemoryMapping(bool allow) {
    CSLock lock(&m_CS);
    if (!m_WriteMode) {
        ZN_REPORT("Can not set memory map flag if reading packed file!");
        return;
    }
    m_Header->m_AllowMemoryMapping = allow ? 1 : 0;
}

// ---------------------------------------------------------------------------------------------
// Write mode

bool PackedFile::AddFile(const char* name, const char* data, unsigned int size, bool compress) {
    CSLock lock(&m_CS);
    if (!m_WriteMode) {
        ZN_REPORT("PackedFile: Called AddFile while not in write mode.");
        return false;
    }
    // An UncompressedSize of 0 marks a stored file, so an empty file is stored as it is.
    if (!compress || size == 0) {
        AddRawBuffer(name, data, size, 0);
        return true;
    }
    Compressor compressor(CompressionLevelFast);
    compressor.Deflate(data, size);
    ZipperOutput output = compressor.GetOutput();
    AddRawBuffer(name, output.m_Output, output.m_OutputSize, size);
    return true;
}

bool PackedFile::AddFile(const char* name, const Path& source, bool compress) {
    CSLock lock(&m_CS);
    if (!m_WriteMode) {
        ZN_REPORT("PackedFile: Called AddFile while not in write mode.");
        return false;
    }
    FileReader reader(source, false, false, CompressionType_None);
    if (!reader.IsLoaded()) {
        ZN_REPORT("The read file %ls doesn't seem to exist.", source.ToWChar());
    }
    unsigned int size = reader.IsLoaded() ? reader.GetFileSize() : 0;
    if (size == 0) {
        return false;
    }
    if (size > kMaxPartDataSize) {
        ZN_REPORT("File %ls is larger than the max packed file size: %d!", source.ToWChar(),
                  static_cast<int>(kMaxPartDataSize));
        return false;
    }
    char* block = AllocateBlock(size);
    if (block == nullptr) {
        return false;
    }
    bool added = false;
    if (reader.Read(block, 1, size) == size) {
        added = AddFile(name, block, size, compress);
    } else {
        ZN_REPORT("The read file %ls doesn't seem to exist.", source.ToWChar());
    }
    MemoryManager::SizedFree(block, size);
    return added;
}

bool PackedFile::AddFile(const Path& name, const Path& source, bool compress) {
    FixedString relative;
    name.GetPathComponent(Path::RelativeFilePath, relative);
    return AddFile(relative.ToChar() != nullptr ? relative.ToChar() : "", source, compress);
}

bool PackedFile::WritePadding(FileWriter* writer, unsigned int count) {
    if (count == 0) {
        return true;
    }
    if (m_Scratch.GetBufferSize() < kChunkSize) {
        m_Scratch.Clear();
        m_Scratch.GrowTo(kChunkSize);
    }
    char* padding = m_Scratch.GetReadData();
    if (padding == nullptr) {
        return false;
    }
    std::memset(padding, kPaddingByte, count);
    return writer->Write(padding, 1, count) == count;
}

void PackedFile::AddRawBuffer(const char* name, const void* data, unsigned int size,
                              unsigned int uncompressedSize) {
    CSLock lock(&m_CS);
    // The name is checked before anything is written, so a refused file leaves no bytes behind.
    size_t nameLength = name != nullptr ? std::strlen(name) : 0;
    if (nameLength + 1 >= PackedFileEntry::kNameSize) {
        ZN_REPORT("File size larger than max!");
        return;
    }
    if (nameLength == 0) {
        ZN_REPORT("PackedFile: A file without a name can't be added.");
        return;
    }
    FixedString key(name);
    if (FileTrieNode* known = m_TOC->Find(key); known != nullptr && known->HasData()) {
        ZN_REPORT("File %s already added to packed file!", name);
        return;
    }
    unsigned int partIndex = 0;
    FileWriter* writer = m_FileWriters.GetCurrent(partIndex);
    if (writer == nullptr || writer->Tell() >= static_cast<long long>(s_PartDataLimit)) {
        writer = m_FileWriters.OpenNext(nullptr);
        partIndex = m_FileWriters.GetCount() - 1;
    }
    if (writer == nullptr) {
        ZN_REPORT(kCouldNotWrite);
        return;
    }
    uint64_t paddedSize = PaddedSize(size);
    bool written = size == 0 || writer->Write(data, 1, size) == size;
    written = written && WritePadding(writer, static_cast<unsigned int>(paddedSize - size));
    if (!written) {
        ZN_REPORT(kCouldNotWrite);
        return;
    }
    auto* entry = static_cast<PackedFileEntry*>(MemoryManager::GlobalMalloc(sizeof(PackedFileEntry), 0));
    if (entry == nullptr) {
        return;
    }
    std::memset(entry, 0, sizeof(PackedFileEntry));
    entry->m_Offset = static_cast<uint32_t>(m_WriteOffset - m_FileWriters.GetPositionsBefore(partIndex));
    entry->m_Size = size;
    entry->m_UncompressedSize = uncompressedSize;
    entry->m_PartIndex = partIndex;
    std::memcpy(entry->m_Name, name, nameLength);
    m_AddedEntries.Add(entry);
    m_TOC->Insert(key, entry);
    m_WriteOffset += paddedSize;
}

bool PackedFile::WriteHeaderAndTable(FileWriter* writer) {
    m_Header->m_Version = PackedFileHeader::kVersion;
    m_Header->m_NumParts = m_FileWriters.GetCount();
    m_Header->m_TocSize = m_TOC->GetSize();
    unsigned int tableEnd = PackedFileHeader::kStoredSize + m_Header->m_TocSize;
    unsigned int remainder = tableEnd % kChunkSize;
    unsigned int padding = remainder == 0 ? 0 : kChunkSize - remainder;
    m_Header->m_DataOffset = tableEnd + padding;

    bool written = WriteValue(writer, m_Header->m_Version) && WriteValue(writer, m_Header->m_DataOffset) &&
                   WriteValue(writer, m_Header->m_NumParts) && WriteValue(writer, m_Header->m_TocSize) &&
                   WriteValue(writer, m_Header->m_AllowMemoryMapping);
    if (writer->Tell() != PackedFileHeader::kStoredSize) {
        ZN_REPORT_AS(kSaveFunction, kWrongOffset, m_FilePath.ToWChar());
    }
    written = m_TOC->Write(writer) && written;
    if (writer->Tell() != tableEnd) {
        ZN_REPORT_AS(kSaveFunction, kWrongOffset, m_FilePath.ToWChar());
    }
    written = WritePadding(writer, padding) && written;
    long long position = writer->Tell();
    if (position % kChunkSize != 0) {
        ZN_REPORT_AS(kSaveFunction, "The file offset is not dividable with chunksize: %i / %i",
                     static_cast<int>(position), static_cast<int>(kChunkSize));
    }
    if (position != m_Header->m_DataOffset) {
        ZN_REPORT_AS(kSaveFunction, kWrongOffset, m_FilePath.ToWChar());
    }
    return written;
}

bool PackedFile::CopyParts(PackedFileWriters& finalParts) {
    char* block = AllocateBlock(kChunkSize);
    if (block == nullptr) {
        return false;
    }
    unsigned int partIndex = 0;
    FileWriter* target = finalParts.GetCurrent(partIndex);
    uint64_t copied = 0;
    bool written = true;
    for (unsigned int index = 0; index < m_FileWriters.GetCount() && target != nullptr; ++index) {
        if (index > 0) {
            target = finalParts.OpenNext(L"wb");
            if (target == nullptr) {
                ZN_REPORT_AS(kSaveFunction, kCouldNotWrite);
                written = false;
                break;
            }
        }
        FileWriter* temporary = m_FileWriters.GetAt(index);
        FileReader reader(temporary->GetFile(), false, CompressionType_None);
        // Temporary parts hold whole chunks, so the first short read is the end.
        for (;;) {
            unsigned int count = reader.Read(block, 1, kChunkSize);
            if (count > 0) {
                written = target->Write(block, 1, count) == count && written;
                copied += count;
            }
            if (count < kChunkSize) {
                break;
            }
        }
    }
    MemoryManager::SizedFree(block, kChunkSize);
    unsigned int padding = kChunkSize - (static_cast<unsigned int>(copied & 0xFFFF) % kChunkSize);
    if (target != nullptr && padding < kChunkSize) {
        written = WritePadding(target, padding) && written;
    }
    return written;
}

bool PackedFile::Save(const Path& path) {
    CSLock lock(&m_CS);
    if (!m_WriteMode) {
        ZN_REPORT("PackedFile: Called Write while not in write mode.");
        return false;
    }
    platform::RemoveFile(Localization::ConvertWideToMultiByte(path).Get());
    // The folder is cut from the whole text: a path outside the media root has no root part.
    int lastSeparator = path.ToWString().FindReverse(L'/');
    if (lastSeparator > 0) {
        FileSystem::CreateDirRecursive(
            Path(path.ToWString().Left(static_cast<unsigned int>(lastSeparator)), Path::ROOT_NONE));
    }
    m_FilePath = path;
    PackedFileWriters finalParts(path, false);
    FileWriter* first = finalParts.OpenNext(L"wb");
    if (first == nullptr) {
        ZN_REPORT(kCouldNotWrite);
        return false;
    }
    // Wrong offsets are reported and the save goes on: the reports are for the developer.
    bool written = WriteHeaderAndTable(first);
    written = CopyParts(finalParts) && written;
    finalParts.CloseAll();
    if (!written) {
        ZN_REPORT(kCouldNotWrite);
    }
    return true;
}

// ---------------------------------------------------------------------------------------------
// Read mode

bool PackedFile::Load(const Path& path) {
    CSLock lock(&m_CS);
    if (m_WriteMode) {
        ZN_REPORT("PackedFile: Called Load while in write mode.");
        return false;
    }
    ClearFileReaders();
    auto* reader = new FileReaderPacked(path);
    if (reader == nullptr) {
        return false;
    }
    m_FileReaders.Add(reader);
    if (!reader->IsLoaded()) {
        ZN_REPORT("Failed to load pack file: %ls", path.ToWChar());
        return false;
    }
    m_FilePath = path;
    m_TOC->Clear();
    if (!ReadHeaderAndTable(reader)) {
        return false;
    }
    return OpenFurtherParts();
}

namespace {
// The stored table agrees with itself and with the header: its size is the count's, and every
// record names a part the pack has.
bool TableIsConsistent(const char* table, unsigned int tocSize, uint32_t partCount) {
    if (tocSize < PackedFile_TOC::kCountSize) {
        return false;
    }
    uint32_t entryCount = 0;
    std::memcpy(&entryCount, table, sizeof(entryCount));
    if (uint64_t{entryCount} * sizeof(PackedFileEntry) + PackedFile_TOC::kCountSize != tocSize) {
        return false;
    }
    // An empty pack is saved with no part at all; its first part is still the pack itself.
    uint32_t parts = partCount == 0 ? 1 : partCount;
    for (uint32_t index = 0; index < entryCount; ++index) {
        PackedFileEntry entry;
        std::memcpy(&entry, table + PackedFile_TOC::kCountSize + size_t{index} * sizeof(PackedFileEntry),
                    sizeof(entry));
        if (entry.m_PartIndex >= parts) {
            return false;
        }
    }
    return true;
}
}  // namespace

bool PackedFile::ReadHeaderAndTable(FileReaderPacked* reader) {
    PackedFileHeader header;
    if (!ReadValue(reader, header.m_Version) || header.m_Version < PackedFileHeader::kVersion) {
        ZN_REPORT_AS(kLoadFunction, kWrongVersion);
        return false;
    }
    bool complete = ReadValue(reader, header.m_DataOffset) && ReadValue(reader, header.m_NumParts) &&
                    ReadValue(reader, header.m_TocSize) && ReadValue(reader, header.m_AllowMemoryMapping);
    uint64_t fileSize = reader->GetFileHandle().size;
    if (!complete || header.m_NumParts > kMaxPartCount || header.m_TocSize < PackedFile_TOC::kCountSize ||
        uint64_t{PackedFileHeader::kStoredSize} + header.m_TocSize > fileSize) {
        ZN_REPORT_AS(kLoadFunction, kWrongVersion);
        return false;
    }
    if (m_Header == nullptr) {
        m_Header = new PackedFileHeader();
    }
    *m_Header = header;
    char* table = AllocateBlock(header.m_TocSize);
    if (table == nullptr) {
        return false;
    }
    bool loaded = reader->Read(table, 1, header.m_TocSize) == header.m_TocSize &&
                  TableIsConsistent(table, header.m_TocSize, header.m_NumParts) &&
                  m_TOC->Load(table, header.m_TocSize);
    MemoryManager::SizedFree(table, header.m_TocSize);
    if (!loaded) {
        m_TOC->Clear();
        ZN_REPORT_AS(kLoadFunction, kWrongVersion);
    }
    return loaded;
}

bool PackedFile::OpenFurtherParts() {
    for (uint32_t part = 1; part < m_Header->m_NumParts; ++part) {
        Path partPath = MakePartPath(m_FilePath, part, m_Scratch);
        if (!FileSystem::FileExists(partPath)) {
            ZN_REPORT_AS(kLoadFunction, "Packed file %s is missing file %s, pack not loaded correctly!",
                         Localization::ConvertWideToMultiByte(m_FilePath).Get(),
                         Localization::ConvertWideToMultiByte(partPath).Get());
            return false;
        }
        auto* reader = new FileReaderPacked(partPath);
        if (reader != nullptr) {
            m_FileReaders.Add(reader);
        }
    }
    return true;
}

void PackedFile::ReleaseFileData(bool mapped, char* base, unsigned int size, unsigned int viewSize) {
    if (base == nullptr) {
        return;
    }
    if (mapped) {
        platform::UnmapView(base, viewSize);
    } else {
        MemoryManager::SizedFree(base, size);
    }
}

bool PackedFile::MapEntry(FileReaderPacked* reader, uint64_t fileOffset, const PackedFileEntry& entry,
                          char*& base, unsigned int& offset, unsigned int& viewSize) {
    uint64_t granularity = platform::MappingGranularity();
    uint64_t delta = fileOffset % granularity;
    void* view = platform::MapView(reader->GetFileHandle(), fileOffset - delta,
                                   static_cast<size_t>(delta + entry.m_Size));
    if (view == nullptr) {
        ZN_REPORT_AS(kGetFileDataFunction, "Mapping of file failed, err %d", errno);
        return false;
    }
    base = static_cast<char*>(view);
    offset = static_cast<unsigned int>(delta);
    viewSize = static_cast<unsigned int>(delta + entry.m_Size);
    return true;
}

char* PackedFile::ReadEntry(FileReaderPacked* reader, uint64_t fileOffset, const PackedFileEntry& entry) {
    // An empty file still gets a block, so the caller always has one to free.
    char* stored = AllocateBlock(entry.m_Size == 0 ? 1 : entry.m_Size);
    if (stored == nullptr) {
        return nullptr;
    }
    if (!ReadFully(reader->GetFileHandle(), stored, entry.m_Size, fileOffset)) {
        ZN_REPORT_AS(kGetFileDataFunction, kReadError);
        MemoryManager::SizedFree(stored, entry.m_Size);
        return nullptr;
    }
    return stored;
}

bool PackedFile::InflateEntry(char* stored, const PackedFileEntry& entry, char*& base, unsigned int& size) {
    unsigned int expected = entry.m_UncompressedSize;
    char* inflated = nullptr;
    uint64_t produced = 0;
    bool complete = false;
    // A stated size beyond what deflate could ever have shrunk is not allocated at all.
    if (uint64_t{expected} <= uint64_t{entry.m_Size} * kMaxInflateRatio + kMaxInflateSlack) {
        inflated = AllocateBlock(expected);
    }
    if (inflated != nullptr) {
        z_stream stream;
        std::memset(&stream, 0, sizeof(stream));
        stream.zalloc = &ZipperAllocator::Malloc;
        stream.zfree = &ZipperAllocator::Free;
        if (inflateInit_(&stream, kZlibVersion, static_cast<int>(sizeof(z_stream))) == Z_OK) {
            stream.next_in = reinterpret_cast<const Bytef*>(stored);
            stream.avail_in = entry.m_Size;
            stream.next_out = reinterpret_cast<Bytef*>(inflated);
            stream.avail_out = expected;
            // The output has exactly the stated room: a stream that would give more stops there.
            int result = inflate(&stream, Z_FINISH);
            produced = expected - stream.avail_out;
            complete = result == Z_STREAM_END;
            inflateEnd(&stream);
        }
    }
    MemoryManager::SizedFree(stored, entry.m_Size);
    if (!complete || produced != expected) {
        ZN_REPORT_AS(kGetFileDataFunction, "PackedFile: Uncompress of data did not match uncompressed size.");
        MemoryManager::SizedFree(inflated, expected);
        base = nullptr;
        return false;
    }
    base = inflated;
    size = expected;
    return true;
}

bool PackedFile::BeginGetFileData(bool& mapped, char*& base, unsigned int& size, unsigned int& offset,
                                  unsigned int& viewSize) {
    if (m_WriteMode) {
        ZN_REPORT_AS("zn::PackedFile::GetFileData", "PackedFile: Called GetFileData while in write mode.");
        return false;
    }
    if (m_Header == nullptr || m_Header->m_AllowMemoryMapping == 0) {
        mapped = false;
    }
    offset = 0;
    viewSize = 0;
    base = nullptr;
    size = 0;
    return true;
}

bool PackedFile::GetFileData(const char* name, bool& mapped, char*& base, unsigned int& size,
                             unsigned int& offset, unsigned int& viewSize) {
    CSLock lock(&m_CS);
    if (!BeginGetFileData(mapped, base, size, offset, viewSize)) {
        return false;
    }
    return GetEntryData(GetFileEntry(name), mapped, base, size, offset, viewSize);
}

bool PackedFile::GetFileData(const FileTrieNode* node, bool& mapped, char*& base, unsigned int& size,
                             unsigned int& offset, unsigned int& viewSize) {
    CSLock lock(&m_CS);
    if (!BeginGetFileData(mapped, base, size, offset, viewSize)) {
        return false;
    }
    return GetEntryData(node != nullptr ? node->GetData() : nullptr, mapped, base, size, offset, viewSize);
}

bool PackedFile::GetEntryData(const PackedFileEntry* entry, bool& mapped, char*& base, unsigned int& size,
                              unsigned int& offset, unsigned int& viewSize) {
    if (entry == nullptr) {
        return false;
    }
    // Inflating needs a block of its own source, and an empty file has nothing to map.
    if (entry->m_UncompressedSize != 0 || entry->m_Size == 0) {
        mapped = false;
    }
    FileReaderPacked* reader =
        entry->m_PartIndex < m_FileReaders.GetSize() ? m_FileReaders[entry->m_PartIndex] : nullptr;
    uint64_t fileOffset = uint64_t{entry->m_Offset} + (entry->m_PartIndex == 0 ? m_Header->m_DataOffset : 0);
    // A pack is outside data: an entry that reaches past its part is refused before any access.
    bool inside =
        reader != nullptr && reader->IsLoaded() && fileOffset + entry->m_Size <= reader->GetFileHandle().size;
    if (mapped) {
        if (!inside) {
            ZN_REPORT("Mapping of file failed, err %d", EINVAL);
            return false;
        }
        if (!MapEntry(reader, fileOffset, *entry, base, offset, viewSize)) {
            return false;
        }
        size = entry->m_Size;
        return true;
    }
    if (!inside) {
        ZN_REPORT(kReadError);
        return false;
    }
    char* stored = ReadEntry(reader, fileOffset, *entry);
    if (stored == nullptr) {
        return false;
    }
    if (entry->m_UncompressedSize != 0) {
        return InflateEntry(stored, *entry, base, size);
    }
    base = stored;
    size = entry->m_Size;
    return true;
}

}  // namespace zn
