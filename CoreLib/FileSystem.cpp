// FileSystem.cpp: the settings and the folders of the user and of the process.
#include "CoreLib/FileSystem.h"

#include "CoreLib/Localization.h"
#include "CoreLib/Report.h"
#include "CoreLib/platform/Folders.h"

#include <string>

namespace zn {

// Empty at load: the defaults are given by _SDMInit, in the start-up order.
Path FileSystem::s_MediaPath;
STDWString FileSystem::s_PublicDataPath;
STDWString FileSystem::s_ActiveModName;
STDWString FileSystem::s_StudioName;
STDWString FileSystem::s_AppName;

namespace {
STDWString ToWide(const std::string& utf8) {
    return STDWString(
        Localization::ConvertMultiByteToWide(utf8.c_str(), static_cast<int>(utf8.size())).Get());
}
}  // namespace

void FileSystem::_SDMInit() {
    s_MediaPath = Path();
    s_PublicDataPath = L"";
    s_ActiveModName = L"Main";
    s_StudioName = L"";
    s_AppName = L"";
}

void FileSystem::_SDMShutDown() {
    s_MediaPath.Reset();
}

void FileSystem::SetMediaPath(const STDWString& text) {
    s_MediaPath = Path::MakeMediaPath(text);
}

STDWString FileSystem::GetBinaryPath() {
    std::string executable;
    int error = platform::GetExecutablePath(executable);
    if (error != 0) {
        ZN_REPORT("Failed to fetch binary folder - got result %d", error);
        return STDWString();
    }
    executable.erase(executable.rfind('/') + 1);
    return ToWide(executable);
}

STDWString FileSystem::GetWorkingPath() {
    std::string folder;
    int error = platform::GetWorkingFolder(folder);
    if (error != 0) {
        ZN_REPORT("Failed to fetch working folder - got result %d", error);
        return STDWString();
    }
    return ToWide(folder);
}

STDWString FileSystem::GetUserFolder() {
    std::string folder;
    int error = platform::GetHomeFolder(platform::CurrentUserId(), folder);
    if (error != 0) {
        ZN_REPORT("Failed to fetch user folder (my documents) - got result %d", error);
        return STDWString();
    }
    return ToWide(folder);
}

}  // namespace zn
