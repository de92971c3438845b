// Keyboard.cpp: the original platform's virtual keys and scan codes over xkbcommon keymaps.
#include "CoreLib/platform/Keyboard.h"

#include <xkbcommon/xkbcommon.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace zn::platform {

namespace {

// The keyboard description shipped by xkeyboard-config. The path is fixed so that nothing of the
// user's environment or home folder is read.
constexpr const char* kXkbDataFolder = "/usr/share/X11/xkb";
constexpr const char* kDefaultLayout = "us";
// xkbcommon numbers keys as the Linux event codes plus 8.
constexpr xkb_keycode_t kEvdevToXkb = 8;
constexpr unsigned int kExtendedPrefix = 0xE000;

enum class Direction { Both, VkToScanOnly };

struct KeyRow {
    uint8_t vk;
    uint8_t scan;
    bool extended;
    Direction direction;
};

constexpr Direction B = Direction::Both;
constexpr Direction V = Direction::VkToScanOnly;

// The US layout: virtual key, set-1 scan code, E0 prefix. For a virtual key the first row wins, so
// the navigation block (extended) comes before the keypad keys that share its virtual keys, and
// the main Enter before the keypad's.
// clang-format off
constexpr KeyRow kUsRows[] = {
    {0x1B, 0x01, false, B}, {0x31, 0x02, false, B}, {0x32, 0x03, false, B}, {0x33, 0x04, false, B},
    {0x34, 0x05, false, B}, {0x35, 0x06, false, B}, {0x36, 0x07, false, B}, {0x37, 0x08, false, B},
    {0x38, 0x09, false, B}, {0x39, 0x0A, false, B}, {0x30, 0x0B, false, B}, {0xBD, 0x0C, false, B},
    {0xBB, 0x0D, false, B}, {0x08, 0x0E, false, B}, {0x09, 0x0F, false, B}, {'Q', 0x10, false, B},
    {'W', 0x11, false, B}, {'E', 0x12, false, B}, {'R', 0x13, false, B}, {'T', 0x14, false, B},
    {'Y', 0x15, false, B}, {'U', 0x16, false, B}, {'I', 0x17, false, B}, {'O', 0x18, false, B},
    {'P', 0x19, false, B}, {0xDB, 0x1A, false, B}, {0xDD, 0x1B, false, B}, {0x0D, 0x1C, false, B},
    {0xA2, 0x1D, false, B}, {'A', 0x1E, false, B}, {'S', 0x1F, false, B}, {'D', 0x20, false, B},
    {'F', 0x21, false, B}, {'G', 0x22, false, B}, {'H', 0x23, false, B}, {'J', 0x24, false, B},
    {'K', 0x25, false, B}, {'L', 0x26, false, B}, {0xBA, 0x27, false, B}, {0xDE, 0x28, false, B},
    {0xC0, 0x29, false, B}, {0xA0, 0x2A, false, B}, {0xDC, 0x2B, false, B}, {'Z', 0x2C, false, B},
    {'X', 0x2D, false, B}, {'C', 0x2E, false, B}, {'V', 0x2F, false, B}, {'B', 0x30, false, B},
    {'N', 0x31, false, B}, {'M', 0x32, false, B}, {0xBC, 0x33, false, B}, {0xBE, 0x34, false, B},
    {0xBF, 0x35, false, B}, {0xA1, 0x36, false, B}, {0x6A, 0x37, false, B}, {0xA4, 0x38, false, B},
    {0x20, 0x39, false, B}, {0x14, 0x3A, false, B}, {0x70, 0x3B, false, B}, {0x71, 0x3C, false, B},
    {0x72, 0x3D, false, B}, {0x73, 0x3E, false, B}, {0x74, 0x3F, false, B}, {0x75, 0x40, false, B},
    {0x76, 0x41, false, B}, {0x77, 0x42, false, B}, {0x78, 0x43, false, B}, {0x79, 0x44, false, B},
    {0x90, 0x45, false, B}, {0x91, 0x46, false, B},
    // Extended keys.
    {0x0D, 0x1C, true, B}, {0xA3, 0x1D, true, B}, {0x6F, 0x35, true, B}, {0x2C, 0x37, true, B},
    {0xA5, 0x38, true, B}, {0x03, 0x46, true, B}, {0x24, 0x47, true, B}, {0x26, 0x48, true, B},
    {0x21, 0x49, true, B}, {0x25, 0x4B, true, B}, {0x27, 0x4D, true, B}, {0x23, 0x4F, true, B},
    {0x28, 0x50, true, B}, {0x22, 0x51, true, B}, {0x2D, 0x52, true, B}, {0x2E, 0x53, true, B},
    {0x5B, 0x5B, true, B}, {0x5C, 0x5C, true, B}, {0x5D, 0x5D, true, B}, {0x5F, 0x5F, true, B},
    {0xB1, 0x10, true, B}, {0xB0, 0x19, true, B}, {0xAD, 0x20, true, B}, {0xB7, 0x21, true, B},
    {0xB3, 0x22, true, B}, {0xB2, 0x24, true, B}, {0xAE, 0x2E, true, B}, {0xAF, 0x30, true, B},
    {0xAC, 0x32, true, B}, {0xAA, 0x65, true, B}, {0xAB, 0x66, true, B}, {0xA8, 0x67, true, B},
    {0xA9, 0x68, true, B}, {0xA7, 0x69, true, B}, {0xA6, 0x6A, true, B}, {0xB6, 0x6B, true, B},
    {0xB4, 0x6C, true, B}, {0xB5, 0x6D, true, B},
    // The keypad without Num Lock gives the navigation keys.
    {0x24, 0x47, false, B}, {0x26, 0x48, false, B}, {0x21, 0x49, false, B}, {0x6D, 0x4A, false, B},
    {0x25, 0x4B, false, B}, {0x0C, 0x4C, false, B}, {0x27, 0x4D, false, B}, {0x6B, 0x4E, false, B},
    {0x23, 0x4F, false, B}, {0x28, 0x50, false, B}, {0x22, 0x51, false, B}, {0x2D, 0x52, false, B},
    {0x2E, 0x53, false, B}, {0x2C, 0x54, false, B}, {0xE2, 0x56, false, B}, {0x7A, 0x57, false, B},
    {0x7B, 0x58, false, B}, {0x7C, 0x64, false, B}, {0x7D, 0x65, false, B}, {0x7E, 0x66, false, B},
    {0x7F, 0x67, false, B}, {0x80, 0x68, false, B}, {0x81, 0x69, false, B}, {0x82, 0x6A, false, B},
    {0x83, 0x6B, false, B}, {0x84, 0x6C, false, B}, {0x85, 0x6D, false, B}, {0x86, 0x6E, false, B},
    {0x87, 0x76, false, B},
    // Virtual keys that no scan code gives back: the common Shift, Ctrl and Alt, and the keypad
    // digits, which the keypad keys give under Num Lock.
    {0x10, 0x2A, false, V}, {0x11, 0x1D, false, V}, {0x12, 0x38, false, V}, {0x60, 0x52, false, V},
    {0x61, 0x4F, false, V}, {0x62, 0x50, false, V}, {0x63, 0x51, false, V}, {0x64, 0x4B, false, V},
    {0x65, 0x4C, false, V}, {0x66, 0x4D, false, V}, {0x67, 0x47, false, V}, {0x68, 0x48, false, V},
    {0x69, 0x49, false, V}, {0x6E, 0x53, false, V},
};
// clang-format on

// Linux event codes of the extended keys, and of the plain keys past 88 (below it the codes equal
// the scan codes).
struct EvdevRow {
    uint8_t scan;
    bool extended;
    uint16_t evdev;
};

// clang-format off
constexpr EvdevRow kEvdevRows[] = {
    {0x54, false, 99}, {0x64, false, 183}, {0x65, false, 184}, {0x66, false, 185}, {0x67, false, 186},
    {0x68, false, 187}, {0x69, false, 188}, {0x6A, false, 189}, {0x6B, false, 190}, {0x6C, false, 191},
    {0x6D, false, 192}, {0x6E, false, 193}, {0x76, false, 194}, {0x1C, true, 96}, {0x1D, true, 97},
    {0x35, true, 98}, {0x37, true, 99}, {0x38, true, 100}, {0x46, true, 119}, {0x47, true, 102},
    {0x48, true, 103}, {0x49, true, 104}, {0x4B, true, 105}, {0x4D, true, 106}, {0x4F, true, 107},
    {0x50, true, 108}, {0x51, true, 109}, {0x52, true, 110}, {0x53, true, 111}, {0x5B, true, 125},
    {0x5C, true, 126}, {0x5D, true, 127}, {0x5F, true, 142}, {0x10, true, 165}, {0x19, true, 163},
    {0x20, true, 113}, {0x21, true, 140}, {0x22, true, 164}, {0x24, true, 166}, {0x2E, true, 114},
    {0x30, true, 115}, {0x32, true, 172}, {0x65, true, 217}, {0x66, true, 156}, {0x67, true, 173},
    {0x68, true, 128}, {0x69, true, 159}, {0x6A, true, 158}, {0x6B, true, 157}, {0x6C, true, 155},
    {0x6D, true, 226},
};
// clang-format on

struct KeyName {
    uint8_t scan;
    const wchar_t* name;
};

// The English names of the keys that are named rather than shown by their character.
// clang-format off
constexpr KeyName kPlainNames[] = {
    {0x01, L"Esc"}, {0x0E, L"Backspace"}, {0x0F, L"Tab"}, {0x1C, L"Enter"},
    {0x1D, L"Ctrl"}, {0x2A, L"Shift"}, {0x36, L"Right Shift"}, {0x37, L"Num *"},
    {0x38, L"Alt"}, {0x39, L"Space"}, {0x3A, L"Caps Lock"}, {0x3B, L"F1"},
    {0x3C, L"F2"}, {0x3D, L"F3"}, {0x3E, L"F4"}, {0x3F, L"F5"},
    {0x40, L"F6"}, {0x41, L"F7"}, {0x42, L"F8"}, {0x43, L"F9"},
    {0x44, L"F10"}, {0x45, L"Pause"}, {0x46, L"Scroll Lock"}, {0x47, L"Num 7"},
    {0x48, L"Num 8"}, {0x49, L"Num 9"}, {0x4A, L"Num -"}, {0x4B, L"Num 4"},
    {0x4C, L"Num 5"}, {0x4D, L"Num 6"}, {0x4E, L"Num +"}, {0x4F, L"Num 1"},
    {0x50, L"Num 2"}, {0x51, L"Num 3"}, {0x52, L"Num 0"}, {0x53, L"Num Del"},
    {0x54, L"Sys Req"}, {0x57, L"F11"}, {0x58, L"F12"}, {0x64, L"F13"},
    {0x65, L"F14"}, {0x66, L"F15"}, {0x67, L"F16"}, {0x68, L"F17"},
    {0x69, L"F18"}, {0x6A, L"F19"}, {0x6B, L"F20"}, {0x6C, L"F21"},
    {0x6D, L"F22"}, {0x6E, L"F23"}, {0x76, L"F24"},
};
// clang-format on

// clang-format off
constexpr KeyName kExtendedNames[] = {
    {0x1C, L"Num Enter"}, {0x1D, L"Right Ctrl"}, {0x35, L"Num /"}, {0x37, L"Prnt Scrn"},
    {0x38, L"Right Alt"}, {0x45, L"Num Lock"}, {0x46, L"Break"}, {0x47, L"Home"},
    {0x48, L"Up"}, {0x49, L"Page Up"}, {0x4B, L"Left"}, {0x4D, L"Right"},
    {0x4F, L"End"}, {0x50, L"Down"}, {0x51, L"Page Down"}, {0x52, L"Insert"},
    {0x53, L"Delete"}, {0x54, L"<00>"}, {0x56, L"Help"}, {0x5B, L"Left Windows"},
    {0x5C, L"Right Windows"}, {0x5D, L"Application"},
};
// clang-format on

// A dead key: its spacing form, and the letters it combines with beside what they become.
struct DeadKey {
    xkb_keysym_t keysym;
    wchar_t spacing;
    const wchar_t* bases;
    const wchar_t* combined;
};

const DeadKey kDeadKeys[] = {
    {XKB_KEY_dead_grave, L'`', L"aeiouAEIOU",
     L"\u00e0\u00e8\u00ec\u00f2\u00f9\u00c0\u00c8\u00cc\u00d2\u00d9"},
    {XKB_KEY_dead_acute, L'\u00b4', L"aeiouyAEIOUY",
     L"\u00e1\u00e9\u00ed\u00f3\u00fa\u00fd\u00c1\u00c9\u00cd\u00d3\u00da\u00dd"},
    {XKB_KEY_dead_circumflex, L'^', L"aeiouAEIOU",
     L"\u00e2\u00ea\u00ee\u00f4\u00fb\u00c2\u00ca\u00ce\u00d4\u00db"},
    {XKB_KEY_dead_tilde, L'~', L"anoANO", L"\u00e3\u00f1\u00f5\u00c3\u00d1\u00d5"},
    {XKB_KEY_dead_diaeresis, L'\u00a8', L"aeiouyAEIOUY",
     L"\u00e4\u00eb\u00ef\u00f6\u00fc\u00ff\u00c4\u00cb\u00cf\u00d6\u00dc\u0178"},
    {XKB_KEY_dead_abovering, L'\u00b0', L"aA", L"\u00e5\u00c5"},
    {XKB_KEY_dead_cedilla, L'\u00b8', L"cC", L"\u00e7\u00c7"},
    {XKB_KEY_dead_caron, L'\u02c7', L"cszCSZ", L"\u010d\u0161\u017e\u010c\u0160\u017d"},
};

bool IsDeadKeysym(xkb_keysym_t keysym) {
    return keysym >= XKB_KEY_dead_grave && keysym <= 0xfe8f;
}

const DeadKey* FindDeadKey(xkb_keysym_t keysym) {
    for (const DeadKey& dead : kDeadKeys) {
        if (dead.keysym == keysym) {
            return &dead;
        }
    }
    return nullptr;
}

struct KeyPlace {
    uint8_t scan = 0;
    bool extended = false;
};

xkb_keycode_t KeycodeOf(KeyPlace place) {
    for (const EvdevRow& row : kEvdevRows) {
        if (row.scan == place.scan && row.extended == place.extended) {
            return row.evdev + kEvdevToXkb;
        }
    }
    if (place.extended || place.scan == 0 || place.scan > 88) {
        return 0;
    }
    return place.scan + kEvdevToXkb;
}

// The units of a code point above 0xFFFF are a surrogate pair, as the original platform gives them.
int PutCodePoint(uint32_t codePoint, wchar_t* out, int size, int at) {
    if (codePoint > 0xFFFF) {
        codePoint -= 0x10000;
        at = PutCodePoint(0xD800 + (codePoint >> 10), out, size, at);
        return PutCodePoint(0xDC00 + (codePoint & 0x3FF), out, size, at);
    }
    if (at < size) {
        out[at] = static_cast<wchar_t>(codePoint);
        return at + 1;
    }
    return at;
}

int CopyName(const wchar_t* name, wchar_t* out, int size) {
    int length = 0;
    while (name[length] != L'\0' && length + 1 < size) {
        out[length] = name[length];
        ++length;
    }
    out[length] = L'\0';
    return length;
}

}  // namespace

