// Path.cpp: construction, analysis, components and merging of paths.
#include "CoreLib/Path.h"

#include "CoreLib/FileSystem.h"
#include "CoreLib/GlobalSwitches.h"
#include "CoreLib/Localization.h"
#include "CoreLib/Report.h"
#include "CoreLib/ScratchString.h"
#include "CoreLib/StringTokenizer.h"

#include <algorithm>

namespace zn {

const unsigned char Path::FullPath = 0x03;
const unsigned char Path::FullFilePath = 0x0F;
const unsigned char Path::FullFilePathNoExtension = 0x07;
const unsigned char Path::RelativePath = 0x02;
const unsigned char Path::RelativeFilePath = 0x0E;
const unsigned char Path::RelativeFilePathNoExtension = 0x06;
const unsigned char Path::Extension = 0x08;
const unsigned char Path::File = 0x0C;
const unsigned char Path::FileNoExtension = 0x04;
const unsigned char Path::Dir = 0x20;

ScratchStringW* Path::g_ScratchString = nullptr;

namespace {
// The groups a component mask is made of.
constexpr unsigned char kRootPart = 0x01;
constexpr unsigned char kRelativeDirectory = 0x02;
constexpr unsigned char kFileName = 0x04;
constexpr unsigned char kExtensionPart = 0x08;
constexpr unsigned char kWholeText = 0x10;
constexpr unsigned char kLastDirectory = 0x20;

// The merge scratch text starts with room for this many characters and grows for longer paths.
constexpr unsigned int kScratchStringSize = 1024;

// Extensions that name a known file type: the first three characters after the dot decide, in
// this order, without case.
struct KnownExtension {
    const wchar_t* name;
    int descBit;
};
constexpr KnownExtension kKnownExtensions[] = {
    {L"xml", Path::PATHDESC_XML}, {L"znx", Path::PATHDESC_ZNX}, {L"znb", Path::PATHDESC_ZNB},
    {L"dds", Path::PATHDESC_DDS}, {L"gr2", Path::PATHDESC_GR2}, {L"gsf", Path::PATHDESC_GSF},
    {L"fnt", Path::PATHDESC_FNT},
};

wchar_t ToLowerAscii(wchar_t character) {
    return character >= L'A' && character <= L'Z' ? static_cast<wchar_t>(character - L'A' + L'a') : character;
}

// True when the three characters at text are name's in either case. The terminator matches no
// letter, so a shorter text is never read past its end.
bool StartsWithNoCase(const wchar_t* text, const wchar_t* name) {
    for (int index = 0; index < 3; ++index) {
        if (ToLowerAscii(text[index]) != name[index]) {
            return false;
        }
    }
    return true;
}

// A text is absolute when it begins at the file system's root, or in the drive form "C:" that data
// written on other systems carries.
bool IsAbsoluteText(const STDWString& text) {
    return text.GetAt(0) == L'/' || text.GetAt(1) == L':';
}

// The folder MakeAbsolute puts in front of a relative text of the root.
STDWString RootPrefix(Path::ERoot root) {
    const STDWString& media = FileSystem::GetMediaPath().ToWString();
    switch (root) {
        case Path::ROOT_MEDIA:
            return media;
        case Path::ROOT_PUBLIC_DATA:
            return media + FileSystem::GetPublicDataPath();
        case Path::ROOT_ACTIVE_MOD:
            return media + L"Mods/" + FileSystem::GetActiveModName() + L'/';
        case Path::ROOT_USER:
            return FileSystem::GetUserFolder() + L'/';
        case Path::ROOT_APP_USER:
            return FileSystem::GetUserFolder() + L'/' + FileSystem::GetStudioName() + L'/' +
                   FileSystem::GetAppName() + L'/';
        case Path::ROOT_LOCALIZATION:
            // Without the host's record there is no language folder to name.
            return media + L"Localization/" + (Global != nullptr ? Global->languageFolder : STDWString()) +
                   L'/';
        case Path::ROOT_BINARY:
            return FileSystem::GetBinaryPath();
        case Path::ROOT_WORKING:
            return FileSystem::GetWorkingPath() + L'/';
        case Path::ROOT_MODS:
            return media + L"Mods/";
        case Path::ROOT_PUBLIC:
            return media + L"Public/";
        case Path::ROOT_PUBLIC_GAME:
            return media + L"Public/Game/";
        case Path::ROOT_NONE:
        default:
            return STDWString();
    }
}

// Adds one component, with a separator in front unless the text is empty or already ends in one.
void AppendComponent(ScratchStringW& scratch, const STDWString& component) {
    const unsigned int size = scratch.GetSize();
    if (size > 0 && scratch.ToChar()[size - 1] != Path::separator_wchar) {
        scratch << Path::separator_wchar;
    }
    scratch.Concatenate(component.ToChar(), component.Length());
}
}  // namespace

Path::Path(ERoot root) : m_Root(root) {}

Path::Path(const STDWString& text, ERoot root) : m_Path(text), m_Root(root) {
    Commit();
}

Path::Path(const STDString& text, ERoot root)
    : m_Path(Localization::ConvertMultiByteToWide(text).Get()), m_Root(root) {
    Commit();
}

Path::Path(const Path& parent, const wchar_t* child)
    : m_Path(parent.m_Path), m_Root(ROOT_NONE), m_PathDesc(parent.m_PathDesc) {
    Lock();
    Append(child);
    Commit();
}

Path::Path(const Path& parent, const char* child)
    : Path(parent, child != nullptr ? Localization::ConvertMultiByteToWide(child).Get() : nullptr) {}

Path Path::Empty() {
    Path empty(ROOT_MEDIA);
    empty.m_PathDesc = PATHDESC_MEDIA_ROOT | PATHDESC_EMPTY;
    empty.Commit();
    return empty;
}

void Path::Append(const wchar_t* text) {
    if (!m_Locked) {
        ZN_REPORT("Assert! Path not locked!");
    }
    if (!m_Path.IsEmpty() && m_Path[m_Path.Length() - 1] != separator_wchar) {
        m_Path += separator_wchar;
    }
    m_Path += text;
}

void Path::Replace(const wchar_t* from, const wchar_t* to) {
    m_Path.Replace(from, to);
}

void Path::MakeAbsolute() {
    if (!m_Locked) {
        ZN_REPORT(ZN_DEFAULT_ASSERT_TEXT);
    }
    if ((m_PathDesc & PATHDESC_RELATIVE) == 0) {
        return;
    }
    const STDWString relative = m_Path;
    m_Path = RootPrefix(m_Root);
    Append(relative.ToChar());
    EnsureForwardSlashes();
    m_PathDesc = (m_PathDesc & ~PATHDESC_RELATIVE) | PATHDESC_ABSOLUTE;
    // The root part ends where the media path would, whatever the root: the components relative to
    // the root are meant relative to the media folder.
    m_RootIndex = static_cast<int16_t>(FileSystem::GetMediaPath().Length());
}

void Path::Reset() {
    m_Path.Empty();
    m_FixedString = FixedString();
}

void Path::Commit() {
    Lock();
    EnsureForwardSlashes();
    Analyse();
    SetInStone();
    m_Locked = false;
}

void Path::EnsureForwardSlashes() {
    if (!m_Locked) {
        ZN_REPORT("The path isn't locked! %ls", m_Path.ToChar());
    }
    std::replace(m_Path.begin(), m_Path.end(), L'\\', separator_wchar);
}

void Path::Analyse() {
    if (!m_Locked) {
        ZN_REPORT("The path isn't locked! %ls", m_Path.ToChar());
    }
    m_PathDesc &= PATHDESC_MEDIA_ROOT;
    m_FileIndex = -1;
    m_ExtensionIndex = -1;
    const STDWString& media = FileSystem::GetMediaPath().ToWString();
    if ((m_PathDesc & PATHDESC_MEDIA_ROOT) != 0) {
        m_RootIndex = static_cast<int16_t>(m_Path.Length());
        m_PathDesc |= PATHDESC_ABSOLUTE;
    } else if (!media.IsEmpty() && m_Path.Contains(media)) {
        if (m_Root != ROOT_NONE) {
            ZN_REPORT(
                "This path seems to contain the mediapath already, but was created using a ROOT.  This "
                "shouldnt be. \n Path: %ls",
                m_Path.ToChar());
        }
        m_PathDesc |= PATHDESC_ABSOLUTE;
        m_RootIndex = static_cast<int16_t>(media.Length());
    } else if (!IsAbsoluteText(m_Path)) {
        m_PathDesc |= PATHDESC_RELATIVE;
        MakeAbsolute();
    } else {
        if (m_Root != ROOT_NONE && m_Root != ROOT_APP_USER) {
            ZN_REPORT(
                "This path looks to be an absolute path, but was created using a ROOT.  This shouldnt be. "
                "\n Path: %ls",
                m_Path.ToChar());
        }
        m_PathDesc |= PATHDESC_ABSOLUTE;
    }
    ClassifyName();
    if (m_FileIndex == -1 && m_ExtensionIndex == -1) {
        m_PathDesc |= PATHDESC_EMPTY;
    } else {
        m_PathDesc &= ~PATHDESC_EMPTY;
    }
}

void Path::ClassifyName() {
    const unsigned int length = m_Path.Length();
    const int dot = m_Path.FindReverse(L'.');
    const int lastSeparator = std::max(m_Path.FindReverse(L'\\'), m_Path.FindReverse(L'/'));
    // The length test is unsigned on purpose: a text of fewer than three characters wraps below
    // zero, so a dot in it is taken as an extension dot.
    const bool directory = dot < 0 || dot < lastSeparator || (dot > 0 && m_Path[dot - 1] == L'.') ||
                           !(static_cast<unsigned int>(dot) < length - 3u);
    if (directory) {
        m_PathDesc |= PATHDESC_DIRECTORY;
        m_FileIndex = static_cast<int16_t>(length);
        return;
    }
    m_PathDesc |= PATHDESC_FILE;
    m_ExtensionIndex = static_cast<int16_t>(dot);
    int typeBit = PATHDESC_UNKNOWN_TYPE;
    for (const KnownExtension& known : kKnownExtensions) {
        if (StartsWithNoCase(m_Path.ToChar() + dot + 1, known.name)) {
            typeBit = known.descBit;
            break;
        }
    }
    m_PathDesc |= typeBit;
    m_FileIndex = static_cast<int16_t>(m_Path.FindReverse(separator_wchar));
}

void Path::SetInStone() {
    m_FixedString = Localization::ConvertWideToMultiByte(m_Path).Get();
}

void Path::FindMinMaxIndex(unsigned char mask, int& min, int& max) const {
    const int length = static_cast<int>(m_Path.Length());
    min = length;
    max = 0;
    if ((mask & kWholeText) != 0) {
        min = 0;
        max = length;
    }
    if ((mask & kRootPart) != 0 && m_RootIndex > 0) {
        min = 0;
        max = std::max<int>(max, m_RootIndex);
    }
    if ((mask & kRelativeDirectory) != 0 && m_FileIndex >= 0 && m_RootIndex > 0) {
        min = std::min<int>(min, m_RootIndex);
        max = std::max<int>(max, m_FileIndex);
    }
    if ((mask & kLastDirectory) != 0 && m_FileIndex > 0) {
        // A backslash found wins over a slash found, wherever each stands.
        const int backslash = m_Path.FindReverse(L'\\', static_cast<unsigned int>(m_FileIndex - 1));
        const int slash = m_Path.FindReverse(L'/', static_cast<unsigned int>(m_FileIndex - 1));
        const int separator = backslash >= 0 ? backslash : slash;
        if (separator >= 0) {
            min = std::min(min, separator + 1);
        }
        max = std::max<int>(max, m_FileIndex);
    }
    if ((mask & kFileName) != 0 && m_ExtensionIndex >= 0) {
        min = std::min(min, m_FileIndex + 1);
        max = std::max<int>(max, m_ExtensionIndex);
    }
    if ((mask & kExtensionPart) != 0 && m_ExtensionIndex >= 0) {
        min = std::min(min, m_ExtensionIndex + 1);
        max = std::max(max, length);
    }
}

void Path::GetPathComponent(unsigned char mask, const wchar_t*& text, unsigned int& length) const {
    int min = 0;
    int max = 0;
    FindMinMaxIndex(mask, min, max);
    // A root index can lie past the end (a relative text taken as it stands while a longer media
    // path is set): the range never leaves the text.
    const int textLength = static_cast<int>(m_Path.Length());
    min = std::clamp(min, 0, textLength);
    max = std::clamp(max, 0, textLength);
    text = m_Path.ToChar() + min;
    length = max > min ? static_cast<unsigned int>(max - min) : 0u;
}

void Path::GetPathComponent(unsigned char mask, STDWString& text) const {
    const wchar_t* start = nullptr;
    unsigned int length = 0;
    GetPathComponent(mask, start, length);
    text.assign(start, length);
}

void Path::GetPathComponent(unsigned char mask, FixedString& text) const {
    const wchar_t* start = nullptr;
    unsigned int length = 0;
    GetPathComponent(mask, start, length);
    text = Localization::ConvertWideToMultiByte(start, static_cast<int>(length)).Get();
}

void Path::MergeAndCanonicalizePaths(const Path& base, const Path& relative, Path& result) {
    if (g_ScratchString == nullptr) {
        ZN_REPORT(ZN_DEFAULT_ASSERT_TEXT);
        return;
    }
    ObjectSet<STDWString, DefaultComparator<STDWString>> baseParts;
    ObjectSet<STDWString, DefaultComparator<STDWString>> relativeParts;
    StringTokenizerW::SplitString(base.m_Path, L"/", baseParts);
    StringTokenizerW::SplitString(relative.m_Path, L"/", relativeParts);

    const bool leadingDot = relativeParts.GetSize() > 0 && relativeParts[0] == L".";
    unsigned int upCount = 0;
    for (unsigned int index = 0; index < relativeParts.GetSize(); ++index) {
        if (relativeParts[index] == L"..") {
            ++upCount;
        }
    }

    ScratchStringW& scratch = *g_ScratchString;
    scratch.Reset();
    // A base at the file system's root splits into an empty first component; its separator is kept
    // so that the merged text stays absolute.
    if (base.m_Path.GetAt(0) == separator_wchar) {
        scratch << separator_wchar;
    }
    const unsigned int baseKept = baseParts.GetSize() > upCount ? baseParts.GetSize() - upCount : 0u;
    for (unsigned int index = 0; index < baseKept; ++index) {
        AppendComponent(scratch, baseParts[index]);
    }
    // Skipped by number: a ".." after a named component drops the wrong components, so callers
    // give leading ".." only.
    for (unsigned int index = upCount + (leadingDot ? 1u : 0u); index < relativeParts.GetSize(); ++index) {
        AppendComponent(scratch, relativeParts[index]);
    }
    result = Path(STDWString(scratch.ToChar(), static_cast<int>(scratch.GetSize())), ROOT_NONE);
}

Path Path::MakeMediaPath(const STDWString& text) {
    Path media(ROOT_MEDIA);
    media.m_PathDesc = PATHDESC_MEDIA_ROOT | PATHDESC_EMPTY;
    media.m_Path = text;
    media.Commit();
    if (!text.IsEmpty() && text[0] == L'.') {
        const Path workingFolder(FileSystem::GetWorkingPath(), ROOT_NONE);
        MergeAndCanonicalizePaths(workingFolder, media, media);
    }
    // Only the text gets the separator: the identity and the indices stay those of the text
    // without it.
    if (media.m_Path.IsEmpty() || media.m_Path[media.m_Path.Length() - 1] != separator_wchar) {
        media.m_Path += separator_wchar;
    }
    return media;
}

bool Path::GetDataPackName(STDWString& name) const {
    if (m_RootIndex < 0) {
        return false;
    }
    constexpr unsigned int kPublicLength = 7;  // "Public/"
    const unsigned int rootIndex = static_cast<unsigned int>(m_RootIndex);
    if (m_Path.Find(L"Public/", rootIndex) == 0) {
        return false;
    }
    const int slash = m_Path.Find(separator_wchar, rootIndex + kPublicLength);
    if (slash < 0 || static_cast<unsigned int>(slash) >= m_Path.Length()) {
        return false;
    }
    name = m_Path.GetSubstring(rootIndex + kPublicLength,
                               static_cast<unsigned int>(slash) - (rootIndex + kPublicLength));
    return true;
}

unsigned int Path::KeyToHashIndex(const Path& key, unsigned int tableSize) {
    return FixedStringRefMapHashFunctor::KeyToHashIndex(key.m_FixedString, tableSize);
}

void Path::_SDMInit() {
    if (g_ScratchString == nullptr) {
        g_ScratchString = new ScratchStringW(kScratchStringSize, ScratchStringW::MAX_SIZE_INFINITE, true);
    }
}

void Path::_SDMShutDown() {
    delete g_ScratchString;
    g_ScratchString = nullptr;
}

}  // namespace zn
