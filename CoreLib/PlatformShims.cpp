// PlatformShims.cpp: locks-free helpers over the platform layer.
#include "CoreLib/PlatformShims.h"

#include "CoreLib/Report.h"
#include "CoreLib/platform/Sync.h"
#include "CoreLib/platform/System.h"
#include "CoreLib/platform/Time.h"

namespace {
// function is the caller's name, under which the year report is made.
void FillSystemTime(const zn::platform::SYSTEMTIME& platformTime, zn::SystemTime& time,
                    const char* function) {
    if (platformTime.wYear < 1900 || platformTime.wYear > 2155) {
        ZN_REPORT_AS(function, "Invalid year, must be in range 1900-2155");
    }
    time.milliseconds = platformTime.wMilliseconds;
    time.year = static_cast<uint8_t>(platformTime.wYear + 148);
    time.hour = static_cast<uint8_t>(platformTime.wHour);
    time.minute = static_cast<uint8_t>(platformTime.wMinute);
    time.second = static_cast<uint8_t>(platformTime.wSecond);
    time.month = static_cast<uint8_t>(platformTime.wMonth);
    time.day = static_cast<uint8_t>(platformTime.wDay);
}
}  // namespace

void YieldThread(unsigned int milliseconds) {
    zn::platform::Sleep(milliseconds);
}

void SpinLoop() {
    zn::platform::PauseHint();
}

void ZNInterlockedExchange(void* destination, int64_t value) {
    auto* target = static_cast<int64_t*>(destination);
    int64_t seen = __atomic_load_n(target, __ATOMIC_RELAXED);
    while (!__atomic_compare_exchange_n(target, &seen, value, false, __ATOMIC_SEQ_CST, __ATOMIC_RELAXED)) {
        zn::platform::PauseHint();
    }
}

int ZNInterlockedCompareExchange(void* destination, int newValue, int comparand) {
    auto* target = static_cast<int32_t*>(destination);
    int32_t expected = comparand;
    return __atomic_compare_exchange_n(target, &expected, newValue, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST)
               ? 1
               : 0;
}

int ZNInterlockedCompareExchange(void* destination, int newLow, int newHigh, int comparandLow,
                                 int comparandHigh) {
    auto* target = static_cast<uint64_t*>(destination);
    uint64_t expected =
        (uint64_t{static_cast<uint32_t>(comparandHigh)} << 32) | static_cast<uint32_t>(comparandLow);
    uint64_t desired = (uint64_t{static_cast<uint32_t>(newHigh)} << 32) | static_cast<uint32_t>(newLow);
    return __atomic_compare_exchange_n(target, &expected, desired, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST)
               ? 1
               : 0;
}

bool RetreiveComputerName(wchar_t* name, uint32_t* size) {
    return zn::platform::GetComputerNameW(name, size);
}

zn::ThreadID getCurrentThreadID() {
    return zn::ThreadID(zn::platform::CurrentThreadId());
}

void GetSystemTime(zn::SystemTime& time) {
    zn::platform::SYSTEMTIME platformTime;
    zn::platform::GetSystemTime(&platformTime);
    FillSystemTime(platformTime, time, ZN_FUNCTION_NAME);
}

void GetLocalTime(zn::SystemTime& time) {
    zn::platform::SYSTEMTIME platformTime;
    zn::platform::GetLocalTime(&platformTime);
    FillSystemTime(platformTime, time, ZN_FUNCTION_NAME);
}

void znMessageBox(const char* const title, const char* const text, zn::ZnMessageType type) {
    uint32_t icon = 0;
    switch (type) {
        case zn::ZnMessageInformation:
            icon = zn::platform::MB_ICONINFORMATION;
            break;
        case zn::ZnMessageWarning:
            icon = zn::platform::MB_ICONWARNING;
            break;
        case zn::ZnMessageQuestion:
            icon = zn::platform::MB_ICONQUESTION;
            break;
        case zn::ZnMessageError:
            icon = zn::platform::MB_ICONERROR;
            break;
    }
    zn::platform::MessageBox(title, text, icon);
}
