// PakTool.h: the `corelib` command-line tool as a function, so that tests drive it in-process and
// the program is only its entry point.
#pragma once

#include <cstdio>
#include <string>

namespace zn::tools {

// Exit statuses of the tool.
enum ExitStatus : int {
    kExitSuccess = 0,
    // The command was understood and failed: a missing file, a damaged pack, a refused entry.
    kExitFailure = 1,
    // The command line itself was wrong.
    kExitUsage = 2,
};

struct ToolOptions {
    // The folder relative paths on the command line are taken from; empty means the process's
    // working folder. The program passes the folder it was started in, since it runs with its
    // working folder elsewhere (see StateFolder.h).
    std::string workingFolder;
};

// Runs the tool on argv (argv[0] is the program name): results on out, the one-line reasons of
// failures and the progress line on err. The library must have been started (CoreLibSDM::Init);
// the run holds a string-table bracket of its own and sets the media path to "/" for its duration.
int RunCorelibTool(int argc, char** argv, FILE* out, FILE* err, const ToolOptions& options);
int RunCorelibTool(int argc, char** argv, FILE* out, FILE* err);

}  // namespace zn::tools
