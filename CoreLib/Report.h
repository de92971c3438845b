// Report.h: the report forms every part of the library uses. Each adds the source file, line and
// qualified function name, and goes through LogManager; execution always goes on behind a report.
#pragma once

#include "CoreLib/FunctionName.h"
#include "CoreLib/LogManager.h"

// The text of an assertion that was given none of its own.
#define ZN_DEFAULT_ASSERT_TEXT "Assert! [Replace me with a better description]"

// Logs on the given channel. A report made while no log manager exists is dropped.
#define ZN_LOG(channel, ...)                                                                    \
    do {                                                                                        \
        if (::zn::LogManager* zn_log_manager_ = ::zn::LogManager::GetInstance()) {              \
            zn_log_manager_->Log((channel), __FILE__, __LINE__, ZN_FUNCTION_NAME, __VA_ARGS__); \
        }                                                                                       \
    } while (0)

// Reports a failure on the programmer's channel.
#define ZN_REPORT(...) ZN_LOG(::zn::LogAssertProgrammer, __VA_ARGS__)

// Reports on the programmer's channel under a function name given as text, for the reports whose
// published function name is not the compiler's qualified one.
#define ZN_REPORT_AS(function, ...)                                                                       \
    do {                                                                                                  \
        if (::zn::LogManager* zn_log_manager_ = ::zn::LogManager::GetInstance()) {                        \
            zn_log_manager_->Log(::zn::LogAssertProgrammer, __FILE__, __LINE__, (function), __VA_ARGS__); \
        }                                                                                                 \
    } while (0)

// Reports the default text when condition is false.
#define ZN_ASSERT(condition)                   \
    do {                                       \
        if (!(condition)) {                    \
            ZN_REPORT(ZN_DEFAULT_ASSERT_TEXT); \
        }                                      \
    } while (0)

// Reports the given text when condition is false.
#define ZN_ASSERT_MSG(condition, ...) \
    do {                              \
        if (!(condition)) {           \
            ZN_REPORT(__VA_ARGS__);   \
        }                             \
    } while (0)
