#pragma once

/// The platform's truth values, for operations with an integer parameter.
inline constexpr int KYR_FALSE = 0;
inline constexpr int KYR_TRUE = 1;
