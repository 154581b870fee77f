#include "platform/runtime/BluetoothClients.h"

#include <KYRMutex.h>

#include <map>
#include <vector>

namespace runtime {
namespace {

struct BluetoothClients {
    KYRMutex mutex;                                            // recursive: a listener may end a client
    std::map<const KYRBtCom*, IKYRBtComListener*> listenerOf;  // guarded by mutex
};

BluetoothClients& bluetoothClients()
{
    // Never destroyed: static clients unregister as late as at the end of the process.
    static BluetoothClients& instance = *new BluetoothClients;
    return instance;
}

}  // namespace

void tellBluetoothClients(const std::function<void(IKYRBtComListener&)>& tell)
{
    BluetoothClients& all = bluetoothClients();
    const KYRAutoLock lock(all.mutex);
    for (const auto& [client, listener] : std::vector(all.listenerOf.begin(), all.listenerOf.end())) {
        if (all.listenerOf.contains(client)) {
            tell(*listener);
        }
    }
}

}  // namespace runtime

KYRBtCom::KYRBtCom(IKYRBtComListener* pListener) : m_pListener(pListener)
{
    if (m_pListener == nullptr) {
        return;
    }
    runtime::BluetoothClients& all = runtime::bluetoothClients();
    const KYRAutoLock lock(all.mutex);
    all.listenerOf[this] = m_pListener;
}

KYRBtCom::~KYRBtCom()
{
    runtime::BluetoothClients& all = runtime::bluetoothClients();
    const KYRAutoLock lock(all.mutex);
    all.listenerOf.erase(this);
}
