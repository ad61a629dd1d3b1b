// What the runtime posted during a test.
#pragma once

#include <kiv/console.h>

#include <string>
#include <vector>

namespace kiv::test {

struct Posted {
    int kind;
    std::string text;
    const void *source;
    std::string class_name;
    std::string box_id;
};

// Makes the recorder the console's display, which it is when a test begins.
void record_posts();
// Everything posted since the last call, in order; drains the console first.
std::vector<Posted> take_posts();
std::vector<std::string> take_texts();

}  // namespace kiv::test
