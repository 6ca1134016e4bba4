// The choice between the simulated bridges and hidraw, made at the first HidUart_* call.
#include "bridge_backend.h"

#include <optional>
#include <string>

#include "../backend/backend_choice.h"
#include "zqplatform/vm/bridges.h"

namespace {

std::optional<zqvm::BridgeBackend> Parse(std::string_view name, std::string* error) {
    if (name == "simulated") return zqvm::BridgeBackend::Simulated;
    if (name == "hidraw") return zqvm::BridgeBackend::Hidraw;
    if (error) *error = "unknown bridge backend '" + std::string(name) + "' (simulated or hidraw)";
    return std::nullopt;
}

zqplatform::BackendChoice<zqvm::BridgeBackend>& TheChoice() {
    static zqplatform::BackendChoice<zqvm::BridgeBackend> choice("ZQ_BRIDGE_BACKEND", zqvm::BridgeBackend::Simulated,
                                                                  "the simulated bridges", &Parse);
    return choice;
}

}  // namespace

namespace zqplatform::bridges {

const BridgeOps& ChosenBridgeOps() {
    return TheChoice().Get() == zqvm::BridgeBackend::Hidraw ? HidrawBridgeOps() : SimulatedBridgeOps();
}

}  // namespace zqplatform::bridges

namespace zqvm {

bool SelectBridgeBackend(std::string_view name, std::string* error) { return TheChoice().Select(name, error); }

BridgeBackend SelectedBridgeBackend() { return TheChoice().Get(); }

const char* BridgeBackendName(BridgeBackend backend) {
    return backend == BridgeBackend::Hidraw ? "hidraw" : "simulated";
}

}  // namespace zqvm
