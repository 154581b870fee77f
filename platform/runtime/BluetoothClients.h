#pragma once

#include <KYRBluetooth.h>

#include <functional>

namespace runtime {

/// Calls `tell` with the listener of every KYRBtCom of the process. Holds the lock that the destructor of KYRBtCom
/// takes, so a destroyed client is never called. Listener thread.
void tellBluetoothClients(const std::function<void(IKYRBtComListener&)>& tell);

}  // namespace runtime