struct KeyboardLayout {
    std::string name;
    xkb_keymap* keymap = nullptr;
    xkb_state* state = nullptr;
    xkb_mod_index_t shift = XKB_MOD_INVALID;
    xkb_mod_index_t capsLock = XKB_MOD_INVALID;
    xkb_mod_index_t control = XKB_MOD_INVALID;
    xkb_mod_index_t numLock = XKB_MOD_INVALID;
    xkb_mod_index_t levelThree = XKB_MOD_INVALID;
    std::array<std::array<uint8_t, 128>, 2> scanToVk{};  // [extended][scan], left and right apart
    std::array<KeyPlace, 256> vkToKey{};
    // The dead key that waits for the next character; 0 for none.
    xkb_keysym_t pendingDead = 0;

    KeyboardLayout() = default;
    KeyboardLayout(const KeyboardLayout&) = delete;
    KeyboardLayout& operator=(const KeyboardLayout&) = delete;
    ~KeyboardLayout() {
        xkb_state_unref(state);
        xkb_keymap_unref(keymap);
    }
};

namespace {

// The letter a key gives unshifted in the layout, as its virtual key; 0 for another character.
unsigned int LetterVkOf(xkb_keymap* keymap, uint8_t scan) {
    const xkb_keysym_t* symbols = nullptr;
    int count = xkb_keymap_key_get_syms_by_level(keymap, KeycodeOf({scan, false}), 0, 0, &symbols);
    if (count != 1) {
        return 0;
    }
    xkb_keysym_t upper = xkb_keysym_to_upper(symbols[0]);
    return upper >= XKB_KEY_A && upper <= XKB_KEY_Z ? static_cast<unsigned int>(upper) : 0;
}

void BuildTables(KeyboardLayout& layout) {
    for (const KeyRow& row : kUsRows) {
        if (row.direction == Direction::Both && layout.scanToVk[row.extended][row.scan] == 0) {
            layout.scanToVk[row.extended][row.scan] = row.vk;
        }
        if (layout.vkToKey[row.vk].scan == 0) {
            layout.vkToKey[row.vk] = {row.scan, row.extended};
        }
    }
    // The letters stand where the layout puts them (Z and Y trade places on a German keyboard);
    // a layout without Latin letters keeps the US places.
    for (uint8_t scan = 0x02; scan <= 0x35; ++scan) {
        unsigned int letter = LetterVkOf(layout.keymap, scan);
        if (letter != 0) {
            layout.scanToVk[0][scan] = static_cast<uint8_t>(letter);
            layout.vkToKey[letter] = {scan, false};
        }
    }
}

void Silent(xkb_context*, xkb_log_level, const char*, va_list) {}

std::unique_ptr<KeyboardLayout> CompileLayout(xkb_context* context, const std::string& name) {
    std::string layoutName = name;
    std::string variant;
    size_t open = name.find('(');
    if (open != std::string::npos && name.back() == ')') {
        layoutName = name.substr(0, open);
        variant = name.substr(open + 1, name.size() - open - 2);
    }
    xkb_rule_names names = {"evdev", "pc105", layoutName.c_str(), variant.c_str(), ""};
    xkb_keymap* keymap = xkb_keymap_new_from_names(context, &names, XKB_KEYMAP_COMPILE_NO_FLAGS);
    if (keymap == nullptr) {
        return nullptr;
    }
    auto layout = std::make_unique<KeyboardLayout>();
    layout->name = name;
    layout->keymap = keymap;
    layout->state = xkb_state_new(keymap);
    if (layout->state == nullptr) {
        return nullptr;
    }
    layout->shift = xkb_keymap_mod_get_index(keymap, XKB_MOD_NAME_SHIFT);
    layout->capsLock = xkb_keymap_mod_get_index(keymap, XKB_MOD_NAME_CAPS);
    layout->control = xkb_keymap_mod_get_index(keymap, XKB_MOD_NAME_CTRL);
    layout->numLock = xkb_keymap_mod_get_index(keymap, XKB_MOD_NAME_NUM);
    // The third level (AltGr) is Mod5 in every layout xkeyboard-config ships.
    layout->levelThree = xkb_keymap_mod_get_index(keymap, "Mod5");
    BuildTables(*layout);
    return layout;
}

// The process's keyboard: the compiled layouts, the selected one and the key state. Layouts are
// never freed before the process ends, since their handles are kept by their users.
class Keyboard {
public:
    static Keyboard& Get() {
        static Keyboard keyboard;
        return keyboard;
    }

