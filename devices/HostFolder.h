// The folder of the host application's module, where config.xml and the plug-ins live.
#pragma once

#include "zqPlatform.h"

// The drive and directory of the host application's module, with its trailing separator.
// False, with strFolder left as it was, when the module name cannot be had, did not fit the
// 260-character buffer, cannot be split, or has no directory part: nothing is then looked for
// beside the executable (rather than in whatever the current directory is).
bool GetHostModuleFolder(CStringW& strFolder);
