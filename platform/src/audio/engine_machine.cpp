// The virtual engine's part in loading machine descriptions (machine/machine.h): it takes the
// described endpoints, at its first use and on request through the control API.
#include "engine.h"
#include "../machine/machine.h"

namespace zqplatform::audio {
namespace {

class EngineEndpoints final : public machine::EndpointSink {
public:
    explicit EngineEndpoints(Engine& engine) : m_engine(engine) {}
    bool Replace(const std::vector<zqvm::EndpointSpec>& endpoints, std::string* why) override {
        return m_engine.Replace(endpoints, why);
    }
    void Clear() override { m_engine.Reset(); }

private:
    Engine& m_engine;
};

}  // namespace

void LoadStartupMachine(Engine& engine) {
    EngineEndpoints endpoints(engine);
    machine::LoadStartupInto(endpoints);
}

}  // namespace zqplatform::audio

namespace zqvm {

bool LoadMachineDescription(const std::string& path, std::string* error) {
    zqplatform::audio::EngineEndpoints endpoints(zqplatform::audio::Engine::Instance());
    return zqplatform::machine::LoadFile(path, endpoints, error);
}

bool LoadMachineDescriptionText(const std::string& xml, std::string* error) {
    zqplatform::audio::EngineEndpoints endpoints(zqplatform::audio::Engine::Instance());
    return zqplatform::machine::LoadText(xml, ".", "(text)", endpoints, error);
}

const char* DefaultMachineDescription() { return zqplatform::machine::BuiltInDescription(); }

}  // namespace zqvm
