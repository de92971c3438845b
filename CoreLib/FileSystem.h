// FileSystem.h: the folders a game is installed under and the user's and process's folders.
#pragma once

#include "CoreLib/Path.h"
#include "CoreLib/STDString.h"

namespace zn {

// Static settings and operations only. The settings are set by the host during start-up, before
// other threads run, and are read without a lock.
class FileSystem {
public:
    // Sets every setting to its default: no media path, the active mod "Main", the rest empty.
    static void _SDMInit();
    // Gives up the media path's text and identity; the other settings stay.
    static void _SDMShutDown();

    // The root of all game data. A text that begins with "." is taken relative to the working
    // folder; the stored text always ends in "/".
    static void SetMediaPath(const STDWString& text);
    static const Path& GetMediaPath() { return s_MediaPath; }
    // Folder names used by the roots of later paths, stored as given.
    static void SetPublicDataPath(const STDWString& text) { s_PublicDataPath = text; }
    static const STDWString& GetPublicDataPath() { return s_PublicDataPath; }
    static void SetActiveModName(const STDWString& text) { s_ActiveModName = text; }
    static const STDWString& GetActiveModName() { return s_ActiveModName; }
    static void SetStudioName(const STDWString& text) { s_StudioName = text; }
    static const STDWString& GetStudioName() { return s_StudioName; }
    static void SetAppName(const STDWString& text) { s_AppName = text; }
    static const STDWString& GetAppName() { return s_AppName; }

    // The folder of the running executable, ending in "/"; "" with a report when it can't be read.
    static STDWString GetBinaryPath();
    // The working folder, without a final "/"; "" with a report when it can't be read.
    static STDWString GetWorkingPath();
    // The user's home folder from the user database, without a final "/"; "" with a report when
    // the user has none.
    static STDWString GetUserFolder();

private:
    static Path s_MediaPath;
    static STDWString s_PublicDataPath;
    static STDWString s_ActiveModName;
    static STDWString s_StudioName;
    static STDWString s_AppName;
};

}  // namespace zn
