// PakTool.cpp: the command line of the tool: usage, arguments, and the frame every command runs in.
#include "tools/corelib/PakTool.h"

#include "CoreLib/CoreLibSDM.h"
#include "CoreLib/FileSystem.h"
#include "CoreLib/GlobalStringTable.h"
#include "CoreLib/STDString.h"
#include "tools/corelib/PakCommands.h"
#include "tools/corelib/StateFolder.h"
#include "tools/corelib/ToolOutput.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace zn::tools {

namespace {

constexpr const char* kUsage =
    "Usage: corelib pak <command> [arguments]\n"
    "\n"
    "Commands:\n"
    "  pak create <folder> <out.pak> [--compress] [--no-mmap]\n"
    "                        pack every regular file under folder\n"
    "  pak list <pak>        list the entries of a pack\n"
    "  pak extract <pak> <folder> [names...]\n"
    "                        extract every entry, or the named entries and folders\n"
    "  pak cat <pak> <name>  write one entry to standard output\n"
    "  pak verify <pak>      check that every entry of a pack reads back whole\n"
    "\n"
    "Options:\n"
    "  --compress            (create) deflate every entry; the pack is then written\n"
    "                        without memory mapping\n"
    "  --no-mmap             (create) forbid readers to map the entries in place\n"
    "  --help, -h            show this text\n"
    "  --                    every later argument is a name or a path\n"
    "\n"
    "Exit status: 0 success, 1 failure, 2 wrong usage.\n";

struct CommandShape {
    const char* name;
    size_t minArguments;
    size_t maxArguments;
    const char* synopsis;
};

constexpr CommandShape kCommands[] = {
    {"create", 2, 2, "corelib pak create <folder> <out.pak> [--compress] [--no-mmap]"},
    {"list", 1, 1, "corelib pak list <pak>"},
    {"extract", 2, SIZE_MAX, "corelib pak extract <pak> <folder> [names...]"},
    {"cat", 2, 2, "corelib pak cat <pak> <name>"},
    {"verify", 1, 1, "corelib pak verify <pak>"},
};

struct PakArguments {
    const CommandShape* command = nullptr;
    std::vector<std::string> operands;
    PakCreateSettings create;
    bool help = false;
};

// Sorts the words after "pak" into options and operands; kExitSuccess when they make a command.
int ParsePak(ToolOutput& output, const std::vector<std::string>& words, PakArguments& parsed) {
    bool optionsEnded = false;
    std::vector<std::string> positional;
    std::string createOption;
    for (const std::string& word : words) {
        if (optionsEnded || word.size() < 2 || word[0] != '-') {
            positional.push_back(word);
        } else if (word == "--") {
            optionsEnded = true;
        } else if (word == "--help" || word == "-h") {
            parsed.help = true;
        } else if (word == "--compress" || word == "--no-mmap") {
            (word == "--compress" ? parsed.create.compress : parsed.create.noMemoryMapping) = true;
            createOption = word;
        } else {
            return output.Misuse("unknown option '%s'", Printable(word).c_str());
        }
    }
    if (parsed.help) {
        return kExitSuccess;
    }
    if (positional.empty()) {
        return output.Misuse("'pak' needs a command: create, list, extract, cat or verify");
    }
    for (const CommandShape& shape : kCommands) {
        if (positional[0] == shape.name) {
            parsed.command = &shape;
        }
    }
    if (parsed.command == nullptr) {
        return output.Misuse("unknown pak command '%s'", Printable(positional[0]).c_str());
    }
    if (!createOption.empty() && std::strcmp(parsed.command->name, "create") != 0) {
        return output.Misuse("option '%s' belongs to 'pak create'", createOption.c_str());
    }
    parsed.operands.assign(positional.begin() + 1, positional.end());
    if (parsed.operands.size() < parsed.command->minArguments ||
        parsed.operands.size() > parsed.command->maxArguments) {
        return output.Misuse("wrong arguments for 'pak %s'; usage: %s", parsed.command->name,
                             parsed.command->synopsis);
    }
    return kExitSuccess;
}

// An absolute form of a path from the command line. "." components and doubled separators go;
// ".." stays, since a link on the way decides where it leads.
std::string Resolve(const std::string& text, const std::string& workingFolder) {
    std::string joined = !text.empty() && text[0] == '/' ? text : workingFolder + "/" + text;
    std::string resolved;
    size_t start = 0;
    while (start < joined.size()) {
        size_t end = joined.find('/', start);
        end = end == std::string::npos ? joined.size() : end;
        std::string component = joined.substr(start, end - start);
        if (!component.empty() && component != ".") {
            resolved += "/" + component;
        }
        start = end + 1;
    }
    return resolved.empty() ? "/" : resolved;
}

// The pack's name trie is rooted at the media path and strips the media path's text wherever it
// turns up in a name; with "/" as the media path that text is empty and names are taken as they
// stand, and every absolute path lies under the media root.
class WholeDiskMediaPath {
public:
    WholeDiskMediaPath() : m_Previous(FileSystem::GetMediaPath().ToWString()) {
        FileSystem::SetMediaPath(STDWString(L"/"));
    }
    ~WholeDiskMediaPath() {
        if (m_Previous.IsEmpty()) {
            return;
        }
        // The media path keeps its text with a final '/' that its identity lacks.
        if (m_Previous.Length() > 1 && m_Previous[m_Previous.Length() - 1] == L'/') {
            m_Previous = STDWString(m_Previous.ToChar(), static_cast<int>(m_Previous.Length()) - 1);
        }
        FileSystem::SetMediaPath(m_Previous);
    }
    WholeDiskMediaPath(const WholeDiskMediaPath&) = delete;
    WholeDiskMediaPath& operator=(const WholeDiskMediaPath&) = delete;

private:
    STDWString m_Previous;
};

int RunPakCommand(ToolOutput& output, const PakArguments& parsed, const std::string& workingFolder) {
    const std::vector<std::string>& operands = parsed.operands;
    std::string command = parsed.command->name;
    std::string pack = Resolve(operands[0], workingFolder);
    if (command == "create") {
        return PakCreate(output, pack, Resolve(operands[1], workingFolder), parsed.create);
    }
    if (command == "list") {
        return PakList(output, pack);
    }
    if (command == "extract") {
        return PakExtract(output, pack, Resolve(operands[1], workingFolder),
                          std::vector<std::string>(operands.begin() + 2, operands.end()));
    }
    if (command == "cat") {
        return PakCat(output, pack, operands[1]);
    }
    return PakVerify(output, pack);
}

}  // namespace

