// Platform.h: the switches that tell which platform, processor and sanitizer a unit is built for.
#pragma once

#if defined(__linux__)
#define ZN_PLATFORM_LINUX 1
#else
#define ZN_PLATFORM_LINUX 0
#endif

#if defined(__x86_64__)
#define ZN_ARCH_X64 1
#else
#define ZN_ARCH_X64 0
#endif

#if defined(__SANITIZE_ADDRESS__)
#define ZN_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZN_ADDRESS_SANITIZER 1
#else
#define ZN_ADDRESS_SANITIZER 0
#endif
#else
#define ZN_ADDRESS_SANITIZER 0
#endif

#if !ZN_PLATFORM_LINUX || !ZN_ARCH_X64
#error "CoreLib is built for 64-bit x86 Linux"
#endif
