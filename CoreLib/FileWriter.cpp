// FileWriter.cpp: opening, writing (plain or as one zlib stream), positioning and closing files,
// and the temporary files that vanish at Close.
#include "CoreLib/FileWriter.h"

#include "CoreLib/Compressor.h"
#include "CoreLib/Localization.h"
#include "CoreLib/Path.h"
#include "CoreLib/Report.h"
#include "CoreLib/platform/File.h"

#include <cerrno>
#include <string>

namespace zn {

namespace {
using Utf8Text = Localization::ConvertWideToMultiByte;

// The room the system's temporary folder name must fit, terminator included.
constexpr size_t kTempFolderCapacity = 260;
constexpr const char* kTempFilePrefix = "ZN_";
}  // namespace

FileWriter::FileWriter(const Path& path, TCompressionType compression, const STDWString& mode)
    : m_Compression(compression) {
    OpenFile(path, mode);
}

FileWriter::FileWriter(const wchar_t* path, TCompressionType compression, const wchar_t* mode)
    : m_Compression(compression) {
    OpenFile(path, mode);
}

FileWriter::FileWriter(EFileWriteType type) {
    if (type != FileWriteType_Temp) {
        ZN_REPORT("Unknown filewriter type!");
        return;
    }
    std::string folder = platform::TemporaryFolder();
    std::string name;
    if (!folder.empty() && folder.size() < kTempFolderCapacity) {
        name = platform::CreateTemporaryFile(folder, kTempFilePrefix);
    }
    if (name.empty()) {
        ZN_REPORT("Could not create temp file to write!");
        return;
    }
    OpenFile(Path(STDString(name.c_str()), Path::ROOT_NONE), STDWString(L"wb+"));
    // Kept even when the open failed: the empty file exists and Close removes it.
    m_TempFileName = name.c_str();
}

FileWriter::~FileWriter() {
    Close();
}

bool FileWriter::OpenFile(const Path& path, const STDWString& mode) {
    return OpenFile(path.ToWChar(), mode.c_str());
}

bool FileWriter::OpenFile(const wchar_t* path, const wchar_t* mode) {
    Close();
    errno = 0;
    if (path == nullptr || mode == nullptr) {
        return false;
    }
    // Files here are always open to other readers and writers, as the share-all open asks.
    FILE* file = platform::OpenStream(Utf8Text(path).Get(), Utf8Text(mode).Get());
    if (file == nullptr) {
        return false;
    }
    m_File = file;
    m_Loaded = true;
    return true;
}

void FileWriter::Close() {
    if (m_File != nullptr) {
        std::fclose(m_File);
        // Forgotten, so that a second Close, or the destructor after one, closes nothing twice.
        m_File = nullptr;
    }
    if (!m_TempFileName.empty()) {
        platform::RemoveFile(m_TempFileName.c_str());
    }
    m_TempFileName.clear();
    m_Loaded = false;
}

unsigned int FileWriter::Write(const void* data, unsigned int size, unsigned int count) const {
    if (m_File == nullptr) {
        return 0;
    }
    if (!IsCompressed()) {
        return static_cast<unsigned int>(std::fwrite(data, size, count, m_File));
    }
    Compressor deflater(CompressionLevelBest);
    deflater.Deflate(data, size);
    ZipperOutput output = deflater.GetOutput();
    return static_cast<unsigned int>(std::fwrite(output.m_Output, output.m_OutputSize, 1, m_File));
}

bool FileWriter::Seek(int offset, ESeekPos origin) {
    if (IsCompressed()) {
        ZN_LOG(LogError, "Seek doesnt work in Compressed mode!");
        return false;
    }
    return m_File != nullptr && std::fseek(m_File, offset, static_cast<int>(origin)) == 0;
}

long long FileWriter::Tell() const {
    if (IsCompressed()) {
        ZN_LOG(LogError, "Tell doesnt work in Compressed mode!");
        return 0;
    }
    return m_File == nullptr ? -1 : std::ftell(m_File);
}

bool FileWriter::Flush() {
    return m_File != nullptr && std::fflush(m_File) == 0;
}

}  // namespace zn
