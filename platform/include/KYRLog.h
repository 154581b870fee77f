#pragma once

#include <zlog.h>

/// The only log category of the process; null until log_system_init() has succeeded. The platform sets it before the
/// service starts a thread, and does not change it while one runs.
extern zlog_category_t* liblog_category;

/// Sets up logging (rules, outputs, rotation) for the category `name` and stores the category in `liblog_category`. A
/// second call changes nothing.
/// @returns 1 if there is a category to log to; else 0, and `liblog_category` stays null.
int log_system_init(const char* name);
