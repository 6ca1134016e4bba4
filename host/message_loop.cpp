// The message loop over the virtual machine's pump.
#include "message_loop.h"

#include "zqplatform/vm/audio_machine.h"
#include "zqplatform/vm/message_pump.h"

namespace zqhost {

bool PumpUntil(const std::function<bool()>& done, DWORD timeoutMs) { return zqvm::PumpUntil(done, timeoutMs); }

void PumpPending() { zqvm::PumpPending(); }

bool NotificationsDelivered() { return zqvm::WaitForNotificationsDelivered(0); }

}  // namespace zqhost
