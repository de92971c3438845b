// The `corelib` program: starts the library as a host does, in a folder of its own so that the
// library's log files stay out of the user's folder, and runs the tool.
#include "CoreLib/CoreLibSDM.h"
#include "tools/corelib/PakTool.h"
#include "tools/corelib/StateFolder.h"

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
    zn::tools::ToolOptions options;
    options.workingFolder = zn::tools::StateFolder::CurrentFolder();
    zn::tools::StateFolder state;
    std::string reason;
    // Without a known working folder the user's relative paths could not be resolved from
    // elsewhere: stay, and let the tool say so if it needs one.
    if (!options.workingFolder.empty() && !state.Enter(reason)) {
        std::fprintf(stderr, "corelib: %s; the library's log files go to the working folder\n",
                     reason.c_str());
    }
    zn::CoreLibSDM::Init();
    int status = zn::tools::RunCorelibTool(argc, argv, stdout, stderr, options);
    zn::CoreLibSDM::Shutdown();
    return status;
}
