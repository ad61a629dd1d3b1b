// Walks over the boxes of a patcher that survive what they call. Each stands on the stack of who
// walks and in the patcher's chain, from which the patcher moves them on or ends them.
#include "patcher/patcher.h"

namespace kiv {

BoxWalk::BoxWalk(Patcher *patcher) noexcept
    : patcher_(patcher), next_(patcher->first_box), outer_(patcher->walks) {
    patcher->walks = this;
}

BoxWalk::~BoxWalk() {
    if (patcher_) {
        patcher_->walks = outer_;
    }
}

Jbox *BoxWalk::next() noexcept {
    Jbox *box = patcher_ ? next_ : nullptr;
    if (box) {
        next_ = box->state->next;
    }
    return box;
}

void patcher_walks_skip(Patcher *patcher, Jbox *box) noexcept {
    for (BoxWalk *walk = patcher->walks; walk; walk = walk->outer_) {
        if (walk->next_ == box) {
            walk->next_ = box->state->next;
        }
    }
}

void patcher_walks_end(Patcher *patcher) noexcept {
    for (BoxWalk *walk = patcher->walks; walk; walk = walk->outer_) {
        walk->patcher_ = nullptr;
    }
    patcher->walks = nullptr;
}

}  // namespace kiv
