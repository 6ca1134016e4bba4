// The virtual engine as a Core Audio backend (coreaudio/backend.h): its endpoints, their audio
// objects' view and their streams. Internal to the platform library.
#pragma once

#include <memory>

#include "../coreaudio/backend.h"

namespace zqplatform::audio {

// The engine with its machine loaded, behind the backend contract.
std::shared_ptr<coreaudio::Backend> OpenEngineBackend();

}  // namespace zqplatform::audio