int RunCorelibTool(int argc, char** argv, FILE* out, FILE* err, const ToolOptions& options) {
    ToolOutput output(out, err);
    std::vector<std::string> words(argv + (argc > 0 ? 1 : 0), argv + (argc > 0 ? argc : 0));
    if (words.empty()) {
        std::fputs(kUsage, err);
        return kExitUsage;
    }
    if (words[0] == "--help" || words[0] == "-h") {
        std::fputs(kUsage, out);
        return kExitSuccess;
    }
    if (words[0] != "pak") {
        return output.Misuse("unknown command '%s'", Printable(words[0]).c_str());
    }
    PakArguments parsed;
    if (int status = ParsePak(output, std::vector<std::string>(words.begin() + 1, words.end()), parsed);
        status != kExitSuccess) {
        return status;
    }
    if (parsed.help) {
        std::fputs(kUsage, out);
        return kExitSuccess;
    }
    std::string workingFolder =
        options.workingFolder.empty() ? StateFolder::CurrentFolder() : options.workingFolder;
    if (workingFolder.empty()) {
        return output.Fail("cannot tell the working folder: %s", std::strerror(errno));
    }
    if (!CoreLibSDM::IsInitialized()) {
        return output.Fail("the library is not started");
    }
    // Every name the commands intern is interned inside this bracket; the pack's own brackets
    // would otherwise leave the table closed behind them.
    GlobalStringTable::RequestTable();
    int status = kExitFailure;
    {
        WholeDiskMediaPath mediaPath;
        status = RunPakCommand(output, parsed, workingFolder);
    }
    GlobalStringTable::ReleaseTable();
    return status;
}

int RunCorelibTool(int argc, char** argv, FILE* out, FILE* err) {
    return RunCorelibTool(argc, argv, out, err, ToolOptions());
}

}  // namespace zn::tools
