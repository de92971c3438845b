// PakCommands.h: the "pak" commands of the tool. Paths are absolute; each command reports its
// failures through the output and returns an exit status.
#pragma once

#include "tools/corelib/ToolOutput.h"

#include <string>
#include <vector>

namespace zn::tools {

struct PakCreateSettings {
    // Deflate every entry. Such a pack is written without memory mapping, since a compressed
    // entry is never handed out as a view.
    bool compress = false;
    // Forbid readers to map the entries in place.
    bool noMemoryMapping = false;
};

// Packs every regular file under folder, under its name relative to folder with '/' separators,
// in ascending byte order of the names. Nothing is written unless every file can be added.
int PakCreate(ToolOutput& output, const std::string& folder, const std::string& packPath,
              const PakCreateSettings& settings);
// A header line, one line an entry in table order, and a summary line.
int PakList(ToolOutput& output, const std::string& packPath);
// Extracts every entry, or the named ones (a folder name stands for the entries below it).
int PakExtract(ToolOutput& output, const std::string& packPath, const std::string& folder,
               const std::vector<std::string>& names);
// Writes the bytes of one entry to out.
int PakCat(ToolOutput& output, const std::string& packPath, const std::string& name);
// Reads every entry back and checks it against the table and the part files.
int PakVerify(ToolOutput& output, const std::string& packPath);

}  // namespace zn::tools
