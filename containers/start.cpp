#include "containers/families.h"

namespace kiv {

void containers_start() noexcept {
    linklists_make_class();
    hashtabs_make_classes();
    linklists_start();
    hashtabs_start();
    atomarrays_start();
    strings_start();
    dictionaries_start();
    quickmaps_start();
    json_start();
    binbufs_start();
    receivers_start();
}

}  // namespace kiv
