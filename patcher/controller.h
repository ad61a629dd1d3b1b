// The patcher controller, for the files of this folder.
#pragma once

#include "patcher/records.h"

namespace kiv {

void controller_start() noexcept;
// A patcher's controller, made when it is first asked for; the patcher owns it.
Object *patcher_controller(Patcher *patcher) noexcept;

}  // namespace kiv