    KeyboardLayout* Current() {
        std::lock_guard<std::mutex> guard(m_Mutex);
        if (!m_Selected) {
            m_Selected = true;
            m_Current = Find(kDefaultLayout);
        }
        return m_Current;
    }

    KeyboardLayout* Select(const char* name) {
        std::lock_guard<std::mutex> guard(m_Mutex);
        KeyboardLayout* layout = nullptr;
        if (name != nullptr && name[0] != '\0') {
            layout = Find(name);
            if (layout == nullptr) {
                return nullptr;
            }
        }
        m_Selected = true;
        m_Current = layout;
        return layout;
    }

    void ReadState(unsigned char* state) {
        std::lock_guard<std::mutex> guard(m_Mutex);
        std::memcpy(state, m_KeyState.data(), kKeyStateSize);
    }

    void WriteState(const unsigned char* state) {
        std::lock_guard<std::mutex> guard(m_Mutex);
        std::memcpy(m_KeyState.data(), state, kKeyStateSize);
    }

    Keyboard(const Keyboard&) = delete;
    Keyboard& operator=(const Keyboard&) = delete;

private:
    Keyboard() {
        m_Context = xkb_context_new(static_cast<xkb_context_flags>(XKB_CONTEXT_NO_DEFAULT_INCLUDES |
                                                                   XKB_CONTEXT_NO_ENVIRONMENT_NAMES));
        if (m_Context != nullptr) {
            xkb_context_set_log_fn(m_Context, Silent);
            xkb_context_include_path_append(m_Context, kXkbDataFolder);
        }
    }
    ~Keyboard() {
        m_Layouts.clear();
        xkb_context_unref(m_Context);
    }

