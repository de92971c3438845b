// PlatformShims.h: thin functions over the operating system that every other service uses.
#pragma once

#include "CoreLib/TypeWrap.h"

#include <cstdint>

namespace zn {

struct ThreadIDClassname;
// A 32-bit thread id; 0xFFFFFFFF (the default) stands for no thread.
using ThreadID = TypeWrap<uint32_t, ThreadIDClassname, 1>;

// Calendar time in compact form. The year byte holds the year minus 1900, cut to 8 bits.
struct SystemTime {
    uint16_t milliseconds;
    uint8_t year;
    uint8_t hour;
    uint8_t minute;
    uint8_t second;
    uint8_t month;
    uint8_t day;
};

// Kinds of znMessageBox; any other value shows a box with no icon.
enum ZnMessageType {
    ZnMessageInformation = 0,
    ZnMessageWarning = 1,
    ZnMessageQuestion = 2,
    ZnMessageError = 3
};

}  // namespace zn

// Gives up the processor for the given milliseconds.
void YieldThread(unsigned int milliseconds);
// One processor pause hint; nothing else.
void SpinLoop();
// Stores 64 bits at destination atomically.
void ZNInterlockedExchange(void* destination, int64_t value);
// Locked 32-bit compare-exchange; 1 if the swap happened, else 0.
int ZNInterlockedCompareExchange(void* destination, int newValue, int comparand);
// Locked 64-bit compare-exchange given in low and high halves; 1 if the swap happened, else 0.
int ZNInterlockedCompareExchange(void* destination, int newLow, int newHigh, int comparandLow,
                                 int comparandHigh);
// The machine's name in 16-bit units; size is the capacity in and the length out.
bool RetreiveComputerName(wchar_t* name, uint32_t* size);
// The id of the calling thread.
zn::ThreadID getCurrentThreadID();
// Reads the UTC time; a year outside 1900-2155 is reported.
void GetSystemTime(zn::SystemTime& time);
// Reads the local time; a year outside 1900-2155 is reported.
void GetLocalTime(zn::SystemTime& time);
// A modal message box with the icon of its kind.
void znMessageBox(const char* const title, const char* const text, zn::ZnMessageType type);
