// Path.h: the value by which the library names a file or a directory: a wide, forward-slash,
// absolute text made from a root and a text, analysed once into root, directory, file name and
// extension, and identified by the interned UTF-8 form of its text.
#pragma once

#include "CoreLib/FixedString.h"
#include "CoreLib/STDString.h"
#include "CoreLib/TrackedObject.h"

#include <cstdint>

namespace zn {

class FileSystem;
class ScratchStringW;

class Path : public TrackedObject<Path> {
public:
    // The well-known folder a relative text is resolved against.
    enum ERoot {
        ROOT_MEDIA = 0,         // the media path
        ROOT_PUBLIC_DATA = 1,   // media + the public data folder
        ROOT_ACTIVE_MOD = 2,    // media + "Mods/" + the active mod + "/"
        ROOT_USER = 3,          // the user folder + "/"
        ROOT_APP_USER = 4,      // the user folder + "/" + studio + "/" + application + "/"
        ROOT_LOCALIZATION = 5,  // media + "Localization/" + the host's language folder + "/"
        ROOT_BINARY = 6,        // the folder of the executable
        ROOT_WORKING = 7,       // the working folder + "/"
        ROOT_MODS = 8,          // media + "Mods/"
        ROOT_PUBLIC = 9,        // media + "Public/"
        ROOT_PUBLIC_GAME = 10,  // media + "Public/Game/"
        ROOT_NONE = 11,         // the text as it stands
    };

    // The bits of GetPathDesc.
    enum EPathDesc {
        PATHDESC_MEDIA_ROOT = 0x0001,  // the media root or a path made from it; survives analysis
        PATHDESC_FILE = 0x0002,
        PATHDESC_DIRECTORY = 0x0004,
        PATHDESC_ABSOLUTE = 0x0008,
        PATHDESC_RELATIVE = 0x0010,  // only while the root prefix is being put in front
        PATHDESC_XML = 0x0020,
        PATHDESC_GR2 = 0x0040,
        PATHDESC_GSF = 0x0080,
        PATHDESC_FNT = 0x0100,
        PATHDESC_DDS = 0x0200,
        PATHDESC_ZNX = 0x0400,
        PATHDESC_ZNB = 0x0800,
        PATHDESC_EMPTY = 0x1000,         // neither a file index nor an extension index
        PATHDESC_UNKNOWN_TYPE = 0x2000,  // a file whose extension is none of the above
    };

    // Component masks of GetPathComponent: unions of the root part, the relative directory, the
    // file name, the extension, the whole text and the last directory's name.
    static const unsigned char FullPath;
    static const unsigned char FullFilePath;
    static const unsigned char FullFilePathNoExtension;
    static const unsigned char RelativePath;
    static const unsigned char RelativeFilePath;
    static const unsigned char RelativeFilePathNoExtension;
    static const unsigned char Extension;
    static const unsigned char File;
    static const unsigned char FileNoExtension;
    static const unsigned char Dir;

    static constexpr wchar_t separator_wchar = L'/';

    // An empty, unanalysed path of the root: no text, no identity, every index -1.
    explicit Path(ERoot root = ROOT_MEDIA);
    // The text made absolute against the root and analysed; a narrow text is UTF-8.
    Path(const STDWString& text, ERoot root);
    Path(const STDString& text, ERoot root);
    // The child text appended to the parent's text with a separator, taken as it stands
    // (ROOT_NONE); a null child adds only the separator.
    Path(const Path& parent, const wchar_t* child);
    Path(const Path& parent, const char* child);
    Path(const Path& other) = default;
    Path& operator=(const Path& other) = default;
    ~Path() = default;

    // The empty path of the media root: no text, yet analysed and interned.
    static Path Empty();

    unsigned int Length() const { return m_Path.Length(); }
    bool IsEmpty() const { return m_Path.IsEmpty(); }
    const wchar_t* ToWChar() const { return m_Path.ToChar(); }
    const STDWString& ToWString() const { return m_Path; }
    const FixedString& ToFixedString() const { return m_FixedString; }
    int GetPathDesc() const { return m_PathDesc; }
    ERoot GetRoot() const { return m_Root; }
    // Same interned text, so exact and case-sensitive.
    bool Equals(const Path& other) const { return m_FixedString == other.m_FixedString; }
    bool operator==(const Path& other) const { return Equals(other); }
    bool operator!=(const Path& other) const { return !Equals(other); }
    static bool Assert() { return true; }

    // Opens an edit of the text.
    void Lock() { m_Locked = true; }
    // Closes an edit: the text is analysed and interned again.
    void Unlock() { Commit(); }
    bool IsLocked() const { return m_Locked; }
    // Adds a separator unless the text is empty or ends in one, then the text. Reports when the
    // path is not locked, and appends all the same.
    void Append(const wchar_t* text);
    // Replaces the occurrences of from by to, as STDWString::Replace.
    void Replace(const wchar_t* from, const wchar_t* to);
    // Puts the root's folder in front of a text that analysis found relative.
    void MakeAbsolute();
    // Empties the text and gives up the identity; indices, root and description stay.
    void Reset();

    // The characters of the components in mask: a pointer into the text and their count, a copy,
    // or an interned UTF-8 copy. Components join into one range; nothing gives an empty range.
    void GetPathComponent(unsigned char mask, const wchar_t*& text, unsigned int& length) const;
    void GetPathComponent(unsigned char mask, STDWString& text) const;
    void GetPathComponent(unsigned char mask, FixedString& text) const;

    // Resolves relative against base: leading ".." components drop as many trailing components of
    // base, a leading "." is dropped. result may be relative itself. Needs Path::_SDMInit.
    static void MergeAndCanonicalizePaths(const Path& base, const Path& relative, Path& result);

    // The name of the top folder under "Public/" of a path in a data pack; false when there is none.
    bool GetDataPackName(STDWString& name) const;

    // Hash policy of the containers keyed by Path: the interned handle, never the text.
    static unsigned int KeyToHashIndex(const Path& key, unsigned int tableSize);
    static bool IsKeysEqual(const Path& left, const Path& right) { return left.Equals(right); }

    // Makes and frees the scratch text of MergeAndCanonicalizePaths; a second _SDMInit keeps it.
    static void _SDMInit();
    static void _SDMShutDown();

    // Shared by every merge, without a lock: merges are not concurrent.
    static ScratchStringW* g_ScratchString;

private:
    friend class FileSystem;

    // The media root made from the host's text, used only by FileSystem::SetMediaPath.
    static Path MakeMediaPath(const STDWString& text);

    // Lock, forward slashes, analysis, interning, unlock.
    void Commit();
    void EnsureForwardSlashes();
    void Analyse();
    void SetInStone();
    // Sets the file or directory bits and indices from the last dot and separators.
    void ClassifyName();
    // The half-open range of characters that the components in mask cover.
    void FindMinMaxIndex(unsigned char mask, int& min, int& max) const;

    STDWString m_Path;
    FixedString m_FixedString;
    int16_t m_RootIndex = -1;
    int16_t m_FileIndex = -1;
    int16_t m_ExtensionIndex = -1;
    ERoot m_Root = ROOT_MEDIA;
    int32_t m_PathDesc = PATHDESC_EMPTY;
    bool m_Locked : 1 = false;
};

}  // namespace zn
