#pragma once

#include <string>
#include <vector>

/// Stands in for the D-Bus bridge: defines the emit functions and keeps what they are given, by the D-Bus signal's
/// name: "OnAutoTestMediaPlayActionSignal(1, 2)", "uart_data_changed_signal(0F 00 [01])".
class SignalRecorder
{
public:
    std::vector<std::string> signals() const;

    /// The same without the re-publication of frames.
    std::vector<std::string> requests() const;

    void clear();
};
