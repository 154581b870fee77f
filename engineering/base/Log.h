// The function that a log line names. A file that logs in lambdas, such as the rows of a command table, defines it anew
// as its handler's name, since a lambda's own name, operator(), says nothing. Every file that includes this header
// begins with the default, even if several files are compiled as one: this part of the header has no include guard.
#undef KYR_LOG_FUNCTION
#define KYR_LOG_FUNCTION __func__

#ifndef ENGINEERING_LOG_H
#define ENGINEERING_LOG_H

#include <unistd.h>

#include <cstdio>
#include <string_view>

#include "KYRLog.h"

// One log line: category, source file and its length, function and its length, line, level, format and arguments, in
// the order in which zlog takes them. Without a category the message is dropped and standard output says so.
#define KYR_LOG(level, ...)                                                                                       \
    do {                                                                                                          \
        static_assert(std::string_view(KYR_LOG_FUNCTION) != "operator()", "define KYR_LOG_FUNCTION, see Log.h");  \
        if (liblog_category != nullptr)                                                                           \
            zlog(liblog_category, __FILE__, sizeof(__FILE__) - 1, KYR_LOG_FUNCTION, sizeof(KYR_LOG_FUNCTION) - 1, \
                 __LINE__, level, __VA_ARGS__);                                                                   \
        else                                                                                                      \
            std::printf("[%d][file:%s][func:%s][line:%d]Warn:Log system not init.\n", getpid(), __FILE__,         \
                        KYR_LOG_FUNCTION, __LINE__);                                                              \
    } while (false)

#define KYR_LOG_DEBUG(...) KYR_LOG(ZLOG_LEVEL_DEBUG, __VA_ARGS__)
#define KYR_LOG_INFO(...) KYR_LOG(ZLOG_LEVEL_INFO, __VA_ARGS__)
#define KYR_LOG_WARN(...) KYR_LOG(ZLOG_LEVEL_WARN, __VA_ARGS__)
#define KYR_LOG_ERROR(...) KYR_LOG(ZLOG_LEVEL_ERROR, __VA_ARGS__)

#endif  // ENGINEERING_LOG_H
