#pragma once

#include <unistd.h>

#include <cstdio>

#include "KYRLog.h"

// One log line: category, source file and its length, function and its length, line, level, format and arguments, in
// the order in which zlog takes them. Without a category the message is dropped and standard output says so.
#define KYR_LOG(level, ...)                                                                                         \
    do {                                                                                                            \
        if (liblog_category != nullptr)                                                                             \
            zlog(liblog_category, __FILE__, sizeof(__FILE__) - 1, __func__, sizeof(__func__) - 1, __LINE__, level,  \
                 __VA_ARGS__);                                                                                      \
        else                                                                                                        \
            std::printf("[%d][file:%s][func:%s][line:%d]Warn:Log system not init.\n", getpid(), __FILE__, __func__, \
                        __LINE__);                                                                                  \
    } while (false)

#define KYR_LOG_DEBUG(...) KYR_LOG(ZLOG_LEVEL_DEBUG, __VA_ARGS__)
#define KYR_LOG_INFO(...) KYR_LOG(ZLOG_LEVEL_INFO, __VA_ARGS__)
#define KYR_LOG_WARN(...) KYR_LOG(ZLOG_LEVEL_WARN, __VA_ARGS__)
#define KYR_LOG_ERROR(...) KYR_LOG(ZLOG_LEVEL_ERROR, __VA_ARGS__)
