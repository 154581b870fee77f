#pragma once

/// The platform's truth values, for operations that take one as an integer.
inline constexpr int KYR_FALSE = 0;
inline constexpr int KYR_TRUE = 1;
