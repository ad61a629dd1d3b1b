#include "objects/common.h"
#include "objects/internal.h"

namespace kiv {

void objects_builtin_start() noexcept {
    objects::print_start();
    objects::loading_start();
    objects::message_box_start();
    objects::number_boxes_start();
    objects::store_start();
    objects::arithmetic_start();
    objects::trigger_start();
    objects::lists_start();
    objects::routing_start();
    objects::counting_start();
    objects::timing_start();
    objects::pipe_start();
    objects::named_start();
    objects::subpatcher_start();
    objects::defer_start();
    objects::accumulators_start();
    objects::bag_start();
    objects::thispatcher_start();
    objects::pcontrol_start();
    objects::preset_start();
}

}  // namespace kiv
