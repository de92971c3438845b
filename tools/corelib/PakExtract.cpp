// PakExtract.cpp: "pak extract". Every name is checked before the first byte is written: a pack
// with one hostile name is not extracted at all.
#include "tools/corelib/PakCommands.h"

#include "tools/corelib/ExtractFolder.h"
#include "tools/corelib/PakArchive.h"
#include "tools/corelib/PakTool.h"

namespace zn::tools {

namespace {
// The entries the names stand for, in table order; false after naming each name that stands for
// none. A name is an entry, or a folder standing for every entry below it.
bool SelectEntries(ToolOutput& output, PakArchive& archive, const std::vector<std::string>& names,
                   std::vector<unsigned int>& selected) {
    std::vector<bool> chosen(archive.GetEntryCount(), names.empty());
    unsigned int unknown = 0;
    for (const std::string& name : names) {
        int index = archive.FindEntry(name);
        std::vector<unsigned int> below =
            index < 0 ? archive.EntriesBelow(name) : std::vector<unsigned int>();
        if (index >= 0) {
            chosen[static_cast<unsigned int>(index)] = true;
        } else if (below.empty()) {
            output.Say("no entry '%s' in '%s'", Printable(name).c_str(),
                       Printable(archive.GetPath()).c_str());
            ++unknown;
        }
        for (unsigned int entry : below) {
            chosen[entry] = true;
        }
    }
    for (unsigned int index = 0; index < chosen.size(); ++index) {
        if (chosen[index]) {
            selected.push_back(index);
        }
    }
    if (unknown != 0) {
        output.Fail("nothing extracted: %s not found", Counted(unknown, "name", "names").c_str());
        return false;
    }
    return true;
}
}  // namespace

int PakExtract(ToolOutput& output, const std::string& packPath, const std::string& folder,
               const std::vector<std::string>& names) {
    PakArchive archive;
    std::vector<unsigned int> selected;
    if (!OpenWhole(output, archive, packPath) || !SelectEntries(output, archive, names, selected)) {
        return kExitFailure;
    }
    unsigned int refused = 0;
    for (unsigned int index : selected) {
        std::string name = PakArchive::NameOf(archive.GetEntry(index));
        std::string reason = CheckEntryName(name);
        if (!reason.empty()) {
            output.Say("refusing entry '%s': %s", Printable(name).c_str(), reason.c_str());
            ++refused;
        }
    }
    if (refused != 0) {
        return output.Fail("nothing extracted into '%s': %s", Printable(folder).c_str(),
                           Counted(refused, "unsafe entry name", "unsafe entry names").c_str());
    }

    ExtractFolder target;
    std::string reason;
    if (!target.Open(folder, reason)) {
        return output.Fail("%s", reason.c_str());
    }
    unsigned int failed = 0;
    EntryBytes bytes;
    for (size_t position = 0; position < selected.size(); ++position) {
        std::string name = PakArchive::NameOf(archive.GetEntry(selected[position]));
        output.Progress(static_cast<unsigned int>(position + 1), static_cast<unsigned int>(selected.size()),
                        name);
        if (!archive.Fetch(selected[position], true, bytes, reason) ||
            !target.WriteFile(name, bytes.Data(), bytes.Size(), reason)) {
            output.Say("cannot extract '%s': %s", Printable(name).c_str(), reason.c_str());
            ++failed;
        }
        bytes.Release();
    }
    output.EndProgress();
    if (failed != 0) {
        return output.Fail("%u of %s could not be extracted into '%s'", failed,
                           Counted(selected.size(), "entry", "entries").c_str(), Printable(folder).c_str());
    }
    output.Print("extracted %s into '%s'", Counted(selected.size(), "entry", "entries").c_str(),
                 Printable(folder).c_str());
    return kExitSuccess;
}

}  // namespace zn::tools
