// Localization_Keys.cpp: the characters and names of keys under the keyboard layout, and the
// English names of keys, mouse and pad controls that stand when the layout gives none.
#include "CoreLib/Localization.h"

#include "CoreLib/platform/Keyboard.h"

namespace zn {

namespace {

struct ControlName {
    unsigned int code;
    const wchar_t* name;
};

// By DirectInput code. Keys with a character (letters, digits) have no entry: the layout names them.
// clang-format off
constexpr ControlName kKeyNames[] = {
    {0x0E, L"Backspace"}, {0x0F, L"Tab"}, {0x1D, L"Left Ctrl"}, {0x2A, L"Left Shift"},
    {0x36, L"Right Shift"}, {0x38, L"Left Alt"}, {0x3A, L"CapsLock"}, {0x3B, L"F1"},
    {0x3C, L"F2"}, {0x3D, L"F3"}, {0x3E, L"F4"}, {0x3F, L"F5"},
    {0x40, L"F6"}, {0x41, L"F7"}, {0x42, L"F8"}, {0x43, L"F9"},
    {0x44, L"F10"}, {0x45, L"NumLock"}, {0x46, L"ScrollLock"}, {0x47, L"7 NumPad"},
    {0x48, L"8 NumPad"}, {0x49, L"9 NumPad"}, {0x4A, L"- NumPad"}, {0x4B, L"4 NumPad"},
    {0x4C, L"5 NumPad"}, {0x4D, L"6 NumPad"}, {0x4E, L"+ NumPad"}, {0x4F, L"1 NumPad"},
    {0x50, L"2 NumPad"}, {0x51, L"3 NumPad"}, {0x52, L"0 NumPad"}, {0x56, L"<>"},
    {0x57, L"F11"}, {0x58, L"F12"}, {0x7D, L"Yen"}, {0x8D, L"= NumPad"},
    {0x90, L"Prev Track"}, {0x91, L"At"}, {0x93, L"Underline"}, {0x95, L"Stop"},
    {0x97, L"Unlabeled"}, {0x99, L"Next Track"}, {0x9C, L"Enter NumPad"}, {0x9D, L"Right Ctrl"},
    {0xA1, L"Calculator"}, {0xA2, L"PlayPause"}, {0xB3, L". NumPad"}, {0xB5, L"/"},
    {0xB7, L"SysRq"}, {0xB8, L"Right Alt"}, {0xC5, L"Pause"}, {0xC7, L"Home"},
    {0xC8, L"Up"}, {0xC9, L"PgUp"}, {0xCB, L"Left"}, {0xCD, L"Right"},
    {0xCF, L"End"}, {0xD0, L"Down"}, {0xD1, L"PgDn"}, {0xD2, L"Insert"},
    {0xD3, L"Delete"}, {0xDB, L"Left Win"}, {0xDC, L"Right Win"}, {0xDD, L"Apps"},
};
// clang-format on

// By the whole mouse code.
constexpr ControlName kMouseNames[] = {
    {0x82000101, L"Mouse"},
    {0x82000200, L"Mouse Horizontal"},
    {0x82000300, L"Mouse Horizontal"},
    {0x82000204, L"Mouse Vertical"},
    {0x82000304, L"Mouse Vertical"},
    {0x82000308, L"Mouse Wheel"},
    {0x8200040C, L"Left Mouse Button"},
    {0x8200040D, L"Right Mouse Button"},
    {0x8200040E, L"Middle Mouse Button"},
    {0x8200040F, L"Extra Mouse Button 1"},
    {0x82000410, L"Extra Mouse Button 2"},
    {0x82000411, L"Extra Mouse Button 3"},
    {0x82000412, L"Extra Mouse Button 4"},
    {0x82000413, L"Extra Mouse Button 5"},
};

// By the library's pad code, for XInput pads and DirectInput joysticks alike.
constexpr ControlName kPadNames[] = {
    {1, L"GamePad Start"},
    {2, L"GamePad Back"},
    {16, L"GamePad Button A"},
    {17, L"GamePad Button B"},
    {18, L"GamePad Button X"},
    {19, L"GamePad Button Y"},
    {20, L"GamePad Left Thumb"},
    {21, L"GamePad Right Thumb"},
    {22, L"GamePad Left Shoulder"},
    {23, L"GamePad Right Shoulder"},
    {32, L"GamePad DPad Up"},
    {33, L"GamePad DPad Down"},
    {35, L"GamePad DPad Left"},
    {36, L"GamePad DPad Right"},
    {48, L"GamePad Left Stick Horizontal"},
    {49, L"GamePad Left Stick Vertical"},
    {50, L"GamePad Right Stick Horizontal"},
    {51, L"GamePad Right Stick Vertical"},
    {52, L"GamePad Left Trigger"},
    {53, L"GamePad Right Trigger"},
    {54, L"GamePad Left Stick"},
    {55, L"GamePad Right Stick"},
    {65, L"GamePad Left Stick Up"},
    {66, L"GamePad Left Stick Up-Left"},
    {67, L"GamePad Left Stick Up-Right"},
    {68, L"GamePad Left Stick Down"},
    {69, L"GamePad Left Stick Down-Left"},
    {70, L"GamePad Left Stick Down-Right"},
    {71, L"GamePad Left Stick Left"},
    {72, L"GamePad Left Stick Right"},
    {81, L"GamePad Right Thumb Up"},
    {82, L"GamePad Right Thumb Up-Left"},
    {83, L"GamePad Right Thumb Up-Right"},
    {84, L"GamePad Right Thumb Down"},
    {85, L"GamePad Right Thumb Down-Left"},
    {86, L"GamePad Right Thumb Down-Right"},
    {87, L"GamePad Right Thumb Left"},
    {88, L"GamePad Right Thumb Right"},
};

// Removes the marks of a DirectInput keyboard code and leaves the code.
constexpr unsigned int kDirectInputKeyMask = 0x7EFFFBFF;

// Escape, Enter, Backspace, Space and Tab are named rather than typed: their characters are
// controls or blanks that show nothing.
bool IsNamedRatherThanTyped(unsigned int virtualKey) {
    return virtualKey == 27 || virtualKey == 13 || virtualKey == 8 || virtualKey == 32 || virtualKey == 9;
}

// The navigation keys and others that an extended scan code stands for.
bool IsExtendedVirtualKey(uint32_t virtualKey) {
    switch (virtualKey) {
        case 12:
        case 33:
        case 34:
        case 35:
        case 36:
        case 37:
        case 38:
        case 39:
        case 40:
        case 42:
        case 45:
        case 46:
        case 91:
        case 92:
        case 93:
            return true;
        default:
            return false;
    }
}

template <size_t N>
unsigned int CopyControlName(const ControlName (&names)[N], unsigned int code, wchar_t* out,
                             unsigned int size) {
    for (const ControlName& entry : names) {
        if (entry.code != code) {
            continue;
        }
        if (out != nullptr && size > 0) {
            unsigned int length = 0;
            while (entry.name[length] != L'\0' && length + 1 < size) {
                out[length] = entry.name[length];
                ++length;
            }
            out[length] = L'\0';
        }
        return 1;
    }
    return 0;
}

}  // namespace

unsigned int Localization::ScanCodeToVirtualKey(uint32_t scanCode) {
    return platform::MapVirtualKeyEx(scanCode, platform::MapScanCodeToVkEx, s_KeyboardLocaleIdentifier);
}

unsigned int Localization::ScanCodeToUnicode(uint32_t scanCode, wchar_t* out, unsigned int size) {
    unsigned int virtualKey = ScanCodeToVirtualKey(scanCode);
    return VirtualKeyToUnicode(virtualKey, out, size, scanCode);
}

unsigned int Localization::VirtualKeyToUnicode(unsigned int virtualKey, wchar_t* out, unsigned int size,
                                               uint32_t scanCode) {
    unsigned char state[platform::kKeyStateSize];
    if (!platform::GetKeyboardState(state)) {
        return 0;
    }
    const int units = static_cast<int>(size);
    if (!IsNamedRatherThanTyped(virtualKey)) {
        int result =
            platform::ToUnicodeEx(virtualKey, scanCode, state, out, units, 0, s_KeyboardLocaleIdentifier);
        if (result < 0) {
            // A dead key waits for the next key; asking again takes it back, so that no accent is
            // left to land on the next character typed.
            while (result < 0) {
                result = platform::ToUnicodeEx(virtualKey, scanCode, state, out, units, 0,
                                               s_KeyboardLocaleIdentifier);
            }
            return 0;
        }
        if (result != 0) {
            return static_cast<unsigned int>(result);
        }
    }
    bool extended = (virtualKey & 0xE000) != 0;
    if (scanCode == 0) {
        VirtualKeyToScanCode(virtualKey, scanCode, extended);
        if (scanCode == 0) {
            return 0;
        }
    }
    uint32_t keyParameter = (scanCode << 16) | (extended ? 0x1000000u : 0u);
    int length =
        platform::GetKeyNameText(static_cast<int32_t>(keyParameter), out, units, s_KeyboardLocaleIdentifier);
    return static_cast<unsigned int>(length);
}

void Localization::VirtualKeyToScanCode(uint32_t virtualKey, uint32_t& scanCode, bool& extended) {
    if (virtualKey == 0 || virtualKey == 255 || scanCode != 0) {
        return;
    }
    platform::KeyboardLayout* layout = s_KeyboardLocaleIdentifier;
    switch (virtualKey) {
        case 144:  // Num Lock: the 0xE1 marks make it the extended key of its scan code.
            scanCode = platform::MapVirtualKeyEx(144, platform::MapVkToScanCode, layout) | 0xE100;
            return;
        case 108:  // The separator is the keypad's Enter.
            scanCode = platform::MapVirtualKeyEx(13, platform::MapVkToScanCode, layout) | 0xE100;
            return;
        case 19:  // Pause shares its scan code with Num Lock.
            scanCode = 69;
            extended = false;
            return;
        default:
            if (IsExtendedVirtualKey(virtualKey)) {
                extended = true;
            }
            scanCode = platform::MapVirtualKeyEx(virtualKey, platform::MapVkToScanCode, layout);
            return;
    }
}

void Localization::DetectWMKVirtualKeyExtensions(uint32_t virtualKey, bool& extended, bool& extended2) {
    extended = (virtualKey & 0xE000) != 0;
    extended2 = (virtualKey & 0xE100) != 0;
}

unsigned int Localization::DirectInputKeyToUnicodeFallback(unsigned int key, wchar_t* out,
                                                           unsigned int size) {
    return CopyControlName(kKeyNames, key & kDirectInputKeyMask, out, size);
}

unsigned int Localization::DirectInputMouseToUnicodeFallback(unsigned int button, wchar_t* out,
                                                             unsigned int size, uint32_t) {
    return CopyControlName(kMouseNames, button, out, size);
}

unsigned int Localization::DirectInputJoystickToUnicodeFallBack(unsigned int button, wchar_t* out,
                                                                unsigned int size) {
    return CopyControlName(kPadNames, button, out, size);
}

unsigned int Localization::XInputGamePadToUnicodeFallback(unsigned int button, wchar_t* out,
                                                          unsigned int size) {
    return CopyControlName(kPadNames, button, out, size);
}

}  // namespace zn
