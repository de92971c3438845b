// PakVerify.cpp: "pak verify": every part present, the table in agreement with the parts, and
// every entry read back whole, both as a view and as a block.
#include "tools/corelib/PakCommands.h"

#include "tools/corelib/ExtractFolder.h"
#include "tools/corelib/PakArchive.h"
#include "tools/corelib/PakTool.h"

#include <sys/stat.h>

#include <cstring>

namespace zn::tools {

namespace {
class ProblemList {
public:
    explicit ProblemList(ToolOutput& output) : m_Output(output) {}

    void Add(const std::string& text) {
        m_Output.Print("%s", text.c_str());
        ++m_Count;
    }
    unsigned int Count() const { return m_Count; }

private:
    ToolOutput& m_Output;
    unsigned int m_Count = 0;
};

void CheckParts(const PakArchive& archive, ProblemList& problems) {
    for (unsigned int part = 0; part < archive.GetPartCount(); ++part) {
        struct stat info;
        if (stat(archive.GetPartPath(part).c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
            problems.Add("part file " + Quoted(archive.GetPartPath(part)) + " is missing");
        }
    }
    const PackedFileHeader& header = *archive.GetHeader();
    uint64_t tableEnd = uint64_t{PackedFileHeader::kStoredSize} + header.m_TocSize;
    if (header.m_DataOffset % PackedFile::kChunkSize != 0 || header.m_DataOffset < tableEnd) {
        problems.Add("the data offset " + std::to_string(header.m_DataOffset) +
                     " is not a multiple of 32768 at or after the table's end (" + std::to_string(tableEnd) +
                     ")");
    }
}

// The entry read as a block and, where the pack hands out views, as a view with the same bytes.
void CheckEntry(PakArchive& archive, unsigned int index, ProblemList& problems) {
    const PackedFileEntry& entry = archive.GetEntry(index);
    std::string label = "entry " + Quoted(PakArchive::NameOf(entry)) + ": ";
    std::string unsafe = CheckEntryName(PakArchive::NameOf(entry));
    if (!unsafe.empty()) {
        problems.Add(label + unsafe + ", so it cannot be extracted");
    }
    EntryBytes read;
    std::string reason;
    if (!archive.Fetch(index, false, read, reason)) {
        problems.Add(label + reason);
        return;
    }
    bool viewable =
        archive.GetHeader()->m_AllowMemoryMapping != 0 && entry.m_UncompressedSize == 0 && entry.m_Size > 0;
    if (!viewable) {
        return;
    }
    EntryBytes view;
    if (!archive.Fetch(index, true, view, reason)) {
        problems.Add(label + reason);
    } else if (std::memcmp(view.Data(), read.Data(), read.Size()) != 0) {
        problems.Add(label + "its mapped bytes differ from its read bytes");
    }
}
}  // namespace

int PakVerify(ToolOutput& output, const std::string& packPath) {
    PakArchive archive;
    std::string reason;
    if (archive.Open(packPath, reason) == PakArchive::OpenResult::Unreadable) {
        output.Print("%s", reason.c_str());
        return output.Fail("%s failed verification: it cannot be read as a pack", Quoted(packPath).c_str());
    }
    ProblemList problems(output);
    CheckParts(archive, problems);
    for (unsigned int index = 0; index < archive.GetEntryCount(); ++index) {
        output.Progress(index + 1, archive.GetEntryCount(), PakArchive::NameOf(archive.GetEntry(index)));
        CheckEntry(archive, index, problems);
    }
    output.EndProgress();
    if (problems.Count() != 0) {
        std::string counted = Counted(problems.Count(), "problem", "problems");
        output.Print("%s found", counted.c_str());
        return output.Fail("%s failed verification: %s", Quoted(packPath).c_str(), counted.c_str());
    }
    output.Print("OK: %s: %s in %s read back whole", Quoted(packPath).c_str(),
                 Counted(archive.GetEntryCount(), "entry", "entries").c_str(),
                 Counted(archive.GetPartCount(), "part file", "part files").c_str());
    return kExitSuccess;
}

}  // namespace zn::tools
