// PakRead.cpp: "pak list" and "pak cat".
#include "tools/corelib/PakCommands.h"

#include "tools/corelib/PakArchive.h"
#include "tools/corelib/PakTool.h"

#include <cerrno>
#include <cstring>

namespace zn::tools {

int PakList(ToolOutput& output, const std::string& packPath) {
    PakArchive archive;
    if (!OpenWhole(output, archive, packPath)) {
        return kExitFailure;
    }
    output.Print("%12s  %12s  %4s  %-8s  %s", "Stored", "Uncompressed", "Part", "Method", "Name");
    uint64_t storedTotal = 0;
    uint64_t contentTotal = 0;
    for (unsigned int index = 0; index < archive.GetEntryCount(); ++index) {
        const PackedFileEntry& entry = archive.GetEntry(index);
        output.Print("%12u  %12llu  %4u  %-8s  %s", entry.m_Size,
                     static_cast<unsigned long long>(PakArchive::ContentSize(entry)), entry.m_PartIndex,
                     entry.m_UncompressedSize != 0 ? "deflated" : "stored",
                     Printable(PakArchive::NameOf(entry)).c_str());
        storedTotal += entry.m_Size;
        contentTotal += PakArchive::ContentSize(entry);
    }
    output.Print("%s in %s, %llu bytes stored, %llu bytes uncompressed, memory mapping %s",
                 Counted(archive.GetEntryCount(), "entry", "entries").c_str(),
                 Counted(archive.GetPartCount(), "part file", "part files").c_str(),
                 static_cast<unsigned long long>(storedTotal), static_cast<unsigned long long>(contentTotal),
                 archive.GetHeader()->m_AllowMemoryMapping != 0 ? "allowed" : "off");
    return kExitSuccess;
}

int PakCat(ToolOutput& output, const std::string& packPath, const std::string& name) {
    PakArchive archive;
    if (!OpenWhole(output, archive, packPath)) {
        return kExitFailure;
    }
    int index = archive.FindEntry(name);
    if (index < 0) {
        return archive.IsFolder(name) ? output.Fail("'%s' is a folder in '%s', not an entry",
                                                    Printable(name).c_str(), Printable(packPath).c_str())
                                      : output.Fail("no entry '%s' in '%s'", Printable(name).c_str(),
                                                    Printable(packPath).c_str());
    }
    EntryBytes bytes;
    std::string reason;
    if (!archive.Fetch(static_cast<unsigned int>(index), true, bytes, reason)) {
        return output.Fail("cannot read '%s': %s", Printable(name).c_str(), reason.c_str());
    }
    if (std::fwrite(bytes.Data(), 1, bytes.Size(), output.Out()) != bytes.Size() ||
        std::fflush(output.Out()) != 0) {
        return output.Fail("cannot write the entry out: %s", std::strerror(errno));
    }
    return kExitSuccess;
}

}  // namespace zn::tools
