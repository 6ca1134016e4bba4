// Which backend the HidUart_* functions open bridges on: the simulated bridges or the maker's
// bridges on this machine through hidraw (zqvm::SelectBridgeBackend, ZQ_BRIDGE_BACKEND).
// Internal to the platform library.
#pragma once

#include "bridge_ops.h"

namespace zqplatform::bridges {

const BridgeOps& ChosenBridgeOps();

}  // namespace zqplatform::bridges
