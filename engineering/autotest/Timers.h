#pragma once

/// Timers of the engine, by their number.

/// Restarts the unit after the hard-key group has put its settings back.
inline constexpr int kRestartTimer = 20;
inline constexpr int kRestartDelay = 10;  // tenths of a second
