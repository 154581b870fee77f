#pragma once

/// The head unit's keys by the platform's number. 0 to 64 are in use.
enum E_KeyVKey : int {};

/// What happened to a key.
enum E_KeyStatus : int {
    KEY_STATUS_LONG = 16,
};
