// Freeing what containers own, however deeply containers hold containers.
#pragma once

namespace kiv {

// Frees an object that a container owned. Nested deeper than a fixed number of such calls, it is
// kept aside instead and freed by the outermost of them before that one returns, so that the depth
// of the data never becomes depth of the stack.
void free_nested(void *object) noexcept;

}  // namespace kiv