    KeyboardLayout* Find(const char* name) {
        for (const std::unique_ptr<KeyboardLayout>& layout : m_Layouts) {
            if (layout->name == name) {
                return layout.get();
            }
        }
        if (m_Context == nullptr) {
            return nullptr;
        }
        std::unique_ptr<KeyboardLayout> compiled = CompileLayout(m_Context, name);
        if (compiled == nullptr) {
            return nullptr;
        }
        m_Layouts.push_back(std::move(compiled));
        return m_Layouts.back().get();
    }

    std::mutex m_Mutex;  // guards everything below
    xkb_context* m_Context = nullptr;
    std::vector<std::unique_ptr<KeyboardLayout>> m_Layouts;
    KeyboardLayout* m_Current = nullptr;
    bool m_Selected = false;
    std::array<unsigned char, kKeyStateSize> m_KeyState{};
};

bool IsDown(const unsigned char* state, std::initializer_list<unsigned int> keys) {
    for (unsigned int key : keys) {
        if ((state[key] & 0x80) != 0) {
            return true;
        }
    }
    return false;
}

// Puts the modifiers of a key state on the layout's xkb state. Ctrl with Alt is the third level,
// as AltGr is on the original platform; Alt alone changes no character.
void ApplyModifiers(KeyboardLayout& layout, const unsigned char* state, int numLockOverride) {
    auto bit = [](xkb_mod_index_t index) { return index == XKB_MOD_INVALID ? 0u : (1u << index); };
    bool control = IsDown(state, {0x11, 0xA2, 0xA3});
    bool alt = IsDown(state, {0x12, 0xA4, 0xA5});
    xkb_mod_mask_t depressed = 0;
    if (IsDown(state, {0x10, 0xA0, 0xA1})) {
        depressed |= bit(layout.shift);
    }
    if (control && alt) {
        depressed |= bit(layout.levelThree);
    } else if (control) {
        depressed |= bit(layout.control);
    }
    xkb_mod_mask_t locked = 0;
    if ((state[0x14] & 1) != 0) {
        locked |= bit(layout.capsLock);
    }
    bool numLock = numLockOverride < 0 ? (state[0x90] & 1) != 0 : numLockOverride != 0;
    if (numLock) {
        locked |= bit(layout.numLock);
    }
    xkb_state_update_mask(layout.state, depressed, 0, locked, 0, 0, 0);
}

// The keypad digits and decimal point are typed with Num Lock whatever the state says, and the
// navigation keys that share the keypad without it.
int NumLockFor(unsigned int vk) {
    if ((vk >= 0x60 && vk <= 0x69) || vk == 0x6E) {
        return 1;
    }
    if (vk == 0x0C || (vk >= 0x21 && vk <= 0x28) || vk == 0x2D || vk == 0x2E) {
        return 0;
    }
    return -1;
}

int ComposeDead(KeyboardLayout& layout, xkb_keysym_t keysym, uint32_t codePoint, wchar_t* out, int size) {
    const DeadKey* pending = FindDeadKey(layout.pendingDead);
    layout.pendingDead = 0;
    if (pending == nullptr) {
        return PutCodePoint(codePoint, out, size, 0);
    }
    if (keysym == pending->keysym || codePoint == L' ') {
        return PutCodePoint(pending->spacing, out, size, 0);
    }
    for (size_t index = 0; pending->bases[index] != L'\0'; ++index) {
        if (static_cast<uint32_t>(pending->bases[index]) == codePoint) {
            return PutCodePoint(pending->combined[index], out, size, 0);
        }
    }
    int written = PutCodePoint(pending->spacing, out, size, 0);
    return PutCodePoint(codePoint, out, size, written);
}

}  // namespace

