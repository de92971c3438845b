// Keyboard.h: keyboard layouts and the texts of keys: virtual keys and scan codes of the original
// platform, characters and key names of the layout, and the key state they are read under.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zn::platform {

// A compiled keyboard layout (the original platform's HKL). A layout lives as long as the process.
struct KeyboardLayout;

// Bytes of a key state: one a virtual key, bit 7 set while the key is down, bit 0 while it is
// toggled on (Caps Lock, Num Lock).
constexpr size_t kKeyStateSize = 256;
// Room for a layout name with its terminator (KL_NAMELENGTH).
constexpr size_t kLayoutNameSize = 9;

// The layout of the process (GetKeyboardLayout(0)): the one selected last, or "us" when none was
// selected. Null when there is none, and then every text below is empty.
KeyboardLayout* GetKeyboardLayout();
// Makes the named layout the process's: "us", "de", or a variant as "us(intl)". A null or empty
// name selects no layout. Returns the layout, or null when the name cannot be compiled; the
// process layout is then unchanged.
KeyboardLayout* SelectKeyboardLayout(const char* name);
// GetKeyboardLayoutNameA: the layout's name, cut to kLayoutNameSize - 1 bytes and terminated, into
// name (at least kLayoutNameSize bytes). False, and name left alone, without a layout.
bool GetKeyboardLayoutName(const KeyboardLayout* layout, char* name);

// The map types of MapVirtualKeyExA.
enum EMapVirtualKey : unsigned int {
    MapVkToScanCode = 0,    // VK to scan code, without prefix
    MapScanCodeToVk = 1,    // scan code to VK; left and right keys give the common VK
    MapScanCodeToVkEx = 3,  // scan code (0xE0 prefix for extended keys) to VK, left and right apart
    MapVkToScanCodeEx = 4,  // VK to scan code, 0xE0 prefix for extended keys
};
// MapVirtualKeyExA. The US layout's tables, with the letter keys placed where layout has them.
// 0 for a code without a mapping, an unknown map type, or a null layout.
unsigned int MapVirtualKeyEx(unsigned int code, unsigned int mapType, const KeyboardLayout* layout);

// GetKeyboardState: copies the process's key state into state (kKeyStateSize bytes). All keys are
// up until a source of key events (a window, a test) has set the state.
bool GetKeyboardState(unsigned char* state);
// Replaces the process's key state with state (kKeyStateSize bytes).
void SetKeyboardState(const unsigned char* state);

// ToUnicodeEx: the characters virtualKey gives under state (Shift, Caps Lock, Num Lock, Ctrl, and
// Ctrl with Alt for the third level) in layout, as 16-bit units in out (at most size of them, not
// terminated). Returns the count written; 0 for a key without a character; -1 for a dead key, which
// is then pending in layout and has put its spacing form in out. A pending dead key combines with
// the next character into one (e with acute gives U+00E9), or gives its spacing form and that
// character (2); the same dead key again gives the spacing form alone (1). scanCode is used only
// for a virtual key that the layout does not know. flags is not used.
int ToUnicodeEx(unsigned int virtualKey, unsigned int scanCode, const unsigned char* state, wchar_t* out,
                int size, unsigned int flags, KeyboardLayout* layout);

// GetKeyNameTextW: the name of the key in bits 16 to 23 of keyParameter, extended when bit 24 is
// set. The keys that are named rather than shown have their English names ("Shift", "Space", "Num
// Enter") whatever the layout; a key with a printable character is named by that character in
// layout, upper case ("A", "1", "\u00dc"); another key by the layout's symbol name. Writes at most size - 1
// units and a terminator; returns the units written, 0 for no name or a null layout.
int GetKeyNameText(int32_t keyParameter, wchar_t* out, int size, const KeyboardLayout* layout);

}  // namespace zn::platform
