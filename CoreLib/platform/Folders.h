// Folders.h: the folders of the user and of the process, as UTF-8 text.
#pragma once

#include <cstdint>
#include <string>

namespace zn::platform {

// The id of the user the process runs as.
uint32_t CurrentUserId();
// The home folder the user database gives for userId (no environment variable is read). Returns 0
// and sets folder, or an error number (ENOENT when the user has no entry) and leaves folder alone.
int GetHomeFolder(uint32_t userId, std::string& folder);
// Test seam: while a folder is set, GetHomeFolder gives it for every user; null restores the user
// database. Not synchronised: tests set it before the library reads the user folder.
void SetHomeFolderOverride(const char* folder);
// The full path of the running executable. Returns 0 and sets path, or an error number.
int GetExecutablePath(std::string& path);
// The working directory of the process. Returns 0 and sets folder, or an error number.
int GetWorkingFolder(std::string& folder);

}  // namespace zn::platform