KeyboardLayout* GetKeyboardLayout() {
    return Keyboard::Get().Current();
}

KeyboardLayout* SelectKeyboardLayout(const char* name) {
    return Keyboard::Get().Select(name);
}

bool GetKeyboardLayoutName(const KeyboardLayout* layout, char* name) {
    if (layout == nullptr || name == nullptr) {
        return false;
    }
    size_t length = std::min(layout->name.size(), kLayoutNameSize - 1);
    std::memcpy(name, layout->name.data(), length);
    name[length] = '\0';
    return true;
}

unsigned int MapVirtualKeyEx(unsigned int code, unsigned int mapType, const KeyboardLayout* layout) {
    if (layout == nullptr) {
        return 0;
    }
    switch (mapType) {
        case MapVkToScanCode:
        case MapVkToScanCodeEx: {
            if (code > 0xFF) {
                return 0;
            }
            KeyPlace place = layout->vkToKey[code];
            bool prefixed = mapType == MapVkToScanCodeEx && place.extended && place.scan != 0;
            return place.scan | (prefixed ? kExtendedPrefix : 0u);
        }
        case MapScanCodeToVk:
        case MapScanCodeToVkEx: {
            unsigned int prefix = code & 0xFF00;
            if ((prefix != 0 && prefix != kExtendedPrefix) || (code & 0xFF) >= 128 || code > 0xFFFF) {
                return 0;
            }
            unsigned int vk = layout->scanToVk[prefix != 0][code & 0x7F];
            if (mapType == MapScanCodeToVk && vk >= 0xA0 && vk <= 0xA5) {
                // Left and right Shift, Ctrl and Alt give the common key: 16, 17, 18.
                vk = 0x10 + (vk - 0xA0) / 2;
            }
            return vk;
        }
        default:
            return 0;
    }
}

