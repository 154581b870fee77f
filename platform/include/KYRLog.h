#pragma once

#include <zlog.h>

/// The process's one log category; null until log_system_init() has succeeded. Set before the service starts any
/// thread and not changed while one runs.
extern zlog_category_t* liblog_category;

/// Sets up logging (rules, outputs, rotation) under the category `name` and stores it in `liblog_category`. A second
/// call changes nothing.
/// @returns 1 when there is a category to log to, else 0: `liblog_category` stays null.
int log_system_init(const char* name);
