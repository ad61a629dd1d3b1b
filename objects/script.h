// The script language of `thispatcher`: "script WORD ..." makes, connects, moves and removes boxes.
#pragma once

#include <kiv/types.h>

namespace kiv::objects {

// Runs one script message (without the word "script") in a patcher; what is wrong with it is posted
// from `x`. It may free `x` and the patcher. Main thread.
void script(Object *x, Object *patcher, int32_t argc, Atom *argv);

}  // namespace kiv::objects