bool GetKeyboardState(unsigned char* state) {
    if (state == nullptr) {
        return false;
    }
    Keyboard::Get().ReadState(state);
    return true;
}

void SetKeyboardState(const unsigned char* state) {
    if (state != nullptr) {
        Keyboard::Get().WriteState(state);
    }
}

int ToUnicodeEx(unsigned int virtualKey, unsigned int scanCode, const unsigned char* state, wchar_t* out,
                int size, unsigned int, KeyboardLayout* layout) {
    if (layout == nullptr || state == nullptr || out == nullptr || size <= 0 || virtualKey > 0xFF) {
        return 0;
    }
    KeyPlace place = layout->vkToKey[virtualKey];
    if (place.scan == 0) {
        place = {static_cast<uint8_t>(scanCode & 0x7F), false};
    }
    xkb_keycode_t keycode = KeycodeOf(place);
    if (keycode == 0) {
        return 0;
    }
    ApplyModifiers(*layout, state, NumLockFor(virtualKey));
    xkb_keysym_t keysym = xkb_state_key_get_one_sym(layout->state, keycode);
    if (IsDeadKeysym(keysym)) {
        const DeadKey* dead = FindDeadKey(keysym);
        const DeadKey* pending = FindDeadKey(layout->pendingDead);
        if (layout->pendingDead != 0) {
            // A second dead key ends the first: the same one gives its spacing form, another both.
            xkb_keysym_t first = layout->pendingDead;
            layout->pendingDead = 0;
            int written = pending != nullptr ? PutCodePoint(pending->spacing, out, size, 0) : 0;
            if (keysym != first && dead != nullptr) {
                written = PutCodePoint(dead->spacing, out, size, written);
            }
            return written;
        }
        layout->pendingDead = keysym;
        if (dead != nullptr) {
            PutCodePoint(dead->spacing, out, size, 0);
        }
        return -1;
    }
    uint32_t codePoint = xkb_state_key_get_utf32(layout->state, keycode);
    if (codePoint == 0) {
        return 0;
    }
    return ComposeDead(*layout, keysym, codePoint, out, size);
}

