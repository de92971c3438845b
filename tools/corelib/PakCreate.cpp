// PakCreate.cpp: "pak create": a folder's regular files into one pack, all of them or nothing.
#include "tools/corelib/PakCommands.h"

#include "CoreLib/MemoryManager.h"
#include "CoreLib/PackedFile.h"
#include "CoreLib/PackedFile_TOC.h"
#include "CoreLib/Path.h"
#include "CoreLib/STDString.h"
#include "CoreLib/platform/File.h"
#include "tools/corelib/PakArchive.h"
#include "tools/corelib/PakTool.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <utility>

namespace zn::tools {

namespace {

struct SourceFile {
    // Relative to the folder, '/' between components.
    std::string name;
    std::string path;
    uint64_t size;
};

using FileIdentity = std::pair<dev_t, ino_t>;

bool IdentityOf(const std::string& path, FileIdentity& identity) {
    struct stat info;
    if (stat(path.c_str(), &info) != 0) {
        return false;
    }
    identity = {info.st_dev, info.st_ino};
    return true;
}

// The pack being written and its parts, when they already exist: a pack inside the folder it is
// made from must not take its own earlier version in.
std::set<FileIdentity> OutputIdentities(const std::string& packPath) {
    std::set<FileIdentity> identities;
    FileIdentity identity;
    for (unsigned int part = 0; part < 256 && IdentityOf(PakArchive::PartPath(packPath, part), identity);
         ++part) {
        identities.insert(identity);
    }
    return identities;
}

std::string Lower(const std::string& text) {
    std::string lower = text;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
    return lower;
}

// Every regular file below folder, sorted by name. Links and special files are skipped with a
// note: a pack holds file contents only, and following links could pack what lies elsewhere.
bool CollectSources(ToolOutput& output, const std::string& folder, std::vector<SourceFile>& files) {
    std::string prefix = folder.back() == '/' ? folder : folder + "/";
    std::error_code error;
    std::filesystem::recursive_directory_iterator walker(folder, std::filesystem::directory_options::none,
                                                         error);
    for (; !error && walker != std::filesystem::recursive_directory_iterator(); walker.increment(error)) {
        std::string path = walker->path().string();
        std::filesystem::file_status status = walker->symlink_status(error);
        if (error) {
            break;
        }
        if (std::filesystem::is_directory(status)) {
            continue;
        }
        std::string name = path.substr(prefix.size());
        if (!std::filesystem::is_regular_file(status)) {
            output.Say("skipping '%s': not a regular file", Printable(name).c_str());
            continue;
        }
        uint64_t size = walker->file_size(error);
        if (error) {
            break;
        }
        files.push_back({name, path, size});
    }
    if (error) {
        output.Fail("cannot read the folder '%s': %s", Printable(folder).c_str(), error.message().c_str());
        return false;
    }
    std::sort(files.begin(), files.end(),
              [](const SourceFile& left, const SourceFile& right) { return left.name < right.name; });
    return true;
}

// Says why each file that a pack cannot hold is refused; the count of such files.
unsigned int CheckSources(ToolOutput& output, const std::vector<SourceFile>& files) {
    unsigned int refused = 0;
    std::map<std::string, std::string> byLowerName;
    // The pack's name trie holds a node for every file and every folder, names compared without
    // case, and its pool has a fixed maximum.
    std::set<std::string> nodes;
    for (const SourceFile& file : files) {
        std::string shown = Printable(file.name);
        if (file.name.size() + 1 >= PackedFileEntry::kNameSize) {
            output.Say("'%s' is too long for a pack entry: %zu bytes, at most %u", shown.c_str(),
                       file.name.size(), PackedFileEntry::kNameSize - 2);
            ++refused;
        } else if (file.name.find('\\') != std::string::npos) {
            output.Say("'%s' holds a '\\', which every reader of the pack takes as a folder separator",
                       shown.c_str());
            ++refused;
        } else if (file.size > PackedFile::kMaxPartDataSize) {
            output.Say("'%s' is larger than a pack entry can be: %llu bytes, at most %u", shown.c_str(),
                       static_cast<unsigned long long>(file.size), PackedFile::kMaxPartDataSize);
            ++refused;
        }
        std::string lower = Lower(file.name);
        auto [known, added] = byLowerName.emplace(lower, file.name);
        if (!added) {
            output.Say("'%s' and '%s' differ only in case: a pack can hold one of them",
                       Printable(known->second).c_str(), shown.c_str());
            ++refused;
        }
        for (size_t separator = lower.find('/'); separator != std::string::npos;
             separator = lower.find('/', separator + 1)) {
            nodes.insert(lower.substr(0, separator));
        }
        nodes.insert(lower);
    }
    // One node more: the root.
    if (nodes.size() + 1 > PackedFile_TOC::kPoolMaximumSize) {
        output.Say("%zu files and folders are more than one pack can name (%u)", nodes.size(),
                   PackedFile_TOC::kPoolMaximumSize - 1);
        ++refused;
    }
    return refused;
}

// Adds one file, read through a view of it (or a block where it cannot be mapped).
bool AddSource(ToolOutput& output, PackedFile& pack, const SourceFile& file, bool compress) {
    platform::MappedFile source;
    if (!platform::OpenForMapping(file.path.c_str(), platform::AccessHint::Sequential, source)) {
        output.Fail("cannot read '%s': %s", Printable(file.path).c_str(), std::strerror(errno));
        return false;
    }
    if (source.size > PackedFile::kMaxPartDataSize) {
        platform::CloseMapping(source);
        output.Fail("'%s' grew larger than a pack entry can be", Printable(file.name).c_str());
        return false;
    }
    size_t size = static_cast<size_t>(source.size);
    char* view = size > 0 ? static_cast<char*>(platform::MapView(source, 0, size)) : nullptr;
    char* block = nullptr;
    bool readable = size == 0 || view != nullptr;
    if (size > 0 && view == nullptr) {
        block = static_cast<char*>(MemoryManager::SizedMalloc(size));
        readable =
            block != nullptr && platform::ReadAt(source, block, size, 0) == static_cast<long long>(size);
    }
    unsigned int before = pack.GetNbFiles();
    const char* data = view != nullptr ? view : (block != nullptr ? block : "");
    bool added = readable &&
                 pack.AddFile(file.name.c_str(), data, static_cast<unsigned int>(size), compress) &&
                 pack.GetNbFiles() == before + 1;
    if (view != nullptr) {
        platform::UnmapView(view, size);
    }
    MemoryManager::SizedFree(block, size);
    platform::CloseMapping(source);
    if (!readable) {
        output.Fail("cannot read '%s'", Printable(file.path).c_str());
    } else if (!added) {
        output.Fail("the pack refused '%s'", Printable(file.name).c_str());
    }
    return readable && added;
}

}  // namespace

int PakCreate(ToolOutput& output, const std::string& folder, const std::string& packPath,
              const PakCreateSettings& settings) {
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error)) {
        return output.Fail("'%s' is not a folder", Printable(folder).c_str());
    }
    if (std::filesystem::is_directory(packPath, error)) {
        return output.Fail("cannot write '%s': it is a folder", Printable(packPath).c_str());
    }
    std::vector<SourceFile> files;
    if (!CollectSources(output, folder, files)) {
        return kExitFailure;
    }
    std::set<FileIdentity> ownFiles = OutputIdentities(packPath);
    FileIdentity identity;
    std::erase_if(files, [&](const SourceFile& file) {
        return !ownFiles.empty() && IdentityOf(file.path, identity) && ownFiles.count(identity) != 0;
    });
    if (unsigned int refused = CheckSources(output, files); refused != 0) {
        return output.Fail("'%s' not written: %s cannot go into a pack", Printable(packPath).c_str(),
                           Counted(refused, "file", "files").c_str());
    }

    PackedFile pack(true);
    uint64_t totalSize = 0;
    for (size_t index = 0; index < files.size(); ++index) {
        output.Progress(static_cast<unsigned int>(index + 1), static_cast<unsigned int>(files.size()),
                        files[index].name);
        if (!AddSource(output, pack, files[index], settings.compress)) {
            return kExitFailure;
        }
        totalSize += files[index].size;
    }
    output.EndProgress();
    bool mapping = !settings.compress && !settings.noMemoryMapping;
    pack.SetAllowMemoryMapping(mapping);
    if (!pack.Save(Path(STDString(packPath.c_str()), Path::ROOT_NONE))) {
        return output.Fail("cannot write '%s'", Printable(packPath).c_str());
    }
    output.Print("created '%s': %s, %llu bytes%s, memory mapping %s", Printable(packPath).c_str(),
                 Counted(files.size(), "entry", "entries").c_str(),
                 static_cast<unsigned long long>(totalSize), settings.compress ? " deflated" : "",
                 mapping ? "allowed" : "off");
    return kExitSuccess;
}

}  // namespace zn::tools
