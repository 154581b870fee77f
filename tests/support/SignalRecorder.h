#pragma once

#include <string>
#include <vector>

/// Replaces the D-Bus bridge: defines the emit functions and records their arguments under the name of the D-Bus
/// signal: "OnAutoTestMediaPlayActionSignal(1, 2)", "uart_data_changed_signal(0F 00 [01])".
class SignalRecorder
{
public:
    std::vector<std::string> signals() const;

    /// The same without republished frames.
    std::vector<std::string> requests() const;

    void clear();
};