int GetKeyNameText(int32_t keyParameter, wchar_t* out, int size, const KeyboardLayout* layout) {
    if (layout == nullptr || out == nullptr || size <= 0) {
        return 0;
    }
    uint8_t scan = static_cast<uint8_t>((static_cast<uint32_t>(keyParameter) >> 16) & 0xFF);
    bool extended = ((static_cast<uint32_t>(keyParameter) >> 24) & 1) != 0;
    if (extended) {
        for (const KeyName& key : kExtendedNames) {
            if (key.scan == scan) {
                return CopyName(key.name, out, size);
            }
        }
    }
    for (const KeyName& key : kPlainNames) {
        if (key.scan == scan && (!extended || KeycodeOf({scan, true}) == 0)) {
            return CopyName(key.name, out, size);
        }
    }
    xkb_keycode_t keycode = KeycodeOf({scan, extended});
    const xkb_keysym_t* symbols = nullptr;
    if (keycode == 0 || xkb_keymap_key_get_syms_by_level(layout->keymap, keycode, 0, 0, &symbols) != 1) {
        out[0] = L'\0';
        return 0;
    }
    uint32_t character = xkb_keysym_to_utf32(xkb_keysym_to_upper(symbols[0]));
    if (character >= 0x20 && character != 0x7F) {
        int length = PutCodePoint(character, out, size - 1, 0);
        out[length] = L'\0';
        return length;
    }
    char symbolName[64];
    if (xkb_keysym_get_name(symbols[0], symbolName, sizeof(symbolName)) <= 0) {
        out[0] = L'\0';
        return 0;
    }
    int length = 0;
    while (symbolName[length] != '\0' && length + 1 < size) {
        out[length] = static_cast<wchar_t>(static_cast<unsigned char>(symbolName[length]));
        ++length;
    }
    out[length] = L'\0';
    return length;
}

}  // namespace zn::platform
