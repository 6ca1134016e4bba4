// Whether the HidUart_* functions stand for the simulated bridges or for the maker's bridges on
// this machine through hidraw (zqvm::SelectBridgeBackend, ZQ_BRIDGE_BACKEND). Internal to the
// platform library.
#pragma once

namespace zqplatform::bridges {

bool HidrawChosen();

}  // namespace zqplatform::bridges
